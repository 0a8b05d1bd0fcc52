// File commands of the Packet Mode window. A job's worker touches only the engine and the
// job's own counters; the answer comes back through RunInBackground. The running count is
// lowered by the worker itself once it is done with the engine, which is what the destructor
// waits for.
#include "ui/packetmode/dump_commands.hpp"

#include <QApplication>
#include <QFile>
#include <QFileDialog>
#include <QFileInfo>
#include <chrono>
#include <thread>

#include "common/file_write.hpp"
#include "common/settings.hpp"
#include "packetmode/dump_file.hpp"
#include "packetmode/packet_mode_engine.hpp"
#include "ui/shell/background.hpp"
#include "ui/shell/dialogs.hpp"
#include "ui/shell/dump_dialogs.hpp"
#include "ui/shell/qt_text.hpp"

namespace vormelt::ui {
namespace {

constexpr auto kJobWaitStep = std::chrono::milliseconds(5);

std::string LocalPath(const QString& path) { return QFile::encodeName(path).toStdString(); }

}  // namespace

DumpFileCommands::DumpFileCommands(QWidget& window, PacketModeEngine& engine,
                                   ProgramSettings& settings)
    : window_(window), engine_(engine), settings_(settings) {}

DumpFileCommands::~DumpFileCommands() {
  if (job_) job_->cancel.store(true);
  while (running_->load() > 0) std::this_thread::sleep_for(kJobWaitStep);
}

double DumpFileCommands::Progress() const {
  if (!Busy() || !job_ || job_->total == 0) return -1;
  const double done = job_->countsPackets ? static_cast<double>(job_->packets.load())
                                          : static_cast<double>(job_->done.load());
  return std::min(1.0, done / static_cast<double>(job_->total));
}

std::shared_ptr<DumpFileCommands::Job> DumpFileCommands::Begin(std::uint64_t total,
                                                                bool countsPackets) {
  job_ = std::make_shared<Job>();
  job_->total = total;
  job_->countsPackets = countsPackets;
  running_->fetch_add(1);
  QApplication::setOverrideCursor(Qt::WaitCursor);
  if (onBusyChanged) onBusyChanged();
  return job_;
}

void DumpFileCommands::End() {
  QApplication::restoreOverrideCursor();
  if (onBusyChanged) onBusyChanged();
}

void DumpFileCommands::EditSavingOptions() {
  SavingOptionsDialog::Edit(settings_.packetMode.saving, &window_);
}

QString DumpFileCommands::AskSaveName(const QString& filter, const QString& suffix,
                                      bool confirmOverwrite) {
  QFileDialog dialog(&window_, QString(), QString::fromStdString(settings_.packetMode.saving.lastFolder),
                     filter);
  dialog.setAcceptMode(QFileDialog::AcceptSave);
  dialog.setOption(QFileDialog::DontConfirmOverwrite, !confirmOverwrite);
  dialog.setDefaultSuffix(suffix);
  if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty()) return {};
  const QString path = dialog.selectedFiles().front();
  settings_.packetMode.saving.lastFolder = QFileInfo(path).absolutePath().toStdString();
  return path;
}

void DumpFileCommands::SaveDumpFileDialog() {
  // Appending to a file that exists is what was asked for, not something to warn about.
  const QString path = AskSaveName(T(Text::DumpSaveFileFilter), QStringLiteral("txt"),
                                   !settings_.packetMode.saving.append);
  if (!path.isEmpty()) SaveDumpFile(path);
}

void DumpFileCommands::SaveCaptureFileDialog() {
  const QString path = AskSaveName(T(Text::CaptureFileFilter), QStringLiteral("pcapng"), true);
  if (!path.isEmpty()) SaveCaptureFile(path);
}

void DumpFileCommands::LoadDumpFileDialog() {
  if (!DumpFormatDialog::Ask(settings_.packetMode.saving, &window_)) return;
  const QString path = QFileDialog::getOpenFileName(
      &window_, QString(), QString::fromStdString(settings_.packetMode.saving.lastFolder),
      T(Text::DumpLoadFileFilter));
  if (path.isEmpty()) return;
  settings_.packetMode.saving.lastFolder = QFileInfo(path).absolutePath().toStdString();
  LoadDumpFile(path);
}

