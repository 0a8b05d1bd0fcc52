// vormelt-cli packets --filter-profile: a capture file read through a saved profile keeps
// exactly the packets the profile allows, and the kept rows name the text filters in force.
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "packetmode/filter_profile.hpp"
#include "support/frames.hpp"
#include "support/pcap_file.hpp"
#include "support/process.hpp"

namespace vormelt {
namespace {

using test::Bytes;
using test::ToBytes;

struct CliRun {
  int status = -1;
  std::vector<std::string> rows;
};

// Runs "vormelt-cli packets" with blank-separated `arguments`; each row is one stored packet.
CliRun RunCli(const std::string& arguments) {
  std::vector<std::string> words{"packets"};
  std::istringstream split(arguments);
  for (std::string word; split >> word;) words.push_back(word);
  const test::ProcessRun process = test::RunCli(std::move(words));
  CliRun run{process.status, {}};
  std::istringstream lines(process.out);
  for (std::string line; std::getline(lines, line);) run.rows.push_back(line);
  return run;
}

std::vector<std::string> Columns(const std::string& row) {
  std::vector<std::string> columns;
  std::size_t start = 0;
  for (std::size_t tab; (tab = row.find('\t', start)) != std::string::npos; start = tab + 1) {
    columns.push_back(row.substr(start, tab - start));
  }
  columns.push_back(row.substr(start));
  return columns;
}

class FilterCli : public ::testing::Test {
 protected:
  void SetUp() override {
    const test::Mac a{0, 1, 2, 3, 4, 5}, b{0, 1, 2, 3, 4, 6};
    const auto ether = [&](const Bytes& ip) { return test::EthernetFrame(b, a, 0x0800, ip); };
    test::Ipv4Header ip;
    test::TcpHeader http;
    test::Ipv4Header ping;
    ping.protocol = 1;
    test::WritePcap(capture_, test::kLinkEthernet,
                    {ether(test::UdpPacket(ip, 40001, 53, ToBytes("query one"))),
                     ether(test::UdpPacket(ip, 53, 40001, ToBytes("answer"))),
                     ether(test::TcpPacket(ip, http, ToBytes("get /index.html"))),
                     ether(test::UdpPacket(ip, 40002, 53, ToBytes("query two"))),
                     ether(test::IcmpPacket(ping, 8, 0, ToBytes("ping"))),
                     test::EthernetFrame(b, a, 0x0806, test::ArpPacket({}))});
  }

  std::string Profile(const FilterValues& values) {
    const std::string file = dir_.File("p" + std::to_string(++profiles_) + ".HBFP");
    FilterProfile profile;
    profile.values = values;
    EXPECT_TRUE(SaveFilterProfile(profile, file).ok());
    return file;
  }

  test::TempDir dir_;
  std::string capture_ = dir_.File("mixed.pcap");
  int profiles_ = 0;
};

TEST_F(FilterCli, DestinationPortKeepsOnlyTheQueries) {
  ASSERT_EQ(RunCli("--read " + capture_).rows.size(), 6u);

  FilterValues dns;
  dns.destPorts = {53};
  dns.allowIcmp = dns.allowArp = dns.allowOther = false;
  const CliRun run = RunCli("--read " + capture_ + " --filter-profile " + Profile(dns));
  EXPECT_EQ(run.status, 0);
  ASSERT_EQ(run.rows.size(), 2u);
  for (const std::string& row : run.rows) {
    const std::vector<std::string> columns = Columns(row);
    ASSERT_GT(columns.size(), 5u) << row;
    EXPECT_EQ(columns[0], "UDP");
    EXPECT_EQ(columns[5], "53");
  }
}

TEST_F(FilterCli, TextFiltersFollowMatchCaseAndFillTheirColumns) {
  FilterValues get;
  get.mustContain = {"GET", "POST"};
  const std::string profile = Profile(get);
  const CliRun loose = RunCli("--read " + capture_ + " --filter-profile " + profile);
  ASSERT_EQ(loose.rows.size(), 1u);
  const std::vector<std::string> columns = Columns(loose.rows[0]);
  ASSERT_GT(columns.size(), 8u);
  EXPECT_EQ(columns[0], "TCP");
  EXPECT_EQ(columns[7], "GET,POST");
  EXPECT_EQ(columns[8], "");

  const CliRun strict = RunCli("--read " + capture_ + " --filter-profile " + profile + " --match-case");
  EXPECT_EQ(strict.status, 0);
  EXPECT_TRUE(strict.rows.empty());
}

TEST_F(FilterCli, UnreadableProfileFailsBeforeReading) {
  const std::string bad = dir_.File("bad.HBFP");
  test::WritePcap(bad, test::kLinkEthernet, {});  // a pcap file is no profile
  EXPECT_EQ((RunCli("--read " + capture_ + " --filter-profile " + bad).status), 1);
  EXPECT_EQ((RunCli("--read " + capture_ + " --match-case").status), 2);
}

}  // namespace
}  // namespace vormelt
