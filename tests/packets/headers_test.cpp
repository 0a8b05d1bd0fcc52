// Header views on hostile input: spans too short for a header, IHL below 5, ARP lengths that
// point past the frame, frames shorter than an Ethernet header.
#include "packets/headers.hpp"

#include <gtest/gtest.h>

#include <tuple>

#include "support/frames.hpp"

namespace vormelt {
namespace {

using test::Bytes;

TEST(HeaderViews, FactoriesRefuseHeadersThatDoNotFit) {
  const Bytes bytes(19, 0x45);
  EXPECT_FALSE(Ipv4View::Parse(ByteSpan(bytes)));
  EXPECT_FALSE(TcpView::Parse(ByteSpan(bytes)));
  EXPECT_FALSE(PortsView::Parse(ByteSpan(bytes).first(3)));
  EXPECT_FALSE(IcmpView::Parse(ByteSpan(bytes).first(7)));
  EXPECT_FALSE(ArpView::Parse(ByteSpan(bytes).first(7)));
  EXPECT_TRUE(PortsView::Parse(ByteSpan(bytes).first(4)));
  EXPECT_FALSE(Ipv4View::Parse({}));

  // Checked reads at and past the end give 0, never a byte from beyond the span.
  const CheckedBytes checked(ByteSpan(bytes).first(5));
  EXPECT_EQ(checked.Be32(1), 0x45454545u);
  EXPECT_EQ(checked.Be32(2), 0u);
  EXPECT_EQ(checked.Be16(SIZE_MAX), 0u);
  EXPECT_TRUE(checked.From(6).empty());
}

TEST(HeaderViews, IhlIsTakenAsItStandsAndTheTransportStaysInTheSpan) {
  Bytes ip = test::TcpPacket(test::Ipv4Header{}, test::TcpHeader{}, {});
  const auto withIhl = [&ip](std::uint8_t ihl) {
    ip[0] = static_cast<std::uint8_t>(0x40 | ihl);
    return *Ipv4View::Parse(ByteSpan(ip));
  };
  EXPECT_EQ(withIhl(5).transport().size(), 20u);
  EXPECT_EQ(PortsView::Parse(withIhl(5).transport())->source(), 40000);
  // IHL 2: the "transport header" is the IP header's own bytes 8.. (TTL 64, protocol 6).
  EXPECT_EQ(PortsView::Parse(withIhl(2).transport())->source(), 0x4006);
  EXPECT_EQ(withIhl(0).transport().size(), ip.size());
  // IHL 15 claims 60 bytes of a 40-byte packet: nothing is left, so no TCP view.
  EXPECT_TRUE(withIhl(15).transport().empty());
  EXPECT_FALSE(TcpView::Parse(withIhl(15).transport()));
  // The list's port columns ignore IHL altogether.
  EXPECT_EQ(PortsView::Parse(withIhl(15).optionlessTransport())->source(), 40000);
}

TEST(HeaderViews, ArpAddressesNeedEthernetIpv4AndTheLooseBound) {
  test::ArpFields fields;
  const Bytes arp = test::ArpPacket(fields);  // 28 bytes, hardware length 6
  const ArpView view = *ArpView::Parse(ByteSpan(arp));
  EXPECT_EQ(view.Ipv4Addresses(24)->target, 24u);  // 2 × 6 + 12 = 24 is enough
  EXPECT_FALSE(view.Ipv4Addresses(23));
  EXPECT_EQ(view.Address(view.Ipv4Addresses(28)->sender), 0xC0A8010Au);

  // The bound passes but the target would end past the span: no addresses, no read.
  EXPECT_FALSE(ArpView::Parse(ByteSpan(arp).first(25))->Ipv4Addresses(1000));

  test::ArpFields odd;
  odd.protocolType = 0x86DD;
  const Bytes other = test::ArpPacket(odd);
  EXPECT_FALSE(ArpView::Parse(ByteSpan(other))->Ipv4Addresses(1000));
}

TEST(HeaderViews, FramesShorterThanAnEthernetHeaderHaveNoEtherTypeButKeepTheirSize) {
  // As a record holds it: frame, kind byte 1, zeroes.
  const RecordBuffer cut(Bytes{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 0x08, 0x00, 0x45},
                         InterfaceKind::PacketDriver);
  const FrameView frame(cut.ref());
  EXPECT_EQ(frame.displayedSize(), 13u);
  EXPECT_EQ(frame.networkLength(), 0u);
  EXPECT_EQ(frame.etherType(), 0);
  EXPECT_FALSE(HeadersOf(frame).ipv4);
  EXPECT_EQ(FrameView(PacketRef{}).displayedSize(), 0u);
}

}  // namespace
}  // namespace vormelt

