// vormelt-cli packets as a user runs it: rows with the time their file recorded, the count on
// stderr, one-line errors with their exit status, and a clean end on SIGINT. That every packet
// gets its row is checked against tcpdump in tshark_crosscheck_test.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "capture/source.hpp"
#include "support/frames.hpp"
#include "support/pcap_file.hpp"
#include "support/process.hpp"

namespace vormelt {
namespace {

using test::Bytes;
using test::RunCli;

std::vector<std::string> Split(const std::string& text, char separator) {
  std::vector<std::string> parts;
  std::string part;
  std::istringstream stream(text);
  while (std::getline(stream, part, separator)) parts.push_back(part);
  if (!text.empty() && text.back() == separator && separator == '\t') parts.push_back("");
  return parts;
}

// Rows carry the time the file recorded, in local time: µs and ns pcap and pcapng alike.
TEST(CliPackets, RowsShowEachPacketsCaptureTimeFromTheFile) {
  if (!test::ToolAvailable("editcap")) GTEST_SKIP() << "editcap is not installed: no pcapng file";
  test::TempDir dir;
  const Bytes frame = test::EthernetFrame({}, {}, 0x0800, test::UdpPacket({}, 53, 53, {}));
  // 1700000000 is 2023-11-14 22:13:20 UTC; the zone below is five and a half hours ahead.
  const std::pair<std::uint32_t, std::uint32_t> times[] = {{1700000000, 123456}, {1699999999, 999999}};
  for (const bool nano : {false, true}) {
    test::PcapFileWriter writer(dir.File(nano ? "ns.pcap" : "us.pcap"), test::kLinkEthernet, 65535, nano);
    for (const auto& [seconds, micro] : times) writer.Write(frame, seconds, nano ? micro * 1000 + 999 : micro);
  }
  ASSERT_EQ(std::system(("editcap -F pcapng '" + dir.File("ns.pcap") + "' '" + dir.File("ng") + "'").c_str()), 0);
  setenv("TZ", "XST-5:30", 1);
  for (const char* file : {"us.pcap", "ns.pcap", "ng"}) {
    const auto run = RunCli({"packets", "--read", dir.File(file)});
    ASSERT_EQ(run.status, 0) << run.err;
    const auto lines = Split(run.out, '\n');
    ASSERT_EQ(lines.size(), 2u) << file;
    EXPECT_EQ(run.err, "2 packets, 0 dropped\n");
    EXPECT_EQ(Split(lines[0], '\t').size(), 11u) << lines[0];
    EXPECT_EQ(Split(lines[0], '\t')[6], "2023.11.15 - 03:43:20.123") << file;
    EXPECT_EQ(Split(lines[1], '\t')[6], "2023.11.15 - 03:43:19.999") << file;
  }
  unsetenv("TZ");
}

TEST(CliPackets, ErrorsAreOneLineWithAFailingStatus) {
  const auto run = RunCli({"packets", "--live", "192.0.2.77"});  // documentation address: on no interface
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err.rfind("vormelt-cli: Unable to listen on the interface: 192.0.2.77 ", 0), 0u) << run.err;
  EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1);
  EXPECT_EQ(RunCli({"packets", "--read", "a", "--live", "127.0.0.1"}).status, 2);
}

TEST(CliPacketsLive, CountsPingRowsAndEndsCleanlyOnSigint) {
  const OpenResult probe = OpenSource(CaptureTarget::Address("127.0.0.1"));
  if (const auto* failure = std::get_if<CaptureMessage>(&probe)) {
    GTEST_SKIP() << "cannot capture on loopback here (needs root or cap_net_raw,cap_net_admin): "
                 << FormatMessage(*failure, UiLanguage::English);
  }
  std::thread ping([] { std::system("ping -c 12 -i 0.2 127.0.0.1 >/dev/null 2>&1"); });
  const auto counted = RunCli({"packets", "--live", "127.0.0.1", "--count", "5"});
  EXPECT_EQ(Split(counted.out, '\n').size(), 5u) << counted.out;
  EXPECT_EQ(counted.err, "5 packets, 0 dropped\n");

  const auto interrupted = RunCli({"packets", "--live", "127.0.0.1"}, {}, std::chrono::milliseconds(800));
  ping.join();
  const auto rows = Split(interrupted.out, '\n');
  EXPECT_GE(rows.size(), 2u);  // pings went on after the counted run
  EXPECT_EQ(interrupted.err, std::to_string(rows.size()) + " packets, 0 dropped\n");
}

}  // namespace
}  // namespace vormelt
