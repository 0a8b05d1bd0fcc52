// The filter setup window's controls and their wiring. Every rule about what may be added and
// how fields are read sits in FilterWindowModel; host look-ups run on a worker thread so the
// window keeps painting while a slow resolver answers.
#include "ui/shell/filter_setup_window.hpp"

#include <QApplication>
#include <QButtonGroup>
#include <QCheckBox>
#include <QFileDialog>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QRadioButton>
#include <QRegularExpressionValidator>
#include <QVBoxLayout>
#include <array>
#include <chrono>
#include <optional>
#include <string>

#include "common/paths.hpp"
#include "filters/filter_profile.hpp"
#include "filters/filter_window_model.hpp"
#include "ui/shell/background.hpp"
#include "ui/shell/dialogs.hpp"
#include "ui/shell/qt_text.hpp"

namespace vormelt::ui {
namespace {

constexpr int kTextListCount = 4;
constexpr int kSizeFieldDigits = 10;  // the largest 32-bit size has ten digits
constexpr std::array<Text, kRangeKindCount> kRangeLabels = {
    Text::FilterRangeSourceIn, Text::FilterRangeSourceNotIn, Text::FilterRangeDestIn,
    Text::FilterRangeDestNotIn, Text::FilterRangeEitherIn};
constexpr std::array<Text, kPortKindCount> kPortLabels = {
    Text::FilterSourcePort, Text::FilterSourceNotPort, Text::FilterDestPort,
    Text::FilterDestNotPort, Text::FilterEitherPort};
constexpr std::array<Text, kTextListCount> kTextListLabels = {
    Text::FilterMustContain, Text::FilterMustNotContain, Text::FilterExtensionsAllowed,
    Text::FilterExtensionsDenied};
constexpr std::array<const char*, kTextListCount> kTextListNames = {
    "mustContain", "mustNotContain", "extensionsAllowed", "extensionsDenied"};

std::string Utf8(const QLineEdit* field) { return field->text().toStdString(); }
QString FromUtf8(const std::string& text) { return QString::fromStdString(text); }

QLineEdit* NamedField(const char* name, QWidget* parent) {
  auto* field = new QLineEdit(parent);
  field->setObjectName(QString::fromLatin1(name));
  return field;
}

QPushButton* NamedButton(Text label, const char* name, QWidget* parent) {
  auto* button = new QPushButton(T(label), parent);
  button->setObjectName(QString::fromLatin1(name));
  return button;
}

QLineEdit* SizeField(const char* name, QWidget* parent) {
  QLineEdit* field = NamedField(name, parent);
  field->setValidator(new QRegularExpressionValidator(
      QRegularExpression(QStringLiteral("[0-9]{0,%1}").arg(kSizeFieldDigits)), field));
  field->setMaximumWidth(120);
  return field;
}

// One editable text list: its caption, the entry field with "+" and "X", and the items.
struct TextListControls {
  QGroupBox* box = nullptr;
  QLineEdit* entry = nullptr;
  QListWidget* items = nullptr;
};

enum class LookupKind { Resolve, Reverse, CopyToFilters };

}  // namespace

struct FilterSetupWindow::Impl {
  FilterSetupWindow* window;
  FilterSettings& settings;
  FilterMode mode;
  bool filteringEnabled;
  FilterWindowModel model;
  FilterWindowState state;
  bool changesApplied = false;
  bool enableRequested = false;
  bool closed = false;
  WindowState* place = nullptr;

  QLineEdit* resolverField = nullptr;
  std::array<QPushButton*, 3> resolverButtons{};
  QButtonGroup* rangeKinds = nullptr;
  std::array<QRadioButton*, kRangeKindCount> rangeRadios{};
  QLineEdit* fromField = nullptr;
  QLineEdit* toField = nullptr;
  QListWidget* rangeList = nullptr;
  std::array<QLineEdit*, kPortKindCount> portFields{};
  QGroupBox* protocolBox = nullptr;
  QCheckBox* tcp = nullptr;
  QCheckBox* udp = nullptr;
  QCheckBox* icmp = nullptr;
  QCheckBox* arp = nullptr;
  QCheckBox* other = nullptr;
  QGroupBox* packetSizeBox = nullptr;
  QLineEdit* minPacketSize = nullptr;
  QLineEdit* maxPacketSize = nullptr;
  QGroupBox* fileSizeBox = nullptr;
  QLineEdit* minFileSize = nullptr;
  QLineEdit* maxFileSize = nullptr;
  std::array<TextListControls, kTextListCount> textLists{};

