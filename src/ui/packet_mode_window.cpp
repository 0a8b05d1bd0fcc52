// The Packet Mode window: widgets, commands, the 10 ms refresh and the close path. Capture runs
// on the capture session's thread; this file only reads its flags, status and messages on the
// timer, and tells the list model how many rows arrived since the last tick.
#include "ui/packet_mode_window.hpp"

#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QCloseEvent>
#include <QContextMenuEvent>
#include <QFile>
#include <QFileDialog>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QIcon>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QMenu>
#include <QMenuBar>
#include <QProgressBar>
#include <QScreen>
#include <QScrollBar>
#include <QKeyEvent>
#include <QSplitter>
#include <QStatusBar>
#include <QStyle>
#include <QSystemTrayIcon>
#include <QTableView>
#include <QTimer>
#include <QToolBar>
#include <algorithm>
#include <numeric>

#include "app/startup.hpp"
#include "capture/session.hpp"
#include "common/settings.hpp"
#include "common/settings_store.hpp"
#include "filters/filter_profile.hpp"
#include "packetmode/packet_mode_engine.hpp"
#include "packets/format.hpp"
#include "packets/list_row.hpp"
#include "packets/store.hpp"
#include "ui/dialogs.hpp"
#include "ui/dump_commands.hpp"
#include "ui/filter_setup_window.hpp"
#include "ui/find_controller.hpp"
#include "ui/logging_window.hpp"
#include "ui/tcp_commands.hpp"
#include "ui/interface_chooser.hpp"
#include "ui/mode_switch.hpp"
#include "ui/packet_context_menu.hpp"
#include "ui/packet_details_pane.hpp"
#include "ui/packet_list_model.hpp"
#include "ui/qt_text.hpp"

// The icons live in the ui library's resources; a static library's resources are only linked
// in when something names them, so the window does.
static void InitWindowResources() { Q_INIT_RESOURCE(resources); }

namespace vormelt::ui {
namespace {

constexpr int kRefreshIntervalMs = 10;
// The store fill gauge counts indices, like the item limit.
constexpr int kGaugeMaximum = 1'000'000;
constexpr int kFileProgressMaximum = 1000;
constexpr int kGaugeWidth = 160;
constexpr int kFindBoxWidth = 320;
constexpr QSize kPreferredSize{1280, 800};
// Share of the height the list gets over the detail pane when nothing was saved.
constexpr int kListStretch = 3;
constexpr int kDetailsStretch = 2;
// Keyboard-opened row menus appear just inside the list's top-left corner.
constexpr QPoint kKeyboardMenuOffset{5, 20};
// Column widths before the user has set any, in list column order.
constexpr std::array<int, kListColumnCount> kDefaultColumnWidths = {70,  60,  125, 125, 90, 110,
                                                                    190, 110, 120, 135, 135};

QIcon WindowIcon() {
  InitWindowResources();
  QIcon icon;
  for (const char* file : {":/vormelt/icon-16.png", ":/vormelt/icon-32.png",
                           ":/vormelt/icon-64.png", ":/vormelt/icon-256.png"}) {
    icon.addFile(QString::fromLatin1(file));
  }
  if (!icon.availableSizes().isEmpty()) return icon;
  return QApplication::style()->standardIcon(QStyle::SP_DriveNetIcon);
}

// A saved order must name every column exactly once; anything else is ignored.
bool IsColumnPermutation(const std::vector<int>& order) {
  if (order.size() != static_cast<std::size_t>(kListColumnCount)) return false;
  std::vector<int> sorted = order;
  std::sort(sorted.begin(), sorted.end());
  std::vector<int> expected(kListColumnCount);
  std::iota(expected.begin(), expected.end(), 0);
  return sorted == expected;
}

}  // namespace

struct PacketModeWindow::Impl {
  Impl(PacketModeWindow& owner, ProgramSettings& programSettings)
      : window(owner), settings(programSettings) {}

  PacketModeWindow& window;
  ProgramSettings& settings;
  bool startMinimized = false;
  bool autoListen = false;
  bool shownOnce = false;
  bool closing = false;
  bool exitRequested = false;  // Exit from the menu or tray: close even when minimizing to tray
  bool showingMessages = false;
  // New rows scroll into view until the user scrolls away from the end of the list.
  bool followNewRows = true;
  std::int32_t pendingSwitch = kNoPendingSwitch;

  PacketModeEngine engine;
  PacketStore& store = engine.Store();
  CaptureSession& session = engine.Session();
  // After the engine: its jobs end before the engine they use goes.
  DumpFileCommands dumps{window, engine, settings};

  PacketListModel* model = nullptr;
  QTableView* list = nullptr;
  QWidget* listViewport = nullptr;  // compared by address only in the event filter
  PacketDetailsPane* details = nullptr;
  QSplitter* splitter = nullptr;
  QTimer refreshTimer;

