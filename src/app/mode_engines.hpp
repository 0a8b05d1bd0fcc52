// Each capture mode's engine in the one capture shape (ModeCapture), and the one function per
// mode that sets it up from the settings. The window, the service and vormelt-cli wire a mode
// through these, so the three run the same engine the same way.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>
#include <string>

#include "capture/mode_capture.hpp"
#include "common/settings.hpp"
#include "filemode/engine.hpp"
#include "filters/filter_settings.hpp"
#include "statistics/engine.hpp"
#include "statistics/local_addresses.hpp"

namespace vormelt {

class PacketModeEngine;

// Packet Mode: the date/time template and filter switches from the settings, then the current
// filter profile. Returns what to tell about a damaged profile (kept aside; the defaults
// filter), empty when it was fine or missing.
std::string SetUpPacketMode(PacketModeEngine& engine, const ProgramSettings& settings);

// File Mode: the stream engine behind its filter and capture. Every Start adopts the options
// and counts last given, by the file's own clock for a capture file and the arrival time live.
class FileModeRun {
 public:
  FileModeRun() = default;
  FilterSettings& Filter() { return filter_; }
  filemode::FileModeEngine& Engine() { return engine_; }
  const filemode::FileModeEngine& Engine() const { return engine_; }
  ModeCapture& Capture() { return capture_; }
  const ModeCapture& Capture() const { return capture_; }
  // Takes effect at the next Start.
  void SetOptions(filemode::FileModeOptions options, filemode::FileCounts counts);
  const filemode::FileModeOptions& Options() const { return options_; }

 private:
  FilterSettings filter_;
  filemode::FileModeOptions options_;
  filemode::FileCounts counts_;
  filemode::FileModeEngine engine_{&filter_};
  ModeCapture capture_{engine_, [this](const CaptureTarget& target) {
                         engine_.Start(options_,
                                       target.type == CaptureTarget::Type::File
                                           ? filemode::StreamClock::File
                                           : filemode::StreamClock::Live,
                                       counts_);
                       }};
};

// File Mode: folder, naming and every check box from the settings, the counts a Start carries
// on (%FCL of this process), and the filter as the last OK of its filter window left it.
// Returns what to tell about a damaged profile, as SetUpPacketMode.
std::string SetUpFileMode(FileModeRun& run, const ProgramSettings& settings,
                          std::uint64_t sinceLaunch);

// Statistical Mode: the tables behind their capture, counting against the host's own addresses
// (kept up to date while this lives) or, when given, a fixed list in their place.
class StatisticalRun {
 public:
  explicit StatisticalRun(statistics::StatisticsLimits limits,
                          const std::optional<std::vector<IpAddress>>& locals = std::nullopt);
  statistics::StatisticsEngine& Engine() { return engine_; }
  const statistics::StatisticsEngine& Engine() const { return engine_; }
  ModeCapture& Capture() { return capture_; }
  const ModeCapture& Capture() const { return capture_; }
  // False when the host's addresses could not be followed: the local ports then stay empty.
  bool FollowsLocalAddresses() const { return !refresher_ || refresher_->Running(); }

 private:
  statistics::LocalAddressList locals_;
  std::optional<statistics::LocalAddressRefresher> refresher_;
  statistics::StatisticsEngine engine_;
  ModeCapture capture_{engine_};
};

// Statistical Mode's limits from the settings.
statistics::StatisticsLimits StatisticsLimitsFrom(const StatisticsSettings& settings);

}  // namespace vormelt
