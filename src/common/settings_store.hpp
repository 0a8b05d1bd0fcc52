// Reads and writes ProgramSettings as JSON (settings.json in the configuration folder), plus the
// two file helpers every small JSON file of the program shares: atomic replace and keep-aside.
// A damaged file is never overwritten or dropped silently: it is kept as "<name>.bad".
#pragma once

#include <cstdint>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

#include "common/settings.hpp"
#include "common/texts.hpp"

namespace vormelt {

inline constexpr std::string_view kSettingsFileName = "settings.json";
// Raised whenever the JSON layout changes in a way an older reader would misread.
inline constexpr int kSettingsVersion = 1;
// A settings file larger than this is not ours; reading it is refused rather than attempted.
inline constexpr std::uintmax_t kMaxSettingsFileBytes = 4 * 1024 * 1024;

// What went wrong reading one of the program's files, for the caller to show once.
struct LoadProblem {
  std::optional<Text> problem;    // its message takes (file, detail[, keptAs])
  std::string detail;             // why, in plain words (parser message or system error)
  std::filesystem::path file;     // the file that was read
  std::filesystem::path keptAs;   // where a damaged file was moved; empty when not moved
};

struct SettingsLoad : LoadProblem {
  ProgramSettings settings;
};

// The settings of the configuration folder: ConfigDirectory()/settings.json.
std::filesystem::path DefaultSettingsFile();

// A missing file gives the defaults without a problem. Missing keys and keys of the wrong type
// or range take their defaults one by one; unknown keys are ignored.
SettingsLoad LoadSettings(const std::filesystem::path& file);
// Writes atomically; on failure returns false, leaves any old file untouched and puts the reason
// in `error` (may be null), ready for the SettingsSaveFailed message beside the file name.
bool SaveSettings(const ProgramSettings& settings, const std::filesystem::path& file,
                  std::string* error);

// The JSON form itself, for tests and for the store above.
std::string SettingsToJson(const ProgramSettings& settings);
// Reads settings from JSON text with the same per-key leniency as LoadSettings. Returns nullopt
// and sets `error` (may be null) when the text is not JSON or its top level is not an object.
std::optional<ProgramSettings> SettingsFromJson(std::string_view text, std::string* error);

// Shared file helpers.
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

}  // namespace vormelt
