// Packet, File and Statistical Mode without a window: one HeadlessMode over the mode's capture
// (ModeCapture) on the chosen interface, each mode adding only its own upkeep. They read the
// settings but never write them: a headless run has no window state to keep, and the service
// may not own them.
#include "app/headless_modes.hpp"

#include <algorithm>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "app/headless.hpp"
#include "app/mode_engines.hpp"
#include "app/mode_metrics.hpp"
#include "app/modes.hpp"
#include "common/file_write.hpp"
#include "common/json_file.hpp"
#include "common/paths.hpp"
#include "packetmode/packet_logger.hpp"
#include "packetmode/packet_mode_engine.hpp"
#include "statistics/lists.hpp"

namespace vormelt {
namespace {

namespace fm = vormelt::filemode;
namespace stats = vormelt::statistics;

// What a headless mode runs, made before the CaptureHeadless that drives its capture and gone
// after it.
template <typename Run>
struct Holds {
  template <typename... Args>
  explicit Holds(Args&&... args) : run(std::forward<Args>(args)...) {}
  Run run;
};

// One capture on the chosen interface, run for the service. A mode derives from it and adds
// its own notices, status line, metrics and upkeep through the hooks below.
class CaptureHeadless : public HeadlessMode {
 public:
  CaptureHeadless(ModeCapture& capture, const ProgramSettings& settings)
      : capture_(capture), target_(CaptureTarget::FromSettings(settings.interface)) {}

  bool Start() override {
    BeforeStart();
    return capture_.Start(target_);
  }
  bool Listening() const override { return capture_.Listening(); }
  bool Running() const override { return capture_.Capturing() || KeepsRunning(); }
  std::uint64_t Progress() const override { return capture_.Progress(); }
  bool WaitingForFrames() const override { return capture_.WaitingForFrames(); }
  std::string StatusLine(UiLanguage language) const override {
    return ModeStatus(language, capture_.StatusLine(language));
  }
  // The capture ends first; then the mode writes what it still holds.
  void Stop() override {
    capture_.Quit();
    AfterStop();
  }
  // Set-up problems first, then the capture's messages, then the mode's own notices.
  std::vector<std::string> TakeMessages(UiLanguage language) override {
    std::vector<std::string> lines = std::move(told_);
    told_.clear();
    for (const CaptureMessage& message : capture_.Messages().Drain()) {
      lines.push_back(OneLineMessage(message, language));
    }
    for (const CaptureMessage& message : own_) lines.push_back(OneLineMessage(message, language));
    own_.clear();
    OwnMessages(language, lines);
    return lines;
  }
  void CollectMetrics(std::vector<metrics::Family>& out) const override {
    metrics::AddCapture(out, target_.displayName, capture_);
    OwnMetrics(out);
  }

 protected:
  virtual void BeforeStart() {}
  // True while the mode goes on although its capture ended (it restarts it in Tick).
  virtual bool KeepsRunning() const { return false; }
  virtual std::string ModeStatus(UiLanguage language, const std::string& captureStatus) const = 0;
  virtual void AfterStop() {}
  virtual void OwnMessages(UiLanguage language, std::vector<std::string>& lines) {}
  virtual void OwnMetrics(std::vector<metrics::Family>& out) const {}

  // A set-up problem (a damaged filter profile), told once as one line.
  void TellProblem(std::string problem) {
    if (problem.empty()) return;
    std::erase(problem, '\r');
    std::ranges::replace(problem, '\n', ' ');
    told_.push_back(std::move(problem));
  }
  void Add(Text text, std::optional<std::string> argument = std::nullopt) {
    own_.push_back({Text::ProgramTitle, text, MessageIcon::Information, std::move(argument),
                    std::nullopt});
  }
  void Add(Text text, long number) {
    own_.push_back({Text::ProgramTitle, text, MessageIcon::Information, std::nullopt, number});
  }
  ModeCapture& Capture() { return capture_; }
  const CaptureTarget& Target() const { return target_; }

 private:
  ModeCapture& capture_;
  CaptureTarget target_;
  std::vector<std::string> told_;
  std::vector<CaptureMessage> own_;
};

// ---- Packet Mode ----------------------------------------------------------------------------

class PacketHeadless final : private Holds<PacketModeEngine>, public CaptureHeadless {
 public:
  explicit PacketHeadless(const ProgramSettings& settings)
      : CaptureHeadless(run.Capture(), settings),
        logging_(settings.logging),
        dateTimeTemplate_(settings.packetMode.dateTimeTemplate) {
    // No one presses Clear here: a full store is renewed, after the logger has logged it.
    engine_.SetRenewWhenFull(true);
    TellProblem(SetUpPacketMode(engine_, settings));
  }

