// Cross-checks decoding against tshark and rendering against tcpdump: generated packets of every
// kind go into a pcap; tshark's fields must match the decoder's, and the bytes vormelt-cli renders
// at Datalink level must match tcpdump -XX's hex dump, packet by packet.
#include <gtest/gtest.h>

#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "packets/decoder.hpp"
#include "packets/names.hpp"
#include "support/dual_stack.hpp"
#include "support/process.hpp"
#include "support/frames.hpp"
#include "support/pcap_file.hpp"

namespace vormelt {
namespace {

using test::Bytes;

constexpr std::size_t kPacketCount = 3000;
constexpr const char* kFields[] = {
    "ip.src", "ip.dst", "tcp.srcport", "tcp.dstport", "udp.srcport", "udp.dstport", "ip.ttl",
    "ip.checksum", "tcp.seq_raw", "tcp.ack_raw", "tcp.window_size_value", "tcp.flags",
    "icmp.type", "icmp.code", "arp.src.proto_ipv4", "arp.dst.proto_ipv4", "frame.len"};
enum Column { IpSrc, IpDst, TcpSrc, TcpDst, UdpSrc, UdpDst, Ttl, Checksum, Seq, Ack, Window, Flags,
              IcmpType, IcmpCode, ArpSrc, ArpDst, FrameLen, ColumnCount };

std::vector<Bytes> MixedFrames() {
  std::mt19937 rng(7);
  const auto byte = [&] { return static_cast<std::uint8_t>(rng()); };
  std::vector<Bytes> frames;
  for (std::size_t i = 0; i < kPacketCount; ++i) {
    test::Ipv4Header ip;
    ip.source = {10, byte(), byte(), byte()};
    ip.destination = {172, 16, byte(), byte()};
    ip.ttl = byte();
    if (i % 5 == 0) ip.options = Bytes(4 * (1 + rng() % 3), 0x01);  // NOPs: IHL 6..8
    const Bytes payload(rng() % 64, byte());
    switch (i % 4) {
      case 0: {
        test::TcpHeader tcp;
        tcp.sourcePort = static_cast<std::uint16_t>(rng());
        tcp.destinationPort = static_cast<std::uint16_t>(rng() % 2 ? 80 : rng());
        tcp.sequence = static_cast<std::uint32_t>(rng());
        tcp.acknowledgement = static_cast<std::uint32_t>(rng());
        tcp.flags = byte() & 0x3F;
        tcp.window = static_cast<std::uint16_t>(rng());
        if (i % 3 == 0) tcp.options = Bytes(4 * (1 + rng() % 5), 0x01);
        frames.push_back(test::RawSocketsFrame(test::TcpPacket(ip, tcp, payload)));
        break;
      }
      case 1:
        frames.push_back(test::RawSocketsFrame(test::UdpPacket(
            ip, static_cast<std::uint16_t>(rng() % 2 ? 53 : rng()), static_cast<std::uint16_t>(rng()), payload)));
        break;
      case 2: frames.push_back(test::RawSocketsFrame(test::IcmpPacket(ip, rng() % 2 ? 8 : 0, 0, payload))); break;
      default: {
        test::ArpFields arp;
        arp.operation = 1 + rng() % 2;
        arp.senderIp = {192, 168, byte(), byte()};
        arp.targetIp = {192, 168, byte(), byte()};
        frames.push_back(test::EthernetFrame({0xff, 0xff, 0xff, 0xff, 0xff, 0xff}, arp.senderMac,
                                             kEtherTypeArp, test::ArpPacket(arp)));
        break;
      }
    }
  }
  return frames;
}

// One line of tshark fields per packet, split at tabs.
std::vector<std::vector<std::string>> TsharkFields(const std::string& pcap) {
  std::string command = "tshark -n -r '" + pcap + "' -T fields -E occurrence=f";
  for (const char* field : kFields) command += std::string(" -e ") + field;
  std::vector<std::vector<std::string>> rows;
  std::istringstream lines(test::ShellOutput(command + " 2>/dev/null"));
  for (std::string line; std::getline(lines, line);) {
    std::istringstream fields(line);  // frame.len, the last field, is never empty
    rows.emplace_back();
    for (std::string field; std::getline(fields, field, '\t');) rows.back().push_back(field);
  }
  return rows;
}

// tshark prints some numbers in hex ("0x1a2b"); compare values, not spellings.
std::string Decimal(const std::string& text) {
  return text.empty() ? text : std::to_string(std::stoul(text, nullptr, 0));
}

TEST(TsharkCrossCheck, DecoderAgreesOnEveryField) {
  if (!test::ToolAvailable("tshark")) GTEST_SKIP() << "tshark is not installed; cannot cross-check the decoder";
  test::TempDir dir;
  const std::string pcap = dir.File("mixed.pcap");
  const std::vector<Bytes> frames = MixedFrames();
  test::WritePcap(pcap, test::kLinkEthernet, frames);
  const auto rows = TsharkFields(pcap);
  ASSERT_EQ(rows.size(), frames.size()) << "tshark did not read every packet";

  for (std::size_t i = 0; i < frames.size(); ++i) {
    SCOPED_TRACE("packet " + std::to_string(i + 1));
    const auto& t = rows[i];
    ASSERT_EQ(t.size(), static_cast<std::size_t>(ColumnCount));
    const RecordBuffer record(frames[i], InterfaceKind::RawSockets);
    const PacketDetails d = DecodePacket(record.ref(), UiLanguage::English, DataLevel::Datalink, "", "");
    EXPECT_EQ(d.packetSize, t[FrameLen]);
    if (d.etherType == kEtherTypeArp) {
      EXPECT_EQ(d.sourceIp, t[ArpSrc]);
      EXPECT_EQ(d.destinationIp, t[ArpDst]);
      continue;
    }
    EXPECT_EQ(d.sourceIp, t[IpSrc]);
    EXPECT_EQ(d.destinationIp, t[IpDst]);
    EXPECT_EQ(d.ttl, t[Ttl]);
    EXPECT_EQ(d.checksum, Decimal(t[Checksum]));
    const bool tcp = d.ipProtocol == kProtocolTcp;
    EXPECT_EQ(d.sourcePort, tcp ? t[TcpSrc] : t[UdpSrc]);
    EXPECT_EQ(d.destinationPort, tcp ? t[TcpDst] : t[UdpDst]);
    EXPECT_EQ(d.sequence, t[Seq]);
    EXPECT_EQ(d.acknowledgement, t[Ack]);
    EXPECT_EQ(d.window, t[Window]);
    if (tcp) {
      // Flags below 0x40 peel to exactly the bits tshark reports.
      const unsigned bits = std::stoul(t[Flags], nullptr, 0);
      const TcpFlagsShown expected{(bits & 0x20) != 0, (bits & 0x10) != 0, (bits & 0x08) != 0,
                                   (bits & 0x04) != 0, (bits & 0x02) != 0, (bits & 0x01) != 0};
      EXPECT_EQ(d.flags, expected);
    }
    if (d.ipProtocol == kProtocolIcmp) {
      EXPECT_EQ(d.icmpType.substr(0, d.icmpType.find(' ')), t[IcmpType]);
      EXPECT_EQ(d.icmpCode.substr(0, d.icmpCode.find(' ')), t[IcmpCode]);
    }
  }
}

// Real loopback traffic of both families: every row vormelt-cli lists has tshark's type, size,
// addresses and ports (tshark also reads the ports quoted inside an ICMP error; the list not).
TEST(TsharkCrossCheck, ListRowsOfDualStackTrafficAgree) {
  std::string why;
  const std::string pcap = test::ToolAvailable("tshark") ? test::DualStackCapture(why) : "";
  if (pcap.empty()) GTEST_SKIP() << "no tshark, or " << why;
  std::istringstream ours(test::RunCli({"packets", "--read", pcap}).out);
  std::istringstream theirs(test::ShellOutput(
      "tshark -n -r '" + pcap + "' -T fields -E occurrence=f -e frame.len -e ip.src -e ipv6.src "
      "-e ip.dst -e ipv6.dst -e tcp.srcport -e udp.srcport -e tcp.dstport -e udp.dstport "
      "-e ip.proto -e ipv6.nxt 2>/dev/null"));
  std::size_t rows = 0, v6 = 0;
  for (std::string row, line; std::getline(theirs, line); ++rows) {
    std::vector<std::string> t;
    std::istringstream fields(line + "\t");
    for (std::string field; std::getline(fields, field, '\t');) t.push_back(field);
    ASSERT_EQ(t.size(), 11u) << line;
    const bool ipv6 = t[1].empty();
    v6 += ipv6;
    const auto protocol = static_cast<std::uint8_t>(std::stoul(ipv6 ? t[10] : t[9]));
    const bool ports = protocol == kProtocolTcp || protocol == kProtocolUdp;
    const std::string expected =
        std::string(ipv6 ? names::Ipv6ProtocolName(protocol) : names::ProtocolName(protocol)) +
        "\t" + t[0] + "\t" + t[1] + t[2] + "\t" + t[3] + t[4] + "\t" +
        (ports ? t[5] + t[6] + "\t" + t[7] + t[8] : "\t") + "\t";
    ASSERT_TRUE(std::getline(ours, row));
    EXPECT_EQ(row.substr(0, expected.size()), expected) << "packet " << rows + 1;
  }
  EXPECT_FALSE(std::getline(ours, why)) << "more rows than tshark's";
  EXPECT_TRUE(v6 > 0 && v6 < rows) << v6 << " of " << rows;
}

// Packets as lists of bytes, from tcpdump -XX ("\t0x0010:  4500 0028 ...  text") or from
// vormelt-cli's Hex rendering (a summary line holding "[", then lines of "XX " values).
std::vector<Bytes> TcpdumpBytes(const std::string& text) {
  std::vector<Bytes> packets;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    if (line.rfind("\t0x", 0) != 0) {
      packets.emplace_back();
      continue;
    }
    // The hex groups sit between the offset and the two blanks before the text column.
    const std::size_t start = line.find(':') + 3;
    std::istringstream groups(line.substr(start, line.find("  ", start) - start));
    for (std::string group; groups >> group;) {
      for (std::size_t i = 0; i + 1 < group.size(); i += 2) {
        packets.back().push_back(static_cast<std::uint8_t>(std::stoul(group.substr(i, 2), nullptr, 16)));
      }
    }
  }
  return packets;
}

std::vector<Bytes> RenderedBytes(const std::string& text) {
  std::vector<Bytes> packets;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    if (line.find('[') != std::string::npos) {
      packets.emplace_back();
      continue;
    }
    std::istringstream values(line);
    for (std::string value; values >> value;) {
      packets.back().push_back(static_cast<std::uint8_t>(std::stoul(value, nullptr, 16)));
    }
  }
  return packets;
}

TEST(TcpdumpCrossCheck, CliRendersTheSameBytesAtDatalinkLevel) {
  if (!test::ToolAvailable("tcpdump")) GTEST_SKIP() << "tcpdump is not installed; cannot cross-check rendering";
  test::TempDir dir;
  const std::string pcap = dir.File("mixed.pcap");
  std::vector<Bytes> frames = MixedFrames();
  frames.resize(400);
  test::WritePcap(pcap, test::kLinkEthernet, frames);
  const auto ours = RenderedBytes(test::ShellOutput(std::string(VORMELT_CLI_PATH) + " packets --read '" +
                                         pcap + "' --render hex --level datalink 2>/dev/null"));
  const auto theirs = TcpdumpBytes(test::ShellOutput("tcpdump -nn -XX -r '" + pcap + "' 2>/dev/null"));
  ASSERT_TRUE(ours.size() == frames.size() && theirs.size() == frames.size()) << ours.size();
  for (std::size_t i = 0; i < frames.size(); ++i) {
    EXPECT_EQ(ours[i], frames[i]) << "packet " << i + 1;
    EXPECT_EQ(ours[i], theirs[i]) << "packet " << i + 1;
  }
}

}  // namespace
}  // namespace vormelt
