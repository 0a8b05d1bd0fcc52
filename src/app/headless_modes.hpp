// The headless runners of the modes that can run without a display (the service runs them
// through the mode registry).
#pragma once

#include <chrono>
#include <string_view>

namespace vormelt {

// Statistical Mode saves its three lists here, in the state folder, as one JSON object.
inline constexpr std::string_view kStatisticsListsFileName = "statistics-lists.json";
inline constexpr auto kStatisticsSaveInterval = std::chrono::minutes(1);

struct ModeStart;

// Each refuses with kHeadlessConfigError when the settings leave it nothing to do (no
// interface chosen, no folder for File Mode), else runs until stopped.
int RunPacketHeadless(const ModeStart& start);
int RunFileHeadless(const ModeStart& start);
int RunStatisticalHeadless(const ModeStart& start);

}  // namespace vormelt
