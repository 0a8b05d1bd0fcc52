// The detail pane's widgets: value boxes in groups that appear per EtherType and IP protocol,
// the level and form controls, the two dump boxes, and the Hex viewer it feeds. Every text and
// every byte position comes from the decoder; the pane only places them.
#include "ui/packetmode/packet_details_pane.hpp"

#include <QButtonGroup>
#include <QCheckBox>
#include <QComboBox>
#include <QEvent>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMouseEvent>
#include <QPlainTextEdit>
#include <QPointer>
#include <QRadioButton>
#include <QScrollArea>
#include <QScrollBar>
#include <QShowEvent>
#include <QTimer>
#include <QVBoxLayout>
#include <algorithm>
#include <array>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "common/settings.hpp"
#include "packets/decoder.hpp"
#include "packets/list_row.hpp"
#include "packets/names.hpp"
#include "packets/store.hpp"
#include "ui/shell/dialogs.hpp"
#include "ui/tools/hex_viewer_window.hpp"
#include "packetmode/packet_find.hpp"
#include "ui/shell/qt_text.hpp"

namespace vormelt::ui {
namespace {

// The receive thread may list a row a moment before the record behind it is published.
constexpr int kDumpFontPointSize = 10;

// Which visibility group a field belongs to.
enum class Group { Always, Arp, Ipv4, IpBoxes, Ports, Tcp, Icmp, Ipv6, AnyIp };
// How wide a value box is: numbers, addresses and names (longer names show in the tool tip),
// or the EtherType with its name, which fits the longest name the table knows up to twice a
// name box (beyond that the pane would no longer fit beside the list on a laptop screen).
enum class Width { Number, Name, EtherType };
// Sample texts that size the boxes in the pane's own font.
constexpr const char* kNumberSample = "4294967295";
constexpr const char* kNameSample = "0x0800 - DoD Internet Pro";
constexpr int kBoxMargin = 16;

int EtherTypeBoxWidth(const QFontMetrics& metrics) {
  int widest = 0;
  const char* last = nullptr;
  for (std::uint32_t code = 0; code <= 0xFFFF; ++code) {
    const char* name = names::EtherTypeName(static_cast<std::uint16_t>(code));
    // A range of codes shares one text: measured once.
    if (!name || name == last) continue;
    last = name;
    const QString shown = QStringLiteral("0x%1 - %2").arg(QString::number(code, 16).toUpper(),
                                                           QString::fromUtf8(name));
    widest = std::max(widest, metrics.horizontalAdvance(shown));
  }
  return widest;
}

// One value box with its label: what it shows and which bytes a click on it selects.
struct FieldInfo {
  Text label;
  const char* name;
  std::string PacketDetails::*text;
  std::optional<DetailField> field;
  Group group;
  Width width;
};

// Source boxes on the left with their labels before them, destination boxes on the right with
// their labels after them (":MAC", ":IP", ...), one pair per row.
constexpr std::array<FieldInfo, 8> kPairFields = {{
    {Text::LabelSourceMac, "sourceMac", &PacketDetails::sourceMac, DetailField::SourceMac, Group::Always, Width::Name},
    {Text::LabelDestinationMac, "destinationMac", &PacketDetails::destinationMac, DetailField::DestinationMac, Group::Always, Width::Name},
    {Text::LabelSourceIp, "sourceIp", &PacketDetails::sourceIp, DetailField::SourceIp, Group::IpBoxes, Width::Name},
    {Text::LabelDestinationIp, "destinationIp", &PacketDetails::destinationIp, DetailField::DestinationIp, Group::IpBoxes, Width::Name},
    {Text::LabelSourcePort, "sourcePort", &PacketDetails::sourcePort, DetailField::SourcePort, Group::Ports, Width::Name},
    {Text::LabelDestinationPort, "destinationPort", &PacketDetails::destinationPort, DetailField::DestinationPort, Group::Ports, Width::Name},
    {Text::LabelSourcePortUse, "sourcePortName", &PacketDetails::sourcePortName, DetailField::SourcePortName, Group::Ports, Width::Name},
    {Text::LabelDestinationPortUse, "destinationPortName", &PacketDetails::destinationPortName, DetailField::DestinationPortName, Group::Ports, Width::Name},
}};

// Two label/box pairs per row.
constexpr std::array<FieldInfo, 15> kSingleFields = {{
    {Text::LabelEthernetProtocol, "etherType", &PacketDetails::etherTypeText, DetailField::EtherType, Group::Always, Width::EtherType},
    {Text::LabelPacketSize, "packetSize", &PacketDetails::packetSize, DetailField::PacketSize, Group::Always, Width::Number},
    {Text::LabelPacketType, "packetType", &PacketDetails::packetType, DetailField::PacketType, Group::AnyIp, Width::Name},
    {Text::LabelProtocolNumber, "protocolNumber", &PacketDetails::protocolNumber, DetailField::ProtocolNumber, Group::AnyIp, Width::Number},
    {Text::LabelTtl, "ttl", &PacketDetails::ttl, DetailField::Ttl, Group::Ipv4, Width::Number},
    {Text::LabelIpChecksum, "ipChecksum", &PacketDetails::checksum, DetailField::IpChecksum, Group::Ipv4, Width::Number},
    {Text::PaneTrafficClass, "trafficClass", &PacketDetails::trafficClass, DetailField::TrafficClass, Group::Ipv6, Width::Number},
    {Text::PaneFlowLabel, "flowLabel", &PacketDetails::flowLabel, DetailField::FlowLabel, Group::Ipv6, Width::Number},
    {Text::PanePayloadLength, "payloadLength", &PacketDetails::payloadLength, DetailField::PayloadLength, Group::Ipv6, Width::Number},
    {Text::PaneHopLimit, "hopLimit", &PacketDetails::hopLimit, DetailField::HopLimit, Group::Ipv6, Width::Number},
    {Text::LabelHardwareAddressSpace, "arpHardwareType", &PacketDetails::arpHardwareType, DetailField::ArpHardwareType, Group::Arp, Width::Name},
    {Text::LabelProtocolAddressSpace, "arpProtocolType", &PacketDetails::arpProtocolType, DetailField::ArpProtocolType, Group::Arp, Width::Name},
    {Text::LabelOptionCodeFunction, "arpOperation", &PacketDetails::arpOperation, DetailField::ArpOperation, Group::Arp, Width::Name},
    {Text::LabelHardwareAddressLength, "arpHardwareLength", &PacketDetails::arpHardwareLength, DetailField::ArpHardwareLength, Group::Arp, Width::Number},
    {Text::LabelProtocolAddressLength, "arpProtocolLength", &PacketDetails::arpProtocolLength, DetailField::ArpProtocolLength, Group::Arp, Width::Number},
}};

constexpr std::array<FieldInfo, 3> kTcpFields = {{
    {Text::LabelWindow, "window", &PacketDetails::window, DetailField::Window, Group::Tcp, Width::Number},
    {Text::LabelSequence, "sequence", &PacketDetails::sequence, DetailField::Sequence, Group::Tcp, Width::Number},
    {Text::LabelAcknowledgement, "acknowledgement", &PacketDetails::acknowledgement, DetailField::Acknowledgement, Group::Tcp, Width::Number},
}};

constexpr std::array<FieldInfo, 2> kIcmpFields = {{
    {Text::LabelIcmpType, "icmpType", &PacketDetails::icmpType, std::nullopt, Group::Icmp, Width::Name},
    {Text::LabelIcmpCode, "icmpCode", &PacketDetails::icmpCode, std::nullopt, Group::Icmp, Width::Name},
}};

struct FlagInfo {
  Text label;
  const char* name;
  bool TcpFlagsShown::*shown;
};
constexpr std::array<FlagInfo, 6> kFlags = {{
    {Text::LabelFlagUrg, "flagUrg", &TcpFlagsShown::urg},
    {Text::LabelFlagAck, "flagAck", &TcpFlagsShown::ack},
    {Text::LabelFlagPsh, "flagPsh", &TcpFlagsShown::psh},
    {Text::LabelFlagRst, "flagRst", &TcpFlagsShown::rst},
    {Text::LabelFlagSyn, "flagSyn", &TcpFlagsShown::syn},
    {Text::LabelFlagFin, "flagFin", &TcpFlagsShown::fin},
}};

constexpr std::array<Text, kDataLevelCount> kLevelLabels = {
    Text::LevelDatalink, Text::LevelNetwork, Text::LevelTransport, Text::LevelPresentation};
struct FormInfo {
  Text label;
  const char* name;
  DumpForm form;
};
constexpr std::array<FormInfo, 3> kForms = {{
    {Text::DumpFormText, "dumpText", DumpForm::Text},
    {Text::DumpFormDec, "dumpDec", DumpForm::Dec},
    {Text::DumpFormHex, "dumpHex", DumpForm::Hex},
}};

// Calls back on the events the pane reacts to in widgets it does not subclass.
class EventHook : public QObject {
 public:
  using Handler = std::function<void(QObject*, QEvent*)>;
  EventHook(Handler handler, QObject* parent) : QObject(parent), handler_(std::move(handler)) {}

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override {
    handler_(watched, event);
    return false;
  }

