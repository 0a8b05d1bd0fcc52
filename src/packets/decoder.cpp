// Field decoding of the detail pane, data-level offsets and field-selection arithmetic.
// Header fields are read through the header views over the frame and its zeroed spare bytes:
// a frame cut inside a header reads zeroes there, and no read leaves frame + spare.
#include "packets/decoder.hpp"

#include <algorithm>
#include <cstdio>

#include "packets/headers.hpp"
#include "packets/names.hpp"

namespace vormelt {
namespace {

// Frame offsets of the Ethernet fields the pane can select.
constexpr std::int32_t kOffsetDestinationMac = 0;
constexpr std::int32_t kOffsetSourceMac = 6;
constexpr std::int32_t kOffsetEtherType = 12;
constexpr std::int32_t kNetworkStart = static_cast<std::int32_t>(kEthernetHeaderLength);
// The Ethernet header comes before the first byte of every data level but Datalink.
constexpr std::int32_t kDatalinkStart = -kNetworkStart;
constexpr std::uint32_t kUnreadableLengthBound = 20;

constexpr std::uint16_t kArpRequest = 1;
constexpr std::uint16_t kArpReply = 2;

// The IPv4 header of any frame, whatever its EtherType says: the pane's offsets and the data
// levels read the IHL nibble at frame offset 14 as they always have.
std::optional<Ipv4View> Ipv4Of(const FrameView& frame) {
  return Ipv4View::Parse(frame.networkReadable());
}
bool IsArp(PacketRef packet) { return FrameView(packet).etherType() == kEtherTypeArp; }
// IPv4 header length in bytes from the IHL nibble (the version nibble is ignored).
std::uint32_t Ipv4HeaderLength(PacketRef packet) {
  const auto ip = Ipv4Of(FrameView(packet));
  return ip ? ip->headerLength() : 0;
}

// The IPv6 network layer of an IPv6 frame; nullopt for any other.
std::optional<NetworkLayer> Ipv6Of(const FrameView& frame) {
  if (frame.etherType() != kEtherTypeIpv6) return std::nullopt;
  return NetworkOf(frame);
}

std::int32_t TransportStart(PacketRef packet) {
  const FrameView frame(packet);
  if (const auto v6 = Ipv6Of(frame)) {
    return kNetworkStart + static_cast<std::int32_t>(v6->transportOffset);
  }
  return kNetworkStart + static_cast<std::int32_t>(Ipv4HeaderLength(packet));
}

// Frame offsets of an ARP packet's sender and target protocol addresses, under the pane's
// rule: 2 × HL + 12 not beyond the network length (the target's last bytes may lie in the
// spare bytes).
struct ArpAddressOffsets {
  std::int32_t sender = 0;
  std::int32_t target = 0;
};
std::optional<ArpAddressOffsets> ArpProtocolAddressOffsets(PacketRef packet) {
  const FrameView frame(packet);
  const PacketHeaders headers = HeadersOf(frame);
  if (!headers.arp) return std::nullopt;
  const auto spots = headers.arp->Ipv4Addresses(frame.networkLength());
  if (!spots) return std::nullopt;
  return ArpAddressOffsets{kNetworkStart + static_cast<std::int32_t>(spots->sender),
                           kNetworkStart + static_cast<std::int32_t>(spots->target)};
}

template <typename... Args>
std::string Format(const char* form, Args... args) {
  char buffer[160];
  const int n = std::snprintf(buffer, sizeof buffer, form, args...);
  return std::string(buffer, n > 0 ? std::min<std::size_t>(n, sizeof buffer - 1) : 0);
}

std::string Dotted(const std::uint8_t* p) {
  return Format("%u.%u.%u.%u", p[0], p[1], p[2], p[3]);
}

std::string NamedHex4(std::uint16_t value, const char* name) {
  return Format("0x%04X - %s", value, name);
}

void DecodeArp(const FrameView& frame, const ArpView& arp, UiLanguage language,
               PacketDetails& d) {
  const char* unknown = Tr(Text::Unknown, language);
  const std::uint16_t hardware = arp.hardwareType();
  d.arpHardwareType =
      NamedHex4(hardware, hardware == ArpView::kHardwareEthernet ? Tr(Text::ArpEthernet, language)
                                                                 : unknown);
  const std::uint16_t protocol = arp.protocolType();
  const char* protocolName = names::EtherTypeName(protocol);
  d.arpProtocolType = NamedHex4(protocol, protocolName ? protocolName : unknown);
  const std::uint16_t operation = arp.operation();
  const char* operationName = operation == kArpRequest ? Tr(Text::ArpRequest, language)
                              : operation == kArpReply ? Tr(Text::ArpReply, language)
                                                       : unknown;
  d.arpOperation = NamedHex4(operation, operationName);
  d.arpHardwareLength = Format("0x%02X", arp.hardwareLength());
  d.arpProtocolLength = Format("0x%02X", arp.protocolLength());

  if (const auto spots = arp.Ipv4Addresses(frame.networkLength())) {
    d.sourceIp = Dotted(arp.AddressBytes(spots->sender));
    d.destinationIp = Dotted(arp.AddressBytes(spots->target));
    d.addressesSet = true;
  }
}

std::string PortNameText(names::PortProtocol protocol, std::uint16_t port, UiLanguage language) {
  const char* name = names::PortName(protocol, port);
  return name ? name : Tr(Text::Unknown, language);
}

void DecodePorts(ByteSpan transport, UiLanguage language, PacketDetails& d) {
  const auto ports = PortsView::Parse(transport);
  if (!ports) return;
  const auto table =
      d.ipProtocol == kProtocolTcp ? names::PortProtocol::Tcp : names::PortProtocol::Udp;
  d.sourcePort = std::to_string(ports->source());
  d.destinationPort = std::to_string(ports->destination());
  d.sourcePortName = PortNameText(table, ports->source(), language);
  d.destinationPortName = PortNameText(table, ports->destination(), language);
}

void DecodeTransport(ByteSpan transport, bool carriesPorts, UiLanguage language,
                     PacketDetails& d) {
  if (carriesPorts) DecodePorts(transport, language, d);
  if (d.ipProtocol == kProtocolTcp) {
    if (const auto tcp = TcpView::Parse(transport)) {
      d.window = std::to_string(tcp->window());
      d.sequence = std::to_string(tcp->sequence());
      d.acknowledgement = std::to_string(tcp->acknowledgement());
      d.flags = PeelTcpFlags(tcp->flags());
    }
  }
  if (d.ipProtocol == kProtocolIcmp) {
    if (const auto icmp = IcmpView::Parse(transport)) {
      d.icmpType = IcmpTypeText(icmp->type(), language);
      d.icmpCode = IcmpCodeText(icmp->type(), icmp->code(), language);
    }
  }
}

void DecodeIpv4(const Ipv4View& ip, UiLanguage language, PacketDetails& d) {
  d.ipProtocol = ip.protocol();
  d.ipHeaderLength = ip.headerLength();
  d.packetType = names::ProtocolName(d.ipProtocol);
  d.sourceIp = Dotted(ip.sourceBytes());
  d.destinationIp = Dotted(ip.destinationBytes());
  d.addressesSet = true;
  d.checksum = std::to_string(ip.checksum());
  d.ttl = std::to_string(ip.ttl());
  d.protocolNumber = std::to_string(d.ipProtocol);
  DecodeTransport(ip.transport(), ip.carriesPorts(), language, d);
}

void DecodeIpv6(const FrameView& frame, const Ipv6View& ip, UiLanguage language,
                PacketDetails& d) {
  const NetworkLayer layer = NetworkOf(ip, frame);
  d.ipProtocol = layer.protocol;
  d.ipHeaderLength = layer.transportOffset;
  d.packetType = names::Ipv6ProtocolName(layer.protocol);
  d.sourceIp = layer.source.ToString();
  d.destinationIp = layer.destination.ToString();
  d.addressesSet = true;
  d.protocolNumber = std::to_string(layer.protocol);
  d.trafficClass = Format("0x%02X", ip.trafficClass());
  d.flowLabel = Format("0x%05X", ip.flowLabel());
  d.payloadLength = std::to_string(ip.payloadLength());
  d.hopLimit = std::to_string(ip.hopLimit());
  // A fragment behind the first, or a chain cut short, holds no transport header to read.
  if (layer.nonFirstFragment || layer.truncated) return;
  if (layer.protocol == kProtocolIcmpv6) {
    if (const auto icmp = IcmpView::Parse(layer.transport)) {
      d.icmpType = Icmpv6TypeText(icmp->type(), language);
      d.icmpCode = Icmpv6CodeText(icmp->type(), icmp->code(), language);
    }
    return;
  }
  DecodeTransport(layer.transport, layer.carriesPorts(), language, d);
}

// The transport and presentation starts of an IPv6 packet: behind the extension headers, then
// behind the transport header.
std::int32_t Ipv6DataStart(const FrameView& frame, DataLevel level) {
  const auto layer = NetworkOf(frame);
  if (!layer) return 0;
  if (level == DataLevel::Transport) return static_cast<std::int32_t>(layer->transportOffset);
  return static_cast<std::int32_t>(PayloadOffset(*layer).value_or(frame.length()));
}

// The IPv6 header's own fields; nullopt for the fields it shares with every packet (ports,
// TCP, MACs), which FieldFrameBytes places as for IPv4. The protocol selects the fixed
// header's Next Header field, where the chain starts.
std::optional<FieldBytes> Ipv6FieldBytes(DetailField field) {
  switch (field) {
    case DetailField::PacketType:
    case DetailField::ProtocolNumber: return FieldBytes{Ipv6View::kNextHeaderAt, 1};
    case DetailField::Ttl:
    case DetailField::HopLimit: return FieldBytes{Ipv6View::kHopLimitAt, 1};
    case DetailField::SourceIp: return FieldBytes{Ipv6View::kSourceAt, 16};
    case DetailField::DestinationIp: return FieldBytes{Ipv6View::kDestinationAt, 16};
    case DetailField::PacketSize:
    case DetailField::PayloadLength: return FieldBytes{Ipv6View::kPayloadLengthAt, 2};
    case DetailField::TrafficClass: return FieldBytes{Ipv6View::kTrafficClassAt, 2};
    case DetailField::FlowLabel: return FieldBytes{Ipv6View::kFlowLabelAt, 3};
    default: return std::nullopt;
  }
}

// Start of the selectable bytes of a field relative to the first byte of the dump.
std::int32_t DumpIndex(PacketRef packet, DataLevel level, FieldBytes bytes) {
  return bytes.frameOffset - (kNetworkStart + DataStartOffset(packet, level));
}

std::int32_t LinePosition(std::int32_t index, std::int32_t perLine, std::int32_t lineChars,
                          std::int32_t step) {
  // Truncating division, as for positions before the dump start; those are clamped later.
  return (index / perLine) * lineChars + (index % perLine) * step;
}

}  // namespace

const char* DataLevelLabel(DataLevel level) {
  switch (level) {
    case DataLevel::Datalink: return Tr(Text::LevelDatalink, UiLanguage::English);
    case DataLevel::Network: return Tr(Text::LevelNetwork, UiLanguage::English);
    case DataLevel::Transport: return Tr(Text::LevelTransport, UiLanguage::English);
    case DataLevel::Presentation: return Tr(Text::LevelPresentation, UiLanguage::English);
  }
  return "";
}

std::optional<DataLevel> ParseDataLevel(std::string_view word) {
  if (word == "datalink") return DataLevel::Datalink;
  if (word == "network") return DataLevel::Network;
  if (word == "transport") return DataLevel::Transport;
  if (word == "presentation") return DataLevel::Presentation;
  return std::nullopt;
}

std::int32_t DataStartOffset(PacketRef packet, DataLevel level) {
  if (level == DataLevel::Datalink) return kDatalinkStart;
  const FrameView frame(packet);
  if (level == DataLevel::Network) return 0;
  if (frame.etherType() == kEtherTypeIpv6) return Ipv6DataStart(frame, level);
  if (frame.etherType() != kEtherTypeIpv4) return 0;
  const auto ip = Ipv4Of(frame);
  if (!ip) return 0;
  const auto h = static_cast<std::int32_t>(ip->headerLength());
  if (level == DataLevel::Transport) return h;
  switch (ip->protocol()) {
    case kProtocolTcp: {
      // A header that does not fit leaves nothing to show at this level.
      const auto tcp = TcpView::Parse(ip->transport());
      return h + static_cast<std::int32_t>(tcp ? tcp->headerLength() : frame.length());
    }
    case kProtocolUdp: return h + static_cast<std::int32_t>(kUdpHeaderLength);
    case kProtocolIcmp: return h + static_cast<std::int32_t>(kIcmpHeaderLength);
    default: return h;
  }
}

std::span<const std::uint8_t> DataBytes(PacketRef packet, DataLevel level) {
  const std::int64_t start = std::int64_t{kNetworkStart} + DataStartOffset(packet, level);
  if (start >= packet.frameLength) return {};
  return {packet.frame + start, packet.frameLength - static_cast<std::uint32_t>(start)};
}

bool PaneLayoutMemory::Apply(std::uint16_t etherType, std::uint8_t ipProtocol) {
  bool changed = false;
  if (etherType_ != etherType) {
    etherType_ = etherType;
    layout_.arpFields = etherType == kEtherTypeArp;
    layout_.ipv4Fields = etherType == kEtherTypeIpv4;
    layout_.ipv6Fields = etherType == kEtherTypeIpv6;
    layout_.ipBoxes = etherType == kEtherTypeIpv4 || etherType == kEtherTypeArp ||
                      etherType == kEtherTypeIpv6;
    changed = true;
  }
  const bool ip = etherType == kEtherTypeIpv4 || etherType == kEtherTypeIpv6;
  if (ip && (ipProtocol_ != ipProtocol || ipEtherType_ != etherType)) {
    ipProtocol_ = ipProtocol;
    ipEtherType_ = etherType;
    layout_.portFields = ipProtocol == kProtocolTcp || ipProtocol == kProtocolUdp;
    layout_.tcpGroup = ipProtocol == kProtocolTcp;
    layout_.icmpGroup = ipProtocol == (etherType == kEtherTypeIpv4 ? kProtocolIcmp : kProtocolIcmpv6);
    changed = true;
  }
  return changed;
}

TcpFlagsShown PeelTcpFlags(std::uint8_t flags) {
  unsigned rest = flags;
  const auto peel = [&rest](unsigned bit) {
    if (rest < bit) return false;
    rest -= bit;
    return true;
  };
  TcpFlagsShown shown;
  shown.urg = peel(32);
  shown.ack = peel(16);
  shown.psh = peel(8);
  shown.rst = peel(4);
  shown.syn = peel(2);
  shown.fin = rest == 1;
  return shown;
}

PacketDetails DecodePacket(PacketRef packet, UiLanguage language, DataLevel level,
                           std::string_view sourceMacText, std::string_view destinationMacText) {
  PacketDetails d;
  const FrameView frame(packet);
  const PacketHeaders headers = HeadersOf(frame);
  d.etherType = frame.etherType();
  d.sourceMac = sourceMacText;
  d.destinationMac = destinationMacText;
  d.packetSize = std::to_string(frame.displayedSize());
  const char* etherName = names::EtherTypeName(d.etherType);
  d.etherTypeText =
      Format("0x%X - %s", d.etherType, etherName ? etherName : Tr(Text::Unknown, language));
  if (headers.ipv4) DecodeIpv4(*headers.ipv4, language, d);
  if (headers.arp) DecodeArp(frame, *headers.arp, language, d);
  if (headers.ipv6) DecodeIpv6(frame, *headers.ipv6, language, d);
  d.dataBytes = DataBytes(packet, level);
  return d;
}

UnreadableRecordNotice UnreadableRecord(std::uint32_t networkLength) {
  if (networkLength >= kUnreadableLengthBound) {
    return {Text::InvalidPacketPtr, Text::DeleteInvalidPtrQuestion,
            Text::DeleteInvalidPacketCaption};
  }
  return {Text::InvalidPacketData, Text::DeleteInvalidDataQuestion,
          Text::DeleteInvalidPacketCaption};
}

std::optional<FieldBytes> FieldFrameBytes(PacketRef packet, DetailField field,
                                          std::uint8_t shownProtocol) {
  const bool ports = shownProtocol == kProtocolTcp || shownProtocol == kProtocolUdp;
  const bool tcp = shownProtocol == kProtocolTcp;
  const std::int32_t p = TransportStart(packet);
  if (FrameView(packet).etherType() == kEtherTypeIpv6) {
    if (field == DetailField::IpChecksum) return std::nullopt;  // IPv6 has none
    if (const auto v6 = Ipv6FieldBytes(field)) return v6;
  }
  const auto arpAddress = [&](bool sender) -> std::optional<FieldBytes> {
    const auto at = ArpProtocolAddressOffsets(packet);
    if (!at) return std::nullopt;
    return FieldBytes{sender ? at->sender : at->target, 4};
  };
  switch (field) {
    case DetailField::PacketType:
    case DetailField::ProtocolNumber: return FieldBytes{Ipv4View::kProtocolAt, 1};
    case DetailField::Ttl: return FieldBytes{Ipv4View::kTtlAt, 1};
    case DetailField::IpChecksum: return FieldBytes{Ipv4View::kChecksumAt, 2};
    case DetailField::SourceIp:
      return IsArp(packet) ? arpAddress(true) : FieldBytes{Ipv4View::kSourceAt, 4};
    case DetailField::DestinationIp:
      return IsArp(packet) ? arpAddress(false) : FieldBytes{Ipv4View::kDestinationAt, 4};
    case DetailField::PacketSize: return FieldBytes{Ipv4View::kTotalLengthAt, 2};
    case DetailField::SourcePort:
    case DetailField::SourcePortName:
      if (!ports) return std::nullopt;
      return FieldBytes{p, 2};
    case DetailField::DestinationPort:
    case DetailField::DestinationPortName:
      if (!ports) return std::nullopt;
      return FieldBytes{p + 2, 2};
    case DetailField::Window:
      if (!tcp) return std::nullopt;
      return FieldBytes{p + TcpView::kWindowAt, 2};
    case DetailField::Sequence:
      if (!tcp) return std::nullopt;
      return FieldBytes{p + TcpView::kSequenceAt, 4};
    case DetailField::Acknowledgement:
      if (!tcp) return std::nullopt;
      return FieldBytes{p + TcpView::kAcknowledgementAt, 4};
    case DetailField::ArpHardwareType: return FieldBytes{ArpView::kHardwareTypeAt, 2};
    case DetailField::ArpProtocolType: return FieldBytes{ArpView::kProtocolTypeAt, 2};
    case DetailField::ArpHardwareLength: return FieldBytes{ArpView::kHardwareLengthAt, 1};
    case DetailField::ArpProtocolLength: return FieldBytes{ArpView::kProtocolLengthAt, 1};
    case DetailField::ArpOperation: return FieldBytes{ArpView::kOperationAt, 2};
    case DetailField::SourceMac: return FieldBytes{kOffsetSourceMac, 6};
    case DetailField::DestinationMac: return FieldBytes{kOffsetDestinationMac, 6};
    case DetailField::EtherType: return FieldBytes{kOffsetEtherType, 2};
    case DetailField::TrafficClass:
    case DetailField::FlowLabel:
    case DetailField::PayloadLength:
    case DetailField::HopLimit: return std::nullopt;
  }
  return std::nullopt;
}

std::optional<TextSelection> DumpSelection(DumpForm form, std::int32_t firstByte,
                                           std::int32_t count) {
  if (form == DumpForm::Text) return std::nullopt;
  const std::int32_t width = form == DumpForm::Dec ? 3 : 2;
  const std::int32_t perLine = form == DumpForm::Dec ? 10 : 16;
  const std::int32_t step = width + 1;
  const std::int32_t lineChars = (perLine - 1) * step + width + 2;
  const std::int32_t start = LinePosition(firstByte, perLine, lineChars, step);
  std::int32_t end = LinePosition(firstByte + count, perLine, lineChars, step);
  if (end != 0) --end;
  return TextSelection{std::max(start, 0), std::max(end, 0)};
}

std::optional<TextSelection> FieldSelection(PacketRef packet, DataLevel level, DumpForm form,
                                            DetailField field, std::uint8_t shownProtocol) {
  if (form == DumpForm::Text) return std::nullopt;
  const auto bytes = FieldFrameBytes(packet, field, shownProtocol);
  if (!bytes) return std::nullopt;
  return DumpSelection(form, DumpIndex(packet, level, *bytes), bytes->width);
}

std::int32_t HexViewerByteAt(std::int32_t hexPosition) {
  return (hexPosition / kHexViewerHexLine) * 16 + (hexPosition % kHexViewerHexLine) / 3;
}

std::int32_t HexViewerCharPosition(std::int32_t byteIndex) {
  return (byteIndex / 16) * kHexViewerCharLine + byteIndex % 16;
}

std::optional<TextSelection> MirrorHexSelection(TextSelection hex) {
  if (hex.start == 0 && hex.end == 0) return std::nullopt;
  const std::int32_t from = std::min(hex.start, hex.end);
  const std::int32_t to = std::max(hex.start, hex.end);
  const std::int32_t first = HexViewerByteAt(from);
  if (to == from) return TextSelection{HexViewerCharPosition(first), HexViewerCharPosition(first) + 1};
  // A selection's end is exclusive: the last byte mirrored is the one under the last selected
  // character, so "AA BB CC DD" mirrors all four bytes. A line break counts as its line's last byte.
  const std::int32_t lastChar = to - 1;
  const std::int32_t last = (lastChar / kHexViewerHexLine) * 16 +
                            std::min((lastChar % kHexViewerHexLine) / 3, 15);
  const std::int32_t start = HexViewerCharPosition(first);
  const std::int32_t end = std::max(HexViewerCharPosition(last) + 1, start + 1);
  return TextSelection{start, end};
}

std::optional<TextSelection> HexViewerFieldSelection(PacketRef packet, DataLevel level,
                                                     DetailField field,
                                                     std::uint8_t shownProtocol) {
  return FieldSelection(packet, level, DumpForm::Hex, field, shownProtocol);
}

std::optional<std::string> VendorForMacText(std::string_view macText, UiLanguage language) {
  if (macText.empty()) return std::nullopt;
  const auto oui = names::ParseOui(macText);
  const char* name = oui ? names::VendorName(*oui) : nullptr;
  return std::string(name ? name : Tr(Text::UnknownVendorCode, language));
}

std::string VendorMessageText(std::string_view macText, std::string_view vendor,
                              UiLanguage language) {
  const std::string mac(macText);
  const std::string name(vendor);
  return FormatText(Text::VendorMessage, language, mac.c_str(), name.c_str());
}

}  // namespace vormelt
