// Detail-pane decoding corner cases: TCP flag peeling and the data levels each transport
// protocol gives. Example packets through the pane: list_row_test.
#include "packets/decoder.hpp"

#include <gtest/gtest.h>

#include <string>

#include "support/frames.hpp"

namespace vormelt {
namespace {

using test::Bytes;

constexpr UiLanguage kEn = UiLanguage::English;

RecordBuffer Raw(const Bytes& ip) {
  return RecordBuffer(test::RawSocketsFrame(ip), InterfaceKind::RawSockets, "t");
}

RecordBuffer Tcp(std::uint8_t flags, Bytes ipOptions = {}, Bytes tcpOptions = {}) {
  test::Ipv4Header ip;
  ip.options = std::move(ipOptions);
  test::TcpHeader tcp;
  tcp.flags = flags;
  tcp.options = std::move(tcpOptions);
  return Raw(test::TcpPacket(ip, tcp, test::ToBytes("hello")));
}

RecordBuffer Icmp(std::uint8_t type, std::uint8_t code) {
  return Raw(test::IcmpPacket(test::Ipv4Header{}, type, code, test::ToBytes("abcdefgh")));
}

TEST(Decoder, FlagsArePeeledFromTheTopWithoutMasking) {
  const auto flags = [](std::uint8_t raw) { return PeelTcpFlags(raw); };
  EXPECT_EQ(flags(0x12), (TcpFlagsShown{false, true, false, false, true, false}));
  // 0x40 counts as URG and leaves 0x32, so everything down to SYN shows, FIN does not.
  EXPECT_EQ(flags(0x52), (TcpFlagsShown{true, true, true, true, true, false}));
  EXPECT_EQ(flags(0x03), (TcpFlagsShown{false, false, false, false, true, true}));
  EXPECT_EQ(DecodePacket(Tcp(0x52).ref(), kEn, DataLevel::Network, "", "").flags, flags(0x52));
}

RecordBuffer V6(std::uint8_t next, const Bytes& rest) {
  return RecordBuffer(test::Ipv6Frame("2001:db8::1", "::1", next, rest), InterfaceKind::PacketDriver);
}

TEST(Decoder, DataLevelsFollowTheTransportProtocol) {
  test::Ipv4Header gre;
  gre.protocol = 47;
  Bytes cut = test::TcpPacket(test::Ipv4Header{}, test::TcpHeader{}, {});
  cut[20 + 12] = 0xF0;  // a 60-byte TCP header in a 40-byte packet
  const struct {
    RecordBuffer record;
    std::int32_t transport, presentation;
    std::size_t shown;
  } cases[] = {
      {Tcp(test::kAck, {}, Bytes(12, 1)), 20, 52, 5},  // data offset 32
      {Tcp(test::kAck, Bytes{1, 1, 1, 1}), 24, 44, 5},  // IHL 6 moves both levels by 4
      {Icmp(8, 0), 20, 28, 8},
      {Raw(test::Ipv4Packet(gre, test::ToBytes("abcd"))), 20, 20, 4},
      // Non-IP frames dump from the network start.
      {RecordBuffer(test::EthernetFrame({}, {}, kEtherTypeArp, test::ArpPacket({})),
                    InterfaceKind::PacketDriver),
       0, 0, 28},
      {Raw(cut), 20, 80, 0},  // a data offset past the end shows nothing
      // IPv6: behind the extension headers; a fragment behind the first is all payload.
      {V6(0, {6, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0x60, 0, 0, 0, 0, 0,
              0, 0, 0, 0, 0, 0, 'h', 'i'}), 48, 72, 2},
      {V6(58, {128, 0, 0, 0, 0, 0, 0, 0, 'p'}), 40, 48, 1},
      {V6(44, {17, 0, 0, 9, 0, 0, 0, 1, 'a', 'b', 'c'}), 48, 48, 3},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(DataStartOffset(c.record.ref(), DataLevel::Datalink), -14);
    EXPECT_EQ(DataStartOffset(c.record.ref(), DataLevel::Transport), c.transport);
    EXPECT_EQ(DataStartOffset(c.record.ref(), DataLevel::Presentation), c.presentation);
    EXPECT_EQ(DataBytes(c.record.ref(), DataLevel::Presentation).size(), c.shown);
  }
}

// The pane's IPv6 texts and the bytes a click on them selects.
TEST(Decoder, Ipv6FieldsAndTheirBytes) {
  const RecordBuffer udp = V6(0, {17, 0, 1, 4, 0, 0, 0, 0, 0, 53, 0, 54, 0, 8, 0, 0});
  const PacketDetails d = DecodePacket(udp.ref(), kEn, DataLevel::Network, "", "");
  EXPECT_EQ(d.packetType + d.protocolNumber + " " + d.sourceIp + ">" + d.destinationIp, "UDP17 2001:db8::1>::1");
  EXPECT_EQ(d.hopLimit + d.flowLabel + d.payloadLength + d.sourcePort + d.destinationPort, "640x00000165354");
  EXPECT_EQ(FieldFrameBytes(udp.ref(), DetailField::SourceIp, 17), (FieldBytes{22, 16}));
  EXPECT_EQ(FieldFrameBytes(udp.ref(), DetailField::DestinationPort, 17), (FieldBytes{64, 2}));
  EXPECT_FALSE(FieldFrameBytes(udp.ref(), DetailField::IpChecksum, 17));  // IPv6 has none
  const RecordBuffer echo = V6(58, {128, 0, 0, 0, 0, 1, 0, 1});
  EXPECT_EQ(DecodePacket(echo.ref(), kEn, DataLevel::Network, "", "").icmpType, "128 - Echo request");
}

}  // namespace
}  // namespace vormelt
