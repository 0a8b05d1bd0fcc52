// List-row column texts from a stored record. The record's spare bytes make the fixed-offset
// reads safe on short frames (they read zeroes); nothing here looks past frame + spare.
#include "packets/list_row.hpp"

#include <cstdio>

#include "common/byte_order.hpp"
#include "common/wire.hpp"
#include "packets/names.hpp"

namespace vormelt {
namespace {

// IPv4 header fields at fixed offsets from the start of the datagram. The ports are read at
// 20..23, as if the header had no options: a header with options shows option bytes there.
constexpr int kIpProtocol = 9, kIpSource = 12, kIpDestination = 16;
constexpr int kSourcePort = 20, kDestinationPort = 22;
// ARP: hardware type, protocol type, lengths, then sender and target addresses.
constexpr int kArpProtocolType = 2, kArpHardwareLength = 4, kArpProtocolLength = 5;
constexpr int kArpSenderHardware = 8;

using Buffer = ListTextBuffer;

std::string_view Print(Buffer& buffer, int written) {
  if (written < 0) return {};
  return {buffer.data(), std::min<std::size_t>(written, buffer.size() - 1)};
}

std::string_view Ip(Buffer& buffer, const std::uint8_t* address) {
  return Print(buffer, std::snprintf(buffer.data(), buffer.size(), "%u.%u.%u.%u", address[0],
                                     address[1], address[2], address[3]));
}

std::string_view Mac(Buffer& buffer, const std::uint8_t* address) {
  return Print(buffer, std::snprintf(buffer.data(), buffer.size(),
                                     "%02X:%02X:%02X:%02X:%02X:%02X", address[0], address[1],
                                     address[2], address[3], address[4], address[5]));
}

std::string_view Number(Buffer& buffer, unsigned long value) {
  return Print(buffer, std::snprintf(buffer.data(), buffer.size(), "%lu", value));
}

std::string_view TypeText(const PacketRef& packet, Buffer& buffer) {
  switch (packet.etherType()) {
    case kEtherTypeIpv4: return names::ProtocolName(packet.network()[kIpProtocol]);
    case kEtherTypeArp: return "ARP";
    default:
      return Print(buffer, std::snprintf(buffer.data(), buffer.size(), "%X", packet.etherType()));
  }
}

// ARP addresses are shown only for Ethernet/IPv4 ARP whose addresses fit the frame (the check
// is loose by a few bytes; the record's spare bytes cover that).
bool ArpAddressesShown(const PacketRef& packet) {
  const std::uint8_t* arp = packet.network();
  const std::uint32_t hardwareLength = arp[kArpHardwareLength];
  return ReadBe16(arp) == 1 && ReadBe16(arp + kArpProtocolType) == kEtherTypeIpv4 &&
         arp[kArpProtocolLength] == 4 && 2 * hardwareLength + 12 <= packet.frameLength;
}

std::string_view AddressText(const PacketRef& packet, bool source, Buffer& buffer) {
  const std::uint8_t* network = packet.network();
  if (packet.etherType() == kEtherTypeIpv4) {
    return Ip(buffer, network + (source ? kIpSource : kIpDestination));
  }
  if (packet.etherType() != kEtherTypeArp || !ArpAddressesShown(packet)) return {};
  const std::uint32_t hardwareLength = network[kArpHardwareLength];
  const std::uint32_t sender = kArpSenderHardware + hardwareLength;
  const std::uint32_t target = sender + 4 + hardwareLength;
  return Ip(buffer, network + (source ? sender : target));
}

std::string_view PortText(const PacketRef& packet, bool source, Buffer& buffer) {
  if (packet.etherType() != kEtherTypeIpv4) return {};
  const std::uint8_t protocol = packet.network()[kIpProtocol];
  if (protocol != kProtocolTcp && protocol != kProtocolUdp) return {};
  return Number(buffer, ReadBe16(packet.network() + (source ? kSourcePort : kDestinationPort)));
}

std::string_view MacText(const PacketRef& packet, bool source, Buffer& buffer) {
  if (packet.kind != InterfaceKind::PacketDriver) return {};
  return Mac(buffer, packet.frame + (source ? 6 : 0));
}

}  // namespace

std::string_view ListColumnText(const PacketRef& packet, const FilterColumnTexts* filterTexts,
                                ListColumn column, ListTextBuffer& buffer) {
  if (!packet.frame) return {};
  switch (column) {
    case ListColumn::Type: return TypeText(packet, buffer);
    case ListColumn::Size: return Number(buffer, packet.frameLength);
    case ListColumn::SourceIp: return AddressText(packet, true, buffer);
    case ListColumn::DestinationIp: return AddressText(packet, false, buffer);
    case ListColumn::SourcePort: return PortText(packet, true, buffer);
    case ListColumn::DestinationPort: return PortText(packet, false, buffer);
    case ListColumn::Time: return packet.timeText;
    case ListColumn::MustContain:
      return filterTexts ? std::string_view(filterTexts->mustContain) : std::string_view();
    case ListColumn::MustNotContain:
      return filterTexts ? std::string_view(filterTexts->mustNotContain) : std::string_view();
    case ListColumn::SourceMac: return MacText(packet, true, buffer);
    case ListColumn::DestinationMac: return MacText(packet, false, buffer);
  }
  return {};
}

Text ListColumnHeading(ListColumn column) {
  static constexpr Text kHeadings[kListColumnCount] = {
      Text::ListColumnType,       Text::ListColumnSize,           Text::ListColumnSourceIp,
      Text::ListColumnDestinationIp, Text::ListColumnSourcePort,  Text::ListColumnDestinationPort,
      Text::ListColumnTime,       Text::ListColumnMustContain,    Text::ListColumnMustNotContain,
      Text::ListColumnSourceMac,  Text::ListColumnDestinationMac,
  };
  return kHeadings[static_cast<int>(column)];
}

}  // namespace vormelt
