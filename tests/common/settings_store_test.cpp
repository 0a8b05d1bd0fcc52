// The settings file: round trip, per-key leniency, damaged files kept aside and never
// overwritten.
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

// Every field off its default, so a field the writer or the reader forgets shows up.
ProgramSettings NonDefaultSettings() {
  ProgramSettings s;
  s.showModeChoiceAtStartup = false;
  s.rememberedMode = 4;  // outside 0..3 is meaningful (runs nothing) and must survive
  s.language = UiLanguage::German;
  s.useSystemColors = s.graphicalWarningAcknowledged = s.minimizeToTrayOnClose = true;
  s.modeChoiceWindow = {true, -40, 12, 310, 420, false, true};
  s.interface = {InterfaceKind::PacketDriver, "127.0.0.1", "lo", "Loopback \"lo\" – ü",
                 InterfaceKind::PacketDriver};
  PacketModeSettings& p = s.packetMode;
  p.window = {true, 1, 2, 800, 600, true, false};
  p.columnOrder = {10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0};
  p.columnWidths = {50, 60};
  p.filteringEnabled = p.matchCase = p.newPacketSound = p.hexViewerOpen = true;
  p.wrapDump = false;
  p.dateTimeTemplate = "%H12:%MN";
  p.dataLevel = 3;
  p.dumpForm = 0;
  p.hexViewer = {true, 5, 6, 7, 8, false, false};
  p.filterWindow = {true, 9, 10, 11, 12, false, false};
  p.lastFolder = "/home/user/captures";
  s.codec = {{true, 3, 4, 500, 300, false, false}, 2, 3, true, false, true, false, "DejaVu Sans Mono"};
  s.graphical = {true, true, false, 3, 300, true, true, true, 5, 10, 1000, 20, true, true, 100};
  FileModeSettings& f = s.fileMode;
  f.window = {true, 7, 8, 900, 640, false, false};
  f.filterWindow = {true, -3, 4, 5, 6, false, false};
  f.overwrite = f.acceptPartial = f.dirtyMode = f.pshOnly = f.latestDuplicates = true;
  f.applyFilters = f.shortExtensions = f.createSubfolders = true;
  f.onlyHttp = false;
  f.ackTimeoutMs = -5;  // read as a signed value, kept as it is
  f.folder = "/srv/bodies";
  f.nameTemplate = "%FCI";
  f.subfolderLevels = {-1, 2, 3};
  s.interface.bufferMiB = 7;
  f.countInstalled = 18'446'744'073'709'551'615u;  // beyond what a double holds exactly
  f.countCustom = 7;
  f.lastCaptureFolder = "/tmp";
  s.logging = {true, 7, true, 2, 3, true, "%LI-%PID.log", "/var/log/v", 3, 99, 400000,
               "/var/log/all.txt", true, 86401, 61, {true, 1, 1, 640, 480, false, false}};
  return s;
}

TEST(SettingsStore, RoundTripKeepsEveryField) {
  test::TempDir dir;
  const fs::path file = fs::path(dir.path()) / "settings.json";
  const ProgramSettings saved = NonDefaultSettings();
  ASSERT_TRUE(SaveSettings(saved, file, nullptr));
  const SettingsLoad load = LoadSettings(file);
  EXPECT_FALSE(load.problem);
  EXPECT_TRUE(load.settings == saved);

  // Bytes that are not UTF-8 (a folder name, say) must not stop the save.
  ProgramSettings odd;
  odd.packetMode.lastFolder = "/data/\xff\xfe";
  ASSERT_TRUE(SaveSettings(odd, file, nullptr));
  EXPECT_TRUE(LoadSettings(file).settings.packetMode.lastFolder.starts_with("/data/"));
}

TEST(SettingsStore, WrongTypesAndRangesCostOnlyTheirOwnKey) {
  const auto read = SettingsFromJson(R"({
    "version": "one", "interface": 5, "somethingNew": {"a": 1},
    "general": {"rememberedMode": 2.5, "language": 7, "useSystemColors": true,
                "modeChoiceWindow": {"valid": true, "x": "10", "y": 20, "width": 1099511627776}},
    "packetMode": {"dataLevel": 9, "columnOrder": [1, "x", 2], "columnWidths": [10, 20]},
    "codec": {"inputType": -1, "font": ["Mono"], "wordWrap": false},
    "graphical": {"ipTimeout": 301, "blinkMode": -2, "replaySpeed": 50, "curvedLines": true},
    "fileMode": {"subfolderLevels": [1, 2], "countInstalled": -1, "countCustom": 1.5},
    "capture": {"bufferMiB": 0}
  })", nullptr);
  ASSERT_TRUE(read);
  // What was good is kept; each bad key alone falls back to its default.
  ProgramSettings expected;
  expected.useSystemColors = true;
  expected.modeChoiceWindow = {true, 0, 20, 0, 0, false, false};
  expected.packetMode.columnOrder.clear();
  expected.packetMode.columnWidths = {10, 20};
  expected.codec.wordWrap = false;
  expected.graphical.curvedLines = true;
  EXPECT_TRUE(*read == expected);
}