namespace vormelt {
namespace {

// Text out is RFC 5952's; text in takes what inet_pton takes; order puts IPv4 first.
TEST(IpAddresses, TextBothWaysAndOrder) {
  // A lone zero group stays 0; the longer run of zeroes wins, then the first of equal runs.
  const std::pair<const char*, const char*> cases[] = {
      {"2001:DB8:0:0:0:0:0:1", "2001:db8::1"}, {"::", "::"}, {"1::", "1::"}, {"10.0.0.255", "10.0.0.255"},
      {"2001:db8:0:1:1:1:1:1", "2001:db8:0:1:1:1:1:1"}, {"2001:0:0:1:0:0:0:1", "2001:0:0:1::1"},
      {"2001:db8:0:0:1:0:0:1", "2001:db8::1:0:0:1"}, {"::ffff:1.2.3.4", "::ffff:1.2.3.4"}};
  for (const auto& [in, out] : cases) {
    const auto address = IpAddress::Parse(in);
    EXPECT_EQ(address.value_or(IpAddress()).ToString(), out) << in;
    EXPECT_EQ(IpAddress::Parse(out), address);
  }
  for (const char* bad : {"", "1.2.3", "[::1]", "fe80::1%lo", " ::1", "1:2:3:4:5:6:7:8:9"}) {
    EXPECT_FALSE(IpAddress::Parse(bad)) << bad;
  }
  EXPECT_LT(*IpAddress::Parse("255.255.255.255"), *IpAddress::Parse("::"));
  EXPECT_LT(*IpAddress::Parse("::ff"), *IpAddress::Parse("::1:0"));
}

// Extension chains as a hostile sender writes them: the bytes behind the fixed header (its
// next header first), where the walk ends, on what, and how.
TEST(HeaderViews, Ipv6ExtensionChainsEndInsideTheCapturedBytes) {
  const struct {
    Bytes chain;
    std::tuple<int, std::uint32_t, bool, bool> end;  // protocol, offset, non-first fragment, cut
  } cases[] = {
      {{0, 43, 0, 0, 0, 0, 0, 0, 0, 17, 0, 0, 0, 0, 0, 0, 0}, {17, 56, false, false}},
      {{44, 6, 0, 0, 1, 0, 0, 0, 0}, {6, 48, false, false}},       // first fragment: offset 0
      {{44, 6, 0, 0, 9, 0, 0, 0, 0}, {6, 48, true, false}},        // offset 1: no header behind
      {{51, 58, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}, {58, 52, false, false}},  // AH counts in fours
      {Bytes(17, 0), {0, 56, false, true}},                        // hop-by-hop after hop-by-hop
      {{60, 6, 200, 0, 0, 0, 0, 0, 0}, {60, 40, false, true}},     // length far past the end
      {{43, 6}, {43, 40, false, true}},                            // cut inside the header
      {{44, 6, 0, 0, 0}, {44, 40, false, true}},                   // fragment cut short
  };
  for (const auto& c : cases) {
    Bytes ip = test::Ipv6Frame("::1", "::2", c.chain[0], ByteSpan(c.chain).subspan(1));
    const auto length = static_cast<std::uint32_t>(ip.size());
    ip.resize(length + kFrameSpareBytes, 0);  // zeroes behind the frame, as stored
    const NetworkLayer l = *NetworkOf(FrameView(ip.data(), length));
    EXPECT_EQ(std::tuple(int{l.protocol}, l.transportOffset, l.nonFirstFragment, l.truncated), c.end)
        << testing::PrintToString(c.chain);
  }
}

}  // namespace
}  // namespace vormelt
