// Header views on hostile input: spans too short for a header, IHL below 5, ARP lengths that
// point past the frame, frames shorter than an Ethernet header.
#include "packets/headers.hpp"

#include <gtest/gtest.h>

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
  const struct {
    const char* in;
    const char* out;
  } cases[] = {
      {"2001:DB8:0:0:0:0:0:1", "2001:db8::1"},  {"::1", "::1"}, {"::", "::"},
      {"2001:db8:0:1:1:1:1:1", "2001:db8:0:1:1:1:1:1"},  // a lone zero group stays 0
      {"2001:0:0:1:0:0:0:1", "2001:0:0:1::1"},           // the longer run wins
      {"2001:db8:0:0:1:0:0:1", "2001:db8::1:0:0:1"},     // the first of equal runs
      {"::ffff:1.2.3.4", "::ffff:1.2.3.4"},  {"fe80::", "fe80::"},  {"1::", "1::"},
      {"ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff", "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff"},
      {"10.0.0.255", "10.0.0.255"},
  };
  for (const auto& c : cases) {
    const auto address = IpAddress::Parse(c.in);
    ASSERT_TRUE(address) << c.in;
    EXPECT_EQ(address->ToString(), c.out) << c.in;
    EXPECT_EQ(IpAddress::Parse(address->ToString()), address) << c.in;
  }
  for (const char* bad : {"", "1.2.3", "[::1]", "fe80::1%lo", " ::1", "1:2:3:4:5:6:7:8:9", "::g"}) {
    EXPECT_FALSE(IpAddress::Parse(bad)) << bad;
  }
  EXPECT_LT(*IpAddress::Parse("255.255.255.255"), *IpAddress::Parse("::"));
  EXPECT_LT(*IpAddress::Parse("::ff"), *IpAddress::Parse("::1:0"));
  EXPECT_NE(IpAddressHash{}(*IpAddress::Parse("::")), IpAddressHash{}(*IpAddress::Parse("0.0.0.0")));
}

// Extension chains as a hostile sender writes them: each case is the bytes behind the fixed
// header (next header of the fixed header first), what the walk ends on, and where.
TEST(HeaderViews, Ipv6ExtensionChainsEndInsideTheCapturedBytes) {
  const struct {
    test::Bytes chain;  // [0] is the fixed header's next header, the rest follows it
    std::uint8_t protocol;
    std::uint32_t offset;
    bool nonFirstFragment, truncated;
  } cases[] = {
      {{6, 0x9c, 0x40, 0, 80}, 6, 40, false, false},
      {{0, 43, 0, 0, 0, 0, 0, 0, 0, 17, 0, 0, 0, 0, 0, 0, 0}, 17, 56, false, false},
      {{44, 6, 0, 0, 1, 0, 0, 0, 0}, 6, 48, false, false},       // first fragment: offset 0
      {{44, 6, 0, 0, 9, 0, 0, 0, 0}, 6, 48, true, false},        // offset 1: no header behind
      {{51, 58, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}, 58, 52, false, false},  // AH counts in fours
      {{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}, 0, 56, false, true},  // HBH loop
      {{60, 6, 200, 0, 0, 0, 0, 0, 0}, 60, 40, false, true},     // length far past the end
      {{43, 6}, 43, 40, false, true},                            // cut inside the header
      {{44, 6, 0, 0, 0}, 44, 40, false, true},                   // fragment cut short
      {{59}, 59, 40, false, false},
  };
  for (const auto& c : cases) {
    test::Bytes ip(40, 0);
    ip[0] = 0x60;
    ip[6] = c.chain[0];
    ip.insert(ip.end(), c.chain.begin() + 1, c.chain.end());
    const std::size_t captured = ip.size();
    ip.resize(ip.size() + 64, 0);  // zeroed spare bytes, as behind every stored frame
    const Ipv6Chain chain = Ipv6View::Parse(ByteSpan(ip))->Chain(captured);
    EXPECT_EQ(chain.protocol, c.protocol) << int(c.chain[0]) << " " << c.chain.size();
    EXPECT_EQ(chain.transportOffset, c.offset) << int(c.chain[0]) << " " << c.chain.size();
    EXPECT_EQ(chain.nonFirstFragment, c.nonFirstFragment) << int(c.chain[0]);
    EXPECT_EQ(chain.truncated, c.truncated) << int(c.chain[0]) << " " << c.chain.size();
  }
}

}  // namespace
}  // namespace vormelt
