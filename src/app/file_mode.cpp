// File Mode's wiring above the engine: options from the settings, the counts a run carries on,
// and the one place a packet dump file is fed into a sink.
#include "app/file_mode.hpp"

#include "packetmode/dump_file.hpp"

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

DumpLoadResult FeedDumpFile(const std::filesystem::path& file, DataForm form, FrameSink& sink) {
  DumpLoadOptions options;
  options.form = form;
  return LoadDumpFile(file.string(), sink, options);
}

}  // namespace vormelt