  bool lookupRunning = false;
  LookupKind lookupKind = LookupKind::Resolve;

  Impl(FilterSetupWindow* w, FilterSettings& s, FilterMode m, bool enabled)
      : window(w), settings(s), mode(m), filteringEnabled(enabled) {}

  QWidget* BuildResolver();
  QWidget* BuildRanges();
  QWidget* BuildPorts();
  QWidget* BuildProtocols();
  QGroupBox* BuildSizes(Text minLabel, Text maxLabel, QLineEdit*& minField, QLineEdit*& maxField,
                        const char* minName, const char* maxName);
  QGroupBox* BuildTextList(TextList list);
  QLayout* BuildButtons();
  void Build();

  void Fill(const FilterProfile& profile);
  void SelectKind(int kind);
  void RefreshRanges();
  void RefreshTextList(TextList list);
  FilterProfile ProfileFromControls() const;
  void Message(Text caption, const QString& text, MessageIcon icon) const;
  // Shows the refusal of an add or remove, or the lists as they are now.
  void ShowRangeEdit(RangeEdit outcome);
  void StartLookup(LookupKind kind);
  void FinishLookup(const std::optional<std::string>& answer);
};

QWidget* FilterSetupWindow::Impl::BuildResolver() {
  auto* box = new QGroupBox(T(Text::FilterResolverGroup), window);
  auto* row = new QHBoxLayout(box);
  resolverField = NamedField("resolver", box);
  row->addWidget(resolverField, 1);
  resolverButtons = {NamedButton(Text::FilterResolve, "resolve", box),
                     NamedButton(Text::FilterReverseResolve, "reverseResolve", box),
                     NamedButton(Text::FilterCopyToFilters, "copyToFilters", box)};
  for (QPushButton* button : resolverButtons) row->addWidget(button);
  connect(resolverButtons[0], &QPushButton::clicked, window, &FilterSetupWindow::resolve);
  connect(resolverButtons[1], &QPushButton::clicked, window, &FilterSetupWindow::reverseResolve);
  connect(resolverButtons[2], &QPushButton::clicked, window, &FilterSetupWindow::copyToFilters);
  return box;
}

QWidget* FilterSetupWindow::Impl::BuildRanges() {
  auto* box = new QGroupBox(T(Text::FilterRangesGroup), window);
  auto* grid = new QGridLayout(box);
  rangeKinds = new QButtonGroup(box);
  auto* radios = new QVBoxLayout;
  for (int k = 0; k < kRangeKindCount; ++k) {
    rangeRadios[k] = new QRadioButton(box);
    rangeRadios[k]->setObjectName(QStringLiteral("rangeKind%1").arg(k + 1));
    rangeKinds->addButton(rangeRadios[k], k);
    radios->addWidget(rangeRadios[k]);
  }
  radios->addStretch(1);
  grid->addLayout(radios, 0, 0, 3, 1);

  auto* fields = new QHBoxLayout;
  fromField = NamedField("from", box);
  toField = NamedField("to", box);
  // Wide enough for the longest address, so nothing typed is scrolled out of sight.
  const int addressWidth =
      fromField->fontMetrics().horizontalAdvance(QStringLiteral("255.255.255.255")) + 16;
  for (QLineEdit* field : {fromField, toField}) {
    field->setPlaceholderText(QStringLiteral("0.0.0.0"));
    field->setMinimumWidth(addressWidth);
  }
  fields->addWidget(new QLabel(T(Text::FilterFrom), box));
  fields->addWidget(fromField);
  fields->addWidget(new QLabel(T(Text::FilterTo), box));
  fields->addWidget(toField);
  grid->addLayout(fields, 0, 1);

  rangeList = new QListWidget(box);
  rangeList->setObjectName(QStringLiteral("rangeList"));
  rangeList->setMinimumHeight(90);
  grid->addWidget(rangeList, 1, 1);

  auto* buttons = new QHBoxLayout;
  QPushButton* add = NamedButton(Text::FilterAddRange, "addRange", box);
  QPushButton* remove = NamedButton(Text::FilterRemoveSelected, "removeRange", box);
  buttons->addWidget(add);
  buttons->addWidget(remove);
  buttons->addStretch(1);
  grid->addLayout(buttons, 2, 1);
  grid->setColumnStretch(1, 1);

  connect(add, &QPushButton::clicked, window, &FilterSetupWindow::addRange);
  connect(remove, &QPushButton::clicked, window, &FilterSetupWindow::removeSelectedRange);
  connect(rangeKinds, &QButtonGroup::idClicked, window, [this](int kind) {
    model.SelectRangeKind(kind);
    RefreshRanges();
  });
  return box;
}

QWidget* FilterSetupWindow::Impl::BuildPorts() {
  auto* box = new QGroupBox(T(Text::FilterPortsGroup), window);
  auto* grid = new QGridLayout(box);
  for (int k = 0; k < kPortKindCount; ++k) {
    portFields[k] = NamedField(QStringLiteral("port%1").arg(k).toLatin1().constData(), box);
    grid->addWidget(new QLabel(T(kPortLabels[k]), box), k, 0);
    grid->addWidget(portFields[k], k, 1);
  }
  auto* note = new QLabel(FromCrLf(Tr(Text::FilterPortsNote, Language())) + QStringLiteral("\n") +
                              T(Text::FilterPortsZeroNote),
                          box);
  note->setWordWrap(true);
  grid->addWidget(note, kPortKindCount, 0, 1, 2);
  grid->setColumnStretch(1, 1);
  return box;
}

QWidget* FilterSetupWindow::Impl::BuildProtocols() {
  protocolBox = new QGroupBox(T(Text::FilterProtocols), window);
  auto* row = new QHBoxLayout(protocolBox);
  const auto check = [this](Text label, const char* name) {
    auto* box = new QCheckBox(T(label), protocolBox);
    box->setObjectName(QString::fromLatin1(name));
    return box;
  };
  tcp = check(Text::FilterTcp, "allowTcp");
  udp = check(Text::FilterUdp, "allowUdp");
  icmp = check(Text::FilterIcmp, "allowIcmp");
  arp = check(Text::FilterArp, "allowArp");
  other = check(Text::FilterOther, "allowOther");
  for (QCheckBox* box : {tcp, udp, icmp, arp, other}) row->addWidget(box);
  row->addStretch(1);
  return protocolBox;
}

QGroupBox* FilterSetupWindow::Impl::BuildSizes(Text minLabel, Text maxLabel, QLineEdit*& minField,
                                                QLineEdit*& maxField, const char* minName,
                                                const char* maxName) {
  auto* box = new QGroupBox(window);
  auto* grid = new QGridLayout(box);
  minField = SizeField(minName, box);
  maxField = SizeField(maxName, box);
  grid->addWidget(new QLabel(T(minLabel), box), 0, 0);
  grid->addWidget(minField, 0, 1);
  grid->addWidget(new QLabel(T(maxLabel), box), 1, 0);
  grid->addWidget(maxField, 1, 1);
  auto* note = new QLabel(T(Text::FilterSizesNote), box);
  note->setWordWrap(true);
  grid->addWidget(note, 2, 0, 1, 3);
  grid->setColumnStretch(2, 1);
  return box;
}

QGroupBox* FilterSetupWindow::Impl::BuildTextList(TextList list) {
  const int index = static_cast<int>(list);
  TextListControls& c = textLists[index];
  c.box = new QGroupBox(T(kTextListLabels[index]), window);
  auto* column = new QVBoxLayout(c.box);
  auto* entryRow = new QHBoxLayout;
  const std::string base = kTextListNames[index];
  c.entry = NamedField((base + "Entry").c_str(), c.box);
  QPushButton* add = NamedButton(Text::FilterAddItem, (base + "Add").c_str(), c.box);
  QPushButton* remove = NamedButton(Text::FilterRemoveItem, (base + "Remove").c_str(), c.box);
  for (QPushButton* button : {add, remove}) button->setMaximumWidth(32);
  entryRow->addWidget(c.entry, 1);
  entryRow->addWidget(add);
  entryRow->addWidget(remove);
  column->addLayout(entryRow);
  c.items = new QListWidget(c.box);
  c.items->setObjectName(QString::fromStdString(base + "List"));
  c.items->setMinimumHeight(70);
  column->addWidget(c.items);
  connect(add, &QPushButton::clicked, window, [this, list] { window->addText(list); });
  connect(remove, &QPushButton::clicked, window, [this, list] { window->removeText(list); });
  return c.box;
}

QLayout* FilterSetupWindow::Impl::BuildButtons() {
  auto* row = new QHBoxLayout;
  QPushButton* clear = NamedButton(Text::FilterClearAll, "clearAll", window);
  QPushButton* load = NamedButton(Text::FilterLoadProfile, "loadProfile", window);
  QPushButton* save = NamedButton(Text::FilterSaveProfile, "saveProfile", window);
  QPushButton* ok = NamedButton(Text::FilterOk, "ok", window);
  QPushButton* applyButton = NamedButton(Text::FilterApply, "apply", window);
  QPushButton* cancel = NamedButton(Text::FilterCancel, "cancel", window);
  ok->setDefault(true);
  for (QPushButton* b : {clear, load, save}) row->addWidget(b);
  row->addStretch(1);
  for (QPushButton* b : {ok, applyButton, cancel}) row->addWidget(b);

  const QString dialogFilter = T(Text::FilterProfileDialogFilter);
  const QString folder = QString::fromStdString(ConfigDirectory().string());
  connect(clear, &QPushButton::clicked, window, &FilterSetupWindow::clearAllFields);
  connect(load, &QPushButton::clicked, window, [this, dialogFilter, folder] {
    const QString path = QFileDialog::getOpenFileName(window, T(Text::FilterLoadProfile), folder,
                                                      dialogFilter);
    if (!path.isEmpty()) window->loadProfileFile(path);
  });
  connect(save, &QPushButton::clicked, window, [this, dialogFilter, folder] {
    QString path = QFileDialog::getSaveFileName(window, T(Text::FilterSaveProfile), folder,
                                                dialogFilter);
    if (path.isEmpty()) return;
    const QString extension = QString::fromLatin1(kFilterProfileExtension.data(),
                                                  kFilterProfileExtension.size());
    if (!path.endsWith(extension, Qt::CaseInsensitive)) path += extension;
    window->saveProfileFile(path);
  });
  connect(ok, &QPushButton::clicked, window, [this] {
    window->apply();
    window->accept();
  });
  connect(applyButton, &QPushButton::clicked, window, [this] { window->apply(); });
  connect(cancel, &QPushButton::clicked, window, &QDialog::reject);
  return row;
}

void FilterSetupWindow::Impl::Build() {
  window->setWindowTitle(T(Text::FilterWindowTitle));
  auto* outer = new QVBoxLayout(window);
  outer->addWidget(BuildResolver());

  auto* columns = new QHBoxLayout;
  auto* left = new QVBoxLayout;
  left->addWidget(BuildRanges());
  left->addWidget(BuildPorts());
  left->addStretch(1);
  auto* right = new QVBoxLayout;
  right->addWidget(BuildProtocols());
  packetSizeBox = BuildSizes(Text::FilterMinPacketSize, Text::FilterMaxPacketSize, minPacketSize,
                             maxPacketSize, "minPacketSize", "maxPacketSize");
  fileSizeBox = BuildSizes(Text::FilterMinFileSize, Text::FilterMaxFileSize, minFileSize,
                           maxFileSize, "minFileSize", "maxFileSize");
  right->addWidget(packetSizeBox);
  right->addWidget(fileSizeBox);
  for (int i = 0; i < kTextListCount; ++i) right->addWidget(BuildTextList(static_cast<TextList>(i)));
  right->addStretch(1);
  columns->addLayout(left, 1);
  columns->addLayout(right, 1);
  outer->addLayout(columns, 1);
  outer->addLayout(BuildButtons());

  // Each mode sees only the controls that filter what it keeps.
  const bool packetMode = mode == FilterMode::Packet;
  protocolBox->setVisible(packetMode);
  packetSizeBox->setVisible(packetMode);
  fileSizeBox->setVisible(!packetMode);
  textLists[static_cast<int>(TextList::MustContain)].box->setVisible(packetMode);
  textLists[static_cast<int>(TextList::MustNotContain)].box->setVisible(packetMode);
  textLists[static_cast<int>(TextList::ExtensionsAllowed)].box->setVisible(!packetMode);
  textLists[static_cast<int>(TextList::ExtensionsDenied)].box->setVisible(!packetMode);
}

void FilterSetupWindow::Impl::SelectKind(int kind) {
  model.SelectRangeKind(kind);
  if (model.selectedRangeKind() < 0) {
    // An exclusive group never lets its last checked button go; lift that for a moment.
    rangeKinds->setExclusive(false);
    for (QRadioButton* radio : rangeRadios) radio->setChecked(false);
    rangeKinds->setExclusive(true);
  } else {
    rangeRadios[model.selectedRangeKind()]->setChecked(true);
  }
  RefreshRanges();
}

void FilterSetupWindow::Impl::RefreshRanges() {
  for (int k = 0; k < kRangeKindCount; ++k) {
    rangeRadios[k]->setText(TF(kRangeLabels[k], model.RangeCount(static_cast<RangeKind>(k))));
  }
  rangeList->clear();
  if (model.selectedRangeKind() < 0) return;
  for (const std::string& item : model.RangeItems(static_cast<RangeKind>(model.selectedRangeKind()))) {
    rangeList->addItem(FromUtf8(item));
  }
}

void FilterSetupWindow::Impl::RefreshTextList(TextList list) {
  QListWidget* items = textLists[static_cast<int>(list)].items;
  items->clear();
  for (const std::string& text : model.Texts(list)) items->addItem(FromUtf8(text));
}

void FilterSetupWindow::Impl::Fill(const FilterProfile& profile) {
  model = FilterWindowModel(profile.values, profile.window.selectedRangeKind);
  state = profile.window;
  const FilterValues& v = profile.values;
  for (int k = 0; k < kPortKindCount; ++k) {
    portFields[k]->setText(FromUtf8(FormatPortField(v.Ports(static_cast<PortKind>(k)))));
  }
  const auto sizeText = [](std::uint32_t size) { return QString::number(size); };
  minPacketSize->setText(sizeText(v.minPacketSize));
  maxPacketSize->setText(sizeText(v.maxPacketSize));
  minFileSize->setText(sizeText(v.minFileSize));
  maxFileSize->setText(sizeText(v.maxFileSize));
  tcp->setChecked(v.allowTcp);
  udp->setChecked(v.allowUdp);
  icmp->setChecked(v.allowIcmp);
  arp->setChecked(v.allowArp);
  other->setChecked(v.allowOther);

  const FilterWindowState& w = profile.window;
  fromField->setText(FromUtf8(w.fromText));
  toField->setText(FromUtf8(w.toText));
  resolverField->setText(FromUtf8(w.resolverText));
  textLists[0].entry->setText(FromUtf8(w.mustContainEntry));
  textLists[1].entry->setText(FromUtf8(w.mustNotContainEntry));
  textLists[2].entry->setText(FromUtf8(w.extensionAllowedEntry));
  textLists[3].entry->setText(FromUtf8(w.extensionDeniedEntry));
  for (int i = 0; i < kTextListCount; ++i) RefreshTextList(static_cast<TextList>(i));
  SelectKind(w.selectedRangeKind);
}

FilterProfile FilterSetupWindow::Impl::ProfileFromControls() const {
  FilterProfile profile;
  FilterValues& v = profile.values;
  v = model.values();
  for (int k = 0; k < kPortKindCount; ++k) {
    v.Ports(static_cast<PortKind>(k)) = ParsePortField(Utf8(portFields[k]));
  }
  v.minPacketSize = ParseSizeField(Utf8(minPacketSize));
  v.maxPacketSize = ParseSizeField(Utf8(maxPacketSize));
  v.minFileSize = ParseSizeField(Utf8(minFileSize));
  v.maxFileSize = ParseSizeField(Utf8(maxFileSize));
  v.allowTcp = tcp->isChecked();
  v.allowUdp = udp->isChecked();
  v.allowIcmp = icmp->isChecked();
  v.allowArp = arp->isChecked();
  v.allowOther = other->isChecked();

  FilterWindowState& w = profile.window;
  w.selectedRangeKind = model.selectedRangeKind();
  w.fromText = Utf8(fromField);
  w.toText = Utf8(toField);
  w.resolverText = Utf8(resolverField);
  w.mustContainEntry = Utf8(textLists[0].entry);
  w.mustNotContainEntry = Utf8(textLists[1].entry);
  w.extensionAllowedEntry = Utf8(textLists[2].entry);
  w.extensionDeniedEntry = Utf8(textLists[3].entry);
  const QRect frame = window->geometry();
  w.geometry = WindowState{true, frame.x(), frame.y(), frame.width(), frame.height(), false, false};
  return profile;
}

void FilterSetupWindow::Impl::Message(Text caption, const QString& text, MessageIcon icon) const {
  ShowMessage(window, MessageRequest{T(caption), text, icon, MessageButtons::Ok, MessageAnswer::Ok});
}

void FilterSetupWindow::Impl::ShowRangeEdit(RangeEdit outcome) {
  switch (outcome) {
    case RangeEdit::NullAddress:
      Message(Text::FilterWindowTitle, T(Text::FilterNullIp), MessageIcon::Stop);
      return;
    case RangeEdit::NoKindSelected:
      Message(Text::FilterNoTypeCaption, T(Text::FilterNoTypeSelected), MessageIcon::Stop);
      return;
    case RangeEdit::NoItemSelected:
      Message(Text::FilterNoneCaption, T(Text::FilterNoItemSelected), MessageIcon::Stop);
      return;
    case RangeEdit::Done:
    case RangeEdit::Duplicate:
      RefreshRanges();
  }
}

void FilterSetupWindow::Impl::StartLookup(LookupKind kind) {
  if (lookupRunning) return;  // one look-up at a time
  lookupRunning = true;
  lookupKind = kind;
  const std::string text = Utf8(resolverField);
  for (QPushButton* button : resolverButtons) button->setEnabled(false);
  QApplication::setOverrideCursor(Qt::WaitCursor);
  RunInBackground(
      window,
      [kind, text] {
        return kind == LookupKind::Reverse ? ReverseResolveAddress(text) : ResolveHostName(text);
      },
      [this](const std::optional<std::string>& answer) { FinishLookup(answer); });
}

void FilterSetupWindow::Impl::FinishLookup(const std::optional<std::string>& answer) {
  lookupRunning = false;
  QApplication::restoreOverrideCursor();
  for (QPushButton* button : resolverButtons) button->setEnabled(true);
  if (!answer) {
    const Text failure =
        lookupKind == LookupKind::Reverse ? Text::FilterReverseFailed : Text::FilterResolveFailed;
    Message(Text::FilterWindowTitle, T(failure), MessageIcon::Warning);
    return;
  }
  resolverField->setText(FromUtf8(*answer));
  if (lookupKind == LookupKind::CopyToFilters) {
    fromField->setText(FromUtf8(*answer));
    toField->setText(FromUtf8(*answer));
  }
}

FilterSetupWindow::FilterSetupWindow(FilterSettings& settings, FilterMode mode,
                                     bool filteringEnabled, QWidget* parent, WindowState* place)
    : QDialog(parent), impl_(std::make_unique<Impl>(this, settings, mode, filteringEnabled)) {
  impl_->place = place;
  impl_->Build();
  // The window opens as it was last applied; a missing or damaged profile is no reason to
  // bother the user here (start-up has already said so), so it shows the live settings.
  const ProfileResult current = LoadFilterProfile(CurrentProfilePath(mode));
  impl_->Fill(current.ok() ? *current.profile : ProfileFromSettings(settings));
  // A profile saved before the mode kept the place carries it: used until the mode has one.
  const WindowState& g = place && place->valid ? *place : impl_->state.geometry;
  if (g.valid && g.width > 0 && g.height > 0) setGeometry(g.x, g.y, g.width, g.height);
}

FilterSetupWindow::~FilterSetupWindow() {
  // A look-up still running is not waited for: its answer is dropped with this window.
  if (impl_->lookupRunning) QApplication::restoreOverrideCursor();
}

bool FilterSetupWindow::changesApplied() const { return impl_->changesApplied; }
bool FilterSetupWindow::enableFilteringRequested() const { return impl_->enableRequested; }
bool FilterSetupWindow::lookupInProgress() const { return impl_->lookupRunning; }

void FilterSetupWindow::addRange() {
  impl_->ShowRangeEdit(impl_->model.AddRange(Utf8(impl_->fromField), Utf8(impl_->toField)));
}

void FilterSetupWindow::removeSelectedRange() {
  impl_->ShowRangeEdit(impl_->model.RemoveRange(impl_->rangeList->currentRow()));
}

void FilterSetupWindow::addText(TextList list) {
  const QLineEdit* entry = impl_->textLists[static_cast<int>(list)].entry;
  if (impl_->model.AddText(list, Utf8(entry))) impl_->RefreshTextList(list);
}

void FilterSetupWindow::removeText(TextList list) {
  const int row = impl_->textLists[static_cast<int>(list)].items->currentRow();
  if (!impl_->model.RemoveText(list, row)) {
    impl_->Message(Text::FilterNoneCaption, T(Text::FilterNoItemSelected), MessageIcon::Stop);
    return;
  }
  impl_->RefreshTextList(list);
}

void FilterSetupWindow::clearAllFields() {
  FilterProfile empty;
  empty.window.selectedRangeKind = impl_->model.selectedRangeKind();
  impl_->Fill(empty);
}

bool FilterSetupWindow::apply() {
  FilterProfile profile = impl_->ProfileFromControls();
  impl_->settings.SetAll(profile.values);
  impl_->changesApplied = true;
  // Show the ports as they were understood: a zero or a stray character is gone now.
  for (int k = 0; k < kPortKindCount; ++k) {
    impl_->portFields[k]->setText(
        FromUtf8(FormatPortField(profile.values.Ports(static_cast<PortKind>(k)))));
  }
  const std::filesystem::path file = CurrentProfilePath(impl_->mode);
  const ProfileResult saved = SaveFilterProfile(profile, file);
  if (saved.ok()) return true;
  impl_->Message(Text::FilterProfileCaption,
                 FromUtf8(DescribeProfileProblem(saved, file, Language())), MessageIcon::Warning);
  return false;
}

bool FilterSetupWindow::loadProfileFile(const QString& path) {
  const std::filesystem::path file = path.toStdString();
  const ProfileResult loaded = LoadFilterProfile(file);
  if (!loaded.ok()) {
    impl_->Message(Text::FilterProfileCaption,
                   FromUtf8(DescribeProfileProblem(loaded, file, Language())), MessageIcon::Stop);
    return false;
  }
  impl_->Fill(*loaded.profile);
  return true;
}

bool FilterSetupWindow::saveProfileFile(const QString& path) {
  const std::filesystem::path file = path.toStdString();
  const ProfileResult saved = SaveFilterProfile(impl_->ProfileFromControls(), file);
  if (saved.ok()) return true;
  impl_->Message(Text::FilterProfileCaption,
                 FromUtf8(DescribeProfileProblem(saved, file, Language())), MessageIcon::Stop);
  return false;
}

void FilterSetupWindow::resolve() { impl_->StartLookup(LookupKind::Resolve); }
void FilterSetupWindow::reverseResolve() { impl_->StartLookup(LookupKind::Reverse); }
void FilterSetupWindow::copyToFilters() { impl_->StartLookup(LookupKind::CopyToFilters); }

void FilterSetupWindow::done(int result) {
  if (impl_->place && !impl_->closed) {
    const QRect frame = geometry();
    *impl_->place = WindowState{true, frame.x(), frame.y(), frame.width(), frame.height(), false, false};
  }
  QDialog::done(result);
  if (impl_->closed) return;
  impl_->closed = true;
  if (!impl_->changesApplied || impl_->filteringEnabled) return;
  const MessageAnswer answer = ShowMessage(
      parentWidget(),
      MessageRequest{T(Text::FilterEnableCaption),
                     FromCrLf(Tr(Text::FilterEnableQuestion, Language())), MessageIcon::Question,
                     MessageButtons::YesNo, MessageAnswer::No});
  impl_->enableRequested = answer == MessageAnswer::Yes;
}

}  // namespace vormelt::ui
