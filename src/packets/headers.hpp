// Non-owning views of the headers the program reads (Ethernet frame, IPv4, IPv6, TCP, UDP, ICMP,
// ARP),
// each over a byte span with checked big-endian readers. Every header field the list, decoder,
// renderer, filter and menu show is read here and nowhere else; no read leaves the span.
#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "common/frame_sink.hpp"
#include "common/ip_address.hpp"
#include "common/wire.hpp"
#include "packets/record.hpp"

namespace vormelt {

using ByteSpan = std::span<const std::uint8_t>;

// Big-endian reads that test the span's end on every read: a field that does not fit reads 0.
// The views' factories check their fixed fields first, so a 0 from here is never a half read.
class CheckedBytes {
 public:
  CheckedBytes() = default;
  explicit CheckedBytes(ByteSpan bytes) : bytes_(bytes) {}

  bool Fits(std::size_t offset, std::size_t width) const {
    return offset <= bytes_.size() && width <= bytes_.size() - offset;
  }
  std::uint8_t U8(std::size_t offset) const { return Fits(offset, 1) ? bytes_[offset] : 0; }
  std::uint16_t Be16(std::size_t offset) const {
    if (!Fits(offset, 2)) return 0;
    return static_cast<std::uint16_t>((bytes_[offset] << 8) | bytes_[offset + 1]);
  }
  std::uint32_t Be32(std::size_t offset) const {
    if (!Fits(offset, 4)) return 0;
    return (std::uint32_t{bytes_[offset]} << 24) | (std::uint32_t{bytes_[offset + 1]} << 16) |
           (std::uint32_t{bytes_[offset + 2]} << 8) | std::uint32_t{bytes_[offset + 3]};
  }
  // The bytes from `offset` on; empty when it lies beyond the end.
  ByteSpan From(std::size_t offset) const {
    return offset <= bytes_.size() ? bytes_.subspan(offset) : ByteSpan{};
  }
  ByteSpan bytes() const { return bytes_; }

 private:
  ByteSpan bytes_;
};

// A captured frame and the zeroed spare bytes behind it. `length` counts the captured bytes;
// the readable span runs kFrameSpareBytes further. Header fields are read from the readable
// span, so a frame cut inside a header reads zeroes there, as stored records always have;
// payload searches and dumps stop at `length`.
class FrameView {
 public:
  FrameView(const std::uint8_t* frame, std::uint32_t length)
      : frame_(frame),
        length_(frame ? length : 0),
        readable_(frame ? ByteSpan(frame, length + kFrameSpareBytes) : ByteSpan{}) {}
  explicit FrameView(const PacketRef& packet) : FrameView(packet.frame, packet.frameLength) {}

  std::uint32_t length() const { return length_; }
  // The size shown for the packet everywhere (list, summary line, pane): the captured bytes,
  // Ethernet header included, even when a cut frame holds less than that header.
  std::uint32_t displayedSize() const { return length_; }
  std::uint32_t networkLength() const {
    return length_ >= kEthernetHeaderLength ? length_ - kEthernetHeaderLength : 0;
  }
  // 0 for a frame too short to hold an EtherType, so nothing reads a header behind it.
  std::uint16_t etherType() const {
    return length_ >= kEthernetHeaderLength ? readable_.Be16(kEtherTypeOffset) : 0;
  }
  // The six address bytes, or null when the frame is too short to hold them: what lies behind
  // a short frame belongs to its record (the kind byte), not to an address.
  const std::uint8_t* mac(bool source) const {
    const std::uint32_t offset = source ? kMacLength : 0;
    return length_ >= offset + kMacLength ? frame_ + offset : nullptr;
  }
  // The network bytes with the spare bytes behind them (for header views).
  ByteSpan networkReadable() const { return readable_.From(kEthernetHeaderLength); }
  const std::uint8_t* data() const { return frame_; }

 private:
  static constexpr std::size_t kEtherTypeOffset = 12;
  static constexpr std::uint32_t kMacLength = 6;
  const std::uint8_t* frame_;
  std::uint32_t length_;
  CheckedBytes readable_;
};

// What every header view shares: a factory that checks the header's fixed bytes fit before it
// builds the view (no half-valid view exists), and checked reads over the span it was given.
template <typename View, std::size_t FixedLength>
class HeaderView {
 public:
  static constexpr std::size_t kFixedLength = FixedLength;
  static std::optional<View> Parse(ByteSpan bytes) {
    if (bytes.size() < FixedLength) return std::nullopt;
    return View(CheckedBytes(bytes));
  }

