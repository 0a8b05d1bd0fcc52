// The log folder's index file: one entry per log file begun, and the pruner that deletes the
// files whose entries are older than a given age. The index is outside input: whatever it
// holds, the pruner never reads past what it read, never crashes, and never reports.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "common/frame_sink.hpp"

namespace vormelt {

inline constexpr std::string_view kLogIndexFileName = "_VORMELT_LOG_FILE_INDEX.txt";
// "yyyy.mm.dd hh.mm.ss.mmm"
inline constexpr std::size_t kLogStampLength = 23;

// The folder with every trailing "/" or "\" trimmed, one "/" and the index file name.
std::string LogIndexPath(std::string_view folder);

// The entry's UTC stamp for `time`, "%u.%02u.%02u %02u.%02u.%02u.%03u".
std::string LogStamp(CaptureTime time);

// Appends CR LF, the stamp of `now`, four blanks and `logPath` to the folder's index, creating
// it when absent. The entry is written whole or not at all; returns 0 or the errno that
// stopped it.
int AppendLogIndexEntry(std::string_view folder, std::string_view logPath, CaptureTime now);

// Takes back the index's last entry when it names `logPath` (a file begun and removed again
// before it took a byte); otherwise leaves the index as it is.
void RemoveLastLogIndexEntry(std::string_view folder, std::string_view logPath);

// Deletes the log files whose entries are more than `maxAgeSeconds` older than `now`, from the
// start of the index up to the first entry that is not, and rewrites the index without them.
// Only regular files directly in `folder` are deleted; entries naming anything else are passed
// over. The index goes altogether when every entry expired or no temporary index can be made;
// a rewrite that cannot be completed (a full disk) keeps the old index.
void PruneLogFiles(std::string_view folder, std::int64_t maxAgeSeconds, CaptureTime now);

}  // namespace vormelt
