// Packet, File and Statistical Mode without a window: each wraps its engine and one capture on
// the chosen interface in a HeadlessMode for RunHeadless. They read the settings but never
// write them: a headless run has no window state to keep, and the service may not own them.
#include "app/headless_modes.hpp"

#include <algorithm>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "app/file_mode.hpp"
#include "app/headless.hpp"
#include "app/mode_metrics.hpp"
#include "app/modes.hpp"
#include "capture/session.hpp"
#include "common/file_write.hpp"
#include "common/json_file.hpp"
#include "common/paths.hpp"
#include "filemode/engine.hpp"
#include "filters/filter_profile.hpp"
#include "filters/filter_settings.hpp"
#include "packetmode/packet_logger.hpp"
#include "packetmode/packet_mode_engine.hpp"
#include "statistics/engine.hpp"
#include "statistics/lists.hpp"
#include "statistics/local_addresses.hpp"

namespace vormelt {
namespace {

namespace fm = vormelt::filemode;
namespace stats = vormelt::statistics;

// The Listening status alone is not enough: a capture that failed to open never gets there,
// and one that ended keeps its last status.
bool SessionListening(const CaptureSession& session) {
  return session.listening.load() && session.Status().status == CaptureStatus::Listening;
}

// The mode's own notices, told after its capture's messages, one line each.
class PendingLines {
 public:
  void Add(Text text, std::optional<std::string> argument = std::nullopt) {
    own_.push_back({Text::ProgramTitle, text, MessageIcon::Information, std::move(argument),
                    std::nullopt});
  }
  void Add(Text text, long number) {
    own_.push_back({Text::ProgramTitle, text, MessageIcon::Information, std::nullopt, number});
  }
  std::vector<std::string> Take(MessageQueue& capture, UiLanguage language) {
    std::vector<std::string> lines;
    for (const CaptureMessage& message : capture.Drain()) {
      lines.push_back(OneLineMessage(message, language));
    }
    for (const CaptureMessage& message : own_) lines.push_back(OneLineMessage(message, language));
    own_.clear();
    return lines;
  }

 private:
  std::vector<CaptureMessage> own_;
};

// ---- Packet Mode ----------------------------------------------------------------------------

class PacketHeadless final : public HeadlessMode {
 public:
  explicit PacketHeadless(const ProgramSettings& settings)
      : target_(CaptureTarget::FromSettings(settings.interface)),
        logging_(settings.logging),
        dateTimeTemplate_(settings.packetMode.dateTimeTemplate) {
    // As the window sets its engine up: the filter switches from the settings, then the profile.
    engine_.SetDateTimeTemplate(settings.packetMode.dateTimeTemplate);
    // No one presses Clear here: a full store is renewed, after the logger has logged it.
    engine_.SetRenewWhenFull(true);
    engine_.Filter().SetFilteringEnabled(settings.packetMode.filteringEnabled);
    engine_.Filter().SetMatchCase(settings.packetMode.matchCase);
    // A damaged filter profile is kept aside and the defaults filter; the journal hears why.
    if (std::string problem = engine_.LoadCurrentProfile(settings.language); !problem.empty()) {
      std::erase(problem, '\r');
      std::ranges::replace(problem, '\n', ' ');
      told_.push_back(std::move(problem));
    }
  }

  bool Start() override {
    // With logging on, the logger keeps what the store takes; without, the journal hears that
    // only the newest packets are kept, in memory.
    if (logging_.enabled && !LoggingProblem(logging_)) {
      LogConfig config;
      config.settings = logging_;
      config.dateTimeTemplate = dateTimeTemplate_;
      config.interfaceText = target_.name;
      if (!engine_.StartLogging(std::move(config))) lines_.Add(Text::ServiceLoggingOff);
    } else {
      lines_.Add(Text::ServiceLoggingOff);
    }
    return engine_.StartLive(target_);
  }
  bool Listening() const override { return SessionListening(engine_.Session()); }
  // A full store ended the capture; Tick starts it again on an empty one.
  bool Running() const override { return engine_.Capturing() || StoppedByFullStore(); }
  std::uint64_t Progress() const override { return engine_.Session().LoopTurns(); }
  bool WaitingForFrames() const override { return engine_.Session().WaitingForFrames(); }

