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
// Raised only when a key changes its meaning, so that an older reader would misread the file.
// New keys do not raise it: a reader skips keys it does not know and defaults keys it misses.
// A file of a higher version is neither read nor replaced (LoadSettings, SaveSettings).
inline constexpr int kSettingsVersion = 1;
// A settings file larger than this is not ours; reading it is refused rather than attempted.
inline constexpr std::uintmax_t kMaxSettingsFileBytes = 4 * 1024 * 1024;

struct SettingsLoad : LoadProblem {
  ProgramSettings settings;
};

// The settings of the configuration folder: ConfigDirectory()/settings.json.
std::filesystem::path DefaultSettingsFile();

// A missing file gives the defaults without a problem. Missing keys and keys of the wrong type
// or range take their defaults one by one; unknown keys are ignored. A file written by a newer
// version gives the defaults and the problem SettingsFileTooNew.
SettingsLoad LoadSettings(const std::filesystem::path& file);
// Writes atomically; on failure returns false, leaves any old file untouched and puts the reason
// in `error` (may be null), ready for the SettingsSaveFailed message beside the file name. A
// file written by a newer version is not replaced: its keys may mean what we cannot know.
bool SaveSettings(const ProgramSettings& settings, const std::filesystem::path& file,
                  std::string* error);

// What one value of the file takes. Loading and `vormelt-cli settings set` both go by it, so a
// value is refused for the same reason in both.
struct SettingRule {
  enum class Type : std::uint8_t { Bool, Integer, Unsigned, Text, IntegerList };
  Type type = Type::Text;
  long long min = 0, max = 0;    // Integer, and every entry of an IntegerList
  std::size_t listSize = 0;      // IntegerList: the entries it must have; 0 = up to maxListSize
  std::size_t maxListSize = 0;
  std::vector<long long> only;   // Integer: when not empty, the only values taken

  static SettingRule Of(Type type, long long min = 0, long long max = 0, std::size_t maxList = 0) {
    SettingRule rule;
    rule.type = type;
    rule.min = min;
    rule.max = max;
    rule.maxListSize = maxList;
    return rule;
  }
};
// The rule of a dotted key ("statistics.maxItems"); nullopt for groups and unknown keys.
std::optional<SettingRule> FindSettingRule(std::string_view key);
// Takes `value` into the setting `key` when the key's rule allows it; false (and `settings`
// unchanged) when the key is unknown or the value is refused.
bool ReadSetting(ProgramSettings& settings, std::string_view key,
                 const nlohmann::ordered_json& value);

// Takes one JSON value into `out` when it meets `rule`; otherwise leaves `out` alone and returns
// false. For bool, the integers (enums as their number), std::string, std::vector<int> and
// std::vector<std::string>; the filter profiles read their plain fields through it too.
template <typename T>
bool TakeValue(const nlohmann::ordered_json& value, const SettingRule& rule, T& out);

// A window's place as both files keep it, and its reading: every key read on its own; returns
// the first key refused (empty when none), which a strict reader treats as the whole failing.
nlohmann::ordered_json WindowStateToJson(const WindowState& window);
std::string ReadWindowState(const nlohmann::ordered_json& object, WindowState& window);

// The JSON form itself, for tests and for the store above.
std::string SettingsToJson(const ProgramSettings& settings);
// Reads settings from JSON text with the same per-key leniency as LoadSettings. Returns nullopt
// and sets `error` (may be null) when the text is not JSON or its top level is not an object.
std::optional<ProgramSettings> SettingsFromJson(std::string_view text, std::string* error);

}  // namespace vormelt
