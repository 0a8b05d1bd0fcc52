// The File Mode window, on the same FileModeRun as the service and vormelt-cli. The options
// write through to the settings as they are clicked and are read by the engine at Start; only
// the naming dialog's choices also reach a running capture, from its next file. The shell's
// 100 ms tick reads the engine's counters and takes the files written since the last tick; no
// packet ever reaches the window.
#include "ui/filemode/file_mode_window.hpp"

#include <QApplication>
#include <QCheckBox>
#include <QCloseEvent>
#include <QDesktopServices>
#include <QDir>
#include <QFile>
#include <QFileDialog>
#include <QFileInfo>
#include <QFormLayout>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMenuBar>
#include <QPushButton>
#include <QSpinBox>
#include <QStandardPaths>
#include <QStatusBar>
#include <QTableWidget>
#include <QUrl>
#include <QVBoxLayout>
#include <atomic>
#include <thread>

#include "app/file_mode.hpp"
#include "app/mode_engines.hpp"
#include "common/settings.hpp"
#include "filemode/engine.hpp"
#include "filters/filter_profile.hpp"
#include "filters/filter_settings.hpp"
#include "packets/format.hpp"
#include "ui/shell/dialogs.hpp"
#include "ui/filemode/file_naming_dialog.hpp"
#include "ui/shell/dump_dialogs.hpp"
#include "ui/shell/filter_setup_window.hpp"
#include "ui/shell/interface_chooser.hpp"
#include "ui/shell/mode_window.hpp"
#include "ui/shell/qt_text.hpp"

namespace vormelt::ui {
namespace {

namespace fm = filemode;

// The check boxes in the order shown, each with the setting it writes.
struct OptionBox {
  Text text;
  bool FileModeSettings::*setting;
};
constexpr OptionBox kOptions[] = {
    {Text::FileOptionOverwrite, &FileModeSettings::overwrite},
    {Text::FileOptionOnlyHttp, &FileModeSettings::onlyHttp},
    {Text::FileOptionAcceptPartial, &FileModeSettings::acceptPartial},
    {Text::FileOptionDirty, &FileModeSettings::dirtyMode},
    {Text::FileOptionPshOnly, &FileModeSettings::pshOnly},
    {Text::FileOptionLatestDuplicates, &FileModeSettings::latestDuplicates},
    {Text::FileOptionApplyFilters, &FileModeSettings::applyFilters},
    {Text::FileOptionShortExtensions, &FileModeSettings::shortExtensions},
};
constexpr int kApplyFiltersBox = 6;

enum Column { kName, kSize, kType, kSource, kDestination, kTime, kComplete, kColumnCount };
constexpr Text kColumns[kColumnCount] = {Text::FileColumnName,   Text::FileColumnSize,
                                         Text::FileColumnType,   Text::FileColumnSource,
                                         Text::FileColumnDestination, Text::FileColumnTime,
                                         Text::FileColumnComplete};

// Files that could not be written are told on the message line, not in a box per file: a full
// disk fails file after file, and File Mode goes on trying.
bool IsWriteFailure(const CaptureMessage& message) {
  return message.text == Text::FileWriteError || message.text == Text::FileNotWritten ||
         message.text == Text::FileNotWrittenMore;
}

// An IPv6 address goes in brackets, so its colons are not taken for the port's.
QString Endpoint(const IpAddress& address, std::uint16_t port) {
  const QString text = QString::fromStdString(address.ToString());
  return (address.isV6() ? QLatin1Char('[') + text + QLatin1Char(']') : text) + QLatin1Char(':') +
         QString::number(port);
}

QString ClockText(std::int64_t ms) {
  const LocalTime t = ToLocalTime(CaptureTime(std::chrono::milliseconds(ms)));
  return QString::asprintf("%02d:%02d:%02d.%03d", t.hour, t.minute, t.second, t.millisecond);
}

QString Bytes(std::int64_t bytes) { return QString::fromStdString(format::ByteSize(bytes)); }

}  // namespace

struct FileModeWindow::Impl : CaptureHooks {
  FileModeWindow& window;
  ProgramSettings& settings;
  FileModeRun run;
  std::jthread dumpThread;
  std::atomic<bool> dumpRunning{false};
  std::optional<DumpLoadResult> dumpResult;  // written by the dump thread before it clears dumpRunning