  void CollectMetrics(std::vector<metrics::Family>& out) const override {
    metrics::AddCapture(out, target_.displayName, engine_.FramesReceived(), engine_.BytesReceived(),
                        engine_.Session().Dropped());
    metrics::AddStore(out, static_cast<std::uint64_t>(engine_.Store().ItemCount()),
                      static_cast<std::uint64_t>(engine_.Store().Capacity()));
    if (logging_.enabled) {
      const LogStatus logged = engine_.LoggingStatus();
      metrics::AddLogging(out, static_cast<std::uint64_t>(logged.filesBegun),
                          static_cast<std::uint64_t>(logged.failureEpisodes));
    }
  }

  std::string StatusLine(UiLanguage language) const override {
    return FormatText(Text::ServicePacketStatus, language,
                      StatusText(engine_.Session().Status(), language).c_str(),
                      static_cast<int>(engine_.Store().ItemCount()));
  }

  // The engine renews a full store itself; the journal hears how many packets went unlogged,
  // and each episode of log files that cannot be written, with the file and the reason.
  void Tick(std::chrono::steady_clock::duration) override {
    if (const std::int64_t dropped = engine_.TakeDroppedUnlogged(); dropped > 0) {
      lines_.Add(Text::ServiceDroppedUnlogged, static_cast<long>(dropped));
    }
    const LogStatus logged = engine_.LoggingStatus();
    if (logged.failureEpisodes > failuresTold_) {
      failuresTold_ = logged.failureEpisodes;
      lines_.Add(Text::LogWriteFailed, logged.failedFile + ": " + logged.failureReason);
    }
    // Should a capture end on a full store all the same, it starts again on an empty one.
    if (engine_.Capturing() || !StoppedByFullStore()) return;
    engine_.Clear();
    engine_.StartLive(target_);
    lines_.Add(Text::ServiceStoreRenewed);
  }

  // The capture ends first; then the logger writes what is left and closes its file.
  void Stop() override {
    engine_.Quit();
    engine_.StopLogging();
    Tick({});
    if (const LogStatus logged = engine_.LoggingStatus(); logged.notLogged() > 0) {
      lines_.Add(Text::LogNotLoggedAtStop, static_cast<long>(logged.notLogged()));
    }
  }

  std::vector<std::string> TakeMessages(UiLanguage language) override {
    std::vector<std::string> lines = std::move(told_);
    told_.clear();
    for (std::string& line : lines_.Take(engine_.Session().Messages(), language)) {
      lines.push_back(std::move(line));
    }
    return lines;
  }

 private:
  bool StoppedByFullStore() const {
    return engine_.Session().Status().status == CaptureStatus::ItemLimitReached;
  }

  CaptureTarget target_;
  LoggingSettings logging_;
  std::string dateTimeTemplate_;
  std::vector<std::string> told_;
  std::int64_t failuresTold_ = 0;
  PendingLines lines_;
  PacketModeEngine engine_;  // last: its capture ends before the rest goes
};

// ---- Statistical Mode -----------------------------------------------------------------------

struct SavedList {
  stats::StatisticsList list;
  std::string_view key;  // the same words as `vormelt-cli stats --table`
};
constexpr SavedList kSavedLists[] = {{stats::StatisticsList::IpAddresses, "ip"},
                                     {stats::StatisticsList::IpAddressPairs, "pairs"},
                                     {stats::StatisticsList::LocalPorts, "ports"}};

class StatisticalHeadless final : public HeadlessMode {
 public:
  StatisticalHeadless(const ProgramSettings& settings, std::filesystem::path listsFile)
      : target_(CaptureTarget::FromSettings(settings.interface)),
        listsFile_(std::move(listsFile)),
        refresher_(locals_),
        engine_(locals_, {settings.statistics.maxItems,
                          static_cast<stats::VictimPolicy>(settings.statistics.victimPolicy)}) {}