 protected:
  explicit HeaderView(CheckedBytes bytes) : b_(bytes) {}
  CheckedBytes b_;
};

// The IPv4 header. The factory needs the 20 fixed bytes; IHL is taken as it stands (the
// version nibble is ignored), so an IHL below 5 puts the transport header inside this one,
// as the program has always read it.
class Ipv4View : public HeaderView<Ipv4View, 20> {
 public:
  std::uint32_t headerLength() const { return (b_.U8(0) & 0x0F) * 4u; }
  std::uint8_t version() const { return b_.U8(0) >> 4; }
  std::uint16_t totalLength() const { return b_.Be16(2); }
  std::uint8_t ttl() const { return b_.U8(8); }
  std::uint8_t protocol() const { return b_.U8(9); }
  std::uint16_t checksum() const { return b_.Be16(10); }
  std::uint32_t source() const { return b_.Be32(12); }
  std::uint32_t destination() const { return b_.Be32(16); }
  // The four address bytes in wire order.
  const std::uint8_t* sourceBytes() const { return b_.bytes().data() + 12; }
  const std::uint8_t* destinationBytes() const { return b_.bytes().data() + 16; }
  bool carriesPorts() const { return protocol() == kProtocolTcp || protocol() == kProtocolUdp; }

  // The transport header where IHL puts it.
  ByteSpan transport() const { return b_.From(headerLength()); }
  // The transport header where it would be without options: the list's port columns read
  // there whatever IHL says, so a header with options shows option bytes as ports.
  ByteSpan optionlessTransport() const { return b_.From(kFixedLength); }

  // Frame offsets of the fields the pane can select.
  static constexpr std::int32_t kTotalLengthAt = 16, kTtlAt = 22, kProtocolAt = 23,
                                kChecksumAt = 24, kSourceAt = 26, kDestinationAt = 30;

 private:
  friend HeaderView;
  using HeaderView::HeaderView;
};

// Where the IPv6 extension headers lead: the protocol of the header behind the last one and the
// span from there on. A chain that runs past the captured bytes stops at the header that does
// not fit: `protocol` is that header's number, `truncated` is set and the span is empty.
struct Ipv6Chain {
  std::uint8_t protocol = 0;
  std::uint32_t transportOffset = 0;  // from the start of the IPv6 header
  ByteSpan transport;
  bool nonFirstFragment = false;  // the span is the middle of a datagram, not a header
  bool truncated = false;
};

// The IPv6 header: 40 fixed bytes, then the extension headers Chain() walks.
class Ipv6View : public HeaderView<Ipv6View, 40> {
 public:
  static constexpr std::uint8_t kHopByHop = 0, kRouting = 43, kFragment = 44,
                                kAuthentication = 51, kNoNextHeader = 59, kDestination = 60;

  std::uint8_t trafficClass() const { return static_cast<std::uint8_t>(b_.Be16(0) >> 4); }
  std::uint32_t flowLabel() const { return b_.Be32(0) & 0xFFFFF; }
  std::uint16_t payloadLength() const { return b_.Be16(4); }
  std::uint8_t nextHeader() const { return b_.U8(6); }
  std::uint8_t hopLimit() const { return b_.U8(7); }
  const std::uint8_t* sourceBytes() const { return b_.bytes().data() + 8; }
  const std::uint8_t* destinationBytes() const { return b_.bytes().data() + 24; }
  IpAddress source() const { return IpAddress::V6Bytes(sourceBytes()); }
  IpAddress destination() const { return IpAddress::V6Bytes(destinationBytes()); }

