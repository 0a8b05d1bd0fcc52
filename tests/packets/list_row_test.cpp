// List-row texts: what each kind of frame shows in the eleven columns, including the quirks
// users see (ports read at fixed offsets, ARP addresses only for well-formed Ethernet/IPv4 ARP).
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "packets/list_row.hpp"
#include "packets/names.hpp"
#include "support/frames.hpp"

namespace vormelt {
namespace {

using test::Bytes;

std::vector<std::string> Row(const Bytes& frame, InterfaceKind kind,
                             const FilterColumnTexts* filterTexts = nullptr,
                             std::string_view time = "12:00") {
  const RecordBuffer record(frame, kind, time);
  ListTextBuffer buffer{};
  std::vector<std::string> columns;
  for (int column = 0; column < kListColumnCount; ++column) {
    columns.emplace_back(
        ListColumnText(record.ref(), filterTexts, static_cast<ListColumn>(column), buffer));
  }
  return columns;
}

const test::Mac kDestination{0x00, 0x1b, 0x21, 0xaa, 0xbb, 0xcc};
const test::Mac kSource{0x3c, 0x7c, 0x3f, 0x01, 0x02, 0x0d};

test::Ipv4Header Addresses() {
  test::Ipv4Header ip;
  ip.source = test::ParseIp("192.168.1.20");
  ip.destination = test::ParseIp("10.200.3.4");
  return ip;
}

TEST(ListRow, TcpAndUdpShowAddressesAndPorts) {
  test::TcpHeader tcp;
  tcp.sourcePort = 51234;
  tcp.destinationPort = 443;
  const Bytes frame = test::RawSocketsFrame(test::TcpPacket(Addresses(), tcp, test::ToBytes("hi")));
  EXPECT_EQ(Row(frame, InterfaceKind::RawSockets),
            (std::vector<std::string>{names::ProtocolName(6), std::to_string(frame.size()),
                                      "192.168.1.20", "10.200.3.4", "51234", "443", "12:00", "",
                                      "", "", ""}));
}

TEST(ListRow, PortsAreReadAtFixedOffsetsEvenWithIpOptions) {
  test::Ipv4Header ip = Addresses();
  ip.options = {0x94, 0x04, 0x00, 0x00};  // router alert: four option bytes before TCP
  test::TcpHeader tcp;
  tcp.sourcePort = 1111;
  tcp.destinationPort = 2222;
  const auto row = Row(test::RawSocketsFrame(test::TcpPacket(ip, tcp, {})), InterfaceKind::RawSockets);
  EXPECT_EQ(row[4], std::to_string(0x9404));  // the option bytes
  EXPECT_EQ(row[5], "0");
}

TEST(ListRow, ArpShowsProtocolAddressesOnlyWhenWellFormed) {
  const auto arpRow = [](const test::ArpFields& arp) {
    return Row(test::EthernetFrame(kDestination, kSource, 0x0806, test::ArpPacket(arp)),
               InterfaceKind::PacketDriver);
  };
  const auto row = arpRow({});
  EXPECT_EQ(row[0], "ARP");
  EXPECT_EQ(row[2], "192.168.1.10");
  EXPECT_EQ(row[3], "192.168.1.1");

  test::ArpFields longProtocol;
  longProtocol.protocolLength = 6;
  EXPECT_EQ(arpRow(longProtocol)[2], "");

  // Hardware addresses of 8 bytes move the protocol addresses along.
  test::ArpFields wide;
  wide.hardwareLength = 8;
  EXPECT_EQ(arpRow(wide)[2], "192.168.1.10");
  EXPECT_EQ(arpRow(wide)[3], "192.168.1.1");

  // A hardware length that would put the addresses far past the frame shows nothing.
  Bytes cut = test::EthernetFrame(kDestination, kSource, 0x0806, test::ArpPacket({}));
  cut[14 + 4] = 200;
  const auto cutRow = Row(cut, InterfaceKind::PacketDriver);
  EXPECT_EQ(cutRow[2], "");
}

TEST(ListRow, MacColumnsOnlyForAdaptersAndFilterTextsWhenGiven) {
  const Bytes frame =
      test::EthernetFrame(kDestination, kSource, 0x0800, test::UdpPacket(Addresses(), 1, 2, {}));
  const FilterColumnTexts texts{"needle", "hay"};
  const auto adapter = Row(frame, InterfaceKind::PacketDriver, &texts);
  EXPECT_EQ(adapter[7], "needle");
  EXPECT_EQ(adapter[8], "hay");
  EXPECT_EQ(adapter[9], "3C:7C:3F:01:02:0D");
  EXPECT_EQ(adapter[10], "00:1B:21:AA:BB:CC");

  const auto raw = Row(frame, InterfaceKind::RawSockets);
  EXPECT_EQ(raw[9], "");
  EXPECT_EQ(raw[10], "");
}

TEST(ListRow, HeaderOnlyFramesReadTheZeroedSpareBytes) {
  const Bytes frame = test::RawSocketsFrame({});
  const auto row = Row(frame, InterfaceKind::RawSockets);
  EXPECT_EQ(row[1], "14");
  EXPECT_EQ(row[2], "0.0.0.0");
  EXPECT_EQ(row[4], "");  // protocol byte reads 0 → no ports
  EXPECT_EQ(ListColumnText(PacketRef{}, nullptr, ListColumn::Type, *std::make_unique<ListTextBuffer>()),
            "");
}

}  // namespace
}  // namespace vormelt
