// vormelt-cli files against a real HTTP server on loopback: Content-Length, chunked, gzip and
// close-delimited bodies fetched with curl must come out byte for byte, live and from
// tcpdump's capture of the same traffic, and a 206 or a 404 must write nothing. The scenario
// lives in files_loopback.py beside this file; this wraps it and reports why it could not run.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "support/pcap_file.hpp"
#include "support/process.hpp"
#include "support/small_disk.hpp"
#include "support/tcp_stream.hpp"

namespace vormelt {
namespace {

constexpr int kCannotRunHere = 77;

TEST(CliFiles, LoopbackHttpBodiesComeOutWholeLiveAndFromTcpdump) {
  for (const char* tool : {"tcpdump", "curl"}) {
    if (!test::ToolAvailable(tool)) GTEST_SKIP() << tool << " is not installed";
  }
  test::TempDir dir;
  const test::ProcessRun run = test::RunProgram(
      {"/usr/bin/env", "python3", VORMELT_SOURCE_DIR "/tests/e2e/files_loopback.py",
       VORMELT_CLI_PATH, dir.path()});
  if (run.status == kCannotRunHere) GTEST_SKIP() << run.out;
  EXPECT_EQ(run.status, 0) << run.out << run.err;
}

// A body too big for the disk is a failure with its reason, on stderr and in the manifest, and
// the run ends with status 1; the one that fits after it is written.
TEST(CliFiles, AFullDiskFailsTheBodiesThatDoNotFitAndSaysSo) {
  test::SmallDisk disk(256 << 10);
  VORMELT_REQUIRE_SMALL_DISK(disk);
  test::TempDir dir;
  std::size_t packets = 0;
  {
    test::PcapFileWriter pcap(dir.File("web.pcap"), test::kLinkRaw);
    for (const std::size_t size : {400'000, 3'000}) {
      test::ResponseFlow flow;
      flow.ack = static_cast<std::uint32_t>(size);
      flow.segmentSize = 60000;
      const std::string response = "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(size) +
                                   "\r\n\r\n" + std::string(size, 'b');
      for (const auto& packet : test::ResponseSegments(response, flow)) {
        pcap.Write(packet);
        ++packets;
      }
    }
  }
  const std::string out = disk.path().string() + "/made/here";
  const test::ProcessRun run = test::RunCli({"files", "--read", dir.File("web.pcap"), "--out", out,
                                             "--template", "%FCS", "--manifest", dir.File("m.jsonl")});
  EXPECT_EQ(run.status, 1);
  EXPECT_NE(run.err.find("/made/here/0.txt (No space left on device)"), std::string::npos) << run.err;
  EXPECT_NE(run.err.find("1 files written, 1 failed"), std::string::npos) << run.err;
  EXPECT_NE(run.err.find("\n" + std::to_string(packets) + " packets, 0 dropped\n"), std::string::npos) << run.err;
  EXPECT_EQ(run.out, out + "/0.txt\t3000\t\n");
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(out)) names.push_back(entry.path().filename());
  EXPECT_EQ(names, std::vector<std::string>{"0.txt"});
  std::ifstream manifest(dir.File("m.jsonl"));
  std::string failed, written;
  std::getline(manifest, failed);
  std::getline(manifest, written);
  EXPECT_NE(failed.find(R"("complete":false)"), std::string::npos) << failed;
  EXPECT_NE(failed.find(R"("error":"No space left on device")"), std::string::npos) << failed;
  EXPECT_NE(written.find(R"("complete":true)"), std::string::npos) << written;
}

TEST(CliFiles, BadCommandLinesAndUnreadableSources) {
  EXPECT_EQ(test::RunCli({"files", "--read", "x.pcap"}).status, 2);  // no --out
  EXPECT_EQ(test::RunCli({"files", "--out", "d"}).status, 2);
  EXPECT_EQ(test::RunCli({"files", "--read", "x", "--out", "d", "--subdirs", "sip,up"}).status, 2);
  test::TempDir dir;
  const test::ProcessRun missing = test::RunCli({"files", "--read", dir.File("none.pcap"), "--out", dir.path()});
  EXPECT_EQ(missing.status, 1);
  EXPECT_NE(missing.err.find("none.pcap"), std::string::npos) << missing.err;
  std::ofstream(dir.File("plain")) << "a file, not a folder";
  const test::ProcessRun noFolder =
      test::RunCli({"files", "--read", dir.File("none.pcap"), "--out", dir.File("plain/out")});
  EXPECT_EQ(noFolder.status, 1);
  EXPECT_NE(noFolder.err.find("cannot create the folder " + dir.File("plain/out") + ": Not a directory"),
            std::string::npos) << noFolder.err;
}

}  // namespace
}  // namespace vormelt