  QAction* startAction = nullptr;
  QAction* stopAction = nullptr;
  QAction* clearAction = nullptr;
  QAction* chooseAction = nullptr;
  QAction* openAction = nullptr;
  QAction* loadDumpAction = nullptr;
  QAction* saveDumpAction = nullptr;
  QAction* saveCaptureAction = nullptr;
  QAction* filterAction = nullptr;
  QAction* hexAction = nullptr;
  QCheckBox* applyFilters = nullptr;
  QCheckBox* matchCase = nullptr;
  QLineEdit* findText = nullptr;
  QPushButton* findButton = nullptr;
  QPushButton* cancelFindButton = nullptr;
  QProgressBar* findProgress = nullptr;
  FindController* finder = nullptr;
  std::int64_t logFailuresShown = 0;  // failure episodes of this logging run already shown

  QLabel* statusText = nullptr;
  QLabel* memoryText = nullptr;
  QProgressBar* gauge = nullptr;
  QProgressBar* fileProgress = nullptr;
  QSystemTrayIcon* tray = nullptr;

  QAction* AddCommand(QMenu& menu, Text menuText, Text buttonText, QStyle::StandardPixmap icon,
                      void (PacketModeWindow::*command)()) {
    QAction* action = menu.addAction(QApplication::style()->standardIcon(icon), T(menuText));
    action->setIconText(T(buttonText));
    QObject::connect(action, &QAction::triggered, &window,
                     [this, command] { (window.*command)(); });
    return action;
  }

  QAction* AddOption(QMenu& menu, Text text, bool checked, bool* setting) {
    QAction* action = menu.addAction(T(text));
    action->setCheckable(true);
    action->setChecked(checked);
    QObject::connect(action, &QAction::toggled, &window, [setting](bool on) { *setting = on; });
    return action;
  }

