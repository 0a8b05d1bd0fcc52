// Example packets through the list row, the row menu, the pane and the summary line, with the
// quirks users see: list ports at fixed offsets, the two ARP bounds (frame length for the
// list, network length for the pane), and one size everywhere for a cut frame.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "packets/decoder.hpp"
#include "packets/list_row.hpp"
#include "packets/names.hpp"
#include "packets/render.hpp"
#include "packets/row_actions.hpp"
#include "support/frames.hpp"

namespace vormelt {
namespace {

using test::Bytes;
using Columns = std::vector<std::string>;

Columns Row(const RecordBuffer& record, const FilterColumnTexts* texts = nullptr) {
  ListTextBuffer buffer{};
  Columns columns;
  for (int column = 0; column < kListColumnCount; ++column) {
    columns.emplace_back(
        ListColumnText(record.ref(), texts, static_cast<ListColumn>(column), buffer));
  }
  return columns;
}

// The pane's size, addresses ("-" when it keeps the old ones) and ports in one text.
std::string Pane(const RecordBuffer& record) {
  const PacketDetails d = DecodePacket(record.ref(), UiLanguage::English, DataLevel::Datalink,
                                       "", "");
  const std::string addresses = d.addressesSet ? d.sourceIp + ">" + d.destinationIp : "-";
  return d.packetSize + "|" + addresses + "|" + d.sourcePort + ">" + d.destinationPort;
}

const test::Mac kDestination{0x00, 0x1b, 0x21, 0xaa, 0xbb, 0xcc};
const test::Mac kSource{0x3c, 0x7c, 0x3f, 0x01, 0x02, 0x0d};

Bytes ArpFrame(const test::ArpFields& arp, std::size_t cutTo = 0) {
  Bytes body = test::ArpPacket(arp);
  if (cutTo != 0) body.resize(cutTo);
  return test::EthernetFrame(kDestination, kSource, kEtherTypeArp, body);
}

TEST(ExamplePackets, ListRowPaneAndSummaryLine) {
  test::Ipv4Header ip;
  ip.source = test::ParseIp("192.168.1.20");
  ip.destination = test::ParseIp("10.200.3.4");
  test::TcpHeader tcp;
  tcp.sourcePort = 51234;
  tcp.destinationPort = 443;
  test::Ipv4Header withOptions = ip;
  withOptions.options = {0x94, 0x04, 0x00, 0x00};  // router alert before the TCP header
  test::ArpFields ten;
  ten.hardwareLength = 10;
  const std::string tcpName = names::ProtocolName(6);

  const struct {
    const char* what;
    Bytes frame;
    Columns row;  // type, size, source and destination IP, ports
    std::string pane;
    RowActions menu = {true, false};  // reverse resolve, TCP options
  } examples[] = {
      {"tcp", test::RawSocketsFrame(test::TcpPacket(ip, tcp, test::ToBytes("hi"))),
       {tcpName, "56", "192.168.1.20", "10.200.3.4", "51234", "443"},
       "56|192.168.1.20>10.200.3.4|51234>443", {true, true}},
      {"udp", test::RawSocketsFrame(test::UdpPacket(ip, 53, 5353, {})),
       {"UDP", "42", "192.168.1.20", "10.200.3.4", "53", "5353"},
       "42|192.168.1.20>10.200.3.4|53>5353"},
      // The list reads ports at 20..23, so IP options show as ports; the pane follows IHL.
      {"ip options", test::RawSocketsFrame(test::TcpPacket(withOptions, tcp, {})),
       {tcpName, "58", "192.168.1.20", "10.200.3.4", "37892", "0"},
       "58|192.168.1.20>10.200.3.4|51234>443", {true, true}},
      {"arp", ArpFrame({}), {"ARP", "42", "192.168.1.10", "192.168.1.1", "", ""},
       "42|192.168.1.10>192.168.1.1|>"},
      // 2 × 10 + 12 = 32: within the 44-byte frame (list) but beyond 30 network bytes (pane);
      // the list's target address then reads the kind byte and spare zeroes.
      {"arp bounds", ArpFrame(ten, 30), {"ARP", "44", "192.168.1.10", "0.0.0.0", "", ""},
       "44|-|>"},
      // UDP behind a hop-by-hop header: ports from behind the chain.
      {"ipv6", test::Ipv6Frame("2001:db8::1", "::1", 0, Bytes{17, 0, 1, 4, 0, 0, 0, 0, 0, 53, 0x13, 0xC4, 0, 8, 0, 0}),
       {"UDP", "70", "2001:db8::1", "::1", "53", "5060"}, "70|2001:db8::1>::1|53>5060"},
      // A fragment behind the first holds no TCP header: no ports, no TCP commands.
      {"ipv6 fragment", test::Ipv6Frame("2001:db8::1", "::1", 44, Bytes{6, 0, 0, 9, 0, 0, 0, 1, 0, 53, 0, 80}),
       {"TCP", "66", "2001:db8::1", "::1", "", ""}, "66|2001:db8::1>::1|>"},
      // Header only: the zeroed spare bytes read as an empty IPv4 header, protocol 0.
      {"header only", test::RawSocketsFrame({}), {"", "14", "0.0.0.0", "0.0.0.0", "", ""},
       "14|0.0.0.0>0.0.0.0|>"},
      // A frame cut inside the Ethernet header has no EtherType and keeps its real size.
      {"cut", Bytes(10, 0x08), {"0", "10", "", "", "", ""}, "10|-|>", {false, false}},
  };
  for (const auto& e : examples) {
    const RecordBuffer record(e.frame, InterfaceKind::RawSockets, "12:00");
    Columns row = Row(record);
    EXPECT_EQ(row[6], "12:00");
    row.resize(e.row.size());
    EXPECT_EQ(row, e.row) << e.what;
    EXPECT_EQ(Pane(record), e.pane) << e.what;
    EXPECT_EQ(RowActionsFor(record.ref()), e.menu) << e.what;
    std::string line;
    AppendSummaryLine(line, record.ref(), IpGap::Narrow);
    EXPECT_EQ(line.substr(5, 4), std::string(4 - e.row[1].size(), ' ') + e.row[1]) << e.what;
  }
}

// An adapter frame shows only the addresses it holds, in the list and the summary line: none
// below six bytes, the destination alone below twelve; never the record's own bytes behind it.
TEST(ExamplePackets, ShortAdapterFramesShowOnlyTheAddressesTheyHold) {
  const std::string mac = "AA:AA:AA:AA:AA:AA", none;
  const struct {
    std::size_t length;
    std::string source, destination;
  } cases[] = {{0, none, none}, {5, none, none}, {6, none, mac}, {11, none, mac}, {12, mac, mac}};
  for (const auto& c : cases) {
    const RecordBuffer record(Bytes(c.length, 0xAA), InterfaceKind::PacketDriver, "t");
    const Columns row = Row(record);
    EXPECT_EQ(row[9], c.source) << c.length;
    EXPECT_EQ(row[10], c.destination) << c.length;
    std::string line;
    AppendSummaryLine(line, record.ref(), IpGap::Narrow);
    const auto column = [](const std::string& text) { return text.empty() ? std::string(17, ' ') : text; };
    EXPECT_EQ(line.substr(11, 17), column(c.source)) << c.length;
    EXPECT_EQ(line.substr(30, 17), column(c.destination)) << c.length;
  }
}

}  // namespace
}  // namespace vormelt
