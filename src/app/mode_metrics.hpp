// What each mode exposes to Prometheus, as metric families built from the counters the engines
// already keep: the capture's packets, bytes and kernel drops per interface; the packet store's
// fill and limit; Statistical Mode's bytes and packets per address (bounded by the table, so a
// scan of a large network cannot grow the series past the table's maximum items); File Mode's
// files written, failed and incomplete; logging's files and failures.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "app/metrics_endpoint.hpp"

namespace vormelt {
class ModeCapture;
class PacketModeEngine;
}  // namespace vormelt
namespace vormelt::statistics {
class StatisticsEngine;
}
namespace vormelt::filemode {
struct FileModeCounters;
}

namespace vormelt::metrics {

// The capture's packets, bytes and kernel drops, labelled with its interface.
void AddCapture(std::vector<Family>& out, std::string_view interface, const ModeCapture& capture);
void AddStatistics(std::vector<Family>& out, const statistics::StatisticsEngine& engine);
void AddFileMode(std::vector<Family>& out, const filemode::FileModeCounters& counters);
// Packet Mode's store, and its logging when `logging` runs.
void AddPacketMode(std::vector<Family>& out, const PacketModeEngine& engine, bool logging);

}  // namespace vormelt::metrics
