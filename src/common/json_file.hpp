// The one helper for the program's small JSON files (settings, install record, filter
// profiles): bounded reads, atomic replace (unique temporary, fsync, rename), and keep-aside of
// damaged files as numbered ".bad" copies, reported once by the caller.
#pragma once

#include <cstdint>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

#include "common/texts.hpp"

namespace vormelt {

// What went wrong reading one of the program's files, for the caller to show once.
struct LoadProblem {
  std::optional<Text> problem;    // its message takes (file, detail[, keptAs])
  std::string detail;             // why, in plain words (parser message or system error)
  std::filesystem::path file;     // the file that was read
  std::filesystem::path keptAs;   // where a damaged file was moved; empty when not moved
};

// Replaces `file` with `content` through a temporary file in the same folder, flushed to disk
// before the rename, so a crash leaves either the old or the new file, never half of one.
bool WriteFileAtomically(const std::filesystem::path& file, std::string_view content,
                         std::string* error);
// Reads a whole small file: whether it exists, and its bytes or why they could not be read.
struct FileRead {
  bool exists = false;
  bool ok = false;
  bool tooLarge = false;  // larger than allowed: not ours, but not to be thrown away either
  std::string content;
  std::string error;
};
FileRead ReadSmallFile(const std::filesystem::path& file, std::uintmax_t maxBytes);
// Reads a small file that must hold one JSON object. A file that is there but is not a JSON
// object is kept aside (KeepDamagedFile) so the caller may write a fresh one; `problem` is then
// `damaged`, or `unreadable` when the file cannot be read or moved.
struct JsonFileLoad : LoadProblem {
  bool exists = false;
  nlohmann::ordered_json object;  // the top-level object when it exists and has no problem
};
JsonFileLoad LoadJsonObjectFile(const std::filesystem::path& file, std::uintmax_t maxBytes,
                                Text unreadable, Text damaged);
// Parses JSON text that must be one object; nullopt and `error` (may be null) otherwise.
std::optional<nlohmann::ordered_json> ParseJsonObject(std::string_view text, std::string* error);

// Moves a damaged file aside as "<name>.bad" (or "<name>.bad.2", ".bad.3", ... when older
// ones exist, so no earlier copy is lost). Returns the new path, or empty with `error` set.
std::filesystem::path KeepDamagedFile(const std::filesystem::path& file, std::string* error);

// The parser's message without its internal "[json.exception...] " tag.
std::string JsonParserMessage(const char* what);

}  // namespace vormelt