  bool Start() override { return session_.Start(target_, counting_); }
  bool Listening() const override { return SessionListening(session_); }
  bool Running() const override { return session_.listening.load(); }
  std::uint64_t Progress() const override { return session_.LoopTurns(); }
  bool WaitingForFrames() const override { return session_.WaitingForFrames(); }

  void CollectMetrics(std::vector<metrics::Family>& out) const override {
    metrics::AddCapture(out, target_.displayName, counting_, session_);
    metrics::AddStatistics(out, engine_);
  }

  std::string StatusLine(UiLanguage language) const override {
    return FormatText(Text::ServiceStatisticsStatus, language,
                      StatusText(session_.Status(), language).c_str(),
                      static_cast<long long>(engine_.PacketSequence()), listsFile_.c_str());
  }

  void Tick(std::chrono::steady_clock::duration sinceStart) override {
    if (sinceStart < nextSave_) return;
    nextSave_ = sinceStart + kStatisticsSaveInterval;
    SaveLists();
  }

  void Stop() override {
    session_.Quit();
    SaveLists();
  }

  std::vector<std::string> TakeMessages(UiLanguage language) override {
    return lines_.Take(session_.Messages(), language);
  }

 private:
  // One JSON object, a member per list, each an array of the list's records with raw numbers.
  std::string ListsJson() {
    std::string json = "{";
    for (const SavedList& saved : kSavedLists) {
      json += json.size() > 1 ? ",\n\"" : "\n\"";
      json += saved.key;
      json += "\": ";
      engine_.WithTables([&](const stats::StatisticsTables& tables) {
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
    if (!saveFailing_) lines_.Add(Text::ServiceListsNotSaved, listsFile_.string() + ": " + error);
    saveFailing_ = true;
  }

  CaptureTarget target_;
  std::filesystem::path listsFile_;
  std::chrono::steady_clock::duration nextSave_{kStatisticsSaveInterval};
  bool saveFailing_ = false;
  PendingLines lines_;
  stats::LocalAddressList locals_;
  stats::LocalAddressRefresher refresher_;
  stats::StatisticsEngine engine_;
  CountingSink counting_{engine_};
  CaptureSession session_;  // last: its capture ends before the engine it feeds goes
};

// ---- File Mode ------------------------------------------------------------------------------

// Files are written beneath the chosen folder as streams end; each one is told to the journal.
// The counts that outlive a run (%FCI) stay in memory: the service may not write the settings.
class FileHeadless final : public HeadlessMode {
 public:
  explicit FileHeadless(const ProgramSettings& settings)
      : target_(CaptureTarget::FromSettings(settings.interface)),
        options_(FileModeOptionsFrom(settings.fileMode)),
        counts_(FileCountsFrom(settings.fileMode, 0)) {
    // As the window does: the filter as the last OK of its filter window left it.
    if (std::string problem = LoadCurrentProfileInto(FilterMode::File, filter_, settings.language);
        !problem.empty()) {
      std::erase(problem, '\r');
      std::ranges::replace(problem, '\n', ' ');
      told_.push_back(std::move(problem));
    }
  }

  bool Start() override {
    engine_.Start(options_, fm::StreamClock::Live, counts_);
    return session_.Start(target_, counting_);
  }

  void CollectMetrics(std::vector<metrics::Family>& out) const override {
    metrics::AddCapture(out, target_.displayName, counting_, session_);
    metrics::AddFileMode(out, engine_.Counters());
  }
  bool Listening() const override { return SessionListening(session_); }
  bool Running() const override { return session_.listening.load(); }
  std::uint64_t Progress() const override { return session_.LoopTurns(); }
  bool WaitingForFrames() const override { return session_.WaitingForFrames(); }

  std::string StatusLine(UiLanguage language) const override {
    return FormatText(Text::ServiceFileStatus, language,
                      StatusText(session_.Status(), language).c_str(),
                      static_cast<unsigned long long>(engine_.Counters().filesWritten),
                      options_.naming.folder.c_str());
  }

  void Stop() override { session_.Quit(); }

  std::vector<std::string> TakeMessages(UiLanguage language) override {
    std::vector<std::string> lines = std::move(told_);
    told_.clear();
    for (std::string& line : lines_.Take(session_.Messages(), language)) lines.push_back(std::move(line));
    for (const CaptureMessage& message : engine_.Messages().Drain()) {
      lines.push_back(OneLineMessage(message, language));
    }
    // Failures were told above, once per run of them.
    for (const fm::WrittenFile& file : engine_.DrainWritten()) {
      if (!file.written()) continue;
      lines.push_back(FormatText(Text::ServiceFileWritten, language, file.path.c_str(),
                                 static_cast<unsigned long long>(file.size),
                                 file.contentType.empty() ? "-" : file.contentType.c_str()));
    }
    return lines;
  }

 private:
  CaptureTarget target_;
  fm::FileModeOptions options_;
  fm::FileCounts counts_;
  std::vector<std::string> told_;
  PendingLines lines_;
  FilterSettings filter_;
  fm::FileModeEngine engine_{&filter_};
  CountingSink counting_{engine_};
  CaptureSession session_;  // last: its capture ends before the engine it feeds goes
};

// ---- runners --------------------------------------------------------------------------------

// A service cannot ask which interface to use; without one it has nothing to do, and would not
// have anything more on a restart.
bool InterfaceChosen(const ModeStart& start) {
  if (HasChosenInterface(start.settings.interface)) return true;
  start.host->Tell(FormatText(Text::ServiceNoInterface, start.settings.language));
  return false;
}

int RunPacketHeadless(const ModeStart& start) {
  if (!InterfaceChosen(start)) return kHeadlessConfigError;
  PacketHeadless mode(start.settings);
  return RunHeadless(mode, *start.host, *start.stopSignals, start.settings.language,
                     start.settings.service.metricsListen);
}

int RunFileHeadless(const ModeStart& start) {
  if (!InterfaceChosen(start)) return kHeadlessConfigError;
  // The window offers the Downloads folder; a service has none of its own to offer.
  if (start.settings.fileMode.folder.empty()) {
    start.host->Tell(FormatText(Text::ServiceNoFileFolder, start.settings.language));
    return kHeadlessConfigError;
  }
  // Made with its parents, as the log folders are; one that cannot be made would fail every file.
  std::error_code made;
  std::filesystem::create_directories(start.settings.fileMode.folder, made);
  if (made) {
    const std::string what = start.settings.fileMode.folder + " (" + ErrnoText(made.value()) + ")";
    start.host->Tell(FormatText(Text::ServiceFileFolderNotMade, start.settings.language, what.c_str()));
    return kHeadlessConfigError;
  }
  FileHeadless mode(start.settings);
  return RunHeadless(mode, *start.host, *start.stopSignals, start.settings.language,
                     start.settings.service.metricsListen);
}

int RunStatisticalHeadless(const ModeStart& start) {
  if (!InterfaceChosen(start)) return kHeadlessConfigError;
  StatisticalHeadless mode(start.settings, StateDirectory() / kStatisticsListsFileName);
  return RunHeadless(mode, *start.host, *start.stopSignals, start.settings.language,
                     start.settings.service.metricsListen);
}

}  // namespace

void RegisterHeadlessModes() {
  RegisterModeHeadless(ProgramMode::Packet, RunPacketHeadless);
  RegisterModeHeadless(ProgramMode::File, RunFileHeadless);
  RegisterModeHeadless(ProgramMode::Statistical, RunStatisticalHeadless);
}

}  // namespace vormelt