// Every key of the file has a rule, and loading holds to it at its exact edges: the bounds (and
// list lengths) a rule states are taken, one step beyond is not. `settings set` refuses and
// describes values by these rules, so a rule that loading does not enforce would mislead it.
TEST(SettingsStore, EveryKeyHasARuleThatLoadingHoldsToAtItsEdges) {
  using Json = nlohmann::ordered_json;
  const Json defaults = Json::parse(SettingsToJson(ProgramSettings{}));
  const auto loads = [&](const std::string& pointer, const Json& value) {
    Json root = defaults;
    root[Json::json_pointer(pointer)] = value;
    const auto read = SettingsFromJson(root.dump(), nullptr);
    return read && Json::parse(SettingsToJson(*read))[Json::json_pointer(pointer)] == value;
  };
  std::vector<std::string> keys;  // every leaf, lists included, as "group.key"
  const auto walk = [&](const auto& self, const Json& node, const std::string& prefix) -> void {
    if (!node.is_object()) return keys.push_back(prefix);
    for (const auto& [name, member] : node.items()) {
      if (name != "version") self(self, member, prefix.empty() ? name : prefix + "." + name);
    }
  };
  walk(walk, defaults, "");
  int checked = 0;
  for (const std::string& key : keys) {
    std::string pointer = "/" + key;
    std::ranges::replace(pointer, '.', '/');
    const std::optional<SettingRule> rule = FindSettingRule(key);
    ASSERT_TRUE(rule) << key;
    ++checked;
    const long long min = rule->min, max = rule->max;
    switch (rule->type) {
      case SettingRule::Type::Integer:
        EXPECT_TRUE(loads(pointer, rule->only.empty() ? min : rule->only.front())) << key;
        EXPECT_TRUE(loads(pointer, max)) << key;
        if (min > std::numeric_limits<long long>::min()) {
          EXPECT_FALSE(loads(pointer, min - 1)) << key;
        }
        if (max < std::numeric_limits<long long>::max()) {
          EXPECT_FALSE(loads(pointer, max + 1)) << key;
        }
        if (rule->only.size() > 1) {
          EXPECT_FALSE(loads(pointer, rule->only[0] + 1)) << key;
        }
        break;
      case SettingRule::Type::IntegerList: {
        const Json edges = Json::array({min, max});
        std::vector<long long> full(std::max<std::size_t>(rule->listSize, 1), max);
        EXPECT_TRUE(loads(pointer, Json(full))) << key;
        if (rule->listSize == 0) {
          EXPECT_TRUE(loads(pointer, edges)) << key;
        }
        full.push_back(max);
        if (rule->listSize) {
          EXPECT_FALSE(loads(pointer, Json(full))) << key;
        }
        full.pop_back();
        full.back() = max == std::numeric_limits<int>::max() ? max : max + 1;
        if (max < std::numeric_limits<int>::max()) {
          EXPECT_FALSE(loads(pointer, Json(full))) << key;
        }
        break;
      }
      case SettingRule::Type::Bool: EXPECT_FALSE(loads(pointer, "true")) << key; break;
      case SettingRule::Type::Unsigned: EXPECT_FALSE(loads(pointer, -1)) << key; break;
      case SettingRule::Type::Text: EXPECT_FALSE(loads(pointer, 1)) << key; break;
    }
  }
  EXPECT_GT(checked, 100);
  EXPECT_FALSE(FindSettingRule("general"));       // a group
  EXPECT_FALSE(FindSettingRule("general.none"));  // unknown
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
    testing::Values(std::string(), std::string("not json at all"), SettingsToJson(NonDefaultSettings()).substr(0, 300),
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
  EXPECT_FALSE(SaveSettings(NonDefaultSettings(), file, &error));
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
