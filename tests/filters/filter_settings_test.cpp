// The packet filter test over one table of example frames (sizes, protocol classes, IPv4 and
// ARP ranges, ports, payload texts, the headers-only form), setters racing the receive thread,
// and the address text reader.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "filters/filter_settings.hpp"
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

Bytes WithTcp(const test::Ipv4Header& ip, const test::TcpHeader& tcp, std::string_view payload,
              std::size_t cutTo = 0) {
  Bytes frame = test::RawSocketsFrame(test::TcpPacket(ip, tcp, ToBytes(payload)));
  if (cutTo != 0) frame.resize(cutTo);
  return frame;
}

// IPv6 TCP behind a hop-by-hop header, port 40000 to `dport`.
Bytes Tcp6(std::string_view from, std::string_view to, std::uint8_t dport = 80, std::string_view payload = "") {
  Bytes rest{6, 0, 1, 4, 0, 0, 0, 0, 0x9c, 0x40, 0, dport, 0, 0, 0, 1, 0, 0, 0, 0, 0x50, 0x10, 1, 0, 0, 0, 0, 0};
  rest.insert(rest.end(), payload.begin(), payload.end());
  return test::Ipv6Frame(from, to, 0, rest);
}

// Each case names only the lists it sets; the rest keep their defaults, which is the point.
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"

