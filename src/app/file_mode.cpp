// The headless runner keeps the counts that outlive a run (%FCI, %FCC) in the settings file
// when it ends, as the window does when it closes.
#include "app/file_mode.hpp"

#include <chrono>
#include <iostream>

#include "app/headless.hpp"
#include "app/modes.hpp"
#include "app/startup.hpp"
#include "capture/session.hpp"
#include "common/settings_store.hpp"

namespace vormelt {

namespace fm = filemode;

fm::FileModeOptions FileModeOptionsFrom(const FileModeSettings& s) {
  fm::FileModeOptions options;
  options.onlyHttp = s.onlyHttp;
  options.acceptPartial = s.acceptPartial;
  options.dirty = s.dirtyMode;
  options.pshOnly = s.pshOnly;
  options.latestDuplicates = s.latestDuplicates;
  options.applyFilters = s.applyFilters;
  options.shortExtensions = s.shortExtensions;
  options.ackTimeoutMs = s.ackTimeoutMs;
  options.naming.folder = s.folder;
  options.naming.nameTemplate = s.nameTemplate;
  options.naming.dateTimeTemplate = s.dateTimeTemplate;
  options.naming.createSubfolders = s.createSubfolders;
  options.naming.overwrite = s.overwrite;
  for (std::size_t i = 0; i < options.naming.levels.size() && i < s.subfolderLevels.size(); ++i) {
    options.naming.levels[i] = fm::ToSubfolderChoice(s.subfolderLevels[i]);
  }
  return options;
}

fm::FileCounts FileCountsFrom(const FileModeSettings& s, std::uint64_t sinceLaunch) {
  return {0, sinceLaunch, s.countInstalled, s.countCustom};
}

void StoreFileCounts(const fm::FileCounts& counts, FileModeSettings& s) {
  s.countInstalled = counts.installed;
  s.countCustom = counts.custom;
}

// ---- The dump-file call site ---------------------------------------------------------------
// TODO(lead, after the dump-file loader is merged): replace the body of FeedDumpFile with
//   return LoadDumpFile(file, form, sink, ...) == success;
// and make DumpFilesAvailable return true. Nothing else in File Mode needs to change: the
// window and `vormelt-cli files --load-dump` both come through here, with a sink started on the
// file clock so the dump's own times drive the streams.
bool FeedDumpFile(const std::filesystem::path& file, std::string_view form, FrameSink& sink,
                  std::string& problem) {
  (void)file;
  (void)form;
  (void)sink;
  problem = "reading packet dump files is not available in this build yet";
  return false;
}

bool DumpFilesAvailable() { return false; }
// ---------------------------------------------------------------------------------------------

namespace {

void ReportHeadless(CaptureSession& session, fm::FileModeEngine& engine, UiLanguage language) {
  for (const CaptureMessage& message : session.Messages().Drain()) {
    std::cerr << OneLineMessage(message, language) << "\n";
  }
  for (const CaptureMessage& message : engine.Messages().Drain()) {
    std::cerr << OneLineMessage(message, language) << "\n";
  }
  for (const fm::WrittenFile& file : engine.DrainWritten()) {
    std::cerr << file.path << "\t" << file.size << "\n";
  }
}

}  // namespace

int RunFileModeHeadless(const ModeStart& start) {
  constexpr auto kPoll = std::chrono::milliseconds(100);
  FileModeSettings& settings = start.settings.fileMode;
  fm::FileModeEngine engine;
  engine.Start(FileModeOptionsFrom(settings), fm::StreamClock::Live, FileCountsFrom(settings, 0));

  StopSignals signals;
  CaptureSession session;
  session.Start(CaptureTarget::FromSettings(start.settings.interface), engine);
  while (session.listening.load()) {
    if (signals.Wait(kPoll)) session.Stop();
    ReportHeadless(session, engine, start.decision.language);
  }
  session.Wait();
  engine.Finish();
  ReportHeadless(session, engine, start.decision.language);
  StoreFileCounts(engine.Counts(), settings);
  SaveSettings(start.settings, start.settingsFile, nullptr);
  return 0;
}

}  // namespace vormelt
