// Detail-pane decoding, data levels and the byte ↔ character selection arithmetic, checked on
// frames built like captured traffic and on hand-made header corner cases.
#include "packets/decoder.hpp"

#include <gtest/gtest.h>

#include <string>

#include "packets/names.hpp"
#include "packets/render.hpp"
#include "support/frames.hpp"

namespace vormelt {
namespace {

using test::Bytes;

constexpr UiLanguage kEn = UiLanguage::English;
constexpr UiLanguage kDe = UiLanguage::German;

RecordBuffer Raw(const Bytes& ip) {
  return RecordBuffer(test::RawSocketsFrame(ip), InterfaceKind::RawSockets, "t");
}

RecordBuffer Tcp(std::uint8_t flags, Bytes ipOptions = {}, Bytes tcpOptions = {},
                 std::string_view payload = "hello") {
  test::Ipv4Header ip;
  ip.source = test::ParseIp("192.168.1.20");
  ip.destination = test::ParseIp("10.1.2.3");
  ip.ttl = 57;
  ip.options = std::move(ipOptions);
  test::TcpHeader tcp;
  tcp.sourcePort = 80;
  tcp.destinationPort = 65400;  // beyond the TCP name table
  tcp.sequence = 4000000000u;
  tcp.acknowledgement = 123456789;
  tcp.window = 29200;
  tcp.flags = flags;
  tcp.options = std::move(tcpOptions);
  return Raw(test::TcpPacket(ip, tcp, test::ToBytes(payload)));
}

RecordBuffer Arp(const test::ArpFields& fields, std::size_t cutTo = 0) {
  Bytes body = test::ArpPacket(fields);
  if (cutTo != 0) body.resize(cutTo);
  return RecordBuffer(test::EthernetFrame(test::Mac{0xff, 0xff, 0xff, 0xff, 0xff, 0xff},
                                          fields.senderMac, kEtherTypeArp, body),
                      InterfaceKind::PacketDriver);
}

RecordBuffer Icmp(std::uint8_t type, std::uint8_t code) {
  return Raw(test::IcmpPacket(test::Ipv4Header{}, type, code, test::ToBytes("abcdefgh")));
}

TEST(Decoder, TcpFieldsComeFromTheHeadersInWireOrder) {
  const RecordBuffer record = Tcp(test::kAck | test::kPsh);
  const PacketDetails d = DecodePacket(record.ref(), kEn, DataLevel::Datalink, "", "");
  // Plain header fields are cross-checked against tshark; here the names and texts.
  EXPECT_EQ(d.packetType, "TCP");
  EXPECT_EQ(d.packetSize, "59");  // 14 + 20 + 20 + 5
  EXPECT_EQ(d.sourcePortName, names::PortName(names::PortProtocol::Tcp, 80));
  EXPECT_EQ(d.destinationPortName, "Unknown");
  EXPECT_EQ(d.etherTypeText, std::string("0x800 - ") + names::EtherTypeName(0x0800));
  EXPECT_TRUE(d.icmpType.empty() && d.arpOperation.empty());
  EXPECT_EQ(DecodePacket(record.ref(), kDe, DataLevel::Datalink, "", "").destinationPortName,
            "Unbekannt");
  // UDP names come from the UDP table, whose range ends at 54,321.
  const RecordBuffer udp = Raw(test::UdpPacket(test::Ipv4Header{}, 53, 60000, {}));
  const PacketDetails u = DecodePacket(udp.ref(), kEn, DataLevel::Network, "", "");
  EXPECT_EQ(u.sourcePortName, names::PortName(names::PortProtocol::Udp, 53));
  EXPECT_EQ(u.destinationPortName, "Unknown");
  EXPECT_TRUE(u.window.empty());
}

TEST(Decoder, FlagsArePeeledFromTheTopWithoutMasking) {
  const auto flags = [](std::uint8_t raw) { return PeelTcpFlags(raw); };
  EXPECT_EQ(flags(0x12), (TcpFlagsShown{false, true, false, false, true, false}));
  // 0x40 counts as URG and leaves 0x32, so everything down to SYN shows, FIN does not.
  EXPECT_EQ(flags(0x52), (TcpFlagsShown{true, true, true, true, true, false}));
  EXPECT_EQ(flags(0x01), (TcpFlagsShown{false, false, false, false, false, true}));
  EXPECT_EQ(flags(0x03), (TcpFlagsShown{false, false, false, false, true, true}));
  EXPECT_EQ(flags(0xFF), (TcpFlagsShown{true, true, true, true, true, false}));
  EXPECT_EQ(DecodePacket(Tcp(0x52).ref(), kEn, DataLevel::Network, "", "").flags, flags(0x52));
}

TEST(Decoder, IpOptionsShiftTransportFieldsOffsetsAndSelections) {
  const RecordBuffer plain = Tcp(test::kSyn);
  const RecordBuffer ihl6 = Tcp(test::kSyn, Bytes{1, 1, 1, 1});
  ASSERT_EQ(Ipv4HeaderLength(ihl6.ref()), 24u);
  const PacketDetails d = DecodePacket(ihl6.ref(), kEn, DataLevel::Datalink, "", "");
  EXPECT_EQ(d.sourcePort, "80");
  EXPECT_EQ(d.sequence, "4000000000");
  EXPECT_EQ(d.window, "29200");

  EXPECT_EQ(DataStartOffset(ihl6.ref(), DataLevel::Transport), 24);
  EXPECT_EQ(DataStartOffset(ihl6.ref(), DataLevel::Presentation), 44);
  EXPECT_EQ(DataBytes(ihl6.ref(), DataLevel::Presentation).size(), 5u);

  // At Network level the sequence number moves 4 bytes right in the dump.
  const auto a = FieldSelection(plain.ref(), DataLevel::Network, DumpForm::Hex,
                                DetailField::Sequence, 6);
  const auto b = FieldSelection(ihl6.ref(), DataLevel::Network, DumpForm::Hex,
                                DetailField::Sequence, 6);
  ASSERT_TRUE(a && b);
  EXPECT_EQ(a->start, 49 + 8 * 3);   // byte 24: second line, 9th value
  EXPECT_EQ(b->start, 49 + 12 * 3);  // byte 28: second line, 13th value
  EXPECT_EQ(*FieldFrameBytes(ihl6.ref(), DetailField::Window, 6), (FieldBytes{52, 2}));
  // Measured from the Transport start the header starts at 0 either way.
  EXPECT_EQ(FieldSelection(ihl6.ref(), DataLevel::Transport, DumpForm::Hex,
                           DetailField::SourcePort, 6),
            (TextSelection{0, 5}));
}

TEST(Decoder, DataLevelsFollowTheTransportProtocol) {
  const RecordBuffer tcp = Tcp(test::kAck, {}, Bytes(12, 1));  // data offset 32
  EXPECT_EQ(DataStartOffset(tcp.ref(), DataLevel::Datalink), -14);
  EXPECT_EQ(DataStartOffset(tcp.ref(), DataLevel::Network), 0);
  EXPECT_EQ(DataStartOffset(tcp.ref(), DataLevel::Transport), 20);
  EXPECT_EQ(DataStartOffset(tcp.ref(), DataLevel::Presentation), 52);

  const RecordBuffer udp = Raw(test::UdpPacket(test::Ipv4Header{}, 1, 2, test::ToBytes("xy")));
  EXPECT_EQ(DataStartOffset(udp.ref(), DataLevel::Presentation), 28);
  EXPECT_EQ(DataStartOffset(Icmp(8, 0).ref(), DataLevel::Presentation), 28);
  test::Ipv4Header gre;
  gre.protocol = 47;
  const RecordBuffer other = Raw(test::Ipv4Packet(gre, test::ToBytes("abcd")));
  EXPECT_EQ(DataStartOffset(other.ref(), DataLevel::Presentation), 20);

  // Non-IP frames dump from the network start at every level above Datalink.
  const RecordBuffer arp = Arp(test::ArpFields{});
  EXPECT_EQ(DataStartOffset(arp.ref(), DataLevel::Transport), 0);
  EXPECT_EQ(DataStartOffset(arp.ref(), DataLevel::Presentation), 0);
  EXPECT_EQ(DataBytes(arp.ref(), DataLevel::Presentation).size(), 28u);

  // A data offset pointing past the end leaves nothing to show rather than reading on.
  Bytes cut = test::TcpPacket(test::Ipv4Header{}, test::TcpHeader{}, {});
  cut[20 + 12] = 0xF0;  // 60-byte TCP header in a 40-byte packet
  const RecordBuffer bad = Raw(cut);
  EXPECT_TRUE(DataBytes(bad.ref(), DataLevel::Presentation).empty());
}

TEST(Decoder, EtherTypeTextIsUnpaddedAndNamesUnknownCodes) {
  const auto text = [](std::uint16_t type, UiLanguage language) {
    const RecordBuffer r(test::EthernetFrame({}, {}, type, Bytes(30, 0)),
                         InterfaceKind::PacketDriver);
    return DecodePacket(r.ref(), language, DataLevel::Datalink, "", "").etherTypeText;
  };
  EXPECT_EQ(text(0x86DD, kEn), "0x86DD - IP version 6");
  EXPECT_EQ(text(0xFFFF, kEn), "0xFFFF - Unknown");
  EXPECT_EQ(text(0xFF00, kDe), "0xFF00 - Unbekannt");
  EXPECT_EQ(text(0x0806, kEn), std::string("0x806 - ") + names::EtherTypeName(0x0806));
}

TEST(Decoder, ArpFieldsAndAddressesFollowTheHardwareLength) {
  test::ArpFields fields;
  fields.operation = 2;
  const RecordBuffer record = Arp(fields);
  const PacketDetails d = DecodePacket(record.ref(), kEn, DataLevel::Datalink, "", "");
  EXPECT_EQ(d.arpHardwareType, "0x0001 - Ethernet");
  EXPECT_EQ(d.arpProtocolType, std::string("0x0800 - ") + names::EtherTypeName(0x0800));
  EXPECT_EQ(d.arpOperation, "0x0002 - Reply");
  EXPECT_EQ(d.arpHardwareLength, "0x06");
  EXPECT_EQ(d.arpProtocolLength, "0x04");
  EXPECT_EQ(d.sourceIp, "192.168.1.10");
  EXPECT_EQ(d.destinationIp, "192.168.1.1");
  EXPECT_EQ(*FieldFrameBytes(record.ref(), DetailField::SourceIp, 0), (FieldBytes{28, 4}));
  EXPECT_EQ(*FieldFrameBytes(record.ref(), DetailField::DestinationIp, 0), (FieldBytes{38, 4}));

  fields.operation = 1;
  EXPECT_EQ(DecodePacket(Arp(fields).ref(), kDe, DataLevel::Datalink, "", "").arpOperation,
            "0x0001 - Antrag");
  fields.operation = 9;
  fields.hardwareType = 6;
  fields.protocolType = 0xFF10;
  const PacketDetails odd = DecodePacket(Arp(fields).ref(), kDe, DataLevel::Datalink, "", "");
  EXPECT_EQ(odd.arpOperation, "0x0009 - Unbekannt");
  EXPECT_EQ(odd.arpHardwareType, "0x0006 - Unbekannt");
  EXPECT_EQ(odd.arpProtocolType, "0xFF10 - Unbekannt");
  EXPECT_FALSE(odd.addressesSet);  // not Ethernet hardware
}

TEST(Decoder, ArpAddressRuleIsTheLooseLengthBound) {
  test::ArpFields fields;
  // 2 × 6 + 12 = 24 bytes of network data are enough although the target ends at byte 28.
  const RecordBuffer loose = Arp(fields, 24);
  const PacketDetails d = DecodePacket(loose.ref(), kEn, DataLevel::Datalink, "", "");
  EXPECT_TRUE(d.addressesSet);
  EXPECT_EQ(d.sourceIp, "192.168.1.10");
  // Read past the frame: the kind byte (1, packet driver), then zeroed spare bytes.
  EXPECT_EQ(d.destinationIp, "1.0.0.0");
  EXPECT_FALSE(DecodePacket(Arp(fields, 23).ref(), kEn, DataLevel::Datalink, "", "").addressesSet);

  fields.protocolLength = 6;
  EXPECT_FALSE(DecodePacket(Arp(fields).ref(), kEn, DataLevel::Datalink, "", "").addressesSet);
  EXPECT_FALSE(FieldFrameBytes(Arp(fields).ref(), DetailField::SourceIp, 0));

  fields = {};
  fields.hardwareLength = 8;
  const RecordBuffer wide = Arp(fields);
  EXPECT_EQ(*FieldFrameBytes(wide.ref(), DetailField::SourceIp, 0), (FieldBytes{30, 4}));
  EXPECT_EQ(DecodePacket(wide.ref(), kEn, DataLevel::Datalink, "", "").destinationIp,
            "192.168.1.1");
}

TEST(Decoder, IcmpTypesAndCodesUseTheirDefaults) {
  const auto decoded = [](std::uint8_t type, std::uint8_t code, UiLanguage language) {
    const PacketDetails d = DecodePacket(Icmp(type, code).ref(), language, DataLevel::Network, "", "");
    return d.icmpType + " | " + d.icmpCode;
  };
  EXPECT_EQ(decoded(3, 13, kEn),
            "3 - Destination unreachable | 13 - Communication administratively prohibited by filtering");
  EXPECT_EQ(decoded(3, 16, kEn), "3 - Destination unreachable | 16 - Unknown");
  EXPECT_EQ(decoded(3, 0, kEn), "3 - Destination unreachable | 0 - Network unreachable");
  EXPECT_EQ(decoded(8, 0, kEn), "8 - Echo request | 0 - Null");
  EXPECT_EQ(decoded(5, 3, kEn), "5 - Redirect | 3 - Host redirect for this type of service");
  EXPECT_EQ(decoded(11, 1, kEn), "11 - Time exceeded | 1 - Reassembly TTL exceeded");
  EXPECT_EQ(decoded(12, 2, kEn), "12 - Parameter problem | 2 - Unknown");
  EXPECT_EQ(decoded(40, 7, kEn), "40 - Unknown | 7 - Unknown");
  // Names stay English in German; only the fallback is translated.
  EXPECT_EQ(decoded(0, 0, kDe), "0 - Echo reply | 0 - Null");
  EXPECT_EQ(decoded(6, 1, kDe), "6 - Unbekannt | 1 - Unbekannt");
}

TEST(Decoder, PaneLayoutKeepsTransportGroupsUntilTheNextIpv4Packet) {
  PaneLayoutMemory memory;
  EXPECT_TRUE(memory.Apply(kEtherTypeIpv4, kProtocolTcp));
  EXPECT_EQ(memory.layout(), (PaneLayout{false, true, true, true, true, false}));
  EXPECT_FALSE(memory.Apply(kEtherTypeIpv4, kProtocolTcp));
  EXPECT_TRUE(memory.Apply(kEtherTypeArp, 0));
  EXPECT_EQ(memory.layout(), (PaneLayout{true, false, true, true, true, false}));
  EXPECT_TRUE(memory.Apply(0x86DD, 0));
  EXPECT_EQ(memory.layout(), (PaneLayout{false, false, false, true, true, false}));
  // Back to IPv4 with the protocol last seen: only the EtherType groups change.
  EXPECT_TRUE(memory.Apply(kEtherTypeIpv4, kProtocolTcp));
  EXPECT_TRUE(memory.Apply(kEtherTypeIpv4, kProtocolIcmp));
  EXPECT_EQ(memory.layout(), (PaneLayout{false, true, true, false, false, true}));
  EXPECT_TRUE(memory.Apply(kEtherTypeIpv4, kProtocolUdp));
  EXPECT_EQ(memory.layout(), (PaneLayout{false, true, true, true, false, false}));
}

TEST(Selection, StartsOnTheFieldsFirstValueInTheDump) {
  const RecordBuffer record = Tcp(test::kAck, Bytes{7, 7, 7, 7});  // IHL 6
  const PacketRef ref = record.ref();
  for (const DumpForm form : {DumpForm::Dec, DumpForm::Hex}) {
    std::string dump;
    AppendPaneDump(dump, DataBytes(ref, DataLevel::Datalink), form);
    for (int f = 0; f <= static_cast<int>(DetailField::EtherType); ++f) {
      const auto field = static_cast<DetailField>(f);
      const FieldBytes bytes = *FieldFrameBytes(ref, field, kProtocolTcp);
      const TextSelection sel = *FieldSelection(ref, DataLevel::Datalink, form, field, 6);
      std::string value;
      AppendDataBytes(value, std::span(ref.frame + bytes.frameOffset, 1),
                      form == DumpForm::Dec ? DataForm::Dec : DataForm::Hex);
      EXPECT_EQ(dump.substr(sel.start, 3), value.substr(0, 3)) << "field " << f;
      EXPECT_GT(sel.end, sel.start);
    }
  }
}

TEST(Selection, ArithmeticEdges) {
  // Dec lines are 41 characters; the 11th value starts the second line.
  EXPECT_EQ(DumpSelection(DumpForm::Dec, 10, 1), (TextSelection{41, 44}));
  EXPECT_EQ(DumpSelection(DumpForm::Dec, 22, 1), (TextSelection{90, 93}));
  // A field ending at a line end selects up to the line break.
  EXPECT_EQ(DumpSelection(DumpForm::Hex, 15, 1), (TextSelection{45, 48}));
  // Bytes before the dump start clamp to 0: a MAC at Network level selects nothing.
  EXPECT_EQ(DumpSelection(DumpForm::Hex, -8, 6), (TextSelection{0, 0}));
  EXPECT_EQ(DumpSelection(DumpForm::Hex, 0, 0), (TextSelection{0, 0}));
  EXPECT_FALSE(DumpSelection(DumpForm::Text, 0, 4));

  const RecordBuffer udp = Raw(test::UdpPacket(test::Ipv4Header{}, 1, 2, {}));
  // Port and TCP fields exist only for the protocol the pane shows.
  EXPECT_TRUE(FieldFrameBytes(udp.ref(), DetailField::SourcePort, kProtocolUdp));
  EXPECT_FALSE(FieldFrameBytes(udp.ref(), DetailField::SourcePort, kProtocolIcmp));
  EXPECT_FALSE(FieldFrameBytes(udp.ref(), DetailField::Window, kProtocolUdp));
  EXPECT_TRUE(FieldFrameBytes(udp.ref(), DetailField::Window, kProtocolTcp));
}

TEST(HexViewer, SelectionMirrorsIntoTheCharacterBox) {
  EXPECT_EQ(HexViewerByteAt(49 + 3), 17);
  EXPECT_EQ(HexViewerCharPosition(17), 19);
  EXPECT_EQ(MirrorHexSelection({52, 54}), (TextSelection{19, 20}));  // "XX" of byte 17
  EXPECT_EQ(MirrorHexSelection({54, 52}), (TextSelection{19, 20}));  // reversed
  EXPECT_EQ(MirrorHexSelection({0, 9}), (TextSelection{0, 3}));
  EXPECT_EQ(MirrorHexSelection({6, 100}), (TextSelection{2, 37}));  // ends inside byte 32
  // A four-byte field on the second line ("AA BB CC DD", bytes 26-29) mirrors all four bytes,
  // and a selection ending in a line break stops at that line's last byte.
  EXPECT_EQ(MirrorHexSelection({79, 90}), (TextSelection{28, 32}));
  EXPECT_EQ(MirrorHexSelection({3, 49}), (TextSelection{1, 16}));
  EXPECT_FALSE(MirrorHexSelection({0, 0}));

  const RecordBuffer record = Tcp(test::kAck);
  EXPECT_EQ(HexViewerFieldSelection(record.ref(), DataLevel::Datalink, DetailField::Ttl, 6),
            (TextSelection{67, 69}));
}

TEST(Decoder, UnreadableRecordsBlameThePointerFromTwentyBytes) {
  EXPECT_EQ(UnreadableRecord(20).question, Text::DeleteInvalidPtrQuestion);
  EXPECT_EQ(UnreadableRecord(19).dumpText, Text::InvalidPacketData);
}

TEST(Decoder, VendorLookupUsesTheFirstThreeBytes) {
  EXPECT_FALSE(VendorForMacText("", kEn));
  const char* vmware = names::VendorName(0x000C29);
  ASSERT_NE(vmware, nullptr);
  EXPECT_EQ(*VendorForMacText("00:0C:29:12:34:56", kEn), vmware);
  EXPECT_EQ(*VendorForMacText("nonsense", kEn), "_Unknown vendor code_");
  EXPECT_EQ(VendorMessageText("00:0C:29:12:34:56", "ACME", kEn),
            "MAC:\r\n    00:0C:29:12:34:56\r\n\r\nVendor:\r\n    ACME");
  EXPECT_EQ(VendorMessageText("AA", "X", kDe), "MAC:\r\n    AA\r\n\r\nHersteller:\r\n    X");
}

}  // namespace
}  // namespace vormelt
