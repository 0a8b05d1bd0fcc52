// vormelt-cli packets with automatic logging and Find: a live loopback capture logged by size
// gives an index whose entries are exactly the files written, holding every packet once; bad
// logging words exit 2; Find keeps only the packets whose payload holds the text.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <thread>

#include "capture/source.hpp"
#include "packetmode/log_index.hpp"
#include "support/frames.hpp"
#include "support/pcap_file.hpp"
#include "support/process.hpp"
#include "support/small_disk.hpp"

namespace vormelt {
namespace {

using test::RunCli;
namespace fs = std::filesystem;

std::string ReadAll(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

TEST(CliLogging, BadWordsExitTwo) {
  test::TempDir dir;
  for (const std::vector<std::string>& words : std::vector<std::vector<std::string>>{
           {"--log-folder", dir.path()},  // no method
           {"--log-folder", dir.path(), "--log-method", "hourly"},
           {"--log-folder", dir.path(), "--log-method", "size", "--log-max-kb", "0"},
           {"--log-method", "size"},  // no folder
           {"--log-folder", dir.path(), "--log-method", "time", "--log-form", "pdf"},
           {"--find", ""},
           {"--match-case"}}) {
    std::vector<std::string> args{"packets", "--read", dir.File("none.pcap")};
    args.insert(args.end(), words.begin(), words.end());
    EXPECT_EQ(RunCli(args).status, 2) << words[0];
  }
}

TEST(CliLogging, FindKeepsOnlyMatchingPayloads) {
  test::TempDir dir;
  test::TcpHeader tcp;
  std::vector<test::Bytes> frames{
      test::RawSocketsFrame(test::TcpPacket({}, tcp, test::ToBytes("GET / HTTP/1.1\r\n"))),
      test::RawSocketsFrame(test::TcpPacket({}, tcp, test::ToBytes("HTTP/1.1 200 OK\r\n")))};
  test::WritePcap(dir.File("http.pcap"), 1, frames);
  const auto any = RunCli({"packets", "--read", dir.File("http.pcap"), "--find", "get"});
  EXPECT_EQ(any.err, "1 packets, 0 dropped\n");
  const auto exact = RunCli({"packets", "--read", dir.File("http.pcap"), "--find", "get", "--match-case"});
  EXPECT_EQ(exact.err, "0 packets, 0 dropped\n");
}

// Every frame of a capture file, with its time, read through the program's own sources.
std::vector<std::pair<test::Bytes, std::int64_t>> FramesOf(const std::string& path) {
  std::vector<std::pair<test::Bytes, std::int64_t>> frames;
  auto opened = OpenSource(CaptureTarget::File(path));
  auto* source = std::get_if<std::unique_ptr<CaptureSource>>(&opened);
  if (!source) return frames;
  FrameRecord record;
  while ((*source)->Next(record) == ReadResult::Frame) {
    frames.emplace_back(test::Bytes(record.bytes.begin(), record.bytes.end()),
                        record.time.time_since_epoch().count());
  }
  return frames;
}

// Logged as pcapng by size, the files read in index order give back the capture, frame for
// frame and time for time; the single-file method goes on in a new section on the next run.
TEST(CliLogging, PcapngLogsHoldTheCaptureInIndexOrder) {
  test::TempDir dir;
  {
    test::PcapFileWriter pcap(dir.File("in.pcap"), test::kLinkEthernet, 262144, /*nanoseconds=*/true);
    for (std::uint32_t i = 0; i < 60; ++i) {
      test::Bytes frame = test::RawSocketsFrame(test::TcpPacket({}, {}, test::Bytes(300 + i, 'x')));
      pcap.Write(frame, 1700000000 + i, i * 1000003);
    }
  }
  const auto original = FramesOf(dir.File("in.pcap"));
  ASSERT_EQ(original.size(), 60u);
  const std::string logs = dir.File("logs");
  ASSERT_EQ(RunCli({"packets", "--read", dir.File("in.pcap"), "--log-folder", logs, "--log-method",
                    "size", "--log-max-kb", "4", "--log-form", "pcapng"}).status, 0);
  std::vector<std::pair<test::Bytes, std::int64_t>> logged;
  std::istringstream index(ReadAll(logs + "/" + std::string(kLogIndexFileName)));
  int files = 0;
  for (std::string line; std::getline(index, line);) {
    if (line.size() < 28) continue;
    std::string path = line.substr(27);
    if (!path.empty() && path.back() == '\r') path.pop_back();
    EXPECT_TRUE(path.ends_with(".pcapng")) << path;
    for (auto& frame : FramesOf(path)) logged.push_back(std::move(frame));
    ++files;
  }
  EXPECT_GE(files, 3);
  EXPECT_TRUE(logged == original);

  const std::string single = dir.File("single");
  for (int run = 0; run < 2; ++run) {
    ASSERT_EQ(RunCli({"packets", "--read", dir.File("in.pcap"), "--log-folder", single,
                      "--log-method", "single", "--log-form", "pcapng"}).status, 0);
  }
  EXPECT_EQ(FramesOf(single + "/VORMELT_LOG.pcapng").size(), 120u);
}

// Packets of the hex+text log files in `folder` (each is a summary and a data block).
std::size_t LoggedPackets(const std::string& folder) {
  std::size_t blocks = 0;
  for (const auto& file : fs::directory_iterator(folder)) {
    if (file.path().filename() == kLogIndexFileName) continue;
    const std::string text = ReadAll(file.path());
    for (std::size_t p = 0; (p = text.find("\r\n\r\n", p)) != std::string::npos; p += 4) ++blocks;
  }
  return blocks / 2;
}

// A stop signal while packets are being logged ends the run cleanly: the logger finishes,
// closes its file and the summary counts exactly what the files hold.
TEST(CliLogging, AStopSignalDuringLoggingFinishesThePassAndTellsTheCount) {
  test::TempDir dir;
  {
    test::PcapFileWriter pcap(dir.File("in.pcap"), test::kLinkEthernet, 262144, false);
    const test::Bytes frame = test::RawSocketsFrame(test::TcpPacket({}, {}, test::Bytes(400, 'x')));
    for (std::uint32_t i = 0; i < 100'000; ++i) pcap.Write(frame, 1700000000 + i / 1000, i % 1000 * 1000);
  }
  const std::string logs = dir.File("logs");
  const auto run = RunCli({"packets", "--read", dir.File("in.pcap"), "--log-folder", logs,
                           "--log-method", "size", "--log-max-kb", "2000", "--log-form", "hex+text",
                           "--log-interval-s", "1"},
                          {}, std::chrono::milliseconds(300));
  // The signal may come while the file is still being read (a loaded machine reads slower):
  // then the run says where reading stopped and ends with 1, and what it read is logged all the same.
  if (run.status != 0) {
    ASSERT_EQ(run.status, 1) << run.err;
    ASSERT_NE(run.err.find("reading was stopped at byte "), std::string::npos) << run.err;
  }
  const std::size_t at = run.err.find(" packets logged in ");
  ASSERT_NE(at, std::string::npos) << run.err;
  const std::size_t line = run.err.rfind('\n', at) + 1;
  EXPECT_EQ(std::stoul(run.err.substr(line, at - line)), LoggedPackets(logs)) << run.err;
}

// A full disk: the summary says what was not logged and names the file and the reason, once;
// the run fails; no empty file is left.
TEST(CliLogging, AFullDiskIsToldOnceWithTheFileAndTheRunFails) {
  test::SmallDisk disk(256 * 1024);
  VORMELT_REQUIRE_SMALL_DISK(disk);
  test::TempDir dir;
  std::vector<test::Bytes> frames(2000, test::RawSocketsFrame(test::TcpPacket({}, {}, test::Bytes(300, 'y'))));
  test::WritePcap(dir.File("in.pcap"), test::kLinkEthernet, frames);
  const std::string logs = disk.path().string();
  const auto run = RunCli({"packets", "--read", dir.File("in.pcap"), "--log-folder", logs,
                           "--log-method", "size", "--log-max-kb", "40", "--log-form", "hex+text"});
  EXPECT_EQ(run.status, 1);
  EXPECT_NE(run.err.find(" not logged\n"), std::string::npos) << run.err;
  const std::size_t told = run.err.find("could not be written: " + logs + "/");
  ASSERT_NE(told, std::string::npos) << run.err;
  EXPECT_NE(run.err.find(": No space left on device\n", told), std::string::npos) << run.err;
  EXPECT_EQ(run.err.find("could not be written", told + 1), std::string::npos) << run.err;
  for (const auto& file : fs::directory_iterator(logs)) EXPECT_GT(fs::file_size(file.path()), 0u) << file.path();
}

TEST(CliLoggingLive, LoopbackLoggedBySizeMatchesItsIndex) {
  const OpenResult probe = OpenSource(CaptureTarget::Address("127.0.0.1"));
  if (const auto* failure = std::get_if<CaptureMessage>(&probe)) {
    GTEST_SKIP() << "cannot capture on loopback here (needs root or cap_net_raw,cap_net_admin): "
                 << FormatMessage(*failure, UiLanguage::English);
  }
  test::TempDir dir;
  std::thread ping([] { std::system("ping -c 40 -i 0.05 -s 600 127.0.0.1 >/dev/null 2>&1"); });
  const auto run = RunCli({"packets", "--live", "127.0.0.1", "--log-folder", dir.path() + "/",
                           "--log-method", "size", "--log-max-kb", "4", "--log-form", "hex+text",
                           "--log-interval-s", "1"},
                          {}, std::chrono::milliseconds(3000));
  ping.join();
  // Every file the index names exists, and the folder holds no other file.
  std::set<std::string> named;
  const std::string index = ReadAll(LogIndexPath(dir.path()));
  std::size_t packets = 0;
  for (std::size_t at = 0; (at = index.find("\r\n", at)) != std::string::npos; at += 2) {
    const std::size_t end = index.find("\r\n", at + 2);
    const std::string entry = index.substr(at + 2, end == std::string::npos ? std::string::npos : end - at - 2);
    ASSERT_GT(entry.size(), kLogStampLength + 4) << entry;
    const std::string path = entry.substr(kLogStampLength + 4);
    EXPECT_TRUE(fs::exists(path)) << path;
    named.insert(fs::path(path).filename().string());
    const std::string text = ReadAll(path);
    for (std::size_t p = 0; (p = text.find("\r\n\r\n", p)) != std::string::npos; p += 4) ++packets;
  }
  std::set<std::string> present;
  for (const auto& file : fs::directory_iterator(dir.path())) present.insert(file.path().filename().string());
  present.erase(std::string(kLogIndexFileName));
  EXPECT_EQ(named, present);
  EXPECT_GE(named.size(), 3u);  // 80 packets of 600+ bytes pass 4 KB many times
  // Each packet is a summary and a data block, each after a blank line.
  EXPECT_NE(run.err.find(std::to_string(packets / 2) + " packets, 0 dropped\n"), std::string::npos)
      << run.err;
}

}  // namespace
}  // namespace vormelt
