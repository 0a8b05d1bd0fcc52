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