  // With logging on, the logger keeps what the store takes; without, the journal hears that
  // only the newest packets are kept, in memory.
  void BeforeStart() override {
    if (logging_.enabled && !LoggingProblem(logging_)) {
      LogConfig config;
      config.settings = logging_;
      config.dateTimeTemplate = dateTimeTemplate_;
      config.interfaceText = Target().name;
      if (!engine_.StartLogging(std::move(config))) Add(Text::ServiceLoggingOff);
    } else {
      Add(Text::ServiceLoggingOff);
    }
  }
  // A full store ended the capture; Tick starts it again on an empty one.
  bool KeepsRunning() const override { return StoppedByFullStore(); }

  void OwnMetrics(std::vector<metrics::Family>& out) const override {
    metrics::AddPacketMode(out, engine_, logging_.enabled);
  }

  std::string ModeStatus(UiLanguage language, const std::string& captureStatus) const override {
    return FormatText(Text::ServicePacketStatus, language, captureStatus.c_str(),
                      static_cast<int>(engine_.Store().ItemCount()));
  }

  // The engine renews a full store itself; the journal hears how many packets went unlogged,
  // and each episode of log files that cannot be written, with the file and the reason.
  void Tick(std::chrono::steady_clock::duration) override {
    if (const std::int64_t dropped = engine_.TakeDroppedUnlogged(); dropped > 0) {
      Add(Text::ServiceDroppedUnlogged, static_cast<long>(dropped));
    }
    const LogStatus logged = engine_.LoggingStatus();
    if (logged.failureEpisodes > failuresTold_) {
      failuresTold_ = logged.failureEpisodes;
      Add(Text::LogWriteFailed, logged.failedFile + ": " + logged.failureReason);
    }
    // Should a capture end on a full store all the same, it starts again on an empty one.
    if (engine_.Capturing() || !StoppedByFullStore()) return;
    engine_.Clear();
    engine_.Start(Target());
    Add(Text::ServiceStoreRenewed);
  }

  // The logger writes what is left and closes its file.
  void AfterStop() override {
    engine_.StopLogging();
    Tick({});
    if (const LogStatus logged = engine_.LoggingStatus(); logged.notLogged() > 0) {
      Add(Text::LogNotLoggedAtStop, static_cast<long>(logged.notLogged()));
    }
  }

 private:
  bool StoppedByFullStore() const {
    return engine_.Capture().Status().status == CaptureStatus::ItemLimitReached;
  }

  LoggingSettings logging_;
  std::string dateTimeTemplate_;
  std::int64_t failuresTold_ = 0;
  PacketModeEngine& engine_ = run;
};

// ---- Statistical Mode -----------------------------------------------------------------------

struct SavedList {
  stats::StatisticsList list;
  std::string_view key;  // the same words as `vormelt-cli stats --table`
};
constexpr SavedList kSavedLists[] = {{stats::StatisticsList::IpAddresses, "ip"},
                                     {stats::StatisticsList::IpAddressPairs, "pairs"},
                                     {stats::StatisticsList::LocalPorts, "ports"}};

class StatisticalHeadless final : private Holds<StatisticalRun>, public CaptureHeadless {
 public:
  StatisticalHeadless(const ProgramSettings& settings, std::filesystem::path listsFile)
      : Holds(StatisticsLimitsFrom(settings.statistics)),
        CaptureHeadless(run.Capture(), settings),
        listsFile_(std::move(listsFile)) {}

  void OwnMetrics(std::vector<metrics::Family>& out) const override {
    metrics::AddStatistics(out, run.Engine());
  }
  std::string ModeStatus(UiLanguage language, const std::string& captureStatus) const override {
    return FormatText(Text::ServiceStatisticsStatus, language, captureStatus.c_str(),
                      static_cast<long long>(run.Engine().PacketSequence()), listsFile_.c_str());
  }
  void Tick(std::chrono::steady_clock::duration sinceStart) override {
    if (sinceStart < nextSave_) return;
    nextSave_ = sinceStart + kStatisticsSaveInterval;
    SaveLists();
  }
  void AfterStop() override { SaveLists(); }

