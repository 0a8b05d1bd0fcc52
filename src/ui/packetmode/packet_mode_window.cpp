// The Packet Mode window: widgets, commands, the 10 ms refresh and the close path. Capture runs
// on the capture session's thread; this file only reads its flags, status and messages on the
// timer, and tells the list model how many rows arrived since the last tick.
#include "ui/packetmode/packet_mode_window.hpp"

#include <QApplication>
#include <QCloseEvent>
#include <QScrollBar>
#include <QTimer>

#include "app/mode_engines.hpp"
#include "ui/packetmode/packet_mode_window_impl.hpp"

namespace vormelt::ui {

// ---- construction ---------------------------------------------------------------------------

PacketModeWindow::PacketModeWindow(ProgramSettings& settings, bool startMinimized, bool autoListen,
                                   std::filesystem::path settingsFile, QWidget* parent)
    : QMainWindow(parent), impl_(std::make_unique<Impl>(*this, settings)) {
  impl_->autoListen = autoListen;
  setObjectName(QStringLiteral("packetModeWindow"));
  impl_->shell = new ModeShell(*this, *impl_, settings, ProgramMode::Packet,
                               Text::PacketCaptionStopped, Text::PacketHelpKeys,
                               std::move(settingsFile));
  impl_->BuildMenus();
  impl_->BuildToolBar();
  impl_->BuildCentralArea();
  impl_->BuildStatusBar();
  resize(kPreferredSize);
  // Start is pressed from showEvent, once the window is up to hold any question it asks.
  impl_->shell->StartAsAsked(startMinimized, false);
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

// The switches and the current profile are applied once at start, as every runner of this mode
// does. A damaged profile leaves the filter at its defaults and is kept aside; the user hears
// of it once, when the window is up.
void PacketModeWindow::Impl::ApplyFilterProfile() {
  const std::string problem = SetUpPacketMode(engine, settings);
  if (problem.empty()) return;
  QTimer::singleShot(0, &window, [this, text = FromCrLf(problem)] {
    ShowNotice(&window, Text::ProgramTitle, text, MessageIcon::Warning);
  });
}

// ---- commands -------------------------------------------------------------------------------


bool PacketModeWindow::Impl::StartOn(const CaptureTarget& target) {
  engine.SetDateTimeTemplate(settings.packetMode.dateTimeTemplate);
  if (target.type == CaptureTarget::Type::File) {
    model->clear();
    details->clearDetails();
    if (!capture.Start(target)) return false;
    // A file is read from its first packet on, so that is where the list stays.
    followNewRows = false;
    fileProgress->setValue(0);
    fileProgress->show();
  } else {
    const QScrollBar& scroll = *list->verticalScrollBar();
    followNewRows = scroll.value() == scroll.maximum();
    if (!capture.Start(target)) return false;
  }
  BeginRefreshing();
  return true;
}

void PacketModeWindow::Impl::RestartOn(const CaptureTarget& target) {
  gauge->setRange(0, kGaugeMaximum);
  // The old capture is given a second to end; a failure arrives as a queued message.
  capture.Restart(target);
  BeginRefreshing();
}

// Never asks whether anything listens: a restart waiting for the old capture to end must be
// cancelled too, though nothing is listening at that moment.
void PacketModeWindow::Impl::StopCapture() {
  gauge->setRange(0, kGaugeMaximum);
  capture.Stop();
  BeginRefreshing();
}

void PacketModeWindow::Impl::QuitCapture() {
  finder->cancel();
  capture.Quit();
  engine.StopLogging();  // after capture ended: the last packets are logged too
}

void PacketModeWindow::clearList() {
  impl_->model->clear();
  impl_->details->clearDetails();
  impl_->UpdateCounters();
}

bool PacketModeWindow::openCaptureFile(const QString& path) {
  return impl_->shell->OpenCaptureFile(path);
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

ModeShell& PacketModeWindow::shell() const { return *impl_->shell; }
bool PacketModeWindow::isCapturing() const { return impl_->Capturing(); }

void PacketModeWindow::openLoggingWindow() {
  Impl& d = *impl_;
  LoggingWindow dialog(d.settings.logging, this);
  if (dialog.exec() != QDialog::Accepted) return;
  d.settings.logging = dialog.settings();
  SaveSettingsOrWarn(this, d.settings, d.shell->settingsFile());
  d.StartLogging();
}

void PacketModeWindow::findNext(const QString& text) {
  impl_->findText->setText(text);
  impl_->finder->findNext();
}

void PacketModeWindow::waitForCapture() {
  impl_->capture.Wait();
  refresh();
}

// ---- showing, minimizing and closing --------------------------------------------------------

void PacketModeWindow::showEvent(QShowEvent* event) {
  QMainWindow::showEvent(event);
  if (impl_->shownOnce) return;
  impl_->shownOnce = true;
  // "Press Start" once the window is up, so any question it asks has a window to sit on.
  if (impl_->autoListen) QTimer::singleShot(0, impl_->shell, &ModeShell::Start);
}

void PacketModeWindow::changeEvent(QEvent* event) {
  QMainWindow::changeEvent(event);
  if (event->type() == QEvent::LanguageChange) impl_->model->retranslate();
}

void PacketModeWindow::closeEvent(QCloseEvent* event) {
  Impl& d = *impl_;
  if (!d.shell->BeginClose(*event)) return;
  d.refreshTimer.stop();
  d.SaveColumns();
  d.details->saveState();
  d.shell->EndClose(*event);
}

int RunPacketModeWindow(ProgramSettings& settings, const ModeWindowStart& start) {
  PacketModeWindow window(settings, start.startMinimized, start.autoListen, start.settingsFile);
  window.show();
  OpenCaptureFileWhenShown(window.shell(), start);
  return QApplication::exec();
}

// ---- accessors ------------------------------------------------------------------------------

const PacketStore& PacketModeWindow::store() const { return impl_->store; }
PacketListModel& PacketModeWindow::listModel() const { return *impl_->model; }
QTableView& PacketModeWindow::packetList() const { return *impl_->list; }

DumpFileCommands& PacketModeWindow::dumpFiles() const { return impl_->dumps; }

}  // namespace vormelt::ui
