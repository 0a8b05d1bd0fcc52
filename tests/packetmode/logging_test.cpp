// The log index and its pruner against hand-made and hostile indexes, the logger's file
// naming and bounds, and a race of the logging pass against inserts and clears.
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <thread>

#include "packetmode/log_index.hpp"
#include "packetmode/packet_logger.hpp"
#include "packets/render.hpp"
#include "support/frames.hpp"
#include "support/pcap_file.hpp"

namespace vormelt {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

std::string ReadAll(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

void WriteAll(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}

const CaptureTime kNow = CaptureTime(std::chrono::seconds(1'800'000'000));  // 2027-01-15

std::string Entry(std::chrono::milliseconds age, const std::string& path) {
  return "\r\n" + LogStamp(kNow - age) + "    " + path;
}

TEST(LogIndex, PathTrimsTrailingSeparatorsAndStampHas23Characters) {
  EXPECT_EQ(LogIndexPath("/var/log/x"), "/var/log/x/_VORMELT_LOG_FILE_INDEX.txt");
  EXPECT_EQ(LogIndexPath("/var/log/x/"), LogIndexPath("/var/log/x"));
  EXPECT_EQ(LogIndexPath("/var/log/x\\"), LogIndexPath("/var/log/x"));
  EXPECT_EQ(LogStamp(kNow), "2027.01.15 08.00.00.000");
}

TEST(LogPruner, EverythingExpiredRemovesTheFilesAndTheIndex) {
  test::TempDir dir;
  WriteAll(dir.File("a.txt"), "a");
  // The second file is already gone: passed over without a word.
  WriteAll(LogIndexPath(dir.path()), Entry(100s, dir.File("a.txt")) + Entry(90s, dir.File("gone.txt")));
  PruneLogFiles(dir.path() + "/", 60, kNow);
  EXPECT_FALSE(fs::exists(dir.File("a.txt")));
  EXPECT_FALSE(fs::exists(LogIndexPath(dir.path())));
  EXPECT_FALSE(fs::exists(dir.File("_VORMELT_LOG_FILE_INDEX_TEMP.txt")));
}

TEST(LogPruner, AnEntryAsOldAsTheLimitStopsTheScanAndTrimmedPathsAreDeleted) {
  test::TempDir dir;
  for (const char* name : {"old.txt", "edge.txt", "later.txt"}) WriteAll(dir.File(name), name);
  const std::string kept = Entry(60s, dir.File("edge.txt")) + Entry(500s, dir.File("later.txt"));
  // Blanks and tabs around the path, and a lone LF before the entry, are not part of it.
  WriteAll(LogIndexPath(dir.path()), "\n" + LogStamp(kNow - 61s) + " \t " + dir.File("old.txt") + "\t " + kept);
  PruneLogFiles(dir.path(), 60, kNow);
  EXPECT_FALSE(fs::exists(dir.File("old.txt")));
  EXPECT_TRUE(fs::exists(dir.File("edge.txt")));
  EXPECT_TRUE(fs::exists(dir.File("later.txt")));  // younger entries are assumed to follow
  EXPECT_EQ(ReadAll(LogIndexPath(dir.path())), kept);
}

TEST(LogPruner, HostileIndexesNeverCrashAndNeverDeleteByAnUndatedEntry) {
  test::TempDir dir;
  WriteAll(dir.File("keep.txt"), "k");
  const std::string index = LogIndexPath(dir.path());
  // A stamp that is no date keeps itself and everything after it.
  WriteAll(index, "\r\n9999.99.99 99.99.99.999    " + dir.File("keep.txt"));
  PruneLogFiles(dir.path(), 0, kNow);
  EXPECT_TRUE(fs::exists(dir.File("keep.txt")));
  // A short stamp ends the index; an overlong path line is cut, not overrun.
  WriteAll(index, "\r\n2027.01");
  PruneLogFiles(dir.path(), 0, kNow);
  EXPECT_FALSE(fs::exists(index));
  WriteAll(index, Entry(10s, std::string(9000, 'x')));
  PruneLogFiles(dir.path(), 0, kNow);
  // Garbage may name relative paths: they resolve inside the test's own folder.
  const fs::path before = fs::current_path();
  fs::current_path(dir.path());
  std::mt19937 random(7);
  for (int round = 0; round < 300; ++round) {
    std::string garbage(random() % 200, '\0');
    for (char& c : garbage) c = static_cast<char>(random() % 4 ? "0123456789. \r\n\t"[random() % 15] : random());
    WriteAll(index, garbage);
    PruneLogFiles(dir.path(), static_cast<std::int64_t>(random() % 100), kNow);
  }
  fs::current_path(before);
  EXPECT_TRUE(fs::exists(dir.File("keep.txt")));
}

test::Bytes Packet(int i, std::size_t payload) {
  test::TcpHeader tcp;
  tcp.sequence = static_cast<std::uint32_t>(i);
  return test::RawSocketsFrame(test::TcpPacket({}, tcp, test::Bytes(payload, static_cast<std::uint8_t>(i))));
}

LogConfig SizeConfig(const std::string& folder, std::int64_t kilobytes) {
  LogConfig config;
  config.settings.folder = folder;
  config.settings.method = static_cast<std::int32_t>(LogMethod::BySize);
  config.settings.maxFileKilobytes = kilobytes;
  config.settings.nameTemplate = "fixed.txt";
  return config;
}

// Every file named in the index, in order, and its text.
std::vector<std::string> IndexedFiles(const std::string& folder) {
  std::vector<std::string> files;
  std::string index = ReadAll(LogIndexPath(folder));
  for (std::size_t at = 0; (at = index.find("\r\n", at)) != std::string::npos;) {
    const std::size_t end = index.find("\r\n", at + 2);
    files.push_back(index.substr(at + 2 + kLogStampLength + 4, end == std::string::npos ? std::string::npos : end - at - 2 - kLogStampLength - 4));
    at += 2;
  }
  return files;
}

TEST(PacketLogger, SizeBoundFilesMadeInOneSecondKeepEveryPacketInIndexOrder) {
  test::TempDir dir;
  PacketStore store;
  PacketLogger logger(store);
  ASSERT_TRUE(logger.Start(SizeConfig(dir.path(), 1)));
  std::string expected;
  PacketRenderer renderer({DataForm::HexText, IpGap::Narrow, DataLevel::Datalink});
  for (int i = 0; i < 5; ++i) {
    store.Insert(test::Record(Packet(i, 300), InterfaceKind::RawSockets));
    renderer.Append(store.Get(i), expected);
  }
  logger.Pass(kNow);
  logger.Stop();
  const std::vector<std::string> files = IndexedFiles(dir.path());
  ASSERT_EQ(files.size(), 5u);  // each packet's text passes 1 KB: one file each
  EXPECT_EQ(files[0], dir.File("fixed.txt"));
  EXPECT_EQ(files[1], dir.File("fixed (2).txt"));
  std::string logged;
  for (const std::string& file : files) logged += ReadAll(file);
  EXPECT_EQ(logged, expected);
  EXPECT_EQ(logger.Status().packetsLogged, 5);
}

TEST(PacketLogger, NameTemplateTokensAndProblems) {
  const LocalTime t{2026, 3, 4, 5, 6, 7, 8};
  EXPECT_EQ(ExpandLogName("%DAT_%LI_%PID.txt", "%Y%MY%D-%H24%MN%S", t, "10.0.0.1", 42),
            "20260304-050607_10.0.0.1_42.txt");
  EXPECT_EQ(ExpandLogName("%LI.log", "", t, "a/b", 1), "a_b.log");
  EXPECT_EQ(NumberedLogName("x.tar.txt", 3), "x.tar (3).txt");
  LoggingSettings s;
  EXPECT_EQ(LoggingProblem(s), Text::LogNeedFolder);
  s.folder = "/tmp";
  s.nameTemplate = "a/%DAT";
  EXPECT_EQ(LoggingProblem(s), Text::LogNeedNameTemplate);
}

// The receive thread inserts while the logging pass runs and the store is cleared behind it,
// by the logging thread or by a reader's thread; a reader polls the status. Nothing may be
// lost or logged twice.
TEST(PacketLoggerRace, PassesAndClearsRaceInsertsWithoutLosingAPacket) {
  for (const bool ownerClears : {false, true}) {
    test::TempDir dir;
    PacketStore store;
    PacketLogger logger(store);
    LogConfig config = SizeConfig(dir.path(), 64);
    config.settings.clearAfterLog = true;
    config.settings.form = 0;  // heading only: one summary line per packet
    config.clearOnOwnerThread = ownerClears;
    ASSERT_TRUE(logger.Start(config));
    constexpr int kPackets = 20'000;
    std::atomic<bool> done{false};
    std::thread receive([&] {
      for (int i = 0; i < kPackets; ++i) {
        store.Insert(test::Record(Packet(i, i % 50), InterfaceKind::RawSockets));
      }
      done.store(true);
    });
    std::thread passes([&] {
      while (!done.load()) logger.Pass(CaptureNow());
    });
    while (!done.load()) {
      (void)logger.Status();
      logger.ClearOnOwnerThread();
    }
    receive.join();
    passes.join();
    logger.Stop();
    EXPECT_EQ(logger.Status().packetsLogged, kPackets) << ownerClears;
    std::size_t lines = 0;
    for (const std::string& file : IndexedFiles(dir.path())) {
      const std::string text = ReadAll(file);
      for (std::size_t at = 0; (at = text.find("\r\n", at)) != std::string::npos; at += 2) ++lines;
    }
    EXPECT_EQ(lines, static_cast<std::size_t>(kPackets)) << ownerClears;
  }
}

}  // namespace
}  // namespace vormelt
