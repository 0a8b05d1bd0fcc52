// The packet filter test on built frames: sizes, protocol classes, address ranges (IPv4 and
// ARP), ports, payload texts, the headers-only form, setters racing the receive thread, and
// the address text reader.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "packetmode/filter_settings.hpp"
#include "packets/record.hpp"
#include "support/frames.hpp"

namespace vormelt {
namespace {

using test::Bytes;
using test::ParseIp;
using test::ToBytes;

IpRange Range(std::string_view from, std::string_view to) {
  return {ParseIpv4(from).value(), ParseIpv4(to).value()};
}

// Every frame is tested from a record, as the store holds it: spare zero bytes behind it.
bool Keeps(const FilterSettings& filter, const Bytes& frame, bool matchCase = false,
           bool headersOnly = false) {
  const RecordBuffer record(frame, InterfaceKind::PacketDriver);
  const PacketRef ref = record.ref();
  return filter.PassesFilters(ref.frame, ref.frameLength, matchCase, headersOnly);
}

Bytes Tcp(std::string_view payload, std::string_view from = "10.0.0.1",
          std::string_view to = "10.0.0.2", std::uint16_t sport = 40000, std::uint16_t dport = 80) {
  test::Ipv4Header ip;
  ip.source = ParseIp(from);
  ip.destination = ParseIp(to);
  test::TcpHeader tcp;
  tcp.sourcePort = sport;
  tcp.destinationPort = dport;
  return test::RawSocketsFrame(test::TcpPacket(ip, tcp, ToBytes(payload)));
}

Bytes Udp(std::uint16_t sport, std::uint16_t dport, std::string_view payload = "x") {
  return test::RawSocketsFrame(test::UdpPacket({}, sport, dport, ToBytes(payload)));
}

Bytes Icmp(std::string_view payload = "ping") {
  test::Ipv4Header ip;
  ip.protocol = 1;
  return test::RawSocketsFrame(test::IcmpPacket(ip, 8, 0, ToBytes(payload)));
}

Bytes Arp(const test::ArpFields& fields = {}) {
  return test::EthernetFrame({0xff, 0xff, 0xff, 0xff, 0xff, 0xff}, fields.senderMac, 0x0806,
                             test::ArpPacket(fields));
}

Bytes Ipv6ish() { return test::EthernetFrame({}, {}, 0x86DD, Bytes(60, 0x60)); }

TEST(PacketFilter, SizeBoundsAreInclusiveAndZeroMeansNone) {
  FilterSettings filter;
  filter.SetMinPacketSize(100);
  EXPECT_FALSE(Keeps(filter, Bytes(99, 0)));
  EXPECT_TRUE(Keeps(filter, Bytes(100, 0)));

  filter.SetMinPacketSize(0);
  filter.SetMaxPacketSize(100);
  EXPECT_TRUE(Keeps(filter, Bytes(100, 0)));
  EXPECT_FALSE(Keeps(filter, Bytes(101, 0)));
  // File Mode's reduced test ignores sizes.
  EXPECT_TRUE(Keeps(filter, Bytes(101, 0), false, true));
}

TEST(PacketFilter, ProtocolFlagsGovernTheirOwnClassOnly) {
  FilterSettings filter;
  filter.SetAllowOther(false);
  test::Ipv4Header gre;
  gre.protocol = 47;
  EXPECT_FALSE(Keeps(filter, test::RawSocketsFrame(test::Ipv4Packet(gre, Bytes(24, 0x55)))));
  EXPECT_FALSE(Keeps(filter, Ipv6ish()));
  EXPECT_TRUE(Keeps(filter, Arp()));
  EXPECT_TRUE(Keeps(filter, Tcp("a")));
  EXPECT_TRUE(Keeps(filter, Icmp()));

  FilterSettings noTcp;
  noTcp.SetAllowTcp(false);
  EXPECT_FALSE(Keeps(noTcp, Tcp("a")));
  EXPECT_TRUE(Keeps(noTcp, Udp(1, 2)));
  EXPECT_TRUE(Keeps(noTcp, Tcp("a"), false, true));  // headers only: no protocol step
}

TEST(PacketFilter, AddressRangeKinds) {
  FilterSettings single;
  single.SetSourceInRanges({Range("10.0.0.1", "10.0.0.1")});
  EXPECT_TRUE(Keeps(single, Tcp("", "10.0.0.1")));
  EXPECT_FALSE(Keeps(single, Tcp("", "10.0.0.0")));
  EXPECT_FALSE(Keeps(single, Tcp("", "10.0.0.2")));
  // A range on a non-IP frame has nothing to test.
  EXPECT_TRUE(Keeps(single, Ipv6ish()));

  FilterSettings dest;
  dest.SetDestInRanges({Range("192.168.0.0", "192.168.0.255"), Range("8.8.8.8", "8.8.8.8")});
  dest.SetDestNotInRanges({Range("192.168.0.7", "192.168.0.7")});
  EXPECT_TRUE(Keeps(dest, Tcp("", "1.1.1.1", "192.168.0.255")));
  EXPECT_FALSE(Keeps(dest, Tcp("", "1.1.1.1", "192.168.0.7")));

  // Addresses above 128.0.0.0 compare unsigned.
  FilterSettings either;
  either.SetEitherInRanges({Range("200.0.0.0", "200.0.0.9")});
  EXPECT_TRUE(Keeps(either, Tcp("", "1.1.1.1", "200.0.0.9")));
  EXPECT_FALSE(Keeps(either, Tcp("", "1.1.1.1", "2.2.2.2")));
  EXPECT_FALSE(Keeps(either, Tcp("", "1.1.1.1", "200.0.0.10"), false, true));
}

TEST(PacketFilter, ArpIsRangeTestedOnlyWhenItCarriesIpv4OverEthernet) {
  FilterSettings filter;
  filter.SetSourceInRanges({Range("192.168.1.10", "192.168.1.10")});
  filter.SetDestInRanges({Range("192.168.1.1", "192.168.1.1")});
  EXPECT_TRUE(Keeps(filter, Arp()));
  test::ArpFields other;
  other.targetIp = ParseIp("192.168.1.2");
  EXPECT_FALSE(Keeps(filter, Arp(other)));

  // Untestable ARP frames pass the address step untouched: another hardware type, or a
  // hardware length claiming more than the frame holds. (The views test the other rules.)
  test::ArpFields tokenRing, oversized;
  tokenRing.hardwareType = 6;
  tokenRing.senderIp = ParseIp("1.2.3.4");
  EXPECT_TRUE(Keeps(filter, Arp(tokenRing)));
  oversized.hardwareLength = 200;
  Bytes frame = Arp(oversized);
  frame.resize(60);
  EXPECT_TRUE(Keeps(filter, frame));
}

TEST(PacketFilter, PortsApplyToTcpAndUdpAtTheHeaderLengthOffset) {
  FilterSettings filter;
  filter.SetSourcePorts({53});
  EXPECT_TRUE(Keeps(filter, Udp(53, 9999)));
  EXPECT_FALSE(Keeps(filter, Udp(54, 53)));
  EXPECT_TRUE(Keeps(filter, Icmp()));

  // IP options move the TCP header; the ports are read behind them.
  test::Ipv4Header withOptions;
  withOptions.options = Bytes(8, 0x01);
  test::TcpHeader tcp;
  tcp.sourcePort = 53;
  EXPECT_TRUE(Keeps(filter, test::RawSocketsFrame(test::TcpPacket(withOptions, tcp, {}))));

  FilterSettings rest;
  rest.SetSourceNotPorts({1});
  rest.SetDestPorts({80, 443});
  rest.SetEitherPorts({7000, 8000});
  EXPECT_TRUE(Keeps(rest, Tcp("", "1.1.1.1", "2.2.2.2", 7000, 443)));
  EXPECT_FALSE(Keeps(rest, Tcp("", "1.1.1.1", "2.2.2.2", 1, 80)));
  EXPECT_FALSE(Keeps(rest, Tcp("", "1.1.1.1", "2.2.2.2", 7000, 8000)));
  EXPECT_FALSE(Keeps(rest, Tcp("", "1.1.1.1", "2.2.2.2", 7001, 80), false, true));
}

TEST(PacketFilter, TextMatchingAndCase) {
  FilterSettings filter;
  filter.SetMustContain({"GET"});
  EXPECT_TRUE(Keeps(filter, Tcp("xx get /index")));
  EXPECT_FALSE(Keeps(filter, Tcp("xx get /index"), true));
  EXPECT_TRUE(Keeps(filter, Tcp("xx GET /index"), true));

  // Latin-1 capitals fold too; the multiplication sign is no letter.
  FilterSettings latin;
  latin.SetMustContain({"\xC4rger"});
  EXPECT_TRUE(Keeps(latin, Tcp("viel \xE4rger")));
  EXPECT_FALSE(Keeps(latin, Tcp("viel \xE4rger"), true));
}

TEST(PacketFilter, PayloadIsSearchedOnlyWithinTheFrame) {
  // A zero byte reads as a space, so "A\0B" holds "A B".
  FilterSettings spaced;
  spaced.SetMustContain({"A B"});
  EXPECT_TRUE(Keeps(spaced, Tcp(std::string_view("A\0B", 3))));

  // The record's zero bytes behind the frame would read as spaces: they must not be searched.
  FilterSettings space;
  space.SetMustContain({" "});
  EXPECT_FALSE(Keeps(space, Tcp("abc")));

  // Header bytes are not payload: TCP options, the UDP header and the ICMP header are skipped.
  FilterSettings get;
  get.SetMustContain({"GET"});
  test::TcpHeader tcp;
  tcp.options = ToBytes("GET!");
  EXPECT_FALSE(Keeps(get, test::RawSocketsFrame(test::TcpPacket({}, tcp, ToBytes("xyz")))));
  EXPECT_TRUE(Keeps(get, test::RawSocketsFrame(test::TcpPacket({}, tcp, ToBytes("GET")))));
  EXPECT_FALSE(Keeps(get, Udp(0x4745, 0x5420, "x")));  // ports spell "GET " in the header
  // ARP and other frames are searched from the end of the Ethernet header.
  FilterSettings arpText;
  arpText.SetMustContain({" \x01\x08"});  // hardware type 1, protocol type 0x08..
  EXPECT_TRUE(Keeps(arpText, Arp()));
}

TEST(PacketFilter, EmptyPayloadDependsOnlyOnMustContain) {
  FilterSettings must;
  must.SetMustContain({"a"});
  EXPECT_FALSE(Keeps(must, Tcp("")));
  EXPECT_FALSE(Keeps(must, Bytes(14, 0)));

  FilterSettings mustNot;
  mustNot.SetMustNotContain({" "});
  EXPECT_TRUE(Keeps(mustNot, Tcp("")));
  EXPECT_FALSE(Keeps(mustNot, Tcp("a b")));
  // A TCP header length that reaches beyond a cut frame leaves no payload.
  test::TcpHeader tcp;
  tcp.options = Bytes(40, 0);
  Bytes frame = test::RawSocketsFrame(test::TcpPacket({}, tcp, {}));
  frame.resize(60);
  EXPECT_TRUE(Keeps(mustNot, frame));
  EXPECT_FALSE(Keeps(must, frame));
}

// Setters run on one thread while another tests frames, as the window and the receive thread
// do. Both configurations drop the frame; only a test that saw half of each would keep it.
TEST(PacketFilter, SettersRaceTheReceiveThread) {
  FilterValues a;
  a.mustContain = {"GET"};
  a.sourceInRanges = {Range("10.0.0.5", "10.0.0.5")};
  FilterValues b;
  b.mustContain = {"nothing", "here"};
  b.mustNotContain = {"zz"};
  b.sourceInRanges = {Range("10.0.0.1", "10.0.0.1")};

  FilterSettings filter;
  filter.SetAll(a);
  const RecordBuffer frame(Tcp("GET /a", "10.0.0.1"), InterfaceKind::RawSockets);
  std::atomic<bool> stop{false};
  std::atomic<int> torn{0};
  std::atomic<int> tests{0};
  std::thread receiver([&] {
    while (!stop.load()) {
      if (filter.PassesFilters(frame.ref().frame, frame.ref().frameLength, false, false)) {
        torn.fetch_add(1);
      }
      const auto texts = filter.ColumnTexts();
      const bool isA = texts->mustContain == "GET" && texts->mustNotContain.empty();
      const bool isB = texts->mustContain == "nothing,here" && texts->mustNotContain == "zz";
      if (!isA && !isB) torn.fetch_add(1);
      tests.fetch_add(1);
    }
  });
  for (int i = 0; i < 3000; ++i) {
    filter.SetAll(i % 2 == 0 ? b : a);
    filter.SetMatchCase(i % 3 == 0);
  }
  while (tests.load() < 100) std::this_thread::yield();
  stop.store(true);
  receiver.join();
  EXPECT_EQ(torn.load(), 0);
  EXPECT_EQ(filter.Values(), a);
}

TEST(Ipv4Text, ParsesOnlyFourDecimalParts) {
  EXPECT_EQ(ParseIpv4("10.0.0.1"), 0x0A000001u);
  EXPECT_EQ(ParseIpv4(" 255.255.255.255 "), 0xFFFFFFFFu);
  for (std::string_view bad : {"", "10.0.0", "10.0.0.1.", "10.0.0.256", "1.2.3.4x", "a.b.c.d",
                               "1..2.3", "1.2.3.1000", "-1.2.3.4"}) {
    EXPECT_FALSE(ParseIpv4(bad).has_value()) << bad;
  }
  EXPECT_EQ(FormatIpv4(0xC0A80001u), "192.168.0.1");
}

}  // namespace
}  // namespace vormelt
