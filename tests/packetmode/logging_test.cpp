// The log index and its pruner against hand-made and hostile indexes, the logger's file
// naming and bounds, and a race of the logging pass against inserts and clears.
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <random>
#include <set>
#include <sstream>
#include <thread>

#include <cerrno>

#include "common/file_write.hpp"
#include "packetmode/log_index.hpp"
#include "packetmode/packet_logger.hpp"
#include "packetmode/packet_mode_engine.hpp"
#include "packets/render.hpp"
#include "support/frames.hpp"
#include "support/pcap_file.hpp"
#include "support/small_disk.hpp"

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

// Ages are whole seconds, truncated: only a full second past the limit expires an entry.
TEST(LogPruner, AgesAreTruncatedToWholeSecondsAtTheLimit) {
  for (const auto& [age, kept] : {std::pair{60500ms, true}, {60999ms, true}, {61000ms, false}}) {
    test::TempDir dir;
    WriteAll(dir.File("a.txt"), "a");
    WriteAll(LogIndexPath(dir.path()), Entry(age, dir.File("a.txt")));
    PruneLogFiles(dir.path(), 60, kNow);
    EXPECT_EQ(fs::exists(dir.File("a.txt")), kept) << age.count();
  }
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

// An index may name anything: only regular files directly in the log folder are deleted.
TEST(LogPruner, DeletesOnlyRegularFilesInItsOwnFolder) {
  test::TempDir dir;
  const std::string logs = dir.File("logs");
  fs::create_directories(logs + "/sub");
  for (const char* name : {"outside.txt", "target.txt", "logs/sub/deep.txt", "logs/mine.txt"}) {
    WriteAll(dir.File(name), name);
  }
  fs::create_symlink(dir.File("target.txt"), logs + "/link.txt");
  std::string index;
  for (const std::string& path :
       {dir.File("outside.txt"), logs + "/../outside.txt", logs + "/sub/deep.txt", logs + "/link.txt",
        logs + "/sub", logs + "/" + std::string(kLogIndexFileName), logs + "/mine.txt"}) {
    index += Entry(100s, path);
  }
  WriteAll(LogIndexPath(logs), index + Entry(1s, logs + "/young.txt"));
  PruneLogFiles(logs, 60, kNow);
  EXPECT_TRUE(fs::exists(dir.File("outside.txt")));
  EXPECT_TRUE(fs::exists(dir.File("target.txt")));
  EXPECT_TRUE(fs::is_symlink(logs + "/link.txt"));
  EXPECT_TRUE(fs::exists(logs + "/sub/deep.txt"));
  EXPECT_FALSE(fs::exists(logs + "/mine.txt"));
  EXPECT_EQ(ReadAll(LogIndexPath(logs)), Entry(1s, logs + "/young.txt"));
}

// A rewrite that cannot be completed on a full disk keeps the index as it was, so the files it
// names can still be pruned once there is room; no temporary file is left behind.
TEST(LogPrunerFullDisk, TheIndexIsKeptWhenItsRewriteCannotBeCompleted) {
  test::SmallDisk disk(64 * 1024);
  VORMELT_REQUIRE_SMALL_DISK(disk);
  const std::string logs = disk.path().string();
  WriteAll(logs + "/old.txt", "old");
  std::string index = Entry(100s, logs + "/old.txt");
  for (int i = 0; i < 500; ++i) index += Entry(10s, logs + "/young-" + std::to_string(i) + ".txt");
  WriteAll(LogIndexPath(logs), index);
  // Fill the disk to its last byte.
  {
    std::ofstream filler(logs + "/filler", std::ios::binary);
    const std::string block(4096, 'f');
    while (filler.write(block.data(), block.size())) {}
  }
  { std::ofstream(logs + "/filler2", std::ios::binary) << std::string(4096, 'f'); }
  PruneLogFiles(logs, 60, kNow);
  EXPECT_EQ(ReadAll(LogIndexPath(logs)), index);
  for (const auto& file : fs::directory_iterator(logs)) {
    EXPECT_FALSE(file.path().filename().string().ends_with(".part")) << file.path();
  }
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

// The pruner may delete the file being written (its entry is the oldest); the packets after it
// go to a new file with an index entry of its own, and none is lost.
TEST(PacketLogger, APrunedOpenFileIsFollowedByANewIndexedFile) {
  for (const auto method : {LogMethod::BySize, LogMethod::SingleFile}) {
    test::TempDir dir;
    PacketStore store;
    PacketLogger logger(store);
    LogConfig config = SizeConfig(dir.path(), 100000);
    config.settings.method = static_cast<std::int32_t>(method);
    config.settings.singleFilePath = dir.File("all.txt");
    config.settings.form = 0;  // one summary line per packet
    ASSERT_TRUE(logger.Start(config));
    const CaptureTime begun = CaptureNow();
    for (int i = 0; i < 3; ++i) store.Insert(test::Record(Packet(i, 10), InterfaceKind::RawSockets));
    logger.Pass(begun);
    ASSERT_EQ(IndexedFiles(dir.path()).size(), 1u);
    PruneLogFiles(dir.path(), 0, begun + 10s);
    ASSERT_FALSE(fs::exists(LogIndexPath(dir.path())));  // the open file went with its entry
    for (int i = 3; i < 8; ++i) store.Insert(test::Record(Packet(i, 10), InterfaceKind::RawSockets));
    logger.Pass(begun + 11s);
    logger.Stop();
    const std::vector<std::string> files = IndexedFiles(dir.path());
    ASSERT_EQ(files.size(), 1u) << int(method);
    const std::string text = ReadAll(files[0]);
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 5) << int(method);
    EXPECT_EQ(logger.Status().packetsLogged, 8);
  }
}

// Logging into a full disk: no empty files, no file without an index entry, no half entry, one
// failure report naming the file, and every packet that could not be written is kept and
// written, in order, once there is room again.
TEST(PacketLoggerFullDisk, NothingIsLostOrLeftHalfAndTheFailureIsToldOnce) {
  test::SmallDisk disk(320 * 1024);
  VORMELT_REQUIRE_SMALL_DISK(disk);
  const std::string logs = disk.path().string() + "/logs";
  const std::string filler = disk.path().string() + "/filler";
  WriteAll(filler, std::string(200 * 1024, 'f'));
  PacketStore store;
  PacketLogger logger(store);
  LogConfig config = SizeConfig(logs, 32);
  config.settings.nameTemplate = "log.txt";
  config.settings.form = 3;  // hex: several hundred bytes per packet
  ASSERT_TRUE(logger.Start(config));
  constexpr int kPackets = 300;
  std::string expected;
  PacketRenderer renderer({DataForm::Hex, IpGap::Narrow, DataLevel::Datalink});
  for (int i = 0; i < kPackets; ++i) {
    store.Insert(test::Record(Packet(i, 100), InterfaceKind::RawSockets));
    renderer.Append(store.Get(i), expected);
  }
  ASSERT_GT(expected.size(), 150'000u);
  // Every file there holds data and is named by a whole index entry, and every entry names one.
  const auto check = [&] {
    std::set<std::string> named, present;
    for (const std::string& file : IndexedFiles(logs)) {
      EXPECT_TRUE(file.starts_with(logs + "/") && file.ends_with(".txt")) << file;
      named.insert(file);
    }
    for (const auto& file : fs::directory_iterator(logs)) {
      if (file.path().filename() == kLogIndexFileName) continue;
      present.insert(file.path().string());
      EXPECT_GT(fs::file_size(file.path()), 0u) << file.path();
    }
    EXPECT_EQ(named, present);
  };
  for (int pass = 0; pass < 20; ++pass) logger.Pass(kNow + std::chrono::seconds(pass));
  LogStatus status = logger.Status();
  EXPECT_EQ(status.failureEpisodes, 1);
  EXPECT_TRUE(status.failing);
  EXPECT_TRUE(status.failedFile.starts_with(logs + "/")) << status.failedFile;
  EXPECT_EQ(status.failureReason, ErrnoText(ENOSPC));
  EXPECT_EQ(status.packetsLogged + status.notLogged(), kPackets);
  EXPECT_GT(status.notLogged(), 0);
  check();

  fs::remove(filler);
  logger.Pass(kNow + 30s);
  logger.Stop();
  status = logger.Status();
  EXPECT_FALSE(status.failing);
  EXPECT_EQ(status.failureEpisodes, 1);
  EXPECT_EQ(status.packetsLogged, kPackets);
  EXPECT_EQ(status.notLogged(), 0);
  std::string logged;
  for (const std::string& file : IndexedFiles(logs)) logged += ReadAll(file);
  EXPECT_TRUE(logged == expected) << logged.size() << " of " << expected.size();
  check();
}

// With the store renewed when full (the service), every packet is logged before the store is
// emptied, whatever its size; without logging, the packets dropped are counted.
TEST(PacketModeEngine, ARenewedFullStoreLogsEveryPacketFirst) {
  test::TempDir dir;
  constexpr int kFrames = 5000;
  std::vector<test::Bytes> frames;
  for (int i = 0; i < kFrames; ++i) frames.push_back(Packet(i, i % 40));
  test::WritePcap(dir.File("in.pcap"), test::kLinkEthernet, frames);
  for (const bool logging : {true, false}) {
    PacketModeEngine engine(1001);
    engine.SetRenewWhenFull(true);
    LogConfig config = SizeConfig(dir.File("logs"), 1 << 20);
    config.settings.form = 0;
    config.settings.intervalSeconds = 3600;  // only the store filling wakes it
    if (logging) {
      ASSERT_TRUE(engine.StartLogging(config));
    }
    ASSERT_TRUE(engine.StartFile(dir.File("in.pcap")));
    engine.Session().Wait();
    engine.StopLogging();
    if (logging) {
      EXPECT_EQ(engine.LoggingStatus().packetsLogged, kFrames);
      EXPECT_EQ(engine.TakeDroppedUnlogged(), 0);
      std::size_t lines = 0;
      for (const std::string& file : IndexedFiles(dir.File("logs"))) {
        const std::string text = ReadAll(file);
        lines += static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
      }
      EXPECT_EQ(lines, static_cast<std::size_t>(kFrames));
    } else {
      EXPECT_EQ(engine.TakeDroppedUnlogged() + engine.Store().ItemCount(), kFrames);
    }
  }
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
