// The settings file: every key's round trip and bounds, per-key leniency, damaged files kept
// aside and newer files never overwritten.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <limits>
#include <nlohmann/json.hpp>
#include <sstream>

#include "common/settings_store.hpp"
#include "support/pcap_file.hpp"

namespace vormelt {
namespace {

namespace fs = std::filesystem;

void WriteText(const fs::path& file, std::string_view text) { std::ofstream(file, std::ios::binary) << text; }

std::string ReadText(const fs::path& file) {
  std::ostringstream text;
  text << std::ifstream(file, std::ios::binary).rdbuf();
  return text.str();
}

using Json = nlohmann::ordered_json;

// Every key of the file, as "group.key", from the file that the defaults give.
std::vector<std::string> EveryKey() {
  std::vector<std::string> keys;
  const auto walk = [&](const auto& self, const Json& node, const std::string& prefix) -> void {
    if (!node.is_object()) return keys.push_back(prefix);
    for (const auto& [name, member] : node.items()) {
      if (name != "version") self(self, member, prefix.empty() ? name : prefix + "." + name);
    }
  };
  walk(walk, Json::parse(SettingsToJson(ProgramSettings{})), "");
  return keys;
}

Json::json_pointer PointerOf(std::string key) {
  std::ranges::replace(key, '.', '/');
  return Json::json_pointer("/" + key);
}

// Every key is set off its default at an edge of its rule, one step beyond each edge is refused,
// and the whole survives a save and a load: a key written under one name and read under
// another, two keys on one member, or a rule loading does not hold to all show up here.
TEST(SettingsStore, EveryKeyRoundTripsAtTheEdgesOfItsRule) {
  const Json defaults = Json::parse(SettingsToJson(ProgramSettings{}));
  ProgramSettings settings;
  std::vector<std::pair<std::string, Json>> set;
  const std::vector<std::string> keys = EveryKey();
  for (const std::string& key : keys) {
    const std::optional<SettingRule> rule = FindSettingRule(key);
    ASSERT_TRUE(rule) << key;
    const Json old = defaults[PointerOf(key)];
    const long long min = rule->min, max = rule->max;
    Json value;
    std::vector<Json> beyond;
    switch (rule->type) {
      case SettingRule::Type::Bool: value = !old.get<bool>(), beyond = {"true"}; break;
      case SettingRule::Type::Unsigned: value = std::numeric_limits<std::uint64_t>::max(), beyond = {-1, 1.5}; break;
      case SettingRule::Type::Text: value = "\"" + key + "\" ü", beyond = {1, Json::array()}; break;
      case SettingRule::Type::Integer:
        value = rule->only.empty() ? (old == max ? min : max) : rule->only.back();
        if (min > std::numeric_limits<long long>::min()) beyond.emplace_back(min - 1);
        if (max < std::numeric_limits<long long>::max()) beyond.emplace_back(max + 1);
        if (rule->only.size() > 1) beyond.emplace_back(rule->only[0] + 1);
        break;
      case SettingRule::Type::IntegerList:
        value = rule->listSize ? Json(std::vector<long long>(rule->listSize, max)) : Json::array({min, max});
        beyond = {Json::array({"1"})};
        beyond.push_back(std::vector<long long>(rule->maxListSize + 1, max));
        if (max < std::numeric_limits<int>::max()) {
          beyond.push_back(std::vector<long long>(std::max<std::size_t>(rule->listSize, 1), max + 1));
        }
        break;
    }
    ASSERT_NE(value, old) << key;
    for (const Json& refused : beyond) EXPECT_FALSE(ReadSetting(settings, key, refused)) << key << " " << refused;
    ASSERT_TRUE(ReadSetting(settings, key, value)) << key;
    set.emplace_back(key, value);
    // Alone, it changes its own key of the file and nothing else, through a save and a load.
    ProgramSettings one;
    ASSERT_TRUE(ReadSetting(one, key, value));
    const auto again = SettingsFromJson(SettingsToJson(one), nullptr);
    for (const Json& change : Json::diff(defaults, Json::parse(SettingsToJson(*again)))) {
      EXPECT_TRUE(change["path"].get<std::string>().starts_with(PointerOf(key).to_string())) << key << change;
    }
  }
  EXPECT_GT(keys.size(), 140u);
  EXPECT_FALSE(FindSettingRule("general"));       // a group
  EXPECT_FALSE(FindSettingRule("general.none"));  // unknown

  test::TempDir dir;
  const fs::path file = fs::path(dir.path()) / "settings.json";
  ASSERT_TRUE(SaveSettings(settings, file, nullptr));
  const SettingsLoad load = LoadSettings(file);
  EXPECT_FALSE(load.problem);
  EXPECT_TRUE(load.settings == settings);
  const Json saved = Json::parse(SettingsToJson(load.settings));
  for (const auto& [key, value] : set) EXPECT_EQ(saved[PointerOf(key)], value) << key;

  // Bytes that are not UTF-8 (a folder name, say) must not stop the save.
  settings.packetMode.lastFolder = "/data/\xff\xfe";
  ASSERT_TRUE(SaveSettings(settings, file, nullptr));
  EXPECT_TRUE(LoadSettings(file).settings.packetMode.lastFolder.starts_with("/data/"));
}

TEST(SettingsStore, WrongTypesAndRangesCostOnlyTheirOwnKey) {
  const auto read = SettingsFromJson(R"({
    "version": "one", "interface": 5, "somethingNew": {"a": 1}, "codec": [1],
    "general": {"rememberedMode": 2.5, "language": 7, "useSystemColors": true,
                "modeChoiceWindow": {"valid": true, "x": "10", "y": 20, "width": 1099511627776}},
    "packetMode": {"dataLevel": 9, "columnOrder": [1, "x", 2], "columnWidths": [10, 20]},
    "fileMode": {"subfolderLevels": [1, 2], "countInstalled": -1, "countCustom": 1.5}
  })", nullptr);
  ASSERT_TRUE(read);
  // What was good is kept; each bad key alone falls back to its default.
  ProgramSettings expected;
  expected.useSystemColors = true;
  expected.modeChoiceWindow = {true, 0, 20, 0, 0, false, false};
  expected.packetMode.columnWidths = {10, 20};
  EXPECT_TRUE(*read == expected);
}

// Each of these is kept aside untouched, the defaults are used, and the caller gets a message.
class DamagedSettingsFile : public testing::TestWithParam<std::string> {};

TEST_P(DamagedSettingsFile, IsKeptAsideAndDefaultsAreUsed) {
  test::TempDir dir;
  const fs::path file = fs::path(dir.path()) / "settings.json";
  WriteText(file, GetParam());

  const SettingsLoad load = LoadSettings(file);
  EXPECT_TRUE(load.settings == ProgramSettings{});
  EXPECT_EQ(load.problem, Text::SettingsFileDamaged);
  EXPECT_FALSE(load.detail.empty());
  EXPECT_EQ(load.keptAs, fs::path(dir.path()) / "settings.json.bad");
  EXPECT_FALSE(fs::exists(file));
  EXPECT_EQ(ReadText(load.keptAs), GetParam());
}

INSTANTIATE_TEST_SUITE_P(
    Contents, DamagedSettingsFile,
    testing::Values(std::string(), std::string("not json at all"), SettingsToJson(ProgramSettings{}).substr(0, 300),
                    std::string("[1, 2, 3]"), std::string("null"), std::string("\"text\""),
                    std::string("\xff\xfe\x00\x01{", 5), std::string(100000, '['),
                    std::string("{\"general\": {}} trailing")));

// A file of a newer version is neither read nor replaced; an older or unnumbered one is read for
// what it holds.
TEST(SettingsStore, NewerFileIsLeftAloneAndOlderIsRead) {
  test::TempDir dir;
  const fs::path file = fs::path(dir.path()) / "settings.json";
  const std::string newer = R"({"version": 2, "statistics": {"maxItems": 7}})";
  WriteText(file, newer);
  const SettingsLoad load = LoadSettings(file);
  EXPECT_EQ(load.problem, Text::SettingsFileTooNew);
  EXPECT_TRUE(load.settings == ProgramSettings{});
  std::string error;
  EXPECT_FALSE(SaveSettings(ProgramSettings{}, file, &error));
  EXPECT_NE(error.find("newer version"), std::string::npos) << error;
  EXPECT_EQ(ReadText(file), newer);

  for (const char* older : {R"({"version": 0, "statistics": {"maxItems": 7}})",
                            R"({"version": "9", "statistics": {"maxItems": 7}})"}) {
    WriteText(file, older);
    const SettingsLoad read = LoadSettings(file);
    EXPECT_FALSE(read.problem) << older;
    EXPECT_EQ(read.settings.statistics.maxItems, 7) << older;
    EXPECT_TRUE(SaveSettings(read.settings, file, nullptr));
  }
}

TEST(SettingsStore, EarlierKeptAsideCopiesAreNeverOverwritten) {
  test::TempDir dir;
  const fs::path file = fs::path(dir.path()) / "settings.json";
  WriteText(file, "first");
  EXPECT_EQ(LoadSettings(file).keptAs.filename(), "settings.json.bad");
  WriteText(file, "second");
  EXPECT_EQ(LoadSettings(file).keptAs.filename(), "settings.json.bad.2");
  EXPECT_EQ(ReadText(fs::path(dir.path()) / "settings.json.bad"), "first");
}

}  // namespace
}  // namespace vormelt
