// Detail-pane decoding corner cases (TCP flag peeling, IP options, ICMP names), data levels and
// the byte ↔ character selection arithmetic. Example packets through the pane: list_row_test.
#include "packets/decoder.hpp"

#include <gtest/gtest.h>

#include <string>

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

TEST(Decoder, IcmpTypesAndCodesUseTheirDefaults) {
  const auto decoded = [](std::uint8_t type, std::uint8_t code, UiLanguage language) {
    const PacketDetails d = DecodePacket(Icmp(type, code).ref(), language, DataLevel::Network, "", "");
    return d.icmpType + " | " + d.icmpCode;
  };
  EXPECT_EQ(decoded(3, 16, kEn), "3 - Destination unreachable | 16 - Unknown");
  EXPECT_EQ(decoded(8, 0, kEn), "8 - Echo request | 0 - Null");
  EXPECT_EQ(decoded(12, 2, kEn), "12 - Parameter problem | 2 - Unknown");
  // Names stay English in German; only the fallback is translated.
  EXPECT_EQ(decoded(0, 0, kDe), "0 - Echo reply | 0 - Null");
  EXPECT_EQ(decoded(6, 1, kDe), "6 - Unbekannt | 1 - Unbekannt");
}

TEST(Decoder, PaneLayoutKeepsTransportGroupsUntilTheNextIpv4Packet) {
  PaneLayoutMemory memory;
  EXPECT_TRUE(memory.Apply(kEtherTypeIpv4, kProtocolTcp));
  EXPECT_FALSE(memory.Apply(kEtherTypeIpv4, kProtocolTcp));
  EXPECT_TRUE(memory.Apply(kEtherTypeArp, 0));
  EXPECT_EQ(memory.layout(), (PaneLayout{true, false, true, true, true, false}));
  // Back to IPv4 with the protocol last seen: only the EtherType groups change.
  EXPECT_TRUE(memory.Apply(kEtherTypeIpv4, kProtocolTcp));
  EXPECT_TRUE(memory.Apply(kEtherTypeIpv4, kProtocolIcmp));
  EXPECT_EQ(memory.layout(), (PaneLayout{false, true, true, false, false, true}));
}

// Every field's selection starts on its own first value, IP options (IHL 6) included.
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
  // A field ending at a line end selects up to the line break.
  EXPECT_EQ(DumpSelection(DumpForm::Hex, 15, 1), (TextSelection{45, 48}));
  // Bytes before the dump start clamp to 0: a MAC at Network level selects nothing.
  EXPECT_EQ(DumpSelection(DumpForm::Hex, -8, 6), (TextSelection{0, 0}));
  EXPECT_FALSE(DumpSelection(DumpForm::Text, 0, 4));
}

TEST(HexViewer, SelectionMirrorsIntoTheCharacterBox) {
  EXPECT_EQ(MirrorHexSelection({54, 52}), (TextSelection{19, 20}));  // reversed "XX" of byte 17
  EXPECT_EQ(MirrorHexSelection({6, 100}), (TextSelection{2, 37}));  // ends inside byte 32
  // A four-byte field on the second line ("AA BB CC DD", bytes 26-29) mirrors all four bytes,
  // and a selection ending in a line break stops at that line's last byte.
  EXPECT_EQ(MirrorHexSelection({79, 90}), (TextSelection{28, 32}));
  EXPECT_EQ(MirrorHexSelection({3, 49}), (TextSelection{1, 16}));
  EXPECT_FALSE(MirrorHexSelection({0, 0}));
}

}  // namespace
}  // namespace vormelt