  // Walks hop-by-hop, routing, fragment, destination options and authentication headers. Each
  // must lie within the first `captured` bytes of the view (the frame's own bytes, not the spare
  // ones, so zeroes behind a cut frame never pass for headers). Every step moves at least eight
  // bytes on, so a chain ends within captured / 8 steps whatever its lengths say.
  Ipv6Chain Chain(std::size_t captured) const {
    Ipv6Chain chain;
    std::size_t offset = kFixedLength;
    std::uint8_t next = nextHeader();
    const auto fits = [&](std::size_t width) { return offset <= captured && width <= captured - offset; };
    for (;;) {
      std::size_t length = 0;
      if (next == kHopByHop || next == kRouting || next == kDestination) {
        if (!fits(2)) break;
        length = (std::size_t{b_.U8(offset + 1)} + 1) * 8;
      } else if (next == kFragment) {
        length = 8;
      } else if (next == kAuthentication) {
        if (!fits(2)) break;
        length = (std::size_t{b_.U8(offset + 1)} + 2) * 4;
      } else {
        chain.protocol = next;
        chain.transportOffset = static_cast<std::uint32_t>(offset);
        chain.transport = b_.From(offset);
        return chain;
      }
      if (!fits(length)) break;
      const std::uint8_t following = b_.U8(offset);
      if (next == kFragment && (b_.Be16(offset + 2) >> 3) != 0) {
        chain.protocol = following;
        chain.transportOffset = static_cast<std::uint32_t>(offset + length);
        chain.transport = b_.From(offset + length);
        chain.nonFirstFragment = true;
        return chain;
      }
      next = following;
      offset += length;
    }
    chain.protocol = next;
    chain.transportOffset = static_cast<std::uint32_t>(offset);
    chain.truncated = true;
    return chain;
  }

  // Frame offsets of the fields the pane can select. Traffic class and flow label share bytes:
  // the class is bytes 14..15, the label 15..17.
  static constexpr std::int32_t kTrafficClassAt = 14, kFlowLabelAt = 15, kPayloadLengthAt = 18,
                                kNextHeaderAt = 20, kHopLimitAt = 21, kSourceAt = 22,
                                kDestinationAt = 38;

 private:
  friend HeaderView;
  using HeaderView::HeaderView;
};

// Source and destination port: the first four bytes of a TCP or a UDP header.
class PortsView : public HeaderView<PortsView, 4> {
 public:
  std::uint16_t source() const { return b_.Be16(0); }
  std::uint16_t destination() const { return b_.Be16(2); }

 private:
  friend HeaderView;
  using HeaderView::HeaderView;
};

// The TCP header's fixed 20 bytes.
class TcpView : public HeaderView<TcpView, 20> {
 public:
  // The ports: PortsView over the same bytes.
  std::uint32_t sequence() const { return b_.Be32(kSequenceAt); }
  std::uint32_t acknowledgement() const { return b_.Be32(kAcknowledgementAt); }
  // The data offset as a length in bytes; it may claim more than the segment holds.
  std::uint32_t headerLength() const { return (b_.U8(12) >> 4) * 4u; }
  std::uint8_t flags() const { return b_.U8(13); }
  std::uint16_t window() const { return b_.Be16(kWindowAt); }

  // Offsets inside the header of the fields the pane can select.
  static constexpr std::int32_t kSequenceAt = 4, kAcknowledgementAt = 8, kWindowAt = 14;

 private:
  friend HeaderView;
  using HeaderView::HeaderView;
};

// UDP and ICMP headers are eight bytes; only their length and the ICMP type and code matter.
inline constexpr std::uint32_t kUdpHeaderLength = 8;
inline constexpr std::uint32_t kIcmpHeaderLength = 8;

class IcmpView : public HeaderView<IcmpView, kIcmpHeaderLength> {
 public:
  std::uint8_t type() const { return b_.U8(0); }
  std::uint8_t code() const { return b_.U8(1); }

 private:
  friend HeaderView;
  using HeaderView::HeaderView;
};

// Where an ARP packet's protocol addresses lie, as offsets into the ARP packet.
struct ArpAddressSpots {
  std::uint32_t sender = 0;
  std::uint32_t target = 0;
};

// The ARP header: eight fixed bytes, then addresses whose lengths the header gives.
class ArpView : public HeaderView<ArpView, 8> {
 public:
  static constexpr std::uint16_t kHardwareEthernet = 1;
  std::uint16_t hardwareType() const { return b_.Be16(0); }
  std::uint16_t protocolType() const { return b_.Be16(2); }
  std::uint8_t hardwareLength() const { return b_.U8(4); }
  std::uint8_t protocolLength() const { return b_.U8(5); }
  std::uint16_t operation() const { return b_.Be16(6); }

