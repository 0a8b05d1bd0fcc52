// List-row column texts from a stored record. Header fields come through the header views,
// over the frame and its zeroed spare bytes, so short frames read zeroes and nothing reads
// past frame + spare.
#include "packets/list_row.hpp"

#include <algorithm>
#include <charconv>

#include "packets/headers.hpp"
#include "packets/names.hpp"

namespace vormelt {
namespace {

using Buffer = ListTextBuffer;

// The list is printed for every packet of a capture file, so these are written by hand:
// printf was over half of the time a large file took to list.
std::string_view Number(Buffer& buffer, unsigned long value, int base = 10) {
  const auto [end, error] = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value, base);
  if (error != std::errc()) return {};
  if (base == 16) std::transform(buffer.data(), end, buffer.data(), [](char c) { return c >= 'a' ? char(c - 'a' + 'A') : c; });
  return {buffer.data(), static_cast<std::size_t>(end - buffer.data())};
}

// "%u.%u.%u.%u"
std::string_view Ip(Buffer& buffer, const std::uint8_t* address) {
  char* out = buffer.data();
  for (int i = 0; i < 4; ++i) {
    if (i) *out++ = '.';
    out = std::to_chars(out, buffer.data() + buffer.size(), address[i]).ptr;
  }
  return {buffer.data(), static_cast<std::size_t>(out - buffer.data())};
}

// "%02X:%02X:%02X:%02X:%02X:%02X"
std::string_view Mac(Buffer& buffer, const std::uint8_t* address) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  char* out = buffer.data();
  for (int i = 0; i < 6; ++i) {
    if (i) *out++ = ':';
    *out++ = kDigits[address[i] >> 4];
    *out++ = kDigits[address[i] & 0x0F];
  }
  return {buffer.data(), static_cast<std::size_t>(out - buffer.data())};
}

std::string_view TypeText(const FrameView& frame, const PacketHeaders& headers, Buffer& buffer) {
  if (headers.ipv4) return names::ProtocolName(headers.ipv4->protocol());
  if (headers.arp) return "ARP";
  if (headers.ipv6) return names::Ipv6ProtocolName(NetworkOf(*headers.ipv6, frame).protocol);
  return Number(buffer, frame.etherType(), 16);
}

std::string_view AnyIp(Buffer& buffer, const IpAddress& address) {
  return {buffer.data(), address.ToChars(buffer.data())};
}

// ARP addresses are shown only for Ethernet/IPv4 ARP whose addresses fit the frame length
// (the bound counts the whole frame, so it is loose by a few bytes; spare bytes cover that).
std::string_view AddressText(const FrameView& frame, const PacketHeaders& headers, bool source,
                             Buffer& buffer) {
  if (headers.ipv4) {
    return Ip(buffer, source ? headers.ipv4->sourceBytes() : headers.ipv4->destinationBytes());
  }
  if (headers.ipv6) return AnyIp(buffer, source ? headers.ipv6->source() : headers.ipv6->destination());
  if (!headers.arp) return {};
  const auto spots = headers.arp->Ipv4Addresses(frame.length());
  if (!spots) return {};
  return Ip(buffer, headers.arp->AddressBytes(source ? spots->sender : spots->target));
}

// IPv4 ports sit where a header without options would end them, whatever IHL says; IPv6
// ports sit behind the extension headers, and a non-first fragment has none.
std::string_view PortText(const FrameView& frame, const PacketHeaders& headers, bool source,
                          Buffer& buffer) {
  std::optional<PortsView> ports;
  if (headers.ipv4) {
    if (!headers.ipv4->carriesPorts()) return {};
    ports = PortsView::Parse(headers.ipv4->optionlessTransport());
  } else if (headers.ipv6) {
    const NetworkLayer layer = NetworkOf(*headers.ipv6, frame);
    if (!layer.carriesPorts()) return {};
    ports = PortsView::Parse(layer.transport);
  }
  if (!ports) return {};
  return Number(buffer, source ? ports->source() : ports->destination());
}

std::string_view MacText(const PacketRef& packet, bool source, Buffer& buffer) {
  if (packet.kind != InterfaceKind::PacketDriver) return {};
  const std::uint8_t* address = FrameView(packet).mac(source);
  return address ? Mac(buffer, address) : std::string_view();
}


std::string_view ColumnText(const PacketRef& packet, const FrameView& frame,
                            const PacketHeaders& headers, const FilterColumnTexts* filterTexts,
                            ListColumn column, ListTextBuffer& buffer) {
  switch (column) {
    case ListColumn::Type: return TypeText(frame, headers, buffer);
    case ListColumn::Size: return Number(buffer, frame.displayedSize());
    case ListColumn::SourceIp: return AddressText(frame, headers, true, buffer);
    case ListColumn::DestinationIp: return AddressText(frame, headers, false, buffer);
    case ListColumn::SourcePort: return PortText(frame, headers, true, buffer);
    case ListColumn::DestinationPort: return PortText(frame, headers, false, buffer);
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

}  // namespace

std::string_view ListColumnText(const PacketRef& packet, const FilterColumnTexts* filterTexts,
                                ListColumn column, ListTextBuffer& buffer) {
  if (!packet.frame) return {};
  const FrameView frame(packet);
  return ColumnText(packet, frame, HeadersOf(frame), filterTexts, column, buffer);
}

ListRowTextViews ListRowTexts(const PacketRef& packet, const FilterColumnTexts* filterTexts,
                              ListRowBuffers& buffers) {
  ListRowTextViews texts{};
  if (!packet.frame) return texts;
  const FrameView frame(packet);
  const PacketHeaders headers = HeadersOf(frame);
  for (int column = 0; column < kListColumnCount; ++column) {
    const auto index = static_cast<std::size_t>(column);
    texts[index] = ColumnText(packet, frame, headers, filterTexts,
                              static_cast<ListColumn>(column), buffers[index]);
  }
  return texts;
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
