// Packets per address and per address pair, counted by vormelt-cli stats from a generated
// capture, against tshark's endpoint and conversation tables of the same file. The capture has
// fewer addresses than a list holds, so nothing is replaced and the totals must agree exactly.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "common/ip_address.hpp"
#include "support/dual_stack.hpp"
#include "support/frames.hpp"
#include "support/pcap_file.hpp"
#include "support/process.hpp"

namespace vormelt {
namespace {

using test::Bytes;
using Counts = std::map<std::string, long>;

// TCP (some padded past their total length), UDP, ICMP echo, and ARP frames that
// neither side may count. No packet goes from an address to itself, and no ICMP error carries
// a second IP header, which tshark would count as well.
void WriteCapture(const std::string& path) {
  std::mt19937 random(11);
  test::PcapFileWriter writer(path, test::kLinkEthernet);
  const test::Mac mac{0, 1, 2, 3, 4, 5};
  for (int i = 0; i < 20000; ++i) {
    test::Ipv4Header ip;
    // 1,500 hosts with at most two peers each: both records of every pair fit in a list.
    const unsigned host = random() % 1500;
    ip.source = {10, static_cast<std::uint8_t>(host / 250), static_cast<std::uint8_t>(host % 250), 1};
    ip.destination = {172, 16, 0, static_cast<std::uint8_t>(host % 2 + random() % 2)};
    if (random() % 2) std::swap(ip.source, ip.destination);
    const Bytes payload(random() % 300, 'p');
    Bytes packet;
    switch (random() % 5) {
      case 0: packet = test::UdpPacket(ip, 5353, 53, payload); break;
      case 1: packet = test::IcmpPacket(ip, 8, 0, payload); break;
      case 2: packet = test::ArpPacket({}); break;
      default: packet = test::TcpPacket(ip, {}, payload);
    }
    Bytes frame = test::EthernetFrame(mac, mac, packet.size() == 28 ? 0x0806 : 0x0800, packet);
    if (random() % 7 == 0) frame.resize(frame.size() + 20, 0);
    writer.Write(frame, 1700000000, static_cast<std::uint32_t>(i));
  }
}

// "10.0.0.1,..,..,..,..,..,7" -> first column: last column.
Counts FromCsv(const std::string& csv, bool pairs) {
  Counts counts;
  std::istringstream lines(csv);
  std::string line;
  for (std::getline(lines, line) /* headings */; std::getline(lines, line);) {
    const std::string key = line.substr(0, line.find(','));
    counts[pairs ? key.substr(0, key.find(" - ")) + "|" + key.substr(key.find(" - ") + 3) : key] =
        std::stol(line.substr(line.rfind(',') + 1));
  }
  return counts;
}

// Endpoints: "ADDRESS PACKETS BYTES ..."; conversations: "A <-> B f b bytes f b bytes TOTAL ...",
// one line for both directions of a pair.
void FromTshark(const std::string& text, Counts& addresses, Counts& pairs) {
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    std::vector<std::string> w;
    for (std::string word; words >> word;) w.push_back(word);
    if (w.size() > 9 && w[1] == "<->") {
      pairs[w[0] + "|" + w[2]] = pairs[w[2] + "|" + w[0]] = std::stol(w[9]);
    } else if (w.size() >= 3 && std::count(w[0].begin(), w[0].end(), '.') == 3 &&
               std::isdigit(static_cast<unsigned char>(w[1][0]))) {
      addresses[w[0]] = std::stol(w[1]);
    }
  }
}

TEST(StatisticsCrossCheck, PacketsPerAddressAndPairAgreeWithTshark) {
  if (!test::ToolAvailable("tshark")) GTEST_SKIP() << "tshark is not installed; no oracle";
  test::TempDir dir;
  const std::string capture = dir.File("mixed.pcap");
  WriteCapture(capture);
  Counts ours[2];
  for (const bool pairs : {false, true}) {
    const test::ProcessRun run = test::RunCli({"stats", "--read", capture, "--local", "127.0.0.1",
                                               "--table", pairs ? "pairs" : "ip", "--format", "csv"});
    ASSERT_EQ(run.status, 0) << run.err;
    ours[pairs] = FromCsv(run.out, pairs);
  }
  Counts addresses, pairs;
  FromTshark(test::ShellOutput("tshark -r '" + capture + "' -q -z endpoints,ip -z conv,ip 2>/dev/null"),
             addresses, pairs);
  ASSERT_GT(addresses.size(), 1000u);
  ASSERT_TRUE(pairs.size() > 2000u && pairs.size() < 8192u) << pairs.size();
  EXPECT_EQ(ours[0], addresses);
  EXPECT_EQ(ours[1], pairs);
}

// Real dual-stack traffic: every address's packets and bytes against tshark's IPv6 and IPv4
// endpoint tables together.
TEST(StatisticsCrossCheck, BothFamiliesAgreeWithTsharkInPacketsAndBytes) {
  if (!test::ToolAvailable("tshark")) GTEST_SKIP() << "tshark is not installed; no oracle";
  std::string why;
  const std::string capture = test::DualStackCapture(why);
  if (capture.empty()) GTEST_SKIP() << why;
  const test::ProcessRun run =
      test::RunCli({"stats", "--read", capture, "--table", "ip", "--format", "csv"});
  ASSERT_EQ(run.status, 0) << run.err;
  std::map<std::string, std::string> ours, theirs;  // address -> "packets bytes"
  std::string csv = run.out, line, address, to, from, bytes, packets;
  std::replace(csv.begin(), csv.end(), ',', ' ');
  std::istringstream rows(csv);
  for (std::getline(rows, line); rows >> address >> to >> from >> bytes >> to >> from >> packets;) {
    ours[address] = packets + " " + bytes;
  }
  std::istringstream table(test::ShellOutput(
      "tshark -r '" + capture + "' -q -z endpoints,ipv6 -z endpoints,ip 2>/dev/null"));
  while (std::getline(table, line)) {
    std::istringstream words(line);
    if (words >> address >> packets >> bytes && IpAddress::Parse(address)) {
      theirs[address] = packets + " " + bytes;
    }
  }
  EXPECT_TRUE(theirs.contains("::1") && theirs.contains("127.0.0.1"));
  EXPECT_EQ(ours, theirs);
}

}  // namespace
}  // namespace vormelt