  // The IPv4 protocol addresses of Ethernet ARP: hardware type 1, protocol type 0x0800,
  // protocol length 4, and 2 × hardware length + 12 not beyond `bound`. The bound is loose on
  // purpose (callers pass the frame or the network length, as each always has); the spare
  // bytes behind the frame cover the rest, and an address outside the span is never given.
  std::optional<ArpAddressSpots> Ipv4Addresses(std::uint32_t bound) const {
    const std::uint32_t h = hardwareLength();
    if (hardwareType() != kHardwareEthernet || protocolType() != kEtherTypeIpv4) return {};
    if (2 * h + 12 > bound || protocolLength() != 4) return {};
    const ArpAddressSpots spots{8 + h, 12 + 2 * h};
    if (!b_.Fits(spots.target, 4)) return {};
    return spots;
  }
  std::uint32_t Address(std::uint32_t spot) const { return b_.Be32(spot); }
  const std::uint8_t* AddressBytes(std::uint32_t spot) const { return b_.bytes().data() + spot; }

  // Frame offsets of the fixed fields the pane can select.
  static constexpr std::int32_t kHardwareTypeAt = 14, kProtocolTypeAt = 16,
                                kHardwareLengthAt = 18, kProtocolLengthAt = 19,
                                kOperationAt = 20;

 private:
  friend HeaderView;
  using HeaderView::HeaderView;
};

// The headers of one frame as far as they are IPv4, IPv6 or ARP; the views stay empty otherwise.
struct PacketHeaders {
  std::optional<Ipv4View> ipv4;
  std::optional<ArpView> arp;
  std::optional<Ipv6View> ipv6;
};
inline PacketHeaders HeadersOf(const FrameView& frame) {
  PacketHeaders headers;
  const std::uint16_t etherType = frame.etherType();
  if (etherType == kEtherTypeIpv4) {
    headers.ipv4 = Ipv4View::Parse(frame.networkReadable());
  } else if (etherType == kEtherTypeArp) {
    headers.arp = ArpView::Parse(frame.networkReadable());
  } else if (etherType == kEtherTypeIpv6) {
    headers.ipv6 = Ipv6View::Parse(frame.networkReadable());
  }
  return headers;
}

// The network layer of an IPv4 or IPv6 packet as every reader of addresses, protocol and ports
// needs it, whichever the family. For IPv4 the transport is where IHL puts it and no packet is
// taken for a fragment, as the program has always read IPv4.
struct NetworkLayer {
  IpFamily family = IpFamily::V4;
  IpAddress source;
  IpAddress destination;
  std::uint8_t protocol = 0;
  std::uint32_t transportOffset = 0;  // from the start of the network header
  ByteSpan transport;                 // readable bytes from the transport header on
  bool nonFirstFragment = false;
  bool truncated = false;  // an IPv6 extension chain that ran past the captured bytes