 private:
  Handler handler_;
};

// One value box and what belongs to it.
struct Field {
  const FieldInfo* info = nullptr;
  QLabel* label = nullptr;
  QLineEdit* box = nullptr;
};

QPlainTextEdit* MakeDumpBox(const char* name, bool wrap, const QFont& font) {
  auto* box = new QPlainTextEdit;
  box->setObjectName(QString::fromLatin1(name));
  box->setReadOnly(true);
  box->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
  box->setLineWrapMode(wrap ? QPlainTextEdit::WidgetWidth : QPlainTextEdit::NoWrap);
  box->setFont(font);
  // Field selections are made while the value box has the focus.
  ShowSelectionWithoutFocus(*box);
  return box;
}

}  // namespace

struct PacketDetailsPane::Impl {
  Impl(PacketDetailsPane& pane, const PacketStore& store, ProgramSettings& settings)
      : pane(pane), store(store), settings(settings) {}

  void Build();
  QWidget* BuildFields();
  QWidget* BuildDumpArea();
  Field& AddField(const FieldInfo& info, QWidget* owner);
  QGroupBox* BuildTcpGroup();
  QGroupBox* BuildIcmpGroup();
  void LoadControls();
  void Connect();

  void Show(std::uint32_t storeIndex);
  void Reshow();
  void ShowUnreadable(std::uint32_t storeIndex, PacketRef packet);
  void ApplyLayout(const PaneLayout& layout);
  void FillFields(const PacketDetails& details);
  void FillDump(std::span<const std::uint8_t> bytes);
  void ApplyWrap();
  void SelectField(DetailField field);
  void ClearFields();
  void OnFieldEvent(QObject* watched, QEvent* event);
  void ShowVendor(const QLineEdit& macBox);
  void FeedHexViewer();