  std::vector<QCheckBox*> options;
  QSpinBox* ackTimeout = nullptr;
  QLineEdit* folder = nullptr;
  QLabel* bytesReceived = nullptr;
  QLabel* processing = nullptr;
  QLabel* written = nullptr;
  QLabel* bytesWritten = nullptr;
  QLabel* memory = nullptr;
  QLabel* kernelDropped = nullptr;
  QLabel* kernelDroppedLabel = nullptr;
  QLabel* busy = nullptr;
  QLabel* status = nullptr;
  QLabel* messageLine = nullptr;
  QTableWidget* files = nullptr;
  ModeShell* shell = nullptr;

  bool started = false;
  bool fileSource = false;  // the last run read a capture or dump file
  std::uint64_t sinceLaunch = 0;  // %FCL: this process's files, carried from run to run
  std::uint64_t countsStoredAt = 0;

  Impl(FileModeWindow& w, ProgramSettings& s) : window(w), settings(s) {}

  QWidget* BuildOptions(QWidget* parent);
  QWidget* BuildActivity(QWidget* parent);
  QWidget* BuildFileList(QWidget* parent);
  void BuildWidgets();
  void BuildMenus();
  void PrepareRun(bool fromFile);
  void TakeNaming(bool customCountSet);

  bool StartOn(const CaptureTarget& target) override {
    if (run.Capture().Capturing()) return false;
    PrepareRun(target.type == CaptureTarget::Type::File);
    return run.Capture().Start(target);
  }
  void RestartOn(const CaptureTarget& target) override { run.Capture().Restart(target); }
  void StopCapture() override { run.Capture().Stop(); }
  void QuitCapture() override {
    run.Capture().Quit();
    if (dumpThread.joinable()) dumpThread.join();
    run.Engine().Finish();
    KeepCounts();
  }
  bool Capturing() const override { return run.Capture().Capturing(); }
  CaptureStatusSnapshot StatusSnapshot() const override { return run.Capture().Status(); }
  std::vector<CaptureMessage> TakeMessages() override { return run.Capture().Messages().Drain(); }
  std::uint64_t Drops() const override { return run.Capture().Dropped(); }
  bool ReadingFile() const override { return fileSource; }
  bool Busy() const override { return dumpRunning.load(); }
  void Ticked() override { window.refresh(); }
  void PrepareFolder();
  void TakeWrittenFiles();
  void KeepCounts();
};

QWidget* FileModeWindow::Impl::BuildOptions(QWidget* parent) {
  auto* box = new QGroupBox(T(Text::FileOptionsGroup), parent);
  auto* layout = new QGridLayout(box);
  FileModeSettings& s = settings.fileMode;
  for (std::size_t i = 0; i < std::size(kOptions); ++i) {
    auto* check = new QCheckBox(T(kOptions[i].text), box);
    check->setChecked(s.*kOptions[i].setting);
    const auto setting = kOptions[i].setting;
    connect(check, &QCheckBox::toggled, &window, [this, setting](bool on) {
      settings.fileMode.*setting = on;
    });
    layout->addWidget(check, static_cast<int>(i % 4), static_cast<int>(i / 4));
    options.push_back(check);
  }
  auto* timeoutRow = new QHBoxLayout;
  ackTimeout = new QSpinBox(box);
  ackTimeout->setRange(0, 3'600'000);
  ackTimeout->setValue(s.ackTimeoutMs);
  connect(ackTimeout, &QSpinBox::valueChanged, &window,
          [this](int value) { settings.fileMode.ackTimeoutMs = value; });
  timeoutRow->addWidget(new QLabel(T(Text::FileAckTimeout), box));
  timeoutRow->addWidget(ackTimeout);
  timeoutRow->addStretch();
  layout->addLayout(timeoutRow, 4, 0, 1, 2);
  layout->addWidget(new QLabel(T(Text::FileFolderLabel), box), 5, 0, 1, 2);
  auto* folderRow = new QHBoxLayout;
  folder = new QLineEdit(QString::fromStdString(s.folder), box);
  connect(folder, &QLineEdit::textChanged, &window,
          [this](const QString& text) { settings.fileMode.folder = text.toStdString(); });
  auto* browse = new QPushButton(T(Text::FileBrowse), box);
  connect(browse, &QPushButton::clicked, &window, &FileModeWindow::chooseFolder);
  folderRow->addWidget(folder, 1);
  folderRow->addWidget(browse);
  layout->addLayout(folderRow, 6, 0, 1, 2);
  return box;
}

QWidget* FileModeWindow::Impl::BuildActivity(QWidget* parent) {
  auto* box = new QGroupBox(T(Text::FileActivityGroup), parent);
  auto* form = new QFormLayout(box);
  const auto addRow = [&](Text text) {
    auto* value = new QLabel(QStringLiteral("0"), box);
    value->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    value->setMinimumWidth(90);
    form->addRow(T(text), value);
    return value;
  };
  bytesReceived = addRow(Text::FileCounterBytesReceived);
  processing = addRow(Text::FileCounterProcessing);
  written = addRow(Text::FileCounterWritten);
  bytesWritten = addRow(Text::FileCounterBytesWritten);
  memory = addRow(Text::FileCounterMemory);
  // Shown only once the kernel has dropped something: then files may be missing parts.
  kernelDropped = addRow(Text::FileCounterKernelDropped);
  kernelDroppedLabel = qobject_cast<QLabel*>(form->labelForField(kernelDropped));
  kernelDropped->hide();
  if (kernelDroppedLabel) kernelDroppedLabel->hide();
  busy = new QLabel(QStringLiteral("----"), box);
  QFont mono(QStringLiteral("monospace"));
  mono.setStyleHint(QFont::TypeWriter);
  busy->setFont(mono);
  busy->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
  form->addRow(busy);
  return box;
}

QWidget* FileModeWindow::Impl::BuildFileList(QWidget* parent) {
  auto* box = new QGroupBox(T(Text::FileListGroup), parent);
  auto* layout = new QVBoxLayout(box);
  files = new QTableWidget(0, kColumnCount, box);
  QStringList headers;
  for (const Text column : kColumns) headers << T(column);
  files->setHorizontalHeaderLabels(headers);
  files->setSelectionBehavior(QAbstractItemView::SelectRows);
  files->setSelectionMode(QAbstractItemView::SingleSelection);
  files->setEditTriggers(QAbstractItemView::NoEditTriggers);
  // A long name loses its middle, so the extension stays in view; wrapped text would elide
  // only its first line and lose the end instead.
  files->setWordWrap(false);
  files->setTextElideMode(Qt::ElideMiddle);
  files->verticalHeader()->hide();
  files->verticalHeader()->setDefaultSectionSize(files->fontMetrics().height() + 6);
  files->horizontalHeader()->setStretchLastSection(true);
  files->setColumnWidth(kName, 220);
  files->setColumnWidth(kType, 130);
  files->setColumnWidth(kSource, 130);
  files->setColumnWidth(kDestination, 130);
  connect(files, &QTableWidget::cellDoubleClicked, &window, &FileModeWindow::openSelectedFile);
  layout->addWidget(files, 1);
  auto* buttons = new QHBoxLayout;
  auto* open = new QPushButton(T(Text::FileOpenFile), box);
  auto* show = new QPushButton(T(Text::FileShowInFolder), box);
  connect(open, &QPushButton::clicked, &window, &FileModeWindow::openSelectedFile);
  connect(show, &QPushButton::clicked, &window, &FileModeWindow::showSelectedInFolder);
  buttons->addWidget(open);
  buttons->addWidget(show);
  buttons->addStretch();
  layout->addLayout(buttons);
  return box;
}

void FileModeWindow::Impl::BuildWidgets() {
  auto* central = new QWidget(&window);
  auto* layout = new QVBoxLayout(central);
  auto* buttons = new QHBoxLayout;
  const auto addButton = [&](Text text, void (FileModeWindow::*command)()) {
    auto* button = new QPushButton(T(text), central);
    connect(button, &QPushButton::clicked, &window, command);
    buttons->addWidget(button);
  };
  for (QAction* command : {&shell->startAction(), &shell->stopAction(), &shell->chooseAction(),
                           &shell->openAction()}) {
    buttons->addWidget(ModeShell::Button(*command, central));
  }
  addButton(Text::PacketButtonFilterSetup, &FileModeWindow::openFilterSetup);
  addButton(Text::FileButtonNaming, &FileModeWindow::openNamingDialog);
  buttons->addStretch();
  layout->addLayout(buttons);
  auto* top = new QHBoxLayout;
  top->addWidget(BuildOptions(central), 1);
  top->addWidget(BuildActivity(central));
  layout->addLayout(top);
  layout->addWidget(BuildFileList(central), 1);
  messageLine = new QLabel(central);
  messageLine->setWordWrap(true);
  messageLine->setTextInteractionFlags(Qt::TextSelectableByMouse);
  messageLine->setStyleSheet(QStringLiteral("color: #b00020;"));
  messageLine->hide();
  layout->addWidget(messageLine);
  window.setCentralWidget(central);
  status = new QLabel(T(Text::FileStatusIdle), &window);
  window.statusBar()->addWidget(status, 1);
}

void FileModeWindow::Impl::BuildMenus() {
  QMenuBar& bar = *window.menuBar();
  QMenu& file = *bar.addMenu(T(Text::PacketMenuFile));
  file.addAction(&shell->openAction());
  file.addAction(T(Text::FileMenuProcessDump), &window, &FileModeWindow::processDumpFileDialog);
  file.addSeparator();
  file.addAction(T(Text::PacketMenuExit), shell, &ModeShell::Exit);

  QMenu& capture = *bar.addMenu(T(Text::PacketMenuCapture));
  capture.addActions({&shell->startAction(), &shell->stopAction(), &shell->chooseAction()});

  QMenu& settingsMenu = *bar.addMenu(T(Text::PacketMenuSettings));
  settingsMenu.addAction(T(Text::PacketMenuFilterSetup), &window, &FileModeWindow::openFilterSetup);
  settingsMenu.addAction(T(Text::FileMenuNaming), &window, &FileModeWindow::openNamingDialog);

  shell->AddSwitchAndHelpMenus(bar);
}

// An empty folder field means the user's downloads folder; either way it is made if missing.
// A new run starts with an empty message line.
void FileModeWindow::Impl::PrepareFolder() {
  messageLine->clear();
  messageLine->hide();
  if (folder->text().trimmed().isEmpty()) {
    folder->setText(QStandardPaths::writableLocation(QStandardPaths::DownloadLocation) +
                    QStringLiteral("/VORMELT"));
  }
  QDir().mkpath(folder->text());
}

// Every run starts from the options as they stand now, with the counts the last run left and an
// empty list: the list shows this run's files only.
void FileModeWindow::Impl::PrepareRun(bool fromFile) {
  PrepareFolder();
  KeepCounts();
  run.SetOptions(FileModeOptionsFrom(settings.fileMode),
                 FileCountsFrom(settings.fileMode, sinceLaunch));
  countsStoredAt = 0;
  started = true;
  fileSource = fromFile;
  files->setRowCount(0);
}

// The naming dialog's Okay or Apply: a running capture names its next file by the new choices
// (the folder and over-writing stay as the run began: they are the window's, and the folder may
// be half typed), and a %FCC the user typed is where counting goes on from.
void FileModeWindow::Impl::TakeNaming(bool customCountSet) {
  fm::NamingOptions naming = FileModeOptionsFrom(settings.fileMode).naming;
  naming.folder = run.Options().naming.folder;
  naming.overwrite = run.Options().naming.overwrite;
  run.Engine().Rename(naming);
  if (customCountSet) run.Engine().SetCustomCount(settings.fileMode.countCustom);
}

void FileModeWindow::Impl::TakeWrittenFiles() {
  for (const fm::WrittenFile& f : run.Engine().DrainWritten()) {
    if (!f.written()) continue;  // told on the message line
    const int row = files->rowCount();
    files->insertRow(row);
    const QString path = QFile::decodeName(f.path.c_str());
    auto* name = new QTableWidgetItem(QFileInfo(path).fileName());
    name->setData(Qt::UserRole, path);
    name->setToolTip(path);
    files->setItem(row, kName, name);
    files->setItem(row, kSize, new QTableWidgetItem(Bytes(static_cast<std::int64_t>(f.size))));
    files->setItem(row, kType, new QTableWidgetItem(QString::fromStdString(f.contentType)));
    files->setItem(row, kSource, new QTableWidgetItem(Endpoint(f.source, f.sourcePort)));
    files->setItem(row, kDestination,
                   new QTableWidgetItem(Endpoint(f.destination, f.destinationPort)));
    files->setItem(row, kTime, new QTableWidgetItem(ClockText(f.lastMs)));
    files->setItem(row, kComplete,
                   new QTableWidgetItem(T(f.complete ? Text::FileCompleteYes : Text::FileCompleteNo)));
  }
}

// %FCL, %FCI and %FCC move on with every file written; the settings keep the last two.
void FileModeWindow::Impl::KeepCounts() {
  const fm::FileCounts counts = run.Engine().Counts();
  if (counts.sinceStart == countsStoredAt) return;
  countsStoredAt = counts.sinceStart;
  sinceLaunch = counts.sinceLaunch;
  StoreFileCounts(counts, settings.fileMode);
}

FileModeWindow::FileModeWindow(ProgramSettings& settings, bool startMinimized, bool autoListen,
                               std::filesystem::path settingsFile, QWidget* parent)
    : QMainWindow(parent), impl_(std::make_unique<Impl>(*this, settings)) {
  Impl& d = *impl_;
  d.shell = new ModeShell(*this, d, settings, ProgramMode::File, Text::FileWindowTitle,
                          Text::FileHelpKeys, std::move(settingsFile));
  d.BuildWidgets();
  d.BuildMenus();
  resize(900, 640);
  // The filter starts as the last OK or Apply of the filter window left it; the options and
  // counts are taken again at every Start.
  SetUpFileMode(d.run, settings, 0);
  d.shell->StartAsAsked(startMinimized, autoListen);
  refresh();
}

FileModeWindow::~FileModeWindow() { impl_->run.Capture().Quit(); }

void FileModeWindow::chooseFolder() {
  const QString chosen = QFileDialog::getExistingDirectory(this, T(Text::FileChooseFolderCaption),
                                                           impl_->folder->text());
  if (!chosen.isEmpty()) impl_->folder->setText(chosen);
}

bool FileModeWindow::openCaptureFile(const QString& path) {
  return impl_->shell->OpenCaptureFile(path);
}

void FileModeWindow::processDumpFileDialog() {
  Impl& d = *impl_;
  if (isCapturing()) {
    ShowNotice(this, Text::PacketStopListeningFirst, T(Text::FileStopListeningText), MessageIcon::Stop);
    return;
  }
  // The same questions as Packet Mode asks before loading a dump: which form it was saved in.
  if (!DumpFormatDialog::Ask(d.settings.packetMode.saving, this)) return;
  const auto form = static_cast<DataForm>(d.settings.packetMode.saving.loadForm);
  const QString path = QFileDialog::getOpenFileName(
      this, T(Text::FileMenuProcessDump).remove(QLatin1Char('&')), {},
      T(Text::FileDumpFilter) + QStringLiteral(";;") + T(Text::PacketAllFilesFilter));
  if (path.isEmpty()) return;
  d.PrepareRun(true);
  d.run.Engine().Start(d.run.Options(), fm::StreamClock::File,
                       FileCountsFrom(d.settings.fileMode, d.sinceLaunch));
  d.dumpRunning = true;
  d.dumpThread = std::jthread([&d, form, file = QFile::encodeName(path).toStdString()] {
    d.dumpResult = FeedDumpFile(file, form, d.run.Engine());
    d.run.Engine().Finish();
    d.dumpRunning = false;
  });
  refresh();
}

void FileModeWindow::openFilterSetup() {
  Impl& d = *impl_;
  FilterSetupWindow setup(d.run.Filter(), FilterMode::File, d.settings.fileMode.applyFilters, this,
                          &d.settings.fileMode.filterWindow);
  setup.exec();
  if (setup.enableFilteringRequested()) d.options[kApplyFiltersBox]->setChecked(true);
}

void FileModeWindow::openNamingDialog() {
  FileNamingDialog dialog(impl_->settings.fileMode, this);
  connect(&dialog, &FileNamingDialog::applied, this,
          [this](bool customCountSet) { impl_->TakeNaming(customCountSet); });
  dialog.exec();
}

void FileModeWindow::openSelectedFile() {
  const auto* item = impl_->files->item(impl_->files->currentRow(), kName);
  if (item) QDesktopServices::openUrl(QUrl::fromLocalFile(item->data(Qt::UserRole).toString()));
}

void FileModeWindow::showSelectedInFolder() {
  const auto* item = impl_->files->item(impl_->files->currentRow(), kName);
  if (!item) return;
  const QFileInfo file(item->data(Qt::UserRole).toString());
  QDesktopServices::openUrl(QUrl::fromLocalFile(file.absolutePath()));
}


void FileModeWindow::refresh() {
  Impl& d = *impl_;
  const fm::FileModeCounters c = d.run.Engine().Counters();
  d.bytesReceived->setText(Bytes(static_cast<std::int64_t>(c.bytesReceived)));
  d.processing->setText(QString::number(c.activeStreams));
  d.written->setText(QString::number(c.filesWritten));
  d.bytesWritten->setText(Bytes(static_cast<std::int64_t>(c.bytesWritten)));
  d.memory->setText(Bytes(c.memoryInUse));
  if (const std::uint64_t dropped = d.Drops(); dropped != 0) {
    d.kernelDropped->setText(QString::number(dropped));
    d.kernelDropped->show();
    if (d.kernelDroppedLabel) d.kernelDroppedLabel->show();
  }
  d.busy->setText(QString::fromStdString(d.run.Engine().BusyText()));
  d.status->setText(statusText());
  d.TakeWrittenFiles();
  d.KeepCounts();
  for (const CaptureMessage& message : d.run.Engine().Messages().Drain()) {
    if (!IsWriteFailure(message)) {
      ShowCaptureMessage(this, message);
      continue;
    }
    QString line = FromCrLf(FormatMessage(message, Language())).simplified();
    // The count of a run of failures follows the first one, which stays in view.
    if (message.text == Text::FileNotWrittenMore && !d.messageLine->text().isEmpty()) {
      line = d.messageLine->text() + QLatin1Char(' ') + line;
    }
    d.messageLine->setText(line);
    d.messageLine->show();
  }
  if (!d.dumpRunning && d.dumpResult) {
    const DumpLoadResult result = *std::exchange(d.dumpResult, std::nullopt);
    if (result.end == DumpLoadEnd::OpenFailed) {
      ShowNotice(this, Text::FileErrorCaption, T(Text::FileUnableToOpen), MessageIcon::Stop);
    } else if (result.end == DumpLoadEnd::Unreadable) {
      ShowNotice(this, Text::FileErrorCaption,
                 TF(Text::FileDumpUnreadable, static_cast<unsigned long long>(result.offset)),
                 MessageIcon::Warning);
    }
  }
}

ModeShell& FileModeWindow::shell() const { return *impl_->shell; }
bool FileModeWindow::isCapturing() const {
  return impl_->Capturing() || impl_->Busy();
}

void FileModeWindow::waitForCapture() {
  impl_->run.Capture().Wait();
  if (impl_->dumpThread.joinable()) impl_->dumpThread.join();
  refresh();
}

QString FileModeWindow::messageText() const { return impl_->messageLine->text(); }

QString FileModeWindow::statusText() const {
  const Impl& d = *impl_;
  if (!d.started) return T(Text::FileStatusIdle);
  if (isCapturing()) return T(d.fileSource ? Text::FileStatusProcessing : Text::FileStatusListening);
  return T(d.fileSource ? Text::FileStatusDone : Text::FileStatusStopped);
}

fm::FileModeEngine& FileModeWindow::engine() const { return impl_->run.Engine(); }
QTableWidget& FileModeWindow::fileList() const { return *impl_->files; }

void FileModeWindow::closeEvent(QCloseEvent* event) {
  Impl& d = *impl_;
  if (!d.shell->BeginClose(*event)) return;
  d.shell->EndClose(*event);
}

int RunFileModeWindow(ProgramSettings& settings, const ModeWindowStart& start) {
  FileModeWindow window(settings, start.startMinimized, start.autoListen, start.settingsFile);
  window.show();
  OpenCaptureFileWhenShown(window.shell(), start);
  return QApplication::exec();
}

}  // namespace vormelt::ui