  // TCP or UDP with its header in view: ports can be read from `transport`.
  bool carriesPorts() const {
    return (protocol == kProtocolTcp || protocol == kProtocolUdp) && !nonFirstFragment &&
           !truncated;
  }
};

// Where the transport's payload starts, counted from the network header: behind the TCP header
// its data offset gives, or behind the eight bytes of UDP, ICMP or ICMPv6; at the transport
// start for other protocols and for a fragment behind the first. nullopt when the TCP header
// does not fit or the chain was cut short: then no byte is payload.
inline std::optional<std::uint32_t> PayloadOffset(const NetworkLayer& layer) {
  const std::uint32_t at = layer.transportOffset;
  if (layer.truncated) return std::nullopt;
  if (layer.nonFirstFragment) return at;
  const std::uint8_t icmp = layer.family == IpFamily::V4 ? kProtocolIcmp : kProtocolIcmpv6;
  if (layer.protocol == kProtocolTcp) {
    const auto tcp = TcpView::Parse(layer.transport);
    if (!tcp) return std::nullopt;
    return at + tcp->headerLength();
  }
  if (layer.protocol == kProtocolUdp) return at + kUdpHeaderLength;
  if (layer.protocol == icmp) return at + kIcmpHeaderLength;
  return at;
}

inline NetworkLayer NetworkOf(const Ipv4View& ip) {
  NetworkLayer layer;
  layer.source = IpAddress::V4(ip.source());
  layer.destination = IpAddress::V4(ip.destination());
  layer.protocol = ip.protocol();
  layer.transportOffset = ip.headerLength();
  layer.transport = ip.transport();
  return layer;
}
inline NetworkLayer NetworkOf(const Ipv6View& ip, const FrameView& frame) {
  const Ipv6Chain chain = ip.Chain(frame.networkLength());
  NetworkLayer layer;
  layer.family = IpFamily::V6;
  layer.source = ip.source();
  layer.destination = ip.destination();
  layer.protocol = chain.protocol;
  layer.transportOffset = chain.transportOffset;
  layer.transport = chain.transport;
  layer.nonFirstFragment = chain.nonFirstFragment;
  layer.truncated = chain.truncated;
  return layer;
}
inline std::optional<NetworkLayer> NetworkOf(const FrameView& frame) {
  const std::uint16_t etherType = frame.etherType();
  if (etherType == kEtherTypeIpv4) {
    if (const auto ip = Ipv4View::Parse(frame.networkReadable())) return NetworkOf(*ip);
  } else if (etherType == kEtherTypeIpv6) {
    if (const auto ip = Ipv6View::Parse(frame.networkReadable())) return NetworkOf(*ip, frame);
  }
  return std::nullopt;
}

// The version nibble both IP headers open with; 0 for an empty span.
inline std::uint8_t IpVersionOf(ByteSpan network) { return network.empty() ? 0 : network[0] >> 4; }

// The headers of the link types a capture may deliver, read up to their EtherType (or address
// family) so they can be rebuilt as Ethernet frames. Each factory checks the fixed bytes fit.
//   Ethernet with an optional 802.1Q tag, 14 (18) bytes.
class EthernetView : public HeaderView<EthernetView, kEthernetHeaderLength> {
 public:
  static constexpr std::size_t kVlanTagLength = 4;
  const std::uint8_t* sourceMac() const { return b_.bytes().data() + 6; }
  std::uint16_t etherType() const { return b_.Be16(12); }
  bool tagged() const { return etherType() == kEtherTypeVlan && b_.Fits(16, 2); }
  // The EtherType behind the tag when there is one.
  std::uint16_t innerEtherType() const { return tagged() ? b_.Be16(16) : etherType(); }
  ByteSpan network() const { return b_.From(kFixedLength + (tagged() ? kVlanTagLength : 0)); }

 private:
  friend HeaderView;
  using HeaderView::HeaderView;
};

// BSD loopback (DLT_NULL, DLT_LOOP): a four-byte address family, in the capturing host's byte
// order for DLT_NULL and network order for DLT_LOOP.
class NullLinkView : public HeaderView<NullLinkView, 4> {
 public:
  // Families are small numbers, so whichever reading is small is the right one.
  std::uint32_t family() const {
    const std::uint32_t word = b_.Be32(0);
    return word > 0xFFFF ? __builtin_bswap32(word) : word;
  }
  ByteSpan network() const { return b_.From(kFixedLength); }

 private:
  friend HeaderView;
  using HeaderView::HeaderView;
};

// Linux cooked capture, version 1 (16 bytes) and version 2 (20 bytes).
class SllView : public HeaderView<SllView, 16> {
 public:
  std::uint16_t addressLength() const { return b_.Be16(4); }
  const std::uint8_t* address() const { return b_.bytes().data() + 6; }
  std::uint16_t protocol() const { return b_.Be16(14); }
  ByteSpan network() const { return b_.From(kFixedLength); }

 private:
  friend HeaderView;
  using HeaderView::HeaderView;
};
class Sll2View : public HeaderView<Sll2View, 20> {
 public:
  std::uint16_t protocol() const { return b_.Be16(0); }
  std::uint8_t addressLength() const { return b_.U8(11); }
  const std::uint8_t* address() const { return b_.bytes().data() + 12; }
  ByteSpan network() const { return b_.From(kFixedLength); }

 private:
  friend HeaderView;
  using HeaderView::HeaderView;
};

}  // namespace vormelt
