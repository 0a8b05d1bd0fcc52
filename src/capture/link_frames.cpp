// Link-layer headers to Ethernet shape. One small function per link type; each checks the
// header fits before reading it and copies at most the packet it was given.
#include "capture/link_frames.hpp"

#include <pcap/dlt.h>

#include <algorithm>
#include <cstring>

#include "common/byte_order.hpp"
#include "common/wire.hpp"
#include "packets/headers.hpp"

namespace vormelt {
namespace {

constexpr std::size_t kMacAddressLength = 6;
// pcap files say 101 for raw IP; libpcap hands that out as DLT_RAW, but both may be seen.
constexpr int kLinkTypeRaw = 101;
// Address families a DLT_NULL/DLT_LOOP header may carry for IPv6 (Linux, BSDs, macOS).
constexpr std::uint32_t kFamilyInet = 2;
constexpr std::uint32_t kFamiliesInet6[] = {10, 24, 28, 30};

struct LinkPayload {
  std::uint16_t etherType = 0;
  std::span<const std::uint8_t> network;
  const std::uint8_t* sourceAddress = nullptr;  // 6 bytes when the link names a sender
};

std::uint16_t TypeOfIpVersion(std::span<const std::uint8_t> packet) {
  switch (IpVersionOf(packet)) {
    case 4: return kEtherTypeIpv4;
    case 6: return kEtherTypeIpv6;
    default: return 0;
  }
}

std::uint16_t TypeOfFamily(std::uint32_t family) {
  if (family == kFamilyInet) return kEtherTypeIpv4;
  const auto* end = std::end(kFamiliesInet6);
  return std::find(std::begin(kFamiliesInet6), end, family) != end ? kEtherTypeIpv6 : 0;
}

bool SplitEthernet(std::span<const std::uint8_t> packet, LinkPayload& out) {
  const auto ethernet = EthernetView::Parse(packet);
  if (!ethernet) return false;
  out.etherType = ethernet->innerEtherType();
  out.network = ethernet->network();
  out.sourceAddress = ethernet->sourceMac();
  return true;
}

bool SplitLink(int linkType, std::span<const std::uint8_t> packet, LinkPayload& out) {
  switch (linkType) {
    case DLT_EN10MB: return SplitEthernet(packet, out);
    case DLT_RAW:
    case kLinkTypeRaw:
    case DLT_IPV4:
    case DLT_IPV6:
      out.etherType = TypeOfIpVersion(packet);
      out.network = packet;
      return true;
    case DLT_NULL:
    case DLT_LOOP: {
      const auto null = NullLinkView::Parse(packet);
      if (!null) return false;
      out.etherType = TypeOfFamily(null->family());
      out.network = null->network();
      return true;
    }
    case DLT_LINUX_SLL: {
      const auto sll = SllView::Parse(packet);
      if (!sll) return false;
      out.etherType = sll->protocol();
      out.network = sll->network();
      if (sll->addressLength() == kMacAddressLength) out.sourceAddress = sll->address();
      return true;
    }
    case DLT_LINUX_SLL2: {
      const auto sll = Sll2View::Parse(packet);
      if (!sll) return false;
      out.etherType = sll->protocol();
      out.network = sll->network();
      if (sll->addressLength() == kMacAddressLength) out.sourceAddress = sll->address();
      return true;
    }
    default: return false;
  }
}

void BuildFrame(std::span<const std::uint8_t> destination, const std::uint8_t* source,
                std::uint16_t etherType, std::span<const std::uint8_t> network,
                std::vector<std::uint8_t>& out) {
  out.resize(kEthernetHeaderLength + network.size());
  std::uint8_t* frame = out.data();
  std::memset(frame, 0, 12);
  if (!destination.empty()) std::memcpy(frame, destination.data(), 6);
  if (source) std::memcpy(frame + 6, source, 6);
  WriteBe16(frame + 12, etherType);
  if (!network.empty()) std::memcpy(frame + kEthernetHeaderLength, network.data(), network.size());
}

}  // namespace

InterfaceKind KindForLinkType(int linkType) {
  switch (linkType) {
    case DLT_RAW:
    case kLinkTypeRaw:
    case DLT_IPV4:
    case DLT_IPV6: return InterfaceKind::RawSockets;
    default: return InterfaceKind::PacketDriver;
  }
}

bool LinkTypeSupported(int linkType) {
  switch (linkType) {
    case DLT_EN10MB:
    case DLT_RAW:
    case kLinkTypeRaw:
    case DLT_IPV4:
    case DLT_IPV6:
    case DLT_NULL:
    case DLT_LOOP:
    case DLT_LINUX_SLL:
    case DLT_LINUX_SLL2: return true;
    default: return false;
  }
}

bool ToRawSocketsFrame(int linkType, std::span<const std::uint8_t> packet,
                       std::vector<std::uint8_t>& out) {
  LinkPayload payload;
  if (!SplitLink(linkType, packet, payload)) return false;
  // A raw socket hands over the datagram, not the frame: Ethernet pads short frames to 60
  // bytes, and those zeroes are no part of it. A length field below the header's own minimum
  // is nonsense and cuts nothing; an IPv6 payload length of 0 (a jumbogram) cuts nothing either.
  std::span<const std::uint8_t> datagram = payload.network;
  std::size_t length = datagram.size();
  if (payload.etherType == kEtherTypeIpv4) {
    if (const auto ip = Ipv4View::Parse(datagram)) {
      if (ip->totalLength() >= Ipv4View::kFixedLength) length = ip->totalLength();
    }
  } else if (payload.etherType == kEtherTypeIpv6) {
    if (const auto ip = Ipv6View::Parse(datagram)) {
      if (ip->payloadLength() != 0) length = std::size_t{40} + ip->payloadLength();
    }
  } else {
    return false;
  }
  if (length < datagram.size()) datagram = datagram.first(length);
  BuildFrame({}, nullptr, payload.etherType, datagram, out);
  return true;
}

bool ToAdapterFrame(int linkType, std::span<const std::uint8_t> packet,
                    std::vector<std::uint8_t>& out) {
  // Ethernet frames go through untouched, even runts: they are what the wire carried.
  if (linkType == DLT_EN10MB) {
    out.assign(packet.begin(), packet.end());
    return true;
  }
  LinkPayload payload;
  if (!SplitLink(linkType, packet, payload)) return false;
  BuildFrame({}, payload.sourceAddress, payload.etherType, payload.network, out);
  return true;
}

ConvertedFrame ToFrame(int linkType, InterfaceKind kind, std::span<const std::uint8_t> packet,
                       std::vector<std::uint8_t>& out) {
  if (kind == InterfaceKind::PacketDriver) {
    return {ToAdapterFrame(linkType, packet, out) ? FrameOutcome::Kept : FrameOutcome::CutShort,
            kind};
  }
  if (KindForLinkType(linkType) != InterfaceKind::RawSockets) {
    // Live Raw Sockets on an adapter's link: the datagrams a raw socket would see, nothing else.
    return {ToRawSocketsFrame(linkType, packet, out) ? FrameOutcome::Kept : FrameOutcome::NotForRawSockets,
            kind};
  }
  if (TypeOfIpVersion(packet) == 0) return {FrameOutcome::NotIp, kind};
  ToRawSocketsFrame(linkType, packet, out);
  return {FrameOutcome::Kept, InterfaceKind::RawSockets};
}

}  // namespace vormelt