TEST(PacketFilter, ExampleFrames) {
  test::Ipv4Header gre, ipOptions;
  gre.protocol = 47;
  ipOptions.options = Bytes(8, 0x01);  // moves the TCP header; ports are read behind it
  test::TcpHeader from53, getOption, longHeader;
  from53.sourcePort = 53;
  getOption.options = ToBytes("GET!");
  longHeader.options = Bytes(40, 0);
  test::ArpFields toOther, tokenRing, oversized;
  toOther.targetIp = ParseIp("192.168.1.2");
  tokenRing.hardwareType = 6;
  tokenRing.senderIp = ParseIp("1.2.3.4");
  oversized.hardwareLength = 200;
  Bytes oversizedArp = Arp(oversized);
  oversizedArp.resize(60);
  const std::vector<IpRange> arpSource{Range("192.168.1.10", "192.168.1.10")};
  const std::vector<IpRange> arpTarget{Range("192.168.1.1", "192.168.1.1")};
  const std::vector<IpRange> only1{Range("10.0.0.1", "10.0.0.1")};
  const std::vector<IpRange> high{Range("200.0.0.0", "200.0.0.9")};  // compared unsigned
  const std::vector<IpRange> dest{Range("192.168.0.0", "192.168.0.255"),
                                  Range("8.8.8.8", "8.8.8.8")};
  const std::vector<IpRange> notDest{Range("192.168.0.7", "192.168.0.7")};
  const Bytes gre24 = test::RawSocketsFrame(test::Ipv4Packet(gre, Bytes(24, 0x55)));
  const std::vector<IpRange> v6Net{*ParseIpRange("2001:db8::ffff", " 2001:db8::")}, v6All{*ParseIpRange("::1", "ffff::")};

  const struct {
    int line;
    FilterValues values;
    Bytes frame;
    bool keep;
    bool matchCase = false;
    bool headersOnly = false;
  } cases[] = {
      // Sizes: bounds included, 0 means none, File Mode's reduced test ignores them.
      {__LINE__, {.minPacketSize = 100}, Bytes(100, 0), true},
      {__LINE__, {.maxPacketSize = 100}, Bytes(101, 0), false},
      {__LINE__, {.maxPacketSize = 100}, Bytes(101, 0), true, false, true},
      // Protocol flags govern their own class only; ARP is never "Other".
      {__LINE__, {.allowOther = false}, gre24, false},
      {__LINE__, {.allowOther = false}, Arp(), true},
      {__LINE__, {.allowTcp = false}, Tcp("a"), false},
      // Address ranges, IPv4 and ARP; a range has nothing to test on other frames.
      {__LINE__, {.sourceInRanges = only1}, Tcp("", "10.0.0.1"), true},
      {__LINE__, {.sourceInRanges = only1}, Tcp("", "10.0.0.2"), false},
      {__LINE__, {.destInRanges = dest, .destNotInRanges = notDest},
       Tcp("", "1.1.1.1", "192.168.0.255"), true},
      {__LINE__, {.destInRanges = dest, .destNotInRanges = notDest},
       Tcp("", "1.1.1.1", "192.168.0.7"), false},
      {__LINE__, {.eitherInRanges = high}, Tcp("", "1.1.1.1", "200.0.0.9"), true},
      {__LINE__, {.eitherInRanges = high}, Tcp("", "1.1.1.1", "200.0.0.10"), false, false, true},
      {__LINE__, {.sourceInRanges = arpSource, .destInRanges = arpTarget}, Arp(), true},
      {__LINE__, {.sourceInRanges = arpSource, .destInRanges = arpTarget}, Arp(toOther), false},
      // IPv6 ranges compare 128-bit numbers; a range of one family never holds the other's.
      {__LINE__, {.sourceInRanges = v6Net}, Tcp6("2001:db8::ffff", "::1"), true},
      {__LINE__, {.sourceInRanges = v6Net}, Tcp6("2001:db8::1:0", "::1"), false},
      {__LINE__, {.sourceInRanges = only1}, Tcp6("::ffff:10.0.0.1", "::1"), false},
      {__LINE__, {.eitherInRanges = v6All}, Tcp("", "10.0.0.1"), false},
      // Ports and texts behind the IPv6 extension headers.
      {__LINE__, {.destPorts = {22}}, Tcp6("::1", "::2", 22), true},
      {__LINE__, {.destPorts = {22}}, Tcp6("::1", "::2", 80), false},
      {__LINE__, {.destNotInRanges = v6Net, .mustNotContain = {"get"}}, Tcp6("::1", "::2", 80, "GET /"), false},
      // Untestable ARP passes untouched: another hardware type, or addresses past the frame.
      {__LINE__, {.sourceInRanges = arpSource}, Arp(tokenRing), true},
      {__LINE__, {.sourceInRanges = arpSource}, oversizedArp, true},
      // Ports apply to TCP and UDP only, read where IHL puts the transport header.
      {__LINE__, {.sourcePorts = {53}}, Udp(53, 9999), true},
      {__LINE__, {.sourcePorts = {53}}, Udp(54, 53), false},
      {__LINE__, {.sourcePorts = {53}}, Icmp(), true},
      {__LINE__, {.sourcePorts = {53}}, WithTcp(ipOptions, from53, ""), true},
      {__LINE__, {.sourceNotPorts = {1}, .destPorts = {80, 443}, .eitherPorts = {7000, 8000}},
       Tcp("", "1.1.1.1", "2.2.2.2", 7000, 443), true},
      {__LINE__, {.sourceNotPorts = {1}, .destPorts = {80, 443}, .eitherPorts = {7000, 8000}},
       Tcp("", "1.1.1.1", "2.2.2.2", 7000, 8000), false},
      {__LINE__, {.eitherPorts = {7000, 8000}}, Tcp("", "1.1.1.1", "2.2.2.2", 7001, 80), false,
       false, true},
      // Texts: case folding (Latin-1 capitals too) unless match case is on.
      {__LINE__, {.mustContain = {"GET"}}, Tcp("xx get /index"), true},
      {__LINE__, {.mustContain = {"GET"}}, Tcp("xx get /index"), false, true},
      {__LINE__, {.mustContain = {"\xC4rger"}}, Tcp("viel \xE4rger"), true},
      {__LINE__, {.mustContain = {"\xC4rger"}}, Tcp("viel \xE4rger"), false, true},
      // A zero byte reads as a space; the spare zeroes behind the frame are never searched.
      {__LINE__, {.mustContain = {"A B"}}, Tcp(std::string_view("A\0B", 3)), true},
      // Header bytes are not payload: TCP options and the UDP header are skipped; ARP and
      // other frames are searched from the end of the Ethernet header.
      {__LINE__, {.mustContain = {"GET"}}, WithTcp({}, getOption, "xyz"), false},
      {__LINE__, {.mustContain = {"GET"}}, Udp(0x4745, 0x5420, "x"), false},  // ports "GET "
      {__LINE__, {.mustContain = {" \x01\x08"}}, Arp(), true},  // hardware 1, protocol 0x08..
      // No payload: dropped when something must be contained, else kept whatever must not.
      {__LINE__, {.mustContain = {"a"}}, Tcp(""), false},
      {__LINE__, {.mustContain = {"a"}}, WithTcp({}, longHeader, "", 60), false},
      {__LINE__, {.mustNotContain = {" "}}, Tcp(""), true},
      {__LINE__, {.mustNotContain = {" "}}, WithTcp({}, longHeader, "", 60), true},
  };
  for (const auto& c : cases) {
    FilterSettings filter;
    filter.SetAll(c.values);
    EXPECT_EQ(Keeps(filter, c.frame, c.matchCase, c.headersOnly), c.keep) << "line " << c.line;
  }
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
}

}  // namespace
}  // namespace vormelt