  DataLevel Level() const { return static_cast<DataLevel>(std::max(level->currentIndex(), 0)); }
  DumpForm Form() const { return static_cast<DumpForm>(std::max(forms->checkedId(), 0)); }
  QPlainTextEdit& ShownDump() const { return settings.packetMode.wrapDump ? *wrappedDump : *scrollingDump; }
  QPlainTextEdit& OtherDump() const { return settings.packetMode.wrapDump ? *scrollingDump : *wrappedDump; }
  bool HexViewerShown() const { return hexViewerWindow && hexViewerWindow->isVisible(); }

  PacketDetailsPane& pane;
  const PacketStore& store;
  ProgramSettings& settings;
  PaneLayoutMemory layoutMemory;
  std::optional<std::uint32_t> shownIndex;
  std::optional<DetailField> selectedField;  // kept across level and form changes
  std::string dumpText;                      // the dump as rendered, with CR LF breaks
  bool shownOnce = false;

  std::vector<Field> fields;
  QLineEdit* sourceMacBox = nullptr;
  QLineEdit* destinationMacBox = nullptr;
  QLineEdit* sourceIpBox = nullptr;
  QLineEdit* destinationIpBox = nullptr;
  QLineEdit* protocolNumberBox = nullptr;
  QLabel* sourceMacLabel = nullptr;
  QLabel* destinationMacLabel = nullptr;
  std::array<QLabel*, kFlags.size()> flagLabels{};
  QGroupBox* tcpGroup = nullptr;
  QGroupBox* icmpGroup = nullptr;
  QComboBox* level = nullptr;
  QButtonGroup* forms = nullptr;
  QCheckBox* wrap = nullptr;
  QPlainTextEdit* wrappedDump = nullptr;
  QPlainTextEdit* scrollingDump = nullptr;
  // Owned here, not by the pane: it must go with this Impl, before the widgets it watches send
  // their last focus events on the way out.
  std::unique_ptr<EventHook> hook;
  QPointer<HexViewerWindow> hexViewerWindow;
};

// ---- building -------------------------------------------------------------------------------

void PacketDetailsPane::Impl::Build() {
  hook = std::make_unique<EventHook>(
      [this](QObject* watched, QEvent* event) { OnFieldEvent(watched, event); }, nullptr);
  fields.reserve(kPairFields.size() + kSingleFields.size() + kTcpFields.size() + kIcmpFields.size());

  auto* fieldsArea = new QScrollArea;
  fieldsArea->setObjectName(QStringLiteral("fieldsArea"));
  fieldsArea->setFrameShape(QFrame::NoFrame);
  fieldsArea->setWidgetResizable(true);
  fieldsArea->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
  fieldsArea->setWidget(BuildFields());
  fieldsArea->setFixedWidth(fieldsArea->widget()->sizeHint().width() +
                            fieldsArea->verticalScrollBar()->sizeHint().width());

  auto* layout = new QHBoxLayout(&pane);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->addWidget(fieldsArea, 0);
  layout->addWidget(BuildDumpArea(), 1);

  LoadControls();
  // Until the first packet arrives the pane shows the common IPv4/TCP arrangement, so it does
  // not change its shape on the first selection of a typical capture.
  ApplyLayout(PaneLayout{false, true, true, true, true, false});
  ApplyWrap();
  Connect();
}

Field& PacketDetailsPane::Impl::AddField(const FieldInfo& info, QWidget* owner) {
  Field& field = fields.emplace_back();
  field.info = &info;
  field.label = new QLabel(T(info.label), owner);
  field.box = new QLineEdit(owner);
  field.box->setObjectName(QString::fromLatin1(info.name));
  field.box->setReadOnly(true);
  field.label->setObjectName(QString::fromLatin1(info.name) + QStringLiteral("Label"));
  field.label->setBuddy(field.box);
  field.box->installEventFilter(hook.get());
  const QFontMetrics metrics(field.box->font());
  const char* sample = info.width == Width::Number ? kNumberSample : kNameSample;
  const int name = metrics.horizontalAdvance(QString::fromLatin1(sample));
  const int text = info.width == Width::EtherType
                       ? std::min(EtherTypeBoxWidth(metrics), 2 * name)
                       : name;
  field.box->setFixedWidth(text + kBoxMargin);
  return field;
}

QWidget* PacketDetailsPane::Impl::BuildFields() {
  auto* host = new QWidget;
  auto* column = new QVBoxLayout(host);
  column->setContentsMargins(6, 6, 6, 6);

  auto* pairs = new QGridLayout;
  for (std::size_t i = 0; i < kPairFields.size(); ++i) {
    Field& field = AddField(kPairFields[i], host);
    const int row = static_cast<int>(i / 2);
    const bool source = i % 2 == 0;
    pairs->addWidget(field.label, row, source ? 0 : 3, source ? Qt::AlignRight : Qt::AlignLeft);
    pairs->addWidget(field.box, row, source ? 1 : 2);
  }
  pairs->setColumnStretch(4, 1);
  column->addLayout(pairs);

  auto* singles = new QGridLayout;
  int row = 0;
  for (const FieldInfo& info : kSingleFields) {
    Field& field = AddField(info, host);
    singles->addWidget(field.label, row, 0, Qt::AlignRight);
    singles->addWidget(field.box, row++, 1, Qt::AlignLeft);
  }
  singles->setRowStretch(row, 1);

  // The protocol groups stand beside the header fields, so the pane stays low enough to sit
  // under the packet list.
  auto* groups = new QVBoxLayout;
  groups->addWidget(BuildTcpGroup());
  groups->addWidget(BuildIcmpGroup());
  groups->addStretch(1);
  auto* lower = new QHBoxLayout;
  lower->addLayout(singles);
  lower->addLayout(groups);
  column->addLayout(lower);
  column->addStretch(1);

  const auto named = [this](const char* name) -> Field& {
    return *std::find_if(fields.begin(), fields.end(), [name](const Field& field) {
      return field.box->objectName() == QLatin1String(name);
    });
  };
  sourceMacBox = named("sourceMac").box;
  sourceMacLabel = named("sourceMac").label;
  destinationMacBox = named("destinationMac").box;
  destinationMacLabel = named("destinationMac").label;
  sourceIpBox = named("sourceIp").box;
  destinationIpBox = named("destinationIp").box;
  protocolNumberBox = named("protocolNumber").box;
  // The MAC labels name the vendor of the address beside them when clicked.
  for (QLabel* label : {sourceMacLabel, destinationMacLabel}) {
    label->setCursor(Qt::PointingHandCursor);
    label->installEventFilter(hook.get());
  }
  return host;
}

QGroupBox* PacketDetailsPane::Impl::BuildTcpGroup() {
  tcpGroup = new QGroupBox(T(Text::LabelTcpSpecific));
  tcpGroup->setObjectName(QStringLiteral("tcpGroup"));
  auto* grid = new QGridLayout(tcpGroup);
  int row = 0;
  for (const FieldInfo& info : kTcpFields) {
    Field& field = AddField(info, tcpGroup);
    grid->addWidget(field.label, row, 0, Qt::AlignRight);
    grid->addWidget(field.box, row++, 1, Qt::AlignLeft);
  }
  auto* flags = new QHBoxLayout;
  for (std::size_t i = 0; i < kFlags.size(); ++i) {
    auto* label = new QLabel(T(kFlags[i].label), tcpGroup);
    label->setObjectName(QString::fromLatin1(kFlags[i].name));
    QFont bold = label->font();
    bold.setBold(true);
    label->setFont(bold);
    // Hidden flags keep their place, so each flag always appears at the same spot.
    QSizePolicy policy = label->sizePolicy();
    policy.setRetainSizeWhenHidden(true);
    label->setSizePolicy(policy);
    label->hide();
    flags->addWidget(label);
    flagLabels[i] = label;
  }
  flags->addStretch(1);
  grid->addLayout(flags, row, 0, 1, 2);
  return tcpGroup;
}

QGroupBox* PacketDetailsPane::Impl::BuildIcmpGroup() {
  icmpGroup = new QGroupBox(T(Text::LabelIcmpSpecific));
  icmpGroup->setObjectName(QStringLiteral("icmpGroup"));
  auto* grid = new QGridLayout(icmpGroup);
  int row = 0;
  for (const FieldInfo& info : kIcmpFields) {
    Field& field = AddField(info, icmpGroup);
    grid->addWidget(field.label, row, 0, Qt::AlignRight);
    grid->addWidget(field.box, row++, 1);
  }
  grid->setRowStretch(row, 1);
  return icmpGroup;
}

QWidget* PacketDetailsPane::Impl::BuildDumpArea() {
  auto* host = new QWidget;
  auto* column = new QVBoxLayout(host);
  column->setContentsMargins(0, 6, 6, 6);

  auto* controls = new QHBoxLayout;
  level = new QComboBox;
  level->setObjectName(QStringLiteral("dataLevel"));
  for (Text label : kLevelLabels) level->addItem(T(label));
  controls->addWidget(level);
  forms = new QButtonGroup(host);
  for (const FormInfo& info : kForms) {
    auto* button = new QRadioButton(T(info.label));
    button->setObjectName(QString::fromLatin1(info.name));
    forms->addButton(button, static_cast<int>(info.form));
    controls->addWidget(button);
  }
  // Chooses which of the two dump boxes below is shown: the wrapping or the scrolling one.
  wrap = new QCheckBox(T(Text::PaneWrapDump));
  wrap->setObjectName(QStringLiteral("wrapDump"));
  controls->addWidget(wrap);
  controls->addStretch(1);
  column->addLayout(controls);

  const QFont font = FixedFont(kDumpFontPointSize);
  wrappedDump = MakeDumpBox("wrappedDump", true, font);
  scrollingDump = MakeDumpBox("scrollingDump", false, font);
  column->addWidget(wrappedDump, 1);
  column->addWidget(scrollingDump, 1);
  return host;
}

void PacketDetailsPane::Impl::LoadControls() {
  const PacketModeSettings& mode = settings.packetMode;
  level->setCurrentIndex(std::clamp(mode.dataLevel, 0, kDataLevelCount - 1));
  QAbstractButton* form = forms->button(mode.dumpForm);
  (form ? form : forms->button(static_cast<int>(DumpForm::Hex)))->setChecked(true);
  wrap->setChecked(mode.wrapDump);
}

void PacketDetailsPane::Impl::Connect() {
  QObject::connect(level, &QComboBox::currentIndexChanged, &pane, [this](int index) {
    settings.packetMode.dataLevel = index;
    Reshow();
  });
  QObject::connect(forms, &QButtonGroup::idToggled, &pane, [this](int id, bool checked) {
    if (!checked) return;
    settings.packetMode.dumpForm = id;
    Reshow();
  });
  QObject::connect(wrap, &QCheckBox::toggled, &pane, [this](bool on) {
    settings.packetMode.wrapDump = on;
    ApplyWrap();
    Reshow();
  });
}

// ---- showing a packet -----------------------------------------------------------------------

void PacketDetailsPane::Impl::Show(std::uint32_t storeIndex) {
  shownIndex = storeIndex;
  // The store publishes a packet's record before its row, so a listed row always has one; a
  // row that has none was deleted or cleared and says so.
  const PacketRef packet = store.Get(static_cast<std::int32_t>(storeIndex));
  if (!packet.frame) {
    ShowUnreadable(storeIndex, packet);
    return;
  }
  ListTextBuffer sourceMac{};
  ListTextBuffer destinationMac{};
  const PacketDetails details = DecodePacket(
      packet, Language(), Level(), ListColumnText(packet, nullptr, ListColumn::SourceMac, sourceMac),
      ListColumnText(packet, nullptr, ListColumn::DestinationMac, destinationMac));
  if (layoutMemory.Apply(details.etherType, details.ipProtocol)) ApplyLayout(layoutMemory.layout());
  FillFields(details);
  FillDump(details.dataBytes);
  if (HexViewerShown()) hexViewerWindow->showBytes(details.dataBytes);
  if (selectedField) SelectField(*selectedField);
}

void PacketDetailsPane::Impl::Reshow() {
  if (shownIndex) Show(*shownIndex);
}

void PacketDetailsPane::Impl::ShowUnreadable(std::uint32_t storeIndex, PacketRef packet) {
  shownIndex.reset();
  selectedField.reset();
  ClearFields();
  if (hexViewerWindow) hexViewerWindow->clearBytes();
  const UnreadableRecordNotice notice = UnreadableRecord(packet.networkLength());
  dumpText.clear();
  for (QPlainTextEdit* box : {wrappedDump, scrollingDump}) box->setPlainText(T(notice.dumpText));
  const MessageAnswer answer =
      ShowMessage(&pane, MessageRequest{T(notice.caption), T(notice.question), MessageIcon::Question,
                                        MessageButtons::YesNo, MessageAnswer::No});
  if (answer != MessageAnswer::Yes) return;
  // Queued: the window deletes the row, which changes the list selection that brought us here.
  QTimer::singleShot(0, &pane, [pane = &pane, storeIndex] { emit pane->deleteRowRequested(storeIndex); });
}

void PacketDetailsPane::Impl::ApplyLayout(const PaneLayout& layout) {
  const auto visible = [&layout](Group group) {
    switch (group) {
      case Group::Always: return true;
      case Group::Arp: return layout.arpFields;
      case Group::Ipv4: return layout.ipv4Fields;
      case Group::IpBoxes: return layout.ipBoxes;
      case Group::Ports: return layout.portFields;
      case Group::Tcp: return layout.tcpGroup;
      case Group::Icmp: return layout.icmpGroup;
      case Group::Ipv6: return layout.ipv6Fields;
      case Group::AnyIp: return layout.ipv4Fields || layout.ipv6Fields;
    }
    return true;
  };
  for (const Field& field : fields) {
    const bool shown = visible(field.info->group);
    field.label->setVisible(shown);
    field.box->setVisible(shown);
  }
  tcpGroup->setVisible(layout.tcpGroup);
  icmpGroup->setVisible(layout.icmpGroup);
}

void PacketDetailsPane::Impl::FillFields(const PacketDetails& details) {
  for (const Field& field : fields) {
    const bool address = field.box == sourceIpBox || field.box == destinationIpBox;
    // Packets without addresses of their own leave the address boxes as they were.
    if (address && !details.addressesSet) continue;
    const QString text = FromCrLf(details.*(field.info->text));
    field.box->setText(text);
    field.box->setCursorPosition(0);
    field.box->setToolTip(text);
  }
  for (std::size_t i = 0; i < kFlags.size(); ++i) {
    flagLabels[i]->setVisible(details.flags.*(kFlags[i].shown));
  }
}

void PacketDetailsPane::Impl::FillDump(std::span<const std::uint8_t> bytes) {
  dumpText.clear();
  AppendPaneDump(dumpText, bytes, Form());
  OtherDump().clear();
  ShownDump().setPlainText(FromCrLf(dumpText));
}

void PacketDetailsPane::Impl::ApplyWrap() {
  wrappedDump->setVisible(settings.packetMode.wrapDump);
  scrollingDump->setVisible(!settings.packetMode.wrapDump);
}

void PacketDetailsPane::Impl::ClearFields() {
  for (const Field& field : fields) {
    field.box->clear();
    field.box->setToolTip(QString());
  }
  for (QLabel* flag : flagLabels) flag->hide();
}

// ---- field selection and the vendor look-up -------------------------------------------------

void PacketDetailsPane::Impl::SelectField(DetailField field) {
  if (!shownIndex) return;
  const PacketRef packet = store.Get(static_cast<std::int32_t>(*shownIndex));
  if (!packet.frame) return;
  selectedField = field;
  // Ports and TCP fields follow what the pane says the protocol is.
  const auto shownProtocol = static_cast<std::uint8_t>(protocolNumberBox->text().toUInt());
  const std::optional<TextSelection> selection =
      FieldSelection(packet, Level(), Form(), field, shownProtocol);
  if (!selection) {
    QTextCursor cursor = ShownDump().textCursor();
    cursor.clearSelection();
    ShownDump().setTextCursor(cursor);
    return;
  }
  SelectCrLfRange(ShownDump(), dumpText, selection->start, selection->end);
  if (!HexViewerShown()) return;
  if (const auto inViewer = HexViewerFieldSelection(packet, Level(), field, shownProtocol)) {
    hexViewerWindow->selectHexRange(inViewer->start, inViewer->end);
  }
}

void PacketDetailsPane::selectFrameBytes(std::int32_t frameOffset, std::int32_t length) {
  Impl& d = *impl_;
  if (!d.shownIndex) return;
  const PacketRef packet = d.store.Get(static_cast<std::int32_t>(*d.shownIndex));
  if (!packet.frame) return;
  const auto selection = FindSelection(packet, d.Level(), d.Form(), FindHit{-1, frameOffset, length});
  if (selection) SelectCrLfRange(d.ShownDump(), d.dumpText, selection->start, selection->end);
}

void PacketDetailsPane::Impl::OnFieldEvent(QObject* watched, QEvent* event) {
  const QEvent::Type type = event->type();
  if (watched == sourceMacLabel || watched == destinationMacLabel) {
    if (type != QEvent::MouseButtonPress) return;
    if (static_cast<QMouseEvent*>(event)->button() != Qt::LeftButton) return;
    ShowVendor(watched == sourceMacLabel ? *sourceMacBox : *destinationMacBox);
    return;
  }
  if (type != QEvent::FocusIn && type != QEvent::MouseButtonPress) return;
  for (const Field& field : fields) {
    if (field.box == watched && field.info->field) SelectField(*field.info->field);
  }
}

void PacketDetailsPane::Impl::ShowVendor(const QLineEdit& macBox) {
  const std::string mac = macBox.text().toStdString();
  const std::optional<std::string> vendor = VendorForMacText(mac, Language());
  if (!vendor) return;
  ShowMessage(&pane, MessageRequest{T(Text::VendorNameCaption),
                                    FromCrLf(VendorMessageText(mac, *vendor, Language())),
                                    MessageIcon::Information, MessageButtons::Ok, MessageAnswer::Ok});
}

void PacketDetailsPane::Impl::FeedHexViewer() {
  if (!shownIndex) return;
  const PacketRef packet = store.Get(static_cast<std::int32_t>(*shownIndex));
  if (!packet.frame) return;
  hexViewerWindow->showBytes(DataBytes(packet, Level()));
  if (selectedField) SelectField(*selectedField);
}

// ---- the pane -------------------------------------------------------------------------------

PacketDetailsPane::PacketDetailsPane(const PacketStore& store, ProgramSettings& settings,
                                     QWidget* parent)
    : QWidget(parent), impl_(std::make_unique<Impl>(*this, store, settings)) {
  impl_->Build();
}

PacketDetailsPane::~PacketDetailsPane() {
  // The controls outlive impl_ for a moment while QWidget deletes its children; nothing they
  // signal on the way out may reach it.
  for (QObject* control : std::initializer_list<QObject*>{impl_->level, impl_->forms, impl_->wrap}) {
    control->disconnect(this);
  }
}

void PacketDetailsPane::showPacket(std::uint32_t storeIndex) {
  impl_->selectedField.reset();
  impl_->Show(storeIndex);
}

void PacketDetailsPane::clearDetails() {
  Impl& d = *impl_;
  d.shownIndex.reset();
  d.selectedField.reset();
  d.ClearFields();
  d.dumpText.clear();
  d.wrappedDump->clear();
  d.scrollingDump->clear();
  if (d.hexViewerWindow) d.hexViewerWindow->clearBytes();
}

void PacketDetailsPane::openHexViewer() {
  Impl& d = *impl_;
  if (!d.hexViewerWindow) {
    d.hexViewerWindow = new HexViewerWindow(this);
    d.hexViewerWindow->restoreState(d.settings.packetMode.hexViewer);
  }
  d.hexViewerWindow->show();
  d.hexViewerWindow->raise();
  d.hexViewerWindow->activateWindow();
  d.FeedHexViewer();
}

void PacketDetailsPane::saveState() {
  Impl& d = *impl_;
  PacketModeSettings& mode = d.settings.packetMode;
  mode.dataLevel = static_cast<int>(d.Level());
  mode.dumpForm = static_cast<int>(d.Form());
  mode.wrapDump = d.wrap->isChecked();
  mode.hexViewerOpen = d.HexViewerShown();
  if (d.hexViewerWindow) mode.hexViewer = d.hexViewerWindow->savedState();
}

HexViewerWindow* PacketDetailsPane::hexViewer() const { return impl_->hexViewerWindow; }

void PacketDetailsPane::showEvent(QShowEvent* event) {
  QWidget::showEvent(event);
  if (impl_->shownOnce) return;
  impl_->shownOnce = true;
  if (impl_->settings.packetMode.hexViewerOpen) openHexViewer();
}

}  // namespace vormelt::ui
