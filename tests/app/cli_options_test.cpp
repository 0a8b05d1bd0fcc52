// vormelt-cli options checked before anything runs: the capture buffer size of the capture
// commands, and `settings set`, which refuses what the key does not take and says what it
// takes, while `get` prints what `set` takes back. In process, no capture started.
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "app/cli.hpp"
#include "support/pcap_file.hpp"

namespace vormelt::cli {
namespace {

struct CliRun {
  int status;
  std::string out, err;
};

using Command = int (*)(std::span<const std::string>, std::ostream&, std::ostream&);

CliRun RunCommand(Command command, std::vector<std::string> args) {
  std::ostringstream out, err;
  const int status = command(args, out, err);
  return {status, out.str(), err.str()};
}

TEST(CaptureCommands, BufferSizeOutsideItsBoundsOrForAFileIsRefusedWithTheReason) {
  struct Case {
    std::vector<std::string> args;
    std::string reason;
  };
  const std::string bounds = "--buffer-mib takes a number of MiB from 1 to 1024";
  const std::string liveOnly = "--buffer-mib applies to live captures only";
  const std::vector<Case> cases = {
      {{"--live", "127.0.0.1", "--buffer-mib", "0"}, bounds},
      {{"--buffer-mib", "1025", "--live", "127.0.0.1"}, bounds},
      {{"--live", "127.0.0.1", "--buffer-mib", "-1"}, bounds},
      {{"--live", "127.0.0.1", "--buffer-mib", "64k"}, bounds},
      {{"--live", "127.0.0.1", "--buffer-mib", "99999999999999999999"}, bounds},
      {{"--read", "x.pcap", "--buffer-mib", "64"}, liveOnly},
  };
  for (const auto& [name, command, extra] :
       {std::tuple{"packets", &RunPackets, std::vector<std::string>{}},
        std::tuple{"stats", &RunStats, std::vector<std::string>{}},
        std::tuple{"files", &RunFiles, std::vector<std::string>{"--out", "unused"}}}) {
    for (const Case& c : cases) {
      std::vector<std::string> args = c.args;
      args.insert(args.end(), extra.begin(), extra.end());
      const CliRun run = RunCommand(command, args);
      EXPECT_EQ(run.status, 2) << name << " " << args[3];
      EXPECT_NE(run.err.find(c.reason), std::string::npos) << name << ": " << run.err;
    }
  }
}

class SettingsCommandTest : public testing::Test {
 protected:
  CliRun Settings(std::vector<std::string> args) {
    args.insert(args.end(), {"--config", dir_.path()});
    return RunCommand(&RunSettings, args);
  }
  test::TempDir dir_;
};

TEST_F(SettingsCommandTest, RefusalsSayWhatTheKeyTakes) {
  const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
      {{"fileMode.subfolderLevels", "[9,9,9]"}, "exactly 3 whole numbers from -1 to 3"},
      {{"fileMode.subfolderLevels", "[1,2]"}, "exactly 3 whole numbers from -1 to 3"},
      {{"capture.bufferMiB", "0"}, "a whole number from 1 to 1024"},
      {{"statistics.maxItems", "8193"}, "a whole number from 1 to 8192"},
      {{"graphical.replaySpeed", "5"}, "1, 10 or 100"},
      {{"general.useSystemColors", "yes"}, "true or false"},
      {{"fileMode.countCustom", "-1"}, "a whole number from 0 to"},
      {{"general.rememberedMode", "4"}, "0, 1, 2 or 3"},
      {{"fileMode.folder", "\""}, "must be a whole JSON string"},  // the folder named "
      {{"fileMode.folder", "\"/srv\" x"}, "must be a whole JSON string"},
      {{"fileMode.folder", "/srv/\xff"}, "UTF-8 text"},
      {{"packetMode.window.width", "-1"}, "a whole number from 0 to 1048576"},
  };
  for (const auto& [words, takes] : cases) {
    std::vector<std::string> args = {"set"};
    args.insert(args.end(), words.begin(), words.end());
    const CliRun run = Settings(args);
    EXPECT_EQ(run.status, 2) << words[0] << " " << words[1];
    EXPECT_NE(run.err.find(takes), std::string::npos) << run.err;
  }
  EXPECT_EQ(Settings({"get", "fileMode.subfolderLevels"}).out, "[0,0,0]\n");
}

// What `get` prints, `set` takes back to the same value; a value copied from `list` (JSON) sets
// what it shows, quotes stripped.
TEST_F(SettingsCommandTest, GetPrintsWhatSetTakesBack) {
  const std::vector<std::tuple<std::string, std::string, std::string>> cases = {
      {"fileMode.folder", "/srv/bodies", "/srv/bodies"},
      {"fileMode.folder", "\"/srv/bodies\"", "/srv/bodies"},
      {"fileMode.folder", "\"\\\"quoted\\\"\"", "\"\\\"quoted\\\"\""},  // the value is "quoted"
      {"fileMode.folder", "", ""},
      {"fileMode.nameTemplate", "\"a\\nb\"", "\"a\\nb\""},  // a line break stays one line
      {"fileMode.subfolderLevels", "[-1, 2,3]", "[-1,2,3]"},
      {"capture.bufferMiB", "1024", "1024"},
      {"general.useSystemColors", "1", "true"},
  };
  for (const auto& [key, value, printed] : cases) {
    ASSERT_EQ(Settings({"set", key, value}).status, 0) << key << " " << value;
    const std::string got = Settings({"get", key}).out;
    EXPECT_EQ(got, printed + "\n") << value;
    ASSERT_EQ(Settings({"set", key, got.substr(0, got.size() - 1)}).status, 0);
    EXPECT_EQ(Settings({"get", key}).out, got);
    EXPECT_NE(Settings({"list"}).out.find("\n" + key + "=" + got), std::string::npos);
  }
}

}  // namespace
}  // namespace vormelt::cli
