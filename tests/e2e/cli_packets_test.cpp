// vormelt-cli packets as a user runs it: rows with the time their file recorded, the count on
// stderr, one-line errors with their exit status, and a clean end on SIGINT. That every packet
// gets its row is checked against tcpdump in tshark_crosscheck_test.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
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

// The store takes 1,000,001 packets: the command says how many more the file held and fails,
// yet writes out what it took. Only Packet Mode has the limit: stats counts every packet.
TEST(CliPackets, TheStoreLimitIsSaidWithThePacketsNotTaken) {
  test::TempDir dir;
  const Bytes frame = test::EthernetFrame({}, {}, 0x0800, test::UdpPacket({}, 53, 53, {}));
  {
    test::PcapFileWriter writer(dir.File("big.pcap"), test::kLinkEthernet);
    for (int i = 0; i < 1'200'000; ++i) writer.Write(frame);
  }
  // --find keeps the million rows off stdout; the store holds them all the same.
  const auto run = RunCli({"packets", "--read", dir.File("big.pcap"), "--find", "absent",
                           "--write", dir.File("out.pcap")});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err, "vormelt-cli: The item limit of 1000001 packets has been reached. Packets "
                     "not taken: 199999\n0 packets, 0 dropped\n");
  EXPECT_EQ(std::filesystem::file_size(dir.File("out.pcap")), 24 + 1'000'001 * (16 + frame.size()));
  const auto stats = RunCli({"stats", "--read", dir.File("big.pcap"), "--table", "ip"});
  EXPECT_NE(stats.out.find("\t1200000\t0\t1200000\n"), std::string::npos) << stats.out;
}

// A raw IP file carries IPv6 as well: its packets list as an IPv6 file's do, and what is
// neither IPv4 nor IPv6 is counted on stderr rather than dropped without a word.
TEST(CliPackets, ARawIpFileReadsIpv6AsAnIpv6FileDoes) {
  test::TempDir dir;
  const Bytes ipv6 = {0x60, 0, 0, 0, 0, 0, 59, 64, 0xfe, 0x80, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14,
                      0xfe, 0x80, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 15};
  const Bytes ipv4 = test::UdpPacket({}, 53, 53, {});
  test::WritePcap(dir.File("raw.pcap"), test::kLinkRaw, {ipv4, ipv6, Bytes(30, 0x50)});
  test::WritePcap(dir.File("ipv6.pcap"), 229, {ipv6});
  const auto raw = RunCli({"packets", "--read", dir.File("raw.pcap")});
  const auto six = RunCli({"packets", "--read", dir.File("ipv6.pcap")});
  EXPECT_EQ(raw.status, 0);
  EXPECT_EQ(raw.err, "vormelt-cli: Packets skipped because they are neither IPv4 nor IPv6: 1\n"
                     "2 packets, 0 dropped\n");
  const auto rows = Split(raw.out, '\n');
  ASSERT_EQ(rows.size(), 2u) << raw.out;
  EXPECT_EQ(Split(rows[0], '\t')[0], "UDP");
  EXPECT_EQ(rows[1] + "\n", six.out);
}

// SIGTERM while the packets are being saved ends the save after the batch in hand: the dump is
// whole (its footer counts what it holds) and the command says so; it is never killed. The
// signal is sent once the capture's summary is out, so it lands in the save or after it, and
// the test holds for either.
TEST(CliPackets, SigtermDuringSaveLeavesAWholeDumpAndSaysSo) {
  test::TempDir dir;
  const Bytes frame = test::EthernetFrame({}, {}, 0x0800, test::UdpPacket({}, 53, 53, Bytes(200, 7)));
  {
    test::PcapFileWriter writer(dir.File("in.pcap"), test::kLinkEthernet);
    for (int i = 0; i < 200'000; ++i) writer.Write(frame);
  }
  const std::string dump = dir.File("dump.txt");
  const auto run = test::RunCliSignalledAfter({"packets", "--read", dir.File("in.pcap"), "--find",
                                               "absent", "--save", dump, "--form", "hex"},
                                              " dropped\n", SIGTERM);
  ASSERT_NE(run.status, -1) << "killed by the signal: " << run.err;
  const std::string text = test::ShellOutput("tail -c 60 '" + dump + "'");
  const std::size_t mark = run.err.find("Saving was stopped. Packets saved: ");
  const std::string saved = mark == std::string::npos ? "200000" : run.err.substr(mark + 35, run.err.size() - mark - 36);
  EXPECT_EQ(run.status, mark == std::string::npos ? 0 : 1) << run.err;
  EXPECT_NE(text.find("\r\n" + saved + " Packets listed in "), std::string::npos) << text << run.err;
  EXPECT_FALSE(std::filesystem::exists(dir.File(".dump.txt.part")));
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
