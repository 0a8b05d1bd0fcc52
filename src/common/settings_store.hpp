// Reads and writes ProgramSettings as JSON (settings.json in the configuration folder).
// A damaged file is never overwritten or dropped silently: it is kept aside (common/json_file).
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "common/json_file.hpp"
#include "common/settings.hpp"
#include "common/texts.hpp"

namespace vormelt {

inline constexpr std::string_view kSettingsFileName = "settings.json";
// Raised whenever the JSON layout changes in a way an older reader would misread.
inline constexpr int kSettingsVersion = 1;
// A settings file larger than this is not ours; reading it is refused rather than attempted.
inline constexpr std::uintmax_t kMaxSettingsFileBytes = 4 * 1024 * 1024;

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

// What one key of the file takes, as reading checks it. Loading and `vormelt-cli settings set`
// both go by it, so a value is refused for the same reason in both.
struct SettingRule {
  enum class Type : std::uint8_t { Bool, Integer, Unsigned, Text, IntegerList };
  Type type = Type::Text;
  long long min = 0, max = 0;    // Integer, and every entry of an IntegerList
  std::size_t listSize = 0;      // IntegerList: the entries it must have; 0 = up to maxListSize
  std::size_t maxListSize = 0;
  std::vector<long long> only;   // Integer: when not empty, the only values taken
};
// The rule of a dotted key ("statistics.maxItems"); nullopt for groups and unknown keys.
std::optional<SettingRule> FindSettingRule(std::string_view key);

// The JSON form itself, for tests and for the store above.
std::string SettingsToJson(const ProgramSettings& settings);
// Reads settings from JSON text with the same per-key leniency as LoadSettings. Returns nullopt
// and sets `error` (may be null) when the text is not JSON or its top level is not an object.
std::optional<ProgramSettings> SettingsFromJson(std::string_view text, std::string* error);

}  // namespace vormelt
