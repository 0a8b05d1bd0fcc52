// The install record: what start-up decides from it, and that the file keeps its value names
// and survives damage.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "common/install_record.hpp"
#include "support/pcap_file.hpp"

namespace vormelt {
namespace {

namespace fs = std::filesystem;

TEST(InstallDecision, FollowsTheRecordAndTheRunningProgram) {
  struct Case {
    std::optional<InstallRecord> record;
    const char* running;
    InstallAction action;
    Text question;  // checked only for Ask
  };
  const Case cases[] = {
      {std::nullopt, "/opt/v/vormelt", InstallAction::RunInstaller, {}},
      {InstallRecord{"", "2.2"}, "/opt/v/vormelt", InstallAction::RunInstaller, {}},
      {InstallRecord{"/Opt/V/VORMELT", "2.2"}, "/opt/v/vormelt", InstallAction::Proceed, {}},
      {InstallRecord{"/usr/bin/vormelt", "2.2"}, "/home/u/vormelt", InstallAction::Ask, Text::AskReinstall},
      {InstallRecord{"/usr/bin/vormelt", ""}, "/home/u/vormelt", InstallAction::Ask, Text::AskInstallVersion},
      // A path that merely starts like the installed one is another program.
      {InstallRecord{"/usr/bin/vormelt", "2.2"}, "/usr/bin/vormelt2", InstallAction::Ask, Text::AskReinstall},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.running);
    const InstallDecision d = DecideInstall(c.record, c.running);
    EXPECT_EQ(d.action, c.action);
    if (c.action == InstallAction::Ask) {
      EXPECT_EQ(d.question, c.question);
    }
  }
}

TEST(InstallRecordFile, KeepsTheVersionedValueNames) {
  test::TempDir dir;
  const fs::path file = fs::path(dir.path()) / "install.json";
  ASSERT_TRUE(SaveInstallRecord(MakeInstallRecord("/usr/bin/vormelt"), file, nullptr));

  const auto json = nlohmann::json::parse(std::ifstream(file));
  EXPECT_EQ(json.at("2.2EXENameAndPath"), "/usr/bin/vormelt");
  EXPECT_EQ(json.at("2.2"), "2.2");

  const InstallRecordLoad load = LoadInstallRecord(file);
  EXPECT_FALSE(load.problem);
  EXPECT_EQ(load.record, (InstallRecord{"/usr/bin/vormelt", "2.2"}));

  // Values of the wrong type read as empty; the file is not damaged.
  std::ofstream(file) << R"({"2.2EXENameAndPath": 17, "2.2": ["x"], "2.1EXENameAndPath": "/old"})";
  EXPECT_EQ(LoadInstallRecord(file).record, InstallRecord{});
  EXPECT_FALSE(LoadInstallRecord(file).problem);
}

TEST(InstallRecordFile, DamagedRecordIsKeptAsideAndTreatedAsAbsent) {
  for (const std::string content : {"", "{\"2.2EXENameAndPath\": \"/usr/b", "[]"}) {
    SCOPED_TRACE(content);
    test::TempDir dir;
    const fs::path file = fs::path(dir.path()) / "install.json";
    std::ofstream(file) << content;
    const InstallRecordLoad load = LoadInstallRecord(file);
    EXPECT_FALSE(load.record);
    EXPECT_EQ(load.problem, Text::InstallRecordDamaged);
    EXPECT_EQ(load.keptAs.filename(), "install.json.bad");
    EXPECT_TRUE(fs::exists(load.keptAs));
    EXPECT_FALSE(fs::exists(file));
  }
}

}  // namespace
}  // namespace vormelt
