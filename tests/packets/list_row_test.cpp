// List-row texts over example packets, including the quirks users see: ports read at fixed
// offsets, ARP addresses only for well-formed Ethernet/IPv4 ARP, a cut frame's real size.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "packets/list_row.hpp"
#include "packets/names.hpp"
#include "support/frames.hpp"

namespace vormelt {
namespace {

using test::Bytes;
using Columns = std::vector<std::string>;

Columns Row(const Bytes& frame, InterfaceKind kind, const FilterColumnTexts* texts = nullptr) {
  const RecordBuffer record(frame, kind, "12:00");
  ListTextBuffer buffer{};
  Columns columns;
  for (int column = 0; column < kListColumnCount; ++column) {
    columns.emplace_back(
        ListColumnText(record.ref(), texts, static_cast<ListColumn>(column), buffer));
  }
  return columns;
}

const test::Mac kDestination{0x00, 0x1b, 0x21, 0xaa, 0xbb, 0xcc};
const test::Mac kSource{0x3c, 0x7c, 0x3f, 0x01, 0x02, 0x0d};

Bytes ArpFrame(const test::ArpFields& arp) {
  return test::EthernetFrame(kDestination, kSource, kEtherTypeArp, test::ArpPacket(arp));
}

TEST(ListRow, ExamplePackets) {
  test::Ipv4Header ip;
  ip.source = test::ParseIp("192.168.1.20");
  ip.destination = test::ParseIp("10.200.3.4");
  test::TcpHeader tcp;
  tcp.sourcePort = 51234;
  tcp.destinationPort = 443;
  test::Ipv4Header withOptions = ip;
  withOptions.options = {0x94, 0x04, 0x00, 0x00};  // router alert before the TCP header
  test::ArpFields wide, longProtocol;
  wide.hardwareLength = 8;  // moves the protocol addresses along
  longProtocol.protocolLength = 6;
  Bytes farArp = ArpFrame({});
  farArp[14 + 4] = 200;  // addresses far past the frame
  const Bytes tcpFrame = test::RawSocketsFrame(test::TcpPacket(ip, tcp, test::ToBytes("hi")));
  const std::string tcpName = names::ProtocolName(6);

  const struct {
    const char* what;
    Bytes frame;
    Columns expected;  // type, size, source/destination IP, ports, time
  } cases[] = {
      {"tcp", tcpFrame,
       {tcpName, "56", "192.168.1.20", "10.200.3.4", "51234", "443", "12:00"}},
      {"udp", test::RawSocketsFrame(test::UdpPacket(ip, 53, 5353, {})),
       {"UDP", "42", "192.168.1.20", "10.200.3.4", "53", "5353", "12:00"}},
      // The ports are read at fixed offsets 20..23: IP options show as ports.
      {"ip options", test::RawSocketsFrame(test::TcpPacket(withOptions, tcp, {})),
       {tcpName, "58", "192.168.1.20", "10.200.3.4", "37892", "0", "12:00"}},
      {"arp", ArpFrame({}), {"ARP", "42", "192.168.1.10", "192.168.1.1", "", "", "12:00"}},
      {"arp hl 8", ArpFrame(wide), {"ARP", "46", "192.168.1.10", "192.168.1.1", "", "", "12:00"}},
      {"arp plen 6", ArpFrame(longProtocol), {"ARP", "46", "", "", "", "", "12:00"}},
      {"arp far", farArp, {"ARP", "42", "", "", "", "", "12:00"}},
      {"ipv6", test::EthernetFrame({}, {}, kEtherTypeIpv6, Bytes(40, 6)),
       {"86DD", "54", "", "", "", "", "12:00"}},
      // Header only: the zeroed spare bytes read as an empty IPv4 header, protocol 0.
      {"header only", test::RawSocketsFrame({}), {"", "14", "0.0.0.0", "0.0.0.0", "", "", "12:00"}},
      // A frame cut inside the Ethernet header shows its real size and no EtherType.
      {"cut", Bytes(10, 0x08), {"0", "10", "", "", "", "", "12:00"}},
  };
  for (const auto& c : cases) {
    Columns row = Row(c.frame, InterfaceKind::RawSockets);
    row.resize(c.expected.size());
    EXPECT_EQ(row, c.expected) << c.what;
  }
}

TEST(ListRow, MacColumnsOnlyForAdaptersAndFilterTextsWhenGiven) {
  const Bytes frame = test::EthernetFrame(kDestination, kSource, kEtherTypeIpv4,
                                          test::UdpPacket({}, 1, 2, {}));
  const FilterColumnTexts texts{"needle", "hay"};
  const Columns adapter = Row(frame, InterfaceKind::PacketDriver, &texts);
  EXPECT_EQ(Columns(adapter.begin() + 7, adapter.end()),
            (Columns{"needle", "hay", "3C:7C:3F:01:02:0D", "00:1B:21:AA:BB:CC"}));
  const Columns raw = Row(frame, InterfaceKind::RawSockets);
  EXPECT_EQ(Columns(raw.begin() + 7, raw.end()), (Columns{"", "", "", ""}));
  ListTextBuffer buffer{};
  EXPECT_EQ(ListColumnText(PacketRef{}, nullptr, ListColumn::Type, buffer), "");
}

}  // namespace
}  // namespace vormelt
