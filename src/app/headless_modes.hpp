// The headless runners of the modes that can run without a display (the service runs them).
// Every mode with a headless runner registers it in RegisterHeadlessModes, nowhere else.
#pragma once

#include <chrono>
#include <string_view>

namespace vormelt {

// Statistical Mode saves its three lists here, in the state folder, as one JSON object.
inline constexpr std::string_view kStatisticsListsFileName = "statistics-lists.json";
inline constexpr auto kStatisticsSaveInterval = std::chrono::minutes(1);

// Registers every headless runner of this build in the mode registry; idempotent.
void RegisterHeadlessModes();

}  // namespace vormelt
