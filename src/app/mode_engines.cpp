// The per-mode set-up from the settings, in one place for the window, the service and the CLI.
#include "app/mode_engines.hpp"

#include "app/file_mode.hpp"
#include "filters/filter_profile.hpp"
#include "packetmode/packet_mode_engine.hpp"

namespace vormelt {

std::string SetUpPacketMode(PacketModeEngine& engine, const ProgramSettings& settings) {
  engine.SetDateTimeTemplate(settings.packetMode.dateTimeTemplate);
  engine.Filter().SetFilteringEnabled(settings.packetMode.filteringEnabled);
  engine.Filter().SetMatchCase(settings.packetMode.matchCase);
  return engine.LoadCurrentProfile(settings.language);
}

void FileModeRun::SetOptions(filemode::FileModeOptions options, filemode::FileCounts counts) {
  options_ = std::move(options);
  counts_ = counts;
}

std::string SetUpFileMode(FileModeRun& run, const ProgramSettings& settings,
                          std::uint64_t sinceLaunch) {
  run.SetOptions(FileModeOptionsFrom(settings.fileMode),
                 FileCountsFrom(settings.fileMode, sinceLaunch));
  return LoadCurrentProfileInto(FilterMode::File, run.Filter(), settings.language);
}

StatisticalRun::StatisticalRun(statistics::StatisticsLimits limits,
                               const std::optional<std::vector<statistics::Ipv4>>& locals)
    : engine_(locals_, limits) {
  if (locals) {
    locals_.Replace(*locals);
  } else {
    refresher_.emplace(locals_);
  }
}

statistics::StatisticsLimits StatisticsLimitsFrom(const StatisticsSettings& settings) {
  return {settings.maxItems, static_cast<statistics::VictimPolicy>(settings.victimPolicy)};
}

}  // namespace vormelt
