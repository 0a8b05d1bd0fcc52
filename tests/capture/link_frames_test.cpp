// Link-layer conversion: every link type ends as an Ethernet frame of the right kind, and
// packets too short for their link header are refused rather than read past.
#include <gtest/gtest.h>

#include <pcap/dlt.h>

#include <utility>

#include "capture/link_frames.hpp"
#include "common/byte_order.hpp"
#include "support/frames.hpp"

namespace vormelt {
namespace {

using test::Bytes;

const test::Mac kDestination{0x00, 0x1b, 0x21, 0xaa, 0xbb, 0xcc};
const test::Mac kSource{0x3c, 0x7c, 0x3f, 0x01, 0x02, 0x0d};

Bytes Ip4() { return test::UdpPacket({}, 5353, 5353, test::ToBytes("mdns")); }

Bytes Concat(Bytes head, const Bytes& tail) {
  head.insert(head.end(), tail.begin(), tail.end());
  return head;
}
Bytes Ip6() { return Concat({0x60}, Bytes(47, 0)); }

// Linux cooked header v1: packet type, ARPHRD, address length, 8 address bytes, protocol.
Bytes Sll(std::uint16_t protocol, const Bytes& network) {
  Bytes header(16, 0);
  WriteBe16(&header[2], 1);
  WriteBe16(&header[4], 6);
  std::copy(kSource.begin(), kSource.end(), header.begin() + 6);
  WriteBe16(&header[14], protocol);
  return Concat(header, network);
}

// Linux cooked header v2: protocol, reserved, interface index, ARPHRD, type, length, address.
Bytes Sll2(std::uint16_t protocol, const Bytes& network) {
  Bytes header(20, 0);
  WriteBe16(&header[0], protocol);
  header[11] = 6;
  std::copy(kSource.begin(), kSource.end(), header.begin() + 12);
  return Concat(header, network);
}

Bytes NullHeader(std::uint32_t family, bool networkOrder, const Bytes& network) {
  Bytes header(4, 0);
  WriteBe32(header.data(), networkOrder ? family : __builtin_bswap32(family));
  return Concat(header, network);
}

TEST(LinkFrames, RawSocketsKindKeepsOnlyIpBehindThePseudoHeader) {
  const Bytes expected = test::RawSocketsFrame(Ip4());
  const std::pair<int, Bytes> links[] = {
      {DLT_EN10MB, test::EthernetFrame(kDestination, kSource, kEtherTypeIpv4, Ip4())},
      {DLT_LINUX_SLL, Sll(kEtherTypeIpv4, Ip4())},
      {DLT_LINUX_SLL2, Sll2(kEtherTypeIpv4, Ip4())},
      {DLT_RAW, Ip4()},
      {DLT_NULL, NullHeader(2, false, Ip4())},
      {DLT_LOOP, NullHeader(2, true, Ip4())},
      // A VLAN tag is looked through.
      {DLT_EN10MB, test::EthernetFrame(kDestination, kSource, 0x8100,
                                       Concat({0x00, 0x05, 0x08, 0x00}, Ip4()))},
      // Link padding behind the datagram is no part of it.
      {DLT_EN10MB, test::EthernetFrame(kDestination, kSource, kEtherTypeIpv4, Concat(Ip4(), Bytes(9, 0)))},
  };
  Bytes out;
  for (const auto& [link, packet] : links) {
    ASSERT_TRUE(ToRawSocketsFrame(link, packet, out)) << link;
    EXPECT_EQ(out, expected) << link;
  }
  EXPECT_FALSE(ToRawSocketsFrame(DLT_EN10MB,
                                 test::EthernetFrame(kDestination, kSource, kEtherTypeArp,
                                                     test::ArpPacket({})),
                                 out));
  // IPv6 alike, cut to its payload length; a jumbogram's length of 0 cuts nothing.
  const Bytes withHeader = test::Ipv6Frame("2001:db8::1", "::1", 59, Bytes(4, 7)), six(withHeader.begin() + 14, withHeader.end());
  ASSERT_TRUE(ToRawSocketsFrame(DLT_EN10MB, test::EthernetFrame(kDestination, kSource, kEtherTypeIpv6, Concat(six, Bytes(8, 0))), out));
  EXPECT_EQ(out, test::EthernetFrame({}, {}, kEtherTypeIpv6, six));
  ASSERT_TRUE(ToRawSocketsFrame(DLT_RAW, Concat(Ip6(), Bytes(8, 0)), out));
  EXPECT_EQ(out.size(), 14 + Ip6().size() + 8);
}

TEST(LinkFrames, AdapterKindBuildsAnEthernetHeaderFromTheLinksOwn) {
  Bytes out;
  // Cooked captures keep the sender's address and the protocol; the destination is unknown.
  const Bytes fromSll = test::EthernetFrame({}, kSource, kEtherTypeArp, test::ArpPacket({}));
  ASSERT_TRUE(ToAdapterFrame(DLT_LINUX_SLL, Sll(kEtherTypeArp, test::ArpPacket({})), out));
  EXPECT_EQ(out, fromSll);

  ASSERT_TRUE(ToAdapterFrame(DLT_NULL, NullHeader(30, false, Ip6()), out));  // a BSD's AF_INET6
  EXPECT_EQ(ReadBe16(&out[12]), kEtherTypeIpv6);
  EXPECT_EQ(out.size(), 14 + Ip6().size());
}

TEST(LinkFrames, ShortPacketsAndUnknownLinksAreRefused) {
  Bytes out;
  EXPECT_FALSE(ToAdapterFrame(DLT_LINUX_SLL, Bytes(15, 0), out));
  EXPECT_FALSE(ToAdapterFrame(DLT_NULL, Bytes(3, 0), out));
  EXPECT_FALSE(ToRawSocketsFrame(DLT_EN10MB, Bytes(13, 0), out));
  EXPECT_FALSE(ToAdapterFrame(DLT_IEEE802_11, Bytes(100, 0), out));
  // A runt Ethernet frame is still what the wire carried.
  ASSERT_TRUE(ToAdapterFrame(DLT_EN10MB, Bytes(10, 1), out));
  EXPECT_EQ(out.size(), 10u);
}

// A raw IP link carries IPv4 or IPv6 by the version nibble: its IPv6 packets come out exactly
// as an IPv6 link's and a live Raw Sockets capture's do, and what is neither is refused as not IP.
TEST(LinkFrames, RawIpCarriesIpv6AsAnIpv6LinkDoes) {
  Bytes out, reference;
  const ConvertedFrame fromIpv6 = ToFrame(DLT_IPV6, KindForLinkType(DLT_IPV6), Ip6(), reference);
  ASSERT_EQ(fromIpv6.outcome, FrameOutcome::Kept);
  for (const int link : {DLT_RAW, 101}) {
    const InterfaceKind kind = KindForLinkType(link);
    const ConvertedFrame six = ToFrame(link, kind, Ip6(), out);
    EXPECT_EQ(six.outcome, FrameOutcome::Kept);
    EXPECT_EQ(six.kind, InterfaceKind::RawSockets);
    EXPECT_EQ(out, reference);
    EXPECT_EQ(ToFrame(link, kind, Ip4(), out).kind, InterfaceKind::RawSockets);
    EXPECT_EQ(out, test::RawSocketsFrame(Ip4()));
    EXPECT_EQ(ToFrame(link, kind, Concat({0x50}, Bytes(39, 0)), out).outcome, FrameOutcome::NotIp);
    EXPECT_EQ(ToFrame(link, kind, {}, out).outcome, FrameOutcome::NotIp);
  }
  // Live Raw Sockets on an Ethernet link see both IP versions, as a raw IP link gives them, and
  // nothing else, by design; a cut cooked header is a loss.
  const Bytes arp = test::EthernetFrame(kDestination, kSource, kEtherTypeArp, test::ArpPacket({}));
  EXPECT_EQ(ToFrame(DLT_EN10MB, InterfaceKind::RawSockets, arp, out).outcome,
            FrameOutcome::NotForRawSockets);
  EXPECT_EQ(ToFrame(DLT_EN10MB, InterfaceKind::RawSockets, test::EthernetFrame(kDestination, kSource, kEtherTypeIpv6, Ip6()), out).kind, fromIpv6.kind);
  EXPECT_EQ(out, reference);
  EXPECT_EQ(ToFrame(DLT_LINUX_SLL, InterfaceKind::PacketDriver, Bytes(15, 0), out).outcome,
            FrameOutcome::CutShort);
}

}  // namespace
}  // namespace vormelt
