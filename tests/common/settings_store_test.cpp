// The settings file: round trip, per-key leniency, damaged files kept aside, atomic replace.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "common/settings_store.hpp"
#include "support/pcap_file.hpp"

namespace vormelt {
namespace {

namespace fs = std::filesystem;

void WriteText(const fs::path& file, std::string_view text) {
  std::ofstream out(file, std::ios::binary);
  out << text;
}

std::string ReadText(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

std::vector<std::string> Entries(const fs::path& dir) {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(dir)) names.push_back(entry.path().filename());
  std::sort(names.begin(), names.end());
  return names;
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
  p.filteringEnabled = p.matchCase = p.announceNewPackets = p.newPacketSound = true;
  p.hexViewerOpen = true;
  p.wrapDump = false;
  p.dateTimeTemplate = "%H12:%MN";
  p.dataLevel = 3;
  p.dumpForm = 0;
  p.hexViewer = {true, 5, 6, 7, 8, false, false};
  p.filterWindow = {true, 9, 10, 11, 12, false, false};
  p.lastFolder = "/home/user/captures";
  s.codec = {{true, 3, 4, 500, 300, false, false}, 2, 3, true, false, true, false, "DejaVu Sans Mono"};
  return s;
}

TEST(SettingsStore, RoundTripKeepsEveryFieldInReadableGroups) {
  test::TempDir dir;
  const fs::path file = fs::path(dir.path()) / "settings.json";
  const ProgramSettings saved = NonDefaultSettings();
  std::string error;
  ASSERT_TRUE(SaveSettings(saved, file, &error)) << error;

  const SettingsLoad load = LoadSettings(file);
  EXPECT_FALSE(load.problem);
  EXPECT_TRUE(load.settings == saved);

  const auto json = nlohmann::json::parse(ReadText(file));
  EXPECT_EQ(json.at("version"), kSettingsVersion);
  for (const char* group : {"general", "interface", "packetMode", "codec"}) {
    EXPECT_TRUE(json.at(group).is_object()) << group;
  }
  EXPECT_EQ(json.at("packetMode").at("dataLevel"), 3);
}

TEST(SettingsStore, MissingFileGivesDefaultsWithoutAProblem) {
  test::TempDir dir;
  const SettingsLoad load = LoadSettings(fs::path(dir.path()) / "settings.json");
  EXPECT_FALSE(load.problem);
  EXPECT_TRUE(load.settings == ProgramSettings{});
  EXPECT_TRUE(Entries(dir.path()).empty());
}

TEST(SettingsStore, WrongTypesAndRangesCostOnlyTheirOwnKey) {
  const auto read = SettingsFromJson(R"({
    "version": "one",
    "general": {"showModeChoiceAtStartup": "no", "rememberedMode": 2.5, "language": 7,
                "useSystemColors": true, "graphicalWarningAcknowledged": 1,
                "modeChoiceWindow": {"valid": true, "x": "10", "y": 20, "width": 1099511627776}},
    "interface": 5,
    "packetMode": {"dataLevel": 9, "dumpForm": 1, "columnOrder": [1, "x", 2],
                   "columnWidths": [10, 20], "dateTimeTemplate": null, "lastFolder": "/tmp"},
    "codec": {"inputType": -1, "outputType": 3, "font": ["Mono"], "wordWrap": false},
    "somethingNew": {"a": 1}
  })", nullptr);
  ASSERT_TRUE(read);
  // What was good is kept; each bad key alone falls back to its default.
  ProgramSettings expected;
  expected.useSystemColors = true;
  expected.modeChoiceWindow = {true, 0, 20, 0, 0, false, false};
  expected.packetMode.dumpForm = 1;
  expected.packetMode.columnOrder.clear();
  expected.packetMode.columnWidths = {10, 20};
  expected.packetMode.lastFolder = "/tmp";
  expected.codec.outputType = 3;
  expected.codec.wordWrap = false;
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

std::string TruncatedSettings() {
  const std::string whole = SettingsToJson(NonDefaultSettings());
  return whole.substr(0, whole.size() / 2);
}

INSTANTIATE_TEST_SUITE_P(
    Contents, DamagedSettingsFile,
    testing::Values(std::string(), std::string("not json at all"), TruncatedSettings(),
                    std::string("[1, 2, 3]"), std::string("null"), std::string("\"text\""),
                    std::string("\xff\xfe\x00\x01{", 5), std::string(100000, '['),
                    std::string("{\"general\": {}} trailing")));

TEST(SettingsStore, OversizedFileIsKeptAsideUnread) {
  test::TempDir dir;
  const fs::path file = fs::path(dir.path()) / "settings.json";
  WriteText(file, std::string(kMaxSettingsFileBytes + 1, ' '));
  const SettingsLoad load = LoadSettings(file);
  EXPECT_EQ(load.problem, Text::SettingsFileDamaged);
  EXPECT_EQ(fs::file_size(load.keptAs), kMaxSettingsFileBytes + 1);
}

TEST(SettingsStore, EarlierKeptAsideCopiesAreNeverOverwritten) {
  test::TempDir dir;
  const fs::path file = fs::path(dir.path()) / "settings.json";
  WriteText(file, "first");
  EXPECT_EQ(LoadSettings(file).keptAs.filename(), "settings.json.bad");
  WriteText(file, "second");
  EXPECT_EQ(LoadSettings(file).keptAs.filename(), "settings.json.bad.2");
  EXPECT_EQ(ReadText(fs::path(dir.path()) / "settings.json.bad"), "first");
  EXPECT_EQ(ReadText(fs::path(dir.path()) / "settings.json.bad.2"), "second");
}

TEST(SettingsStore, SaveReplacesAtomicallyAndLeavesNoTemporaryFile) {
  test::TempDir dir;
  const fs::path file = fs::path(dir.path()) / "nested" / "settings.json";
  ProgramSettings settings;
  ASSERT_TRUE(SaveSettings(settings, file, nullptr));  // creates the missing folder
  settings.rememberedMode = 3;
  ASSERT_TRUE(SaveSettings(settings, file, nullptr));
  EXPECT_EQ(LoadSettings(file).settings.rememberedMode, 3);
  EXPECT_EQ(Entries(file.parent_path()), std::vector<std::string>{"settings.json"});
}

// A folder where the file should be is reported, never moved, and a save fails with a reason.
TEST(SettingsStore, FolderInPlaceOfTheFileIsReportedAndLeftAlone) {
  test::TempDir dir;
  const fs::path file = fs::path(dir.path()) / "settings.json";
  fs::create_directory(file);
  const SettingsLoad load = LoadSettings(file);
  EXPECT_EQ(load.problem, Text::SettingsFileUnreadable);
  std::string error;
  EXPECT_FALSE(SaveSettings(ProgramSettings{}, file, &error));
  EXPECT_FALSE(error.empty());
  EXPECT_EQ(Entries(dir.path()), std::vector<std::string>{"settings.json"});
}

TEST(SettingsStore, BytesThatAreNotUtf8DoNotStopTheSave) {
  test::TempDir dir;
  const fs::path file = fs::path(dir.path()) / "settings.json";
  ProgramSettings settings;
  settings.packetMode.lastFolder = "/data/\xff\xfe";
  settings.rememberedMode = 2;
  ASSERT_TRUE(SaveSettings(settings, file, nullptr));
  const SettingsLoad load = LoadSettings(file);
  EXPECT_FALSE(load.problem);
  EXPECT_EQ(load.settings.rememberedMode, 2);
  EXPECT_TRUE(load.settings.packetMode.lastFolder.starts_with("/data/"));
}

}  // namespace
}  // namespace vormelt
