// A capture saved as a dump file in each data form and loaded back is written out as a capture
// file equal to the original, frame for frame and byte for byte, as tcpdump reads both. Raw
// IPv4 captures come back as raw IPv4, Ethernet captures as Ethernet, in pcap and pcapng.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/frames.hpp"
#include "support/pcap_file.hpp"
#include "support/process.hpp"

namespace vormelt {
namespace {

using test::Bytes;
using test::RunCli;

std::vector<Bytes> NetworkPackets() {
  test::Ipv4Header ip;
  test::TcpHeader tcp;
  tcp.flags = test::kPsh | test::kAck;
  Bytes big(1460);
  for (std::size_t i = 0; i < big.size(); ++i) big[i] = static_cast<std::uint8_t>(i * 7);
  return {test::TcpPacket(ip, tcp, test::ToBytes("GET / HTTP/1.1\r\nHost: x\r\n\r\n")),
          test::TcpPacket(ip, tcp, big),
          test::UdpPacket(ip, 5353, 53, test::ToBytes(std::string_view("\0\r\n\x81\xe9", 5))),
          test::IcmpPacket(ip, 8, 0, Bytes(10, 0x61))};
}

std::string Hex(const std::string& capture) {
  int status = 0;
  const std::string text = test::ShellOutput("tcpdump -r '" + capture + "' -nn -t -xx 2>/dev/null", &status);
  EXPECT_EQ(status, 0) << capture;
  return text;
}

TEST(DumpRoundTrip, EveryFormGivesBackTheCaptureByteForByte) {
  if (!test::ToolAvailable("tcpdump")) GTEST_SKIP() << "tcpdump is not installed: no oracle";
  test::TempDir dir;
  std::vector<Bytes> ethernet, raw;
  for (const Bytes& packet : NetworkPackets()) {
    ethernet.push_back(test::EthernetFrame({2, 0, 0, 0, 0, 1}, {2, 0, 0, 0, 0, 2}, 0x0800, packet));
    raw.push_back(packet);
  }
  ethernet.push_back(test::EthernetFrame({0xff, 0xff, 0xff, 0xff, 0xff, 0xff}, {2, 0, 0, 0, 0, 2},
                                         0x0806, test::ArpPacket({})));
  test::WritePcap(dir.File("eth.pcap"), test::kLinkEthernet, ethernet);
  test::WritePcap(dir.File("raw.pcap"), test::kLinkRaw, raw);

  for (const char* source : {"eth.pcap", "raw.pcap"}) {
    const std::string original = Hex(dir.File(source));
    ASSERT_NE(original, "");
    for (const char* form : {"text", "dec", "hex", "hex+text"}) {
      const std::string dump = dir.File(std::string(form) + ".txt");
      auto run = RunCli({"packets", "--read", dir.File(source), "--save", dump, "--form", form});
      ASSERT_EQ(run.status, 0) << run.err;
      for (const char* out : {"back.pcap", "back.pcapng"}) {
        run = RunCli({"packets", "--load-dump", dump, "--form", form, "--write", dir.File(out)});
        ASSERT_EQ(run.status, 0) << run.err;
        EXPECT_EQ(Hex(dir.File(out)), original) << source << " " << form << " " << out;
      }
    }
  }
}

TEST(DumpRoundTrip, BadWordsExitTwoAndAnUnreadableDumpExitsOneAfterItsRows) {
  test::TempDir dir;
  EXPECT_EQ(RunCli({"packets", "--load-dump", dir.File("x.txt")}).status, 2);
  EXPECT_EQ(RunCli({"packets", "--read", "a.pcap", "--load-dump", "b.txt", "--form", "hex"}).status, 2);
  EXPECT_EQ(RunCli({"packets", "--read", "a.pcap", "--write", "out.txt"}).status, 2);
  EXPECT_EQ(RunCli({"stats", "--load-dump", "b.txt", "--form", "octal"}).status, 2);

  test::WritePcap(dir.File("in.pcap"), test::kLinkEthernet,
                  {test::EthernetFrame({}, {}, 0x0806, test::ArpPacket({})),
                   test::EthernetFrame({}, {}, 0x0806, test::ArpPacket({}))});
  ASSERT_EQ(RunCli({"packets", "--read", dir.File("in.pcap"), "--save", dir.File("d.txt"),
                    "--form", "dec"}).status, 0);
  // Cut inside the second record's data (the footer is about 260 bytes).
  const std::string cut = test::ShellOutput("head -c -360 '" + dir.File("d.txt") + "'");
  const auto run = RunCli({"packets", "--load-dump", "/dev/stdin", "--form", "dec"}, cut);
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(std::count(run.out.begin(), run.out.end(), '\n'), 1) << run.out;
  EXPECT_NE(run.err.find("unreadable record"), std::string::npos) << run.err;
  EXPECT_EQ(RunCli({"packets", "--load-dump", dir.File("none.txt"), "--form", "dec"}).status, 1);
}

}  // namespace
}  // namespace vormelt
