// The Statistical Mode window. The updater is the shell's 100 ms tick on the window's thread: it takes
// the statistics lock once per list for a short copy, so the receive thread is never held up by
// drawing. Rows sit behind a sort proxy, so sorting, selection and scroll position survive.
#include "ui/statistics/statistical_mode_window.hpp"

#include <QApplication>
#include <QCloseEvent>
#include <QFile>
#include <QFileDialog>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QMenu>
#include <QMenuBar>
#include <QPushButton>
#include <QScreen>
#include <QScrollBar>
#include <QSortFilterProxyModel>
#include <QStatusBar>
#include <QTabBar>
#include <QStackedWidget>
#include <QTableView>
#include <QVBoxLayout>
#include <array>
#include <filesystem>

#include "app/mode_engines.hpp"
#include "common/json_file.hpp"
#include "common/settings.hpp"
#include "statistics/engine.hpp"
#include "statistics/lists.hpp"
#include "ui/shell/dialogs.hpp"
#include "ui/shell/mode_window.hpp"
#include "ui/shell/qt_text.hpp"
#include "ui/statistics/statistics_list_model.hpp"
#include "ui/statistics/statistics_settings_window.hpp"

namespace vormelt::ui {
namespace {

using statistics::SaveFormat;
using statistics::StatisticsList;

constexpr std::array<StatisticsList, statistics::kStatisticsListCount> kLists = {
    StatisticsList::IpAddresses, StatisticsList::IpAddressPairs, StatisticsList::LocalPorts};

}  // namespace

struct StatisticalModeWindow::Impl : CaptureHooks {
  StatisticalModeWindow& window;
  ProgramSettings& settings;
  StatisticalRun run;
  statistics::StatisticsEngine& engine;
  ModeCapture& capture;
  std::chrono::nanoseconds liveStart{};  // the steady time the last live capture began
  std::array<StatisticsListModel*, statistics::kStatisticsListCount> models{};
  std::array<QTableView*, statistics::kStatisticsListCount> views{};
  QTabBar* tabs = nullptr;
  QStackedWidget* stack = nullptr;
  QLabel* status = nullptr;
  QLabel* replaced = nullptr;
  ModeShell* shell = nullptr;
  bool started = false;  // a capture was started at least once

  Impl(StatisticalModeWindow& w, ProgramSettings& s, const statistics::StatisticsLimits& limits)
      : window(w), settings(s), run(limits), engine(run.Engine()), capture(run.Capture()) {}

  void BuildWidgets();
  void BuildMenus();
  void SizeColumns();
  StatisticsListModel::RateClock RateClock() const;

