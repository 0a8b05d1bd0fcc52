// The interface chooser's widgets and its OK rule. The rows come from capture/interfaces; the
// hidden columns carry what the settings need (device name, kind) so OK reads only the row.
#include "ui/shell/interface_chooser.hpp"

#include <QDialogButtonBox>
#include <QHeaderView>
#include <QLabel>
#include <QPalette>
#include <QPushButton>
#include <QStyle>
#include <QTreeWidget>
#include <QVBoxLayout>

#include "capture/interfaces.hpp"
#include "common/settings.hpp"
#include "ui/shell/dialogs.hpp"
#include "ui/shell/qt_text.hpp"

namespace vormelt::ui {
namespace {

constexpr int kTypeWidth = 65;
constexpr int kNameWidth = 250;
constexpr int kAddressWidth = 200;
constexpr int kColumnCount = 5;
constexpr int kDefaultHeight = 380;
// The list's own colours unless the desktop's are wanted: white on dark green.
constexpr QRgb kListBackground = 0x005000;
constexpr QRgb kListText = 0xFFFFFF;

QString Marker(InterfaceKind kind) { return QString::number(static_cast<int>(kind)); }

void PaintGreen(QTreeWidget& list) {
  QPalette palette = list.palette();
  for (const auto role : {QPalette::Base, QPalette::AlternateBase, QPalette::Window}) {
    palette.setColor(role, QColor(kListBackground));
  }
  for (const auto role : {QPalette::Text, QPalette::WindowText}) {
    palette.setColor(role, QColor(kListText));
  }
  list.setPalette(palette);
}

}  // namespace

void ShowCaptureMessage(QWidget* parent, const CaptureMessage& message) {
  MessageRequest request;
  request.caption = QString::fromStdString(FormatCaption(message, Language()));
  request.text = FromCrLf(FormatMessage(message, Language()));
  // A capture message without an icon of its own is an error.
  request.icon = message.icon == MessageIcon::None ? MessageIcon::Stop : message.icon;
  ShowMessage(parent, request);
}

InterfaceChooser::InterfaceChooser(ProgramSettings& settings, const InterfaceList& interfaces,
                                   QWidget* parent)
    : QDialog(parent), settings_(settings) {
  setWindowTitle(T(Text::ChooseInterfaceCaption));
  BuildWidgets();
  Fill(interfaces);
  SelectCurrentChoice();
}

InterfaceChooser::~InterfaceChooser() = default;

void InterfaceChooser::BuildWidgets() {
  auto* layout = new QVBoxLayout(this);
  auto* intro = new QLabel(FromCrLf(Tr(Text::ChooseInterfaceIntro, Language())));
  intro->setWordWrap(true);
  layout->addWidget(intro);

  list_ = new QTreeWidget;
  list_->setObjectName(QStringLiteral("interfaceList"));
  list_->setColumnCount(kColumnCount);
  list_->setHeaderLabels({T(Text::InterfaceColumnType), T(Text::InterfaceColumnName),
                          T(Text::InterfaceColumnAddress), QString(), QString()});
  list_->setRootIsDecorated(false);
  list_->setUniformRowHeights(true);
  list_->setAllColumnsShowFocus(true);
  list_->setSelectionMode(QAbstractItemView::SingleSelection);
  list_->setColumnWidth(TypeColumn, kTypeWidth);
  list_->setColumnWidth(NameColumn, kNameWidth);
  list_->setColumnWidth(AddressColumn, kAddressWidth);
  list_->setColumnHidden(DeviceColumn, true);
  list_->setColumnHidden(MarkerColumn, true);
  // The address column takes what is left, so the list never scrolls sideways.
  list_->header()->setStretchLastSection(true);
  if (!settings_.useSystemColors) PaintGreen(*list_);
  // A double click is the quick way to say OK.
  connect(list_, &QTreeWidget::itemDoubleClicked, this, [this] { accept(); });
  layout->addWidget(list_, 1);

  auto* buttons = new QDialogButtonBox;
  buttons->addButton(T(Text::ChooserOk), QDialogButtonBox::AcceptRole);
  buttons->addButton(T(Text::ChooserCancel), QDialogButtonBox::RejectRole);
  connect(buttons, &QDialogButtonBox::accepted, this, &InterfaceChooser::accept);
  connect(buttons, &QDialogButtonBox::rejected, this, &InterfaceChooser::reject);
  layout->addWidget(buttons);

  // Wide enough for the three columns and a vertical scroll bar, so nothing scrolls sideways.
  const int width = kTypeWidth + kNameWidth + kAddressWidth + 2 * layout->contentsMargins().left() +
                    list_->style()->pixelMetric(QStyle::PM_ScrollBarExtent) +
                    2 * list_->frameWidth() + 4;
  resize(width, kDefaultHeight);
}

void InterfaceChooser::Fill(const InterfaceList& interfaces) {
  for (const InterfaceRow& row : interfaces.rows) {
    auto* item = new QTreeWidgetItem(list_);
    item->setText(TypeColumn, T(InterfaceTypeText(row)));
    item->setText(NameColumn, QString::fromStdString(row.name));
    item->setText(AddressColumn, QString::fromStdString(row.address));
    item->setText(DeviceColumn, QString::fromStdString(row.device));
    item->setText(MarkerColumn, Marker(row.kind));
  }
}

// Opening on the interface in use lets OK keep it without hunting for it.
void InterfaceChooser::SelectCurrentChoice() {
  const InterfaceSettings& chosen = settings_.interface;
  for (int i = 0; i < list_->topLevelItemCount(); ++i) {
    QTreeWidgetItem* item = list_->topLevelItem(i);
    const bool sockets = item->text(MarkerColumn) == Marker(InterfaceKind::RawSockets);
    if (sockets != (chosen.chosenKind == InterfaceKind::RawSockets)) continue;
    const QString& wanted = QString::fromStdString(sockets ? chosen.address : chosen.adapterDevice);
    if (wanted.isEmpty() || item->text(sockets ? AddressColumn : DeviceColumn) != wanted) continue;
    list_->setCurrentItem(item);
    return;
  }
}

QTreeWidget& InterfaceChooser::list() const { return *list_; }

void InterfaceChooser::accept() {
  const QList<QTreeWidgetItem*> selected = list_->selectedItems();
  if (selected.isEmpty()) {
    MessageRequest request;
    request.caption = T(Text::ProgramTitle);
    request.text = T(Text::PleaseChooseInterface);
    request.icon = MessageIcon::Information;
    ShowMessage(this, request);
    return;
  }
  const QTreeWidgetItem& row = *selected.front();
  InterfaceSettings& chosen = settings_.interface;
  if (row.text(MarkerColumn) == Marker(InterfaceKind::RawSockets)) {
    chosen.chosenKind = InterfaceKind::RawSockets;
    chosen.address = row.text(AddressColumn).toStdString();
  } else {
    chosen.chosenKind = InterfaceKind::PacketDriver;
    chosen.adapterDevice = row.text(DeviceColumn).toStdString();
    chosen.adapterDisplayName = row.text(NameColumn).toStdString();
  }
  QDialog::accept();
}

bool InterfaceChooser::Choose(ProgramSettings& settings, QWidget* parent) {
  const InterfaceList interfaces = ListInterfaces();
  if (interfaces.failure) {
    ShowCaptureMessage(parent, *interfaces.failure);
    return false;
  }
  InterfaceChooser chooser(settings, interfaces, parent);
  return chooser.exec() == QDialog::Accepted;
}

}  // namespace vormelt::ui