bool DumpFileCommands::SaveDumpFile(const QString& path) {
  if (Busy()) return false;
  DumpSaveOptions options = DumpSaveOptionsFrom(settings_.packetMode.saving, Language());
  const PacketStore& store = engine_.Store();
  const auto job = Begin(options.onlyListed ? store.RowCount() : store.ItemCount(), true);
  options.cancel = &job->cancel;  // the window closing: the file is finished and closed
  RunInBackground(
      &window_,
      [&store, options, file = LocalPath(path), job, running = running_] {
        const DumpSaveResult result = vormelt::SaveDumpFile(file, store, options, &job->packets);
        running->fetch_sub(1);
        return result;
      },
      [this, path](DumpSaveResult result) {
        End();
        if (!result.ok) {
          const QString detail = QStringLiteral("\n\n%1: %2").arg(path, QString::fromStdString(ErrnoText(result.error)));
          ShowNotice(&window_, Text::DumpErrorCaption, T(Text::DumpUnableToSave) + detail, MessageIcon::Stop);
        }
      });
  return true;
}

bool DumpFileCommands::SaveCaptureFile(const QString& path) {
  if (Busy()) return false;
  const bool onlyListed = settings_.packetMode.saving.onlyListed;
  const PacketStore& store = engine_.Store();
  const auto job = Begin(onlyListed ? store.RowCount() : store.ItemCount(), true);
  RunInBackground(
      &window_,
      [&store, onlyListed, file = LocalPath(path), job, running = running_] {
        CaptureExportResult result =
            vormelt::WriteCaptureFile(file, store, onlyListed, std::nullopt, &job->packets);
        running->fetch_sub(1);
        return result;
      },
      [this](CaptureExportResult result) {
        End();
        if (!result.ok) {
          ShowNotice(&window_, Text::DumpErrorCaption,
                     TF(Text::CaptureFileUnableToWrite, result.error.c_str()), MessageIcon::Stop);
        }
      });
  return true;
}

bool DumpFileCommands::LoadDumpFile(const QString& path) {
  if (Busy() || engine_.Capturing()) return false;
  const SavingSettings& saving = settings_.packetMode.saving;
  // A loaded file replaces what the list held, so the list shows that file and nothing else;
  // one that cannot be read leaves the list as it was.
  if (const QFileInfo file(path); clearList && file.isFile() && file.isReadable()) clearList();
  const auto job = Begin(static_cast<std::uint64_t>(QFileInfo(path).size()), false);
  DumpLoadOptions options;
  options.form = static_cast<DataForm>(saving.loadForm);
  options.cancel = &job->cancel;
  options.progress = &job->done;
  RunInBackground(
      &window_,
      [&engine = engine_, options, through = saving.loadThroughFilters, file = LocalPath(path),
       job, running = running_] {
        const std::optional<DumpLoadResult> result = engine.LoadDump(file, options, through);
        running->fetch_sub(1);
        return result.value_or(DumpLoadResult{});
      },
      [this, path](DumpLoadResult result) {
        End();
        if (const std::optional<Text> message = DumpLoadMessage(result.end)) {
          QString text = T(*message);
          if (result.end == DumpLoadEnd::OpenFailed) {
            text += QStringLiteral("\n\n%1: %2").arg(path, QString::fromStdString(ErrnoText(result.error)));
          } else if (result.end == DumpLoadEnd::ItemLimitReached) {
            text += QStringLiteral("\n\n") + QString::fromStdString(StoreLimitText(
                engine_.Store().Capacity(), result.notTaken, Language()));
          }
          ShowNotice(&window_, Text::DumpErrorCaption, text, MessageIcon::Stop);
        } else if (result.end == DumpLoadEnd::Unreadable) {
          // The records before the damage stay listed; the user hears where it stopped.
          const std::string told = DescribeDumpLoad(result, path.toStdString(), Language());
          ShowNotice(&window_, Text::DumpErrorCaption, QString::fromStdString(told),
                     MessageIcon::Warning);
        }
      });
  return true;
}

}  // namespace vormelt::ui
