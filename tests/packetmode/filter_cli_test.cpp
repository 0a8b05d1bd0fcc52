// vormelt-cli packets --filter-profile: the profile reaches the filter (the filter's own rules are
// tested with FilterSettings), --match-case steers the texts, a bad profile stops the run.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "packetmode/filter_profile.hpp"
#include "support/frames.hpp"
#include "support/pcap_file.hpp"
#include "support/process.hpp"

namespace vormelt {
namespace {

TEST(FilterCli, ProfileAndMatchCaseDecideWhichRowsArePrinted) {
  test::TempDir dir;
  const std::string capture = dir.File("mixed.pcap"), profile = dir.File("p.HBFP");
  const test::Mac a{0, 1, 2, 3, 4, 5}, b{0, 1, 2, 3, 4, 6};
  test::Ipv4Header ip;
  test::WritePcap(capture, test::kLinkEthernet,
                  {test::EthernetFrame(b, a, 0x0800, test::UdpPacket(ip, 40001, 53, test::ToBytes("query"))),
                   test::EthernetFrame(b, a, 0x0800, test::TcpPacket(ip, {}, test::ToBytes("get /index"))),
                   test::EthernetFrame(b, a, 0x0806, test::ArpPacket({}))});
  FilterProfile get;
  get.values.mustContain = {"GET", "POST"};
  ASSERT_TRUE(SaveFilterProfile(get, profile).ok());
  const auto rows = [&](std::vector<std::string> extra) {
    std::vector<std::string> words{"packets", "--read", capture, "--filter-profile", profile};
    words.insert(words.end(), extra.begin(), extra.end());
    const test::ProcessRun run = test::RunCli(words);
    EXPECT_EQ(run.status, 0) << run.err;
    return std::count(run.out.begin(), run.out.end(), '\n');
  };
  // Case-blind, only the TCP row holds "get"; its row names the texts in force.
  EXPECT_EQ(rows({}), 1);
  EXPECT_NE(test::RunCli({"packets", "--read", capture, "--filter-profile", profile}).out.find("\tGET,POST\t"),
            std::string::npos);
  EXPECT_EQ(rows({"--match-case"}), 0);

  test::WritePcap(profile, test::kLinkEthernet, {});  // a pcap file is no profile
  EXPECT_EQ(test::RunCli({"packets", "--read", capture, "--filter-profile", profile}).status, 1);
  EXPECT_EQ(test::RunCli({"packets", "--read", capture, "--match-case"}).status, 2);
}

}  // namespace
}  // namespace vormelt
