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
                               const std::optional<std::vector<IpAddress>>& locals)
    : engine_(locals_, limits) {
  if (locals) {
    std::vector<statistics::Ipv4> v4;
    std::vector<IpAddress> v6;
    for (const IpAddress& address : *locals) {
      if (address.isV4()) v4.push_back(address.v4());
      else v6.push_back(address);
    }
    locals_.Replace(v4);
    locals_.ReplaceIpv6(v6);
  } else {
    refresher_.emplace(locals_);
  }
}

statistics::StatisticsLimits StatisticsLimitsFrom(const StatisticsSettings& settings) {
  return {settings.maxItems, static_cast<statistics::VictimPolicy>(settings.victimPolicy)};
}

}  // namespace vormelt