  void BuildMenus();
  void BuildToolBar();
  void BuildList();
  void BuildCentralArea();
  void BuildStatusBar();
  void BuildTray();
  void BuildFind(QToolBar& bar);
  void SelectStoreIndex(std::int32_t index);
  void StartLogging();
  void ApplyFilterProfile();
  void RestoreGeometry();
  void RestoreColumns();
  void SaveWindowState();
  void UpdateControls();
  void UpdateCounters();
  void ShowPendingMessages();
  void ShowSelectedPacket();
  void ShowRowMenu(const QPoint& globalPos);
  void DeleteSelectedPacket();
  void DeletePacket(std::int32_t index);
  void BeginRefreshing();
  void HideToTray();
  void RestoreFromTray();
  std::int32_t SelectedStoreIndex() const;
};

// ---- construction ---------------------------------------------------------------------------

PacketModeWindow::PacketModeWindow(ProgramSettings& settings, bool startMinimized, bool autoListen,
                                   QWidget* parent)
    : QMainWindow(parent), impl_(std::make_unique<Impl>(*this, settings)) {
  impl_->startMinimized = startMinimized;
  impl_->autoListen = autoListen;
  setObjectName(QStringLiteral("packetModeWindow"));
  setWindowIcon(WindowIcon());
  PacketModeEngine& engine = impl_->engine;
  engine.SetDateTimeTemplate(settings.packetMode.dateTimeTemplate);
  engine.Filter().SetFilteringEnabled(settings.packetMode.filteringEnabled);
  engine.Filter().SetMatchCase(settings.packetMode.matchCase);

  impl_->BuildMenus();
  impl_->BuildToolBar();
  impl_->BuildCentralArea();
  impl_->BuildStatusBar();
  impl_->BuildTray();
  impl_->RestoreGeometry();
  impl_->RestoreColumns();

  impl_->refreshTimer.setInterval(kRefreshIntervalMs);
  connect(&impl_->refreshTimer, &QTimer::timeout, this, &PacketModeWindow::refresh);
  refresh();
  impl_->ApplyFilterProfile();
  impl_->StartLogging();
}

PacketModeWindow::~PacketModeWindow() {
  impl_->refreshTimer.stop();
  impl_->engine.Quit();
  // The view, the pane and the model read the store, which lives in impl_: they go first. The
  // list stops reporting to the event filter before it is torn down.
  impl_->list->removeEventFilter(this);
  impl_->listViewport->removeEventFilter(this);
  impl_->list = nullptr;
  impl_->listViewport = nullptr;
  delete impl_->splitter;
  delete impl_->model;
  if (impl_->tray) impl_->tray->hide();
}

void PacketModeWindow::Impl::BuildMenus() {
  QMenuBar& bar = *window.menuBar();
  QMenu& file = *bar.addMenu(T(Text::PacketMenuFile));
  openAction = AddCommand(file, Text::PacketMenuOpenCaptureFile, Text::PacketButtonOpenCaptureFile,
                          QStyle::SP_DialogOpenButton, &PacketModeWindow::openCaptureFileDialog);
  openAction->setShortcut(QKeySequence::Open);
  file.addSeparator();
  loadDumpAction = file.addAction(T(Text::PacketMenuLoadDump));
  QObject::connect(loadDumpAction, &QAction::triggered, &window, [this] { dumps.LoadDumpFileDialog(); });
  saveDumpAction = file.addAction(T(Text::PacketMenuSaveDump));
  saveDumpAction->setShortcut(QKeySequence::Save);
  QObject::connect(saveDumpAction, &QAction::triggered, &window, [this] { dumps.SaveDumpFileDialog(); });
  saveCaptureAction = file.addAction(T(Text::PacketMenuSaveCapture));
  QObject::connect(saveCaptureAction, &QAction::triggered, &window,
                   [this] { dumps.SaveCaptureFileDialog(); });
  QObject::connect(file.addAction(T(Text::PacketMenuSavingOptions)), &QAction::triggered, &window,
                   [this] { dumps.EditSavingOptions(); });
  dumps.onBusyChanged = [this] { BeginRefreshing(); };
  file.addSeparator();
  QAction* exit = file.addAction(T(Text::PacketMenuExit));
  exit->setShortcut(QKeySequence::Quit);
  QObject::connect(exit, &QAction::triggered, &window, [this] {
    exitRequested = true;
    window.close();
  });

  QMenu& capture = *bar.addMenu(T(Text::PacketMenuCapture));
  startAction = AddCommand(capture, Text::PacketMenuStart, Text::PacketButtonStart,
                           QStyle::SP_MediaPlay, &PacketModeWindow::startListening);
  stopAction = AddCommand(capture, Text::PacketMenuStop, Text::PacketButtonStop,
                          QStyle::SP_MediaStop, &PacketModeWindow::stopListening);
  clearAction = AddCommand(capture, Text::PacketMenuClear, Text::PacketButtonClear,
                           QStyle::SP_DialogResetButton, &PacketModeWindow::clearList);
  capture.addSeparator();
  chooseAction =
      AddCommand(capture, Text::PacketMenuChooseInterface, Text::PacketButtonChooseInterface,
                 QStyle::SP_ComputerIcon, &PacketModeWindow::chooseInterface);

  QMenu& filters = *bar.addMenu(T(Text::PacketMenuFilters));
  filterAction = AddCommand(filters, Text::PacketMenuFilterSetup, Text::PacketButtonFilterSetup,
                            QStyle::SP_FileDialogContentsView, &PacketModeWindow::openFilterSetup);

  QMenu& view = *bar.addMenu(T(Text::PacketMenuView));
  hexAction = AddCommand(view, Text::PacketMenuHexViewer, Text::PacketButtonHexViewer,
                         QStyle::SP_FileDialogDetailedView, &PacketModeWindow::openHexViewer);

  QMenu& switching = *bar.addMenu(T(Text::PacketMenuSwitchModes));
  for (const ProgramMode mode :
       {ProgramMode::File, ProgramMode::GraphicalPackets, ProgramMode::Statistical}) {
    QAction* action = switching.addAction(T(ModeName(mode)));
    QObject::connect(action, &QAction::triggered, &window,
                     [this, mode] { window.switchModes(mode); });
  }

  QMenu& options = *bar.addMenu(T(Text::PacketMenuSettings));
  AddOption(options, Text::PacketMenuMinimizeToTray, settings.minimizeToTrayOnClose,
            &settings.minimizeToTrayOnClose);
  AddOption(options, Text::PacketMenuNewPacketSound, settings.packetMode.newPacketSound,
            &settings.packetMode.newPacketSound);
  options.addSeparator();
  QAction* logging = options.addAction(T(Text::PacketMenuLogging));
  logging->setObjectName(QStringLiteral("loggingAction"));
  QObject::connect(logging, &QAction::triggered, &window, &PacketModeWindow::openLoggingWindow);
}

void PacketModeWindow::Impl::BuildToolBar() {
  QToolBar& commands = *window.addToolBar(QString());
  commands.setObjectName(QStringLiteral("commands"));
  commands.setMovable(false);
  commands.setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
  commands.addActions({startAction, stopAction, clearAction});
  commands.addSeparator();
  commands.addActions({chooseAction, openAction});
  commands.addSeparator();
  commands.addAction(hexAction);

  // The filter controls get a row of their own: together they are too wide to share one with
  // the capture commands in every language.
  window.addToolBarBreak();
  QToolBar& filters = *window.addToolBar(QString());
  filters.setObjectName(QStringLiteral("filterOptions"));
  filters.setMovable(false);
  filters.setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
  filters.addAction(filterAction);
  filters.addSeparator();
  applyFilters = new QCheckBox(T(Text::PacketApplyFilters));
  applyFilters->setObjectName(QStringLiteral("applyFilters"));
  applyFilters->setChecked(settings.packetMode.filteringEnabled);
  QObject::connect(applyFilters, &QCheckBox::toggled, &window,
                   &PacketModeWindow::setFilteringEnabled);
  matchCase = new QCheckBox(T(Text::PacketMatchCase));
  matchCase->setObjectName(QStringLiteral("matchCase"));
  matchCase->setChecked(settings.packetMode.matchCase);
  QObject::connect(matchCase, &QCheckBox::toggled, &window, &PacketModeWindow::setMatchCase);
  auto* boxes = new QWidget;
  auto* layout = new QHBoxLayout(boxes);
  layout->setContentsMargins(6, 0, 6, 0);
  layout->setSpacing(16);
  layout->addWidget(applyFilters);
  layout->addWidget(matchCase);
  filters.addWidget(boxes);
  // Find gets a row of its own too: German labels leave no room for it beside the filters.
  window.addToolBarBreak();
  QToolBar& find = *window.addToolBar(QString());
  find.setObjectName(QStringLiteral("find"));
  find.setMovable(false);
  BuildFind(find);
}

// The Find box and its buttons; "Match case" in the row above governs Find as well.
void PacketModeWindow::Impl::BuildFind(QToolBar& bar) {
  auto* box = new QWidget;
  auto* layout = new QHBoxLayout(box);
  layout->setContentsMargins(6, 0, 6, 0);
  findText = new QLineEdit;
  findText->setObjectName(QStringLiteral("findText"));
  findText->setMinimumWidth(kFindBoxWidth);
  findButton = new QPushButton(T(Text::FindNextButton));
  findButton->setObjectName(QStringLiteral("findNext"));
  cancelFindButton = new QPushButton(T(Text::FindCancelButton));
  cancelFindButton->setEnabled(false);
  findProgress = new QProgressBar;
  findProgress->setObjectName(QStringLiteral("findProgress"));
  findProgress->setMaximumWidth(kGaugeWidth);
  findProgress->setTextVisible(false);
  layout->addWidget(new QLabel(T(Text::FindThisText)));
  layout->addWidget(findText, 1);
  layout->addWidget(findButton);
  layout->addWidget(cancelFindButton);
  layout->addWidget(findProgress);
  bar.addWidget(box);
  FindController::Hooks hooks;
  hooks.showList = [this](bool shown) { list->setVisible(shown); };
  hooks.selectIndex = [this](std::int32_t index) { SelectStoreIndex(index); };
  hooks.selectBytes = [this](std::int32_t offset, std::int32_t length) {
    details->selectFrameBytes(offset, length);
  };
  hooks.matchCase = [this] { return settings.packetMode.matchCase; };
  finder = new FindController(store, window, *findText, *findProgress, std::move(hooks));
  QObject::connect(findButton, &QPushButton::clicked, finder, &FindController::findNext);
  QObject::connect(findText, &QLineEdit::returnPressed, finder, &FindController::findNext);
  QObject::connect(cancelFindButton, &QPushButton::clicked, finder, &FindController::cancel);
  QObject::connect(finder, &FindController::stateChanged, &window,
                   [this] { cancelFindButton->setEnabled(finder->searching()); });
}

void PacketModeWindow::Impl::SelectStoreIndex(std::int32_t index) {
  model->syncWithStore();
  const int row = model->rowOfStoreIndex(index);
  if (row < 0) return;
  followNewRows = false;
  list->selectRow(row);
  list->scrollTo(model->index(row, 0));
  list->setFocus();
}

void PacketModeWindow::Impl::StartLogging() {
  engine.StopLogging();
  logFailuresShown = 0;
  if (!settings.logging.enabled || LoggingProblem(settings.logging)) return;
  LogConfig config;
  config.settings = settings.logging;
  config.dateTimeTemplate = settings.packetMode.dateTimeTemplate;
  config.interfaceText = CaptureTarget::FromSettings(settings.interface).name;
  // The list and the pane read packets without the store lock: the store is cleared here.
  config.clearOnOwnerThread = true;
  engine.StartLogging(std::move(config));
}

void PacketModeWindow::Impl::BuildList() {
  list = new QTableView;
  list->setObjectName(QStringLiteral("packetList"));
  list->setModel(model);
  list->setSelectionBehavior(QAbstractItemView::SelectRows);
  list->setSelectionMode(QAbstractItemView::SingleSelection);
  list->setSortingEnabled(false);
  list->setWordWrap(false);
  list->setShowGrid(false);
  list->setAlternatingRowColors(true);
  list->setHorizontalScrollMode(QAbstractItemView::ScrollPerPixel);
  // Every row has the same height: the view never measures rows, so a million scroll freely.
  QHeaderView& rows = *list->verticalHeader();
  rows.setSectionResizeMode(QHeaderView::Fixed);
  rows.setDefaultSectionSize(list->fontMetrics().height() + 6);
  rows.hide();
  QHeaderView& columns = *list->horizontalHeader();
  columns.setSectionsMovable(true);
  columns.setHighlightSections(false);
  columns.setDefaultAlignment(Qt::AlignLeft | Qt::AlignVCenter);
  columns.setStretchLastSection(true);
  for (int column = 0; column < kListColumnCount; ++column) {
    columns.resizeSection(column, kDefaultColumnWidths[static_cast<std::size_t>(column)]);
  }
  QScrollBar& scroll = *list->verticalScrollBar();
  QObject::connect(&scroll, &QScrollBar::valueChanged, &window,
                   [this, &scroll](int value) { followNewRows = value == scroll.maximum(); });
  listViewport = list->viewport();
  list->installEventFilter(&window);
  listViewport->installEventFilter(&window);

  // Selecting moves the current row before it selects it: follow the selection, not the cursor.
  QObject::connect(list->selectionModel(), &QItemSelectionModel::selectionChanged, &window,
                   [this] { ShowSelectedPacket(); });
  QObject::connect(model, &QAbstractItemModel::modelReset, &window,
                   [this] { details->clearDetails(); });
}

void PacketModeWindow::Impl::BuildCentralArea() {
  model = new PacketListModel(store);
  BuildList();
  details = new PacketDetailsPane(store, settings);
  details->setObjectName(QStringLiteral("packetDetails"));
  QObject::connect(details, &PacketDetailsPane::deleteRowRequested, &window,
                   [this](std::uint32_t index) { DeletePacket(static_cast<std::int32_t>(index)); });
  splitter = new QSplitter(Qt::Vertical);
  splitter->addWidget(list);
  splitter->addWidget(details);
  splitter->setStretchFactor(0, kListStretch);
  splitter->setStretchFactor(1, kDetailsStretch);
  splitter->setChildrenCollapsible(false);
  window.setCentralWidget(splitter);
}

void PacketModeWindow::Impl::BuildStatusBar() {
  QStatusBar& bar = *window.statusBar();
  statusText = new QLabel;
  statusText->setObjectName(QStringLiteral("captureStatus"));
  bar.addWidget(statusText, 1);
  fileProgress = new QProgressBar;
  fileProgress->setObjectName(QStringLiteral("fileProgress"));
  fileProgress->setRange(0, kFileProgressMaximum);
  fileProgress->setFixedWidth(kGaugeWidth);
  fileProgress->hide();
  bar.addPermanentWidget(fileProgress);
  bar.addPermanentWidget(new QLabel(T(Text::PacketAllocatedMemory)));
  memoryText = new QLabel;
  memoryText->setObjectName(QStringLiteral("allocatedMemory"));
  // Room for the widest size text, so the gauge beside it does not jump as the figure grows.
  const int widest = list->fontMetrics().horizontalAdvance(QStringLiteral("1023 Bytes"));
  memoryText->setMinimumWidth(widest + 8);
  bar.addPermanentWidget(memoryText);
  gauge = new QProgressBar;
  gauge->setObjectName(QStringLiteral("storeGauge"));
  gauge->setRange(0, kGaugeMaximum);
  gauge->setTextVisible(false);
  gauge->setFixedWidth(kGaugeWidth);
  gauge->setToolTip(T(Text::PacketStoreGaugeTip));
  bar.addPermanentWidget(gauge);
}

void PacketModeWindow::Impl::BuildTray() {
  if (!QSystemTrayIcon::isSystemTrayAvailable()) return;
  tray = new QSystemTrayIcon(window.windowIcon(), &window);
  auto* menu = new QMenu(&window);
  QObject::connect(menu->addAction(T(Text::TrayRestore)), &QAction::triggered, &window,
                   [this] { RestoreFromTray(); });
  QObject::connect(menu->addAction(T(Text::TrayExit)), &QAction::triggered, &window, [this] {
    exitRequested = true;
    window.close();
  });
  tray->setContextMenu(menu);
  QObject::connect(
      tray, &QSystemTrayIcon::activated, &window, [this](QSystemTrayIcon::ActivationReason reason) {
        if (reason == QSystemTrayIcon::Trigger || reason == QSystemTrayIcon::DoubleClick) {
          RestoreFromTray();
        }
      });
  tray->show();
}

// The current profile is applied once at start. A damaged one leaves the filter at its
// defaults and is kept aside; the user hears of it once, when the window is up.
void PacketModeWindow::Impl::ApplyFilterProfile() {
  const std::string problem = engine.LoadCurrentProfile(Language());
  if (problem.empty()) return;
  QTimer::singleShot(0, &window, [this, text = FromCrLf(problem)] {
    ShowNotice(&window, Text::ProgramTitle, text, MessageIcon::Warning);
  });
}

void PacketModeWindow::Impl::RestoreGeometry() {
  const WindowState& saved = settings.packetMode.window;
  const QRect wanted(saved.x, saved.y, saved.width, saved.height);
  const QScreen* screen = saved.valid ? QGuiApplication::screenAt(wanted.center()) : nullptr;
  if (screen && saved.width > 0 && saved.height > 0) {
    window.setGeometry(wanted);
  } else {
    const QSize available = QGuiApplication::primaryScreen()
                                ? QGuiApplication::primaryScreen()->availableSize()
                                : kPreferredSize;
    window.resize(kPreferredSize.boundedTo(available * 0.95));
  }
  Qt::WindowStates state = window.windowState();
  if (saved.maximized) state |= Qt::WindowMaximized;
  if (startMinimized) state |= Qt::WindowMinimized;
  window.setWindowState(state);
}

void PacketModeWindow::Impl::RestoreColumns() {
  QHeaderView& header = *list->horizontalHeader();
  const std::vector<int>& widths = settings.packetMode.columnWidths;
  if (widths.size() == static_cast<std::size_t>(kListColumnCount)) {
    for (int column = 0; column < kListColumnCount; ++column) {
      const int width = widths[static_cast<std::size_t>(column)];
      if (width > 0) header.resizeSection(column, width);
    }
  }
  const std::vector<int>& order = settings.packetMode.columnOrder;
  if (!IsColumnPermutation(order)) return;
  for (int visual = 0; visual < kListColumnCount; ++visual) {
    header.moveSection(header.visualIndex(order[static_cast<std::size_t>(visual)]), visual);
  }
}

// ---- commands -------------------------------------------------------------------------------

void PacketModeWindow::startListening() {
  Impl& d = *impl_;
  if (isCapturing()) return;
  if (!HasChosenInterface(d.settings.interface) && !InterfaceChooser::Choose(d.settings, this)) return;
  d.settings.interface.kindInUse = d.settings.interface.chosenKind;
  d.engine.SetDateTimeTemplate(d.settings.packetMode.dateTimeTemplate);
  const QScrollBar& scroll = *d.list->verticalScrollBar();
  d.followNewRows = scroll.value() == scroll.maximum();
  d.engine.StartLive(CaptureTarget::FromSettings(d.settings.interface));
  d.BeginRefreshing();
}

void PacketModeWindow::stopListening() {
  Impl& d = *impl_;
  d.gauge->setRange(0, kGaugeMaximum);
  d.engine.Stop();
  d.BeginRefreshing();
}

void PacketModeWindow::clearList() {
  impl_->model->clear();
  impl_->details->clearDetails();
  impl_->UpdateCounters();
}

void PacketModeWindow::chooseInterface() {
  Impl& d = *impl_;
  if (!InterfaceChooser::Choose(d.settings, this)) return;
  // A file being read is not "listening on an interface": the choice waits for the next Start.
  if (!isCapturing() || d.engine.ReadingFile()) {
    ShowNotice(this, Text::NoticeCaption, T(Text::InterfaceChangeNotice), MessageIcon::Information);
    return;
  }
  d.gauge->setRange(0, kGaugeMaximum);
  d.settings.interface.kindInUse = d.settings.interface.chosenKind;
  // The old capture is given a second to end; a failure arrives as a queued message.
  d.engine.Restart(CaptureTarget::FromSettings(d.settings.interface));
  d.BeginRefreshing();
}

void PacketModeWindow::openCaptureFileDialog() {
  ProgramSettings& settings = impl_->settings;
  const QString filter =
      T(Text::PacketCaptureFileFilter) + QStringLiteral(";;") + T(Text::PacketAllFilesFilter);
  const QString path =
      QFileDialog::getOpenFileName(this, T(Text::PacketOpenCaptureCaption),
                                   QString::fromStdString(settings.packetMode.lastFolder), filter);
  if (path.isEmpty()) return;
  settings.packetMode.lastFolder = QFileInfo(path).absolutePath().toStdString();
  openCaptureFile(path);
}

bool PacketModeWindow::openCaptureFile(const QString& path) {
  Impl& d = *impl_;
  if (isCapturing()) {
    ShowNotice(this, Text::ProgramTitle, T(Text::PacketStopListeningFirst), MessageIcon::Stop);
    return false;
  }
  d.model->clear();
  d.details->clearDetails();
  d.engine.SetDateTimeTemplate(d.settings.packetMode.dateTimeTemplate);
  if (!d.engine.StartFile(QFile::encodeName(path).toStdString())) return false;
  // A file is read from its first packet on, so that is where the list stays.
  d.followNewRows = false;
  d.fileProgress->setValue(0);
  d.fileProgress->show();
  d.BeginRefreshing();
  return true;
}

void PacketModeWindow::switchModes(ProgramMode target) {
  Impl& d = *impl_;
  if (SwitchModesFrom(this, d.settings, ProgramMode::Packet, target) !=
      SwitchDecision::CloseThenRelaunch) {
    return;
  }
  stopListening();
  d.pendingSwitch = static_cast<std::int32_t>(target);
  close();
}

void PacketModeWindow::openFilterSetup() {
  Impl& d = *impl_;
  FilterSetupWindow setup(d.engine.Filter(), FilterMode::Packet, d.settings.packetMode.filteringEnabled,
                          this, &d.settings.packetMode.filterWindow);
  setup.exec();
  // The window asked "Enable filtering?" itself; Yes acts as a click on the check box.
  if (setup.enableFilteringRequested()) setFilteringEnabled(true);
}

void PacketModeWindow::openHexViewer() { impl_->details->openHexViewer(); }

void PacketModeWindow::setFilteringEnabled(bool enabled) {
  Impl& d = *impl_;
  d.settings.packetMode.filteringEnabled = enabled;
  d.engine.Filter().SetFilteringEnabled(enabled);
  const QSignalBlocker quiet(d.applyFilters);
  d.applyFilters->setChecked(enabled);
}

void PacketModeWindow::setMatchCase(bool matchCase) {
  Impl& d = *impl_;
  d.settings.packetMode.matchCase = matchCase;
  d.engine.Filter().SetMatchCase(matchCase);
  const QSignalBlocker quiet(d.matchCase);
  d.matchCase->setChecked(matchCase);
}

// ---- refresh --------------------------------------------------------------------------------

bool PacketModeWindow::isCapturing() const { return impl_->engine.Capturing(); }

void PacketModeWindow::openLoggingWindow() {
  Impl& d = *impl_;
  LoggingWindow dialog(d.settings.logging, this);
  if (dialog.exec() != QDialog::Accepted) return;
  d.settings.logging = dialog.settings();
  SaveSettingsOrWarn(this, d.settings, DefaultSettingsFile());
  d.StartLogging();
}

void PacketModeWindow::findNext(const QString& text) {
  impl_->findText->setText(text);
  impl_->finder->findNext();
}

void PacketModeWindow::waitForCapture() {
  impl_->session.Wait();
  refresh();
}

void PacketModeWindow::Impl::BeginRefreshing() {
  UpdateControls();
  refreshTimer.start();
}

void PacketModeWindow::refresh() {
  Impl& d = *impl_;
  // Read before catching up: once listening is clear, every packet of that capture is in the
  // store, so the catch-up below is the last one needed.
  const bool capturing = isCapturing();
  d.session.newData.store(false);
  d.engine.Logger().ClearOnOwnerThread();
  const int appended = d.model->syncWithStore();
  if (appended > 0 && d.followNewRows) d.list->scrollToBottom();
  if (appended > 0 && d.settings.packetMode.newPacketSound) QApplication::beep();
  d.UpdateCounters();
  d.ShowPendingMessages();
  if (capturing || d.dumps.Busy()) return;
  d.refreshTimer.stop();
  d.fileProgress->hide();
  d.UpdateControls();
}

void PacketModeWindow::Impl::UpdateCounters() {
  const CaptureStatusSnapshot status = session.Status();
  statusText->setText(QString::fromStdString(StatusText(status, Language())));
  const auto allocated = static_cast<std::int64_t>(store.AllocatedMemory());
  memoryText->setText(allocated == 0 ? QString()
                                     : QString::fromStdString(format::ByteSize(allocated)));
  gauge->setValue(std::min(store.ItemCount(), kGaugeMaximum));
  if (const double done = dumps.Progress(); done >= 0) {
    fileProgress->show();
    fileProgress->setValue(static_cast<int>(done * kFileProgressMaximum));
  } else if (engine.ReadingFile() && session.BytesTotal() > 0) {
    const double done =
        static_cast<double>(session.BytesRead()) / static_cast<double>(session.BytesTotal());
    fileProgress->setValue(static_cast<int>(std::min(1.0, done) * kFileProgressMaximum));
  }
  const QString caption = window.captionText();
  if (window.windowTitle() != caption) window.setWindowTitle(caption);
  if (tray && tray->toolTip() != caption) tray->setToolTip(caption);
}

QString PacketModeWindow::captionText() const {
  const CaptureStatusSnapshot status = impl_->session.Status();
  if (status.status != CaptureStatus::Listening) return T(Text::PacketCaptionStopped);
  const std::string statusText = StatusText(status, Language());
  return TF(Text::PacketCaptionItems, static_cast<long>(impl_->model->rowCount()),
            statusText.c_str());
}

void PacketModeWindow::Impl::UpdateControls() {
  const bool capturing = window.isCapturing();
  // A dump file being loaded or saved fills or reads the store: nothing else may change it.
  const bool busy = dumps.Busy();
  startAction->setEnabled(!capturing && !busy);
  stopAction->setEnabled(capturing);
  openAction->setEnabled(!capturing && !busy);
  clearAction->setEnabled(!busy);
  loadDumpAction->setEnabled(!capturing && !busy);
  saveDumpAction->setEnabled(!busy);
  saveCaptureAction->setEnabled(!busy);
}

// Capture threads only queue their messages; they are shown here, one modal box at a time.
// The timer keeps ticking inside a box's loop, so a second tick must not show the next one.
void PacketModeWindow::Impl::ShowPendingMessages() {
  // Once per failure episode (until a write succeeds again), naming the file that failed.
  if (const LogStatus logged = engine.LoggingStatus();
      !showingMessages && logged.failureEpisodes > logFailuresShown) {
    logFailuresShown = logged.failureEpisodes;
    showingMessages = true;
    ShowNotice(&window, Text::LogInvalidCaption,
               TF(Text::LogWriteFailed, (logged.failedFile + ": " + logged.failureReason).c_str()),
               MessageIcon::Warning);
    showingMessages = false;
  }
  if (showingMessages || session.Messages().Empty()) return;
  showingMessages = true;
  for (const CaptureMessage& message : session.Messages().Drain()) {
    ShowCaptureMessage(&window, message);
  }
  showingMessages = false;
}

// ---- list selection and row menu ------------------------------------------------------------

std::int32_t PacketModeWindow::Impl::SelectedStoreIndex() const {
  const QModelIndexList rows = list->selectionModel()->selectedRows();
  return rows.isEmpty() ? -1 : model->storeIndexAt(rows.front().row());
}

void PacketModeWindow::Impl::ShowSelectedPacket() {
  const std::int32_t index = SelectedStoreIndex();
  if (index < 0) {
    details->clearDetails();
    return;
  }
  details->showPacket(static_cast<std::uint32_t>(index));
}

void PacketModeWindow::Impl::ShowRowMenu(const QPoint& globalPos) {
  const std::int32_t index = SelectedStoreIndex();
  if (index < 0) return;
  const PacketMenuResult chosen =
      ShowPacketContextMenu(&window, globalPos, store, static_cast<std::uint32_t>(index));
  if (chosen.choice == PacketMenuChoice::DeletePacket) DeletePacket(index);
  if (chosen.choice != PacketMenuChoice::Tcp) return;
  TcpCommandHooks hooks;
  hooks.selectIndex = [this](std::int32_t found) { SelectStoreIndex(found); };
  hooks.rowsRemoved = [this] {
    model->syncWithStore();
    ShowSelectedPacket();
  };
  RunTcpCommand(&window, engine.Store(), index, chosen.tcp, hooks);
}

void PacketModeWindow::Impl::DeleteSelectedPacket() {
  const std::int32_t index = SelectedStoreIndex();
  if (index >= 0) DeletePacket(index);
}

// The pane must not keep showing a packet that left the list.
void PacketModeWindow::Impl::DeletePacket(std::int32_t index) {
  if (model->deletePacket(index)) ShowSelectedPacket();
}

bool PacketModeWindow::eventFilter(QObject* watched, QEvent* event) {
  Impl& d = *impl_;
  const bool onList = watched && (watched == d.list || watched == d.listViewport);
  if (onList && event->type() == QEvent::KeyPress &&
      static_cast<const QKeyEvent&>(*event).matches(QKeySequence::Delete)) {
    d.DeleteSelectedPacket();
    return true;
  }
  if (!onList || event->type() != QEvent::ContextMenu)
    return QMainWindow::eventFilter(watched, event);
  const auto& menuEvent = static_cast<const QContextMenuEvent&>(*event);
  // A mouse-opened menu follows the pointer; one opened from the keyboard has no pointer to
  // follow and opens at a fixed spot inside the list.
  const QPoint at = menuEvent.reason() == QContextMenuEvent::Mouse
                        ? menuEvent.globalPos()
                        : d.list->mapToGlobal(kKeyboardMenuOffset);
  if (menuEvent.reason() == QContextMenuEvent::Mouse) {
    const QModelIndex hit = d.list->indexAt(d.list->viewport()->mapFromGlobal(at));
    if (hit.isValid()) d.list->selectRow(hit.row());
  }
  d.ShowRowMenu(at);
  return true;
}

// ---- showing, minimizing and closing --------------------------------------------------------

void PacketModeWindow::showEvent(QShowEvent* event) {
  QMainWindow::showEvent(event);
  if (impl_->shownOnce) return;
  impl_->shownOnce = true;
  // "Press Start" once the window is up, so any question it asks has a window to sit on.
  if (impl_->autoListen) QTimer::singleShot(0, this, &PacketModeWindow::startListening);
}

void PacketModeWindow::changeEvent(QEvent* event) {
  QMainWindow::changeEvent(event);
  if (event->type() == QEvent::LanguageChange) impl_->model->retranslate();
}

void PacketModeWindow::Impl::HideToTray() {
  if (tray) {
    window.hide();
    return;
  }
  window.showMinimized();
}

void PacketModeWindow::Impl::RestoreFromTray() {
  window.show();
  window.setWindowState((window.windowState() & ~Qt::WindowMinimized) | Qt::WindowActive);
  window.raise();
  window.activateWindow();
}

void PacketModeWindow::Impl::SaveWindowState() {
  WindowState& state = settings.packetMode.window;
  const QRect normal =
      window.isMaximized() || window.isMinimized() ? window.normalGeometry() : window.geometry();
  state.valid = normal.isValid();
  state.x = normal.x();
  state.y = normal.y();
  state.width = normal.width();
  state.height = normal.height();
  state.maximized = window.isMaximized();
  state.minimized = window.isMinimized() || window.isHidden();

  const QHeaderView& header = *list->horizontalHeader();
  std::vector<int>& order = settings.packetMode.columnOrder;
  std::vector<int>& widths = settings.packetMode.columnWidths;
  order.assign(kListColumnCount, 0);
  widths.assign(kListColumnCount, 0);
  for (int column = 0; column < kListColumnCount; ++column) {
    order[static_cast<std::size_t>(header.visualIndex(column))] = column;
    widths[static_cast<std::size_t>(column)] = header.sectionSize(column);
  }
}

void PacketModeWindow::closeEvent(QCloseEvent* event) {
  Impl& d = *impl_;
  if (d.closing) {
    event->accept();
    return;
  }
  if (d.settings.minimizeToTrayOnClose && !d.exitRequested && d.pendingSwitch == kNoPendingSwitch) {
    event->ignore();
    d.HideToTray();
    return;
  }
  d.closing = true;
  d.refreshTimer.stop();
  d.SaveWindowState();
  d.details->saveState();
  SaveSettingsOrWarn(this, d.settings, DefaultSettingsFile());
  d.finder->cancel();
  d.engine.Quit();
  d.engine.StopLogging();  // after capture ended: the last packets are logged too
  if (d.pendingSwitch != kNoPendingSwitch) {
    Relaunch(static_cast<ProgramMode>(d.pendingSwitch));
    d.pendingSwitch = kNoPendingSwitch;
  }
  if (d.tray) d.tray->hide();
  event->accept();
  QCoreApplication::quit();
}

// ---- accessors ------------------------------------------------------------------------------

const PacketStore& PacketModeWindow::store() const { return impl_->store; }
PacketListModel& PacketModeWindow::listModel() const { return *impl_->model; }
QTableView& PacketModeWindow::packetList() const { return *impl_->list; }

DumpFileCommands& PacketModeWindow::dumpFiles() const { return impl_->dumps; }

}  // namespace vormelt::ui
