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
  };
  for (const auto& c : cases) {
    EXPECT_EQ(DataStartOffset(c.record.ref(), DataLevel::Datalink), -14);
    EXPECT_EQ(DataStartOffset(c.record.ref(), DataLevel::Transport), c.transport);
    EXPECT_EQ(DataStartOffset(c.record.ref(), DataLevel::Presentation), c.presentation);
    EXPECT_EQ(DataBytes(c.record.ref(), DataLevel::Presentation).size(), c.shown);
  }
}

}  // namespace
}  // namespace vormelt
