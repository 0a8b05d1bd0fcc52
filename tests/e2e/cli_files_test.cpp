// vormelt-cli files against a real HTTP server on loopback: Content-Length, chunked, gzip and
// close-delimited bodies fetched with curl must come out byte for byte, live and from
// tcpdump's capture of the same traffic, and a 206 or a 404 must write nothing. The scenario
// lives in files_loopback.py beside this file; this wraps it and reports why it could not run.
#include <gtest/gtest.h>

#include <string>

#include "support/pcap_file.hpp"
#include "support/process.hpp"

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

TEST(CliFiles, BadCommandLinesAndUnreadableSources) {
  EXPECT_EQ(test::RunCli({"files", "--read", "x.pcap"}).status, 2);  // no --out
  EXPECT_EQ(test::RunCli({"files", "--out", "d"}).status, 2);
  EXPECT_EQ(test::RunCli({"files", "--read", "x", "--out", "d", "--subdirs", "sip,up"}).status, 2);
  test::TempDir dir;
  const test::ProcessRun missing = test::RunCli({"files", "--read", dir.File("none.pcap"), "--out", dir.path()});
  EXPECT_EQ(missing.status, 1);
  EXPECT_NE(missing.err.find("none.pcap"), std::string::npos) << missing.err;
}

}  // namespace
}  // namespace vormelt
