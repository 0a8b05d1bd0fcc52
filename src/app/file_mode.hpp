// File Mode's wiring above the engine: the options a run takes from the settings, the one place
// a packet dump file is fed into a sink.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

#include "common/frame_sink.hpp"
#include "common/settings.hpp"
#include "filemode/engine.hpp"
#include "packetmode/dump_file.hpp"
#include "packets/render.hpp"

namespace vormelt {

struct ModeStart;

// The engine's options from the window's settings (folder, naming and every check box).
filemode::FileModeOptions FileModeOptionsFrom(const FileModeSettings& settings);
// The counts a Start carries on: %FCL of this process, %FCI and %FCC from the settings.
filemode::FileCounts FileCountsFrom(const FileModeSettings& settings, std::uint64_t sinceLaunch);
// Keeps %FCI and %FCC of a run in the settings.
void StoreFileCounts(const filemode::FileCounts& counts, FileModeSettings& settings);

// Feeds the packets of a text dump file (in `form`, as Packet Mode saves them) to `sink`, by
// the dump's own times. Loading that ends early (an unreadable record) has fed the packets
// before it all the same.
DumpLoadResult FeedDumpFile(const std::filesystem::path& file, DataForm form, FrameSink& sink);

}  // namespace vormelt
