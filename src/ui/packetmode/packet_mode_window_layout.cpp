// The Packet Mode window's menus, tool bars, list, detail pane and status bar, and the
// columns it keeps between runs.
#include "ui/packetmode/packet_mode_window_impl.hpp"

#include <QHeaderView>

namespace vormelt::ui {
namespace {

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

void PacketModeWindow::Impl::BuildMenus() {
  QMenuBar& bar = *window.menuBar();
  QMenu& file = *bar.addMenu(T(Text::PacketMenuFile));
  file.addAction(&shell->openAction());
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
  QObject::connect(exit, &QAction::triggered, shell, &ModeShell::Exit);

  QMenu& capture = *bar.addMenu(T(Text::PacketMenuCapture));
  capture.addActions({&shell->startAction(), &shell->stopAction()});
  clearAction = AddCommand(capture, Text::PacketMenuClear, Text::PacketButtonClear,
                           QStyle::SP_DialogResetButton, &PacketModeWindow::clearList);
  capture.addSeparator();
  capture.addAction(&shell->chooseAction());

  QMenu& filters = *bar.addMenu(T(Text::PacketMenuFilters));
  filterAction = AddCommand(filters, Text::PacketMenuFilterSetup, Text::PacketButtonFilterSetup,
                            QStyle::SP_FileDialogContentsView, &PacketModeWindow::openFilterSetup);

  QMenu& view = *bar.addMenu(T(Text::PacketMenuView));
  hexAction = AddCommand(view, Text::PacketMenuHexViewer, Text::PacketButtonHexViewer,
                         QStyle::SP_FileDialogDetailedView, &PacketModeWindow::openHexViewer);

  shell->AddSwitchEntries(*bar.addMenu(T(Text::PacketMenuSwitchModes)));

  QMenu& options = *bar.addMenu(T(Text::PacketMenuSettings));
  AddOption(options, Text::PacketMenuMinimizeToTray, settings.minimizeToTrayOnClose,
            &settings.minimizeToTrayOnClose);
  AddOption(options, Text::PacketMenuNewPacketSound, settings.packetMode.newPacketSound,
            &settings.packetMode.newPacketSound);
  options.addSeparator();
  QAction* logging = options.addAction(T(Text::PacketMenuLogging));
  logging->setObjectName(QStringLiteral("loggingAction"));
  QObject::connect(logging, &QAction::triggered, &window, &PacketModeWindow::openLoggingWindow);
  shell->AddHelpEntries(*bar.addMenu(T(Text::ShellMenuHelp)));
}

void PacketModeWindow::Impl::BuildToolBar() {
  QToolBar& commands = *window.addToolBar(QString());
  commands.setObjectName(QStringLiteral("commands"));
  commands.setMovable(false);
  commands.setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
  commands.addActions({&shell->startAction(), &shell->stopAction(), clearAction});
  commands.addSeparator();
  commands.addActions({&shell->chooseAction(), &shell->openAction()});
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

void PacketModeWindow::Impl::SaveColumns() {
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

}  // namespace vormelt::ui