 private:
  // One JSON object, a member per list, each an array of the list's records with raw numbers.
  std::string ListsJson() {
    std::string json = "{";
    for (const SavedList& saved : kSavedLists) {
      json += json.size() > 1 ? ",\n\"" : "\n\"";
      json += saved.key;
      json += "\": ";
      run.Engine().WithTables([&](const stats::StatisticsTables& tables) {
        stats::WriteList(tables, saved.list, stats::SaveFormat::Json, UiLanguage::English, json);
      });
      while (json.back() == '\n') json.pop_back();
    }
    return json + "\n}\n";
  }

  void SaveLists() {
    std::string error;
    if (WriteFileAtomically(listsFile_, ListsJson(), &error)) {
      saveFailing_ = false;
      return;
    }
    // Told once per failing streak, not every minute.
    if (!saveFailing_) Add(Text::ServiceListsNotSaved, listsFile_.string() + ": " + error);
    saveFailing_ = true;
  }

  std::filesystem::path listsFile_;
  std::chrono::steady_clock::duration nextSave_{kStatisticsSaveInterval};
  bool saveFailing_ = false;
};

// ---- File Mode ------------------------------------------------------------------------------

// Files are written beneath the chosen folder as streams end; each one is told to the journal.
// The counts that outlive a run (%FCI) stay in memory: the service may not write the settings.
class FileHeadless final : private Holds<FileModeRun>, public CaptureHeadless {
 public:
  explicit FileHeadless(const ProgramSettings& settings)
      : CaptureHeadless(run.Capture(), settings) {
    TellProblem(SetUpFileMode(run, settings, 0));
  }

  void OwnMetrics(std::vector<metrics::Family>& out) const override {
    metrics::AddFileMode(out, run.Engine().Counters());
  }
  std::string ModeStatus(UiLanguage language, const std::string& captureStatus) const override {
    return FormatText(Text::ServiceFileStatus, language, captureStatus.c_str(),
                      static_cast<unsigned long long>(run.Engine().Counters().filesWritten),
                      run.Options().naming.folder.c_str());
  }
  // Failures were told among the engine's messages, once per run of them.
  void OwnMessages(UiLanguage language, std::vector<std::string>& lines) override {
    for (const CaptureMessage& message : run.Engine().Messages().Drain()) {
      lines.push_back(OneLineMessage(message, language));
    }
    for (const fm::WrittenFile& file : run.Engine().DrainWritten()) {
      if (!file.written()) continue;
      lines.push_back(FormatText(Text::ServiceFileWritten, language, file.path.c_str(),
                                 static_cast<unsigned long long>(file.size),
                                 file.contentType.empty() ? "-" : file.contentType.c_str()));
    }
  }
};

// ---- runners --------------------------------------------------------------------------------

// A service cannot ask which interface to use; without one it has nothing to do, and would not
// have anything more on a restart.
bool InterfaceChosen(const ModeStart& start) {
  if (HasChosenInterface(start.settings.interface)) return true;
  start.host->Tell(FormatText(Text::ServiceNoInterface, start.settings.language));
  return false;
}

// The window offers the Downloads folder; a service has none of its own to offer. The folder is
// made with its parents, as the log folders are; one that cannot be made would fail every file.
bool FileFolderUsable(const ModeStart& start) {
  const std::string& folder = start.settings.fileMode.folder;
  if (folder.empty()) {
    start.host->Tell(FormatText(Text::ServiceNoFileFolder, start.settings.language));
    return false;
  }
  std::error_code made;
  std::filesystem::create_directories(folder, made);
  if (!made) return true;
  const std::string what = folder + " (" + ErrnoText(made.value()) + ")";
  start.host->Tell(FormatText(Text::ServiceFileFolderNotMade, start.settings.language, what.c_str()));
  return false;
}

template <typename Mode, typename... Args>
int Run(const ModeStart& start, Args&&... args) {
  Mode mode(start.settings, std::forward<Args>(args)...);
  return RunHeadless(mode, *start.host, *start.stopSignals, start.settings.language,
                     start.settings.service.metricsListen);
}

}  // namespace

int RunPacketHeadless(const ModeStart& start) {
  if (!InterfaceChosen(start)) return kHeadlessConfigError;
  return Run<PacketHeadless>(start);
}

int RunFileHeadless(const ModeStart& start) {
  if (!InterfaceChosen(start) || !FileFolderUsable(start)) return kHeadlessConfigError;
  return Run<FileHeadless>(start);
}

int RunStatisticalHeadless(const ModeStart& start) {
  if (!InterfaceChosen(start)) return kHeadlessConfigError;
  return Run<StatisticalHeadless>(start, StateDirectory() / kStatisticsListsFileName);
}

}  // namespace vormelt