  bool StartOn(const CaptureTarget& target) override {
    if (capture.Capturing()) return false;
    engine.ResetFrameTimes();
    liveStart = StatisticsListModel::SteadyClock().now;
    for (StatisticsListModel* model : models) model->RestartRates();
    started = true;
    return capture.Start(target);
  }
  void RestartOn(const CaptureTarget& target) override { capture.Restart(target); }
  void StopCapture() override { capture.Stop(); }
  void QuitCapture() override { capture.Quit(); }
  bool Capturing() const override { return capture.Capturing(); }
  bool ReadingFile() const override { return capture.ReadingFile(); }
  CaptureStatusSnapshot StatusSnapshot() const override { return capture.Status(); }
  std::vector<CaptureMessage> TakeMessages() override { return capture.Messages().Drain(); }
  std::uint64_t Drops() const override { return capture.Dropped(); }
  void Ticked() override { window.refresh(); }
};

// A capture file's rates go by the times it recorded; live ones by the steady clock.
StatisticsListModel::RateClock StatisticalModeWindow::Impl::RateClock() const {
  if (!capture.ReadingFile()) return StatisticsListModel::SteadyClock(liveStart);
  const statistics::StatisticsEngine::FrameTimes times = engine.Times();
  return {times.newest.time_since_epoch(), times.first.time_since_epoch()};
}

// Every column as wide as its heading or its widest likely figure, in the language shown, and
// the window as wide as the widest list, so that nothing starts cut off or out of sight.
void StatisticalModeWindow::Impl::SizeColumns() {
  int widest = 0;
  for (std::size_t i = 0; i < kLists.size(); ++i) {
    QTableView& view = *views[i];
    const QFontMetrics metrics = view.fontMetrics();
    const QString sample = kLists[i] == StatisticsList::IpAddressPairs
                               ? QStringLiteral("255.255.255.255 - 255.255.255.255")
                               : QStringLiteral("[255.255.255.255]:65535");
    const int figure = metrics.horizontalAdvance(QStringLiteral("1023.99 MB/s")) + 16;
    int total = 0;
    for (int column = 0; column < models[i]->columnCount(); ++column) {
      int width = std::max(view.horizontalHeader()->sectionSizeHint(column), figure);
      if (column == 0) width = std::max(width, metrics.horizontalAdvance(sample) + 16);
      if (kLists[i] == StatisticsList::LocalPorts && column == 7) {
        width = std::max(width, metrics.horizontalAdvance(QStringLiteral("netbios-ssn Unknown")) + 16);
      }
      view.setColumnWidth(column, width);
      total += width;
    }
    widest = std::max(widest, total);
  }
  const QMargins margins = window.centralWidget()->layout()->contentsMargins();
  int width = widest + margins.left() + margins.right() + 2 * views[0]->frameWidth() +
              views[0]->verticalScrollBar()->sizeHint().width() + 4;
  if (const QScreen* screen = window.screen()) {
    width = std::min(width, screen->availableGeometry().width());
  }
  window.resize(std::max(width, 820), 520);
}

void StatisticalModeWindow::Impl::BuildWidgets() {
  auto* central = new QWidget(&window);
  auto* layout = new QVBoxLayout(central);
  auto* buttons = new QHBoxLayout;
  buttons->addWidget(ModeShell::Button(shell->startAction(), central));
  buttons->addWidget(ModeShell::Button(shell->stopAction(), central));
  auto* clear = new QPushButton(T(Text::PacketButtonClear), central);
  connect(clear, &QPushButton::clicked, &window, &StatisticalModeWindow::clearAll);
  buttons->addWidget(clear);
  buttons->addWidget(ModeShell::Button(shell->chooseAction(), central));
  buttons->addWidget(ModeShell::Button(shell->openAction(), central));
  buttons->addStretch();
  layout->addLayout(buttons);

  tabs = new QTabBar(central);
  stack = new QStackedWidget(central);
  for (std::size_t i = 0; i < kLists.size(); ++i) {
    tabs->addTab(T(statistics::ListTitle(kLists[i])));
    models[i] = new StatisticsListModel(kLists[i], Language(), &window);
    auto* proxy = new StatisticsSortProxy(&window);
    proxy->setSourceModel(models[i]);
    proxy->setDynamicSortFilter(true);
    auto* view = new QTableView(stack);
    view->setModel(proxy);
    view->setSortingEnabled(true);
    view->sortByColumn(-1, Qt::AscendingOrder);  // slot order until the user picks a column
    view->setSelectionBehavior(QAbstractItemView::SelectRows);
    view->setEditTriggers(QAbstractItemView::NoEditTriggers);
    view->verticalHeader()->hide();
    view->verticalHeader()->setDefaultSectionSize(view->fontMetrics().height() + 6);
    view->setWordWrap(false);
    view->horizontalHeader()->setStretchLastSection(true);
    view->horizontalHeader()->setSectionResizeMode(QHeaderView::Interactive);
    views[i] = view;
    stack->addWidget(view);
  }
  connect(tabs, &QTabBar::currentChanged, &window, [this](int index) {
    stack->setCurrentIndex(index);
    window.refresh();
  });
  layout->addWidget(tabs);
  layout->addWidget(stack, 1);
  window.setCentralWidget(central);

  status = new QLabel(T(Text::StatsStatusWaiting), &window);
  replaced = new QLabel(&window);
  window.statusBar()->addWidget(status, 1);
  window.statusBar()->addPermanentWidget(replaced);
}

void StatisticalModeWindow::Impl::BuildMenus() {
  QMenuBar& bar = *window.menuBar();
  QMenu& file = *bar.addMenu(T(Text::PacketMenuFile));
  file.addAction(&shell->openAction());
  file.addSeparator();
  file.addAction(T(Text::StatsMenuSaveText), &window,
                 [this] { window.saveListDialog(SaveFormat::Text); });
  file.addAction(T(Text::StatsMenuSaveCsv), &window,
                 [this] { window.saveListDialog(SaveFormat::Csv); });
  file.addAction(T(Text::StatsMenuSaveJson), &window,
                 [this] { window.saveListDialog(SaveFormat::Json); });
  file.addSeparator();
  file.addAction(T(Text::PacketMenuExit), shell, &ModeShell::Exit);

  QMenu& capture = *bar.addMenu(T(Text::PacketMenuCapture));
  capture.addAction(&shell->startAction());
  capture.addAction(&shell->stopAction());
  capture.addAction(T(Text::PacketMenuClear), &window, &StatisticalModeWindow::clearAll);
  capture.addAction(&shell->chooseAction());

  QMenu& lists = *bar.addMenu(T(Text::StatsMenuLists));
  for (const StatisticsList list : kLists) {
    lists.addAction(T(statistics::ListTitle(list)), &window, [this, list] { window.showList(list); });
  }

  QMenu& options = *bar.addMenu(T(Text::PacketMenuSettings));
  options.addAction(T(Text::StatsMenuSettingsWindow), &window, &StatisticalModeWindow::openSettings);
  shell->AddSwitchAndHelpMenus(bar);
}

StatisticalModeWindow::StatisticalModeWindow(ProgramSettings& settings,
                                             const statistics::StatisticsLimits& limits,
                                             bool startMinimized, bool autoListen,
                                             std::filesystem::path settingsFile, QWidget* parent)
    : QMainWindow(parent), impl_(std::make_unique<Impl>(*this, settings, limits)) {
  Impl& d = *impl_;
  d.shell = new ModeShell(*this, d, settings, ProgramMode::Statistical, Text::StatsWindowTitle,
                          Text::StatsHelpKeys, std::move(settingsFile));
  d.BuildWidgets();
  d.BuildMenus();
  d.SizeColumns();
  if (!d.run.FollowsLocalAddresses()) {
    ShowNotice(this, Text::ProgramTitle, T(Text::StatsNoEnumerator), MessageIcon::Warning);
  }
  d.shell->StartAsAsked(startMinimized, autoListen);
  refresh();
}

StatisticalModeWindow::~StatisticalModeWindow() { impl_->capture.Quit(); }

void StatisticalModeWindow::clearAll() {
  MessageRequest question;
  question.caption = T(Text::StatsClearCaption);
  question.text = T(Text::StatsClearQuestion);
  question.icon = MessageIcon::Question;
  question.buttons = MessageButtons::YesNo;
  question.onDismiss = MessageAnswer::No;
  if (ShowMessage(this, question) != MessageAnswer::Yes) return;
  impl_->engine.ClearAll();
  for (StatisticsListModel* model : impl_->models) model->Clear();
  refresh();
}

bool StatisticalModeWindow::openCaptureFile(const QString& path) {
  return impl_->shell->OpenCaptureFile(path);
}

void StatisticalModeWindow::saveListDialog(SaveFormat format) {
  const Text filter = format == SaveFormat::Csv    ? Text::StatsCsvFilter
                      : format == SaveFormat::Json ? Text::StatsJsonFilter
                                                   : Text::StatsTextFilter;
  const QString path = QFileDialog::getSaveFileName(this, T(Text::StatsSaveCaption), {},
                                                    T(filter) + QStringLiteral(";;") +
                                                        T(Text::PacketAllFilesFilter));
  if (!path.isEmpty()) saveList(path, format);
}

bool StatisticalModeWindow::saveList(const QString& path, SaveFormat format) {
  // The rows as the user sees them: in the order of the sort chosen, with their rates.
  const StatisticsList list = visibleList();
  const QTableView& shown = view(list);
  const auto* proxy = static_cast<const QSortFilterProxyModel*>(shown.model());
  std::vector<std::int32_t> onScreen;
  for (int row = 0; row < proxy->rowCount(); ++row) {
    onScreen.push_back(proxy->mapToSource(proxy->index(row, 0)).row());
  }
  const std::vector<std::int64_t> rates = model(list).Rates();
  const statistics::ShownList order{onScreen, rates};
  std::string text;
  impl_->engine.WithTables([&](const statistics::StatisticsTables& tables) {
    statistics::WriteList(tables, list, format, Language(), text, &order);
  });
  // Written beside the old file and renamed over it when whole: a full disk keeps the old list
  // and says why, where a buffered write would only have failed after it was reported written.
  std::string error;
  if (!WriteFileAtomically(QFile::encodeName(path).toStdString(), text, &error)) {
    const std::string what = QFile::encodeName(path).toStdString() + " (" + error + ")";
    ShowNotice(this, Text::ProgramTitle, TF(Text::StatsSaveFailed, what.c_str()), MessageIcon::Warning);
    return false;
  }
  return true;
}

void StatisticalModeWindow::showList(StatisticsList list) {
  impl_->tabs->setCurrentIndex(static_cast<int>(list));
}

void StatisticalModeWindow::openSettings() {
  StatisticsSettingsWindow settingsWindow(impl_->engine.Limits(), this);
  if (settingsWindow.exec() == QDialog::Accepted) impl_->engine.SetLimits(settingsWindow.limits());
}


void StatisticalModeWindow::refresh() {
  Impl& d = *impl_;
  // Every list, shown or not, so that each keeps its rate history and a switch of lists shows
  // current rows at once; a pass copies only what changed since the last one.
  const StatisticsListModel::RateClock clock = d.RateClock();
  for (std::size_t i = 0; i < d.models.size(); ++i) {
    StatisticsListModel& model = *d.models[i];
    model.Refresh(d.engine, clock);
    // A longer address than the column was made for (IPv6) widens it rather than being cut.
    QTableView& view = *d.views[i];
    const int needed = view.fontMetrics().horizontalAdvance(model.widestAddress()) + 16;
    if (needed > view.columnWidth(0)) view.setColumnWidth(0, needed);
  }
  d.status->setText(statusText());
  const std::int64_t replaced = d.engine.WithTables([](const statistics::StatisticsTables& t) {
    return t.ip.Replaced() + t.pairs.Replaced() + t.ports.Replaced();
  });
  d.replaced->setText(TF(Text::StatsRecordsReplaced, static_cast<long long>(replaced)));
}

ModeShell& StatisticalModeWindow::shell() const { return *impl_->shell; }
bool StatisticalModeWindow::isCapturing() const { return impl_->Capturing(); }

void StatisticalModeWindow::waitForCapture() {
  impl_->capture.Wait();
  refresh();
}

QString StatisticalModeWindow::statusText() const {
  if (!impl_->started) return T(Text::StatsStatusWaiting);
  QString text = T(isCapturing() ? Text::StatsStatusListening : Text::StatsStatusStopped);
  // What the kernel could not hold is missing from every count: said as soon as there is any.
  if (const std::uint64_t dropped = impl_->Drops(); dropped > 0) {
    text += TF(Text::StatusDropped, static_cast<unsigned long long>(dropped));
  }
  return text;
}

StatisticsList StatisticalModeWindow::visibleList() const {
  return kLists[static_cast<std::size_t>(std::max(0, impl_->tabs->currentIndex()))];
}

statistics::StatisticsLimits StatisticalModeWindow::limits() const { return impl_->engine.Limits(); }
statistics::StatisticsEngine& StatisticalModeWindow::engine() const { return impl_->engine; }
StatisticsListModel& StatisticalModeWindow::model(StatisticsList list) const {
  return *impl_->models[static_cast<std::size_t>(list)];
}
QTableView& StatisticalModeWindow::view(StatisticsList list) const {
  return *impl_->views[static_cast<std::size_t>(list)];
}

void StatisticalModeWindow::closeEvent(QCloseEvent* event) {
  Impl& d = *impl_;
  if (!d.shell->BeginClose(*event)) return;
  const statistics::StatisticsLimits limits = d.engine.Limits();
  d.settings.statistics.maxItems = limits.maxItems;
  d.settings.statistics.victimPolicy = static_cast<std::int32_t>(limits.policy);
  d.shell->EndClose(*event);
}

int RunStatisticalModeWindow(ProgramSettings& settings, const ModeWindowStart& start) {
  // The settings file keeps these within their bounds; the engine clamps them again.
  StatisticalModeWindow window(settings, StatisticsLimitsFrom(settings.statistics), start.startMinimized, start.autoListen,
                               start.settingsFile);
  window.show();
  OpenCaptureFileWhenShown(window.shell(), start);
  return QApplication::exec();
}

}  // namespace vormelt::ui
