// Turns what libpcap delivers on any link type into the one shape every reader expects: an
// Ethernet frame. Pure functions over bytes; they never read past the packet they are given.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "common/wire.hpp"
#include "common/types.hpp"

namespace vormelt {


// Which kind a capture of this libpcap link type (DLT_*) yields when read from a file:
// raw IP links (IPv4, IPv6 or either) give the Raw Sockets kind (pseudo header, no MAC addresses), the rest adapters.
InterfaceKind KindForLinkType(int linkType);
// Whether ToRawSocketsFrame/ToAdapterFrame know the link type.
bool LinkTypeSupported(int linkType);

// Raw Sockets kind: keeps IPv4 and IPv6, drops the link header and puts the 14-byte pseudo
// header (zero MAC addresses, EtherType 0x0800 or 0x86DD) in front. Link padding behind the
// datagram (beyond its IPv4 total length or IPv6 payload length) is dropped, as a raw socket
// never sees it. False for anything that is not IP; `out` then holds nothing useful.
bool ToRawSocketsFrame(int linkType, std::span<const std::uint8_t> packet,
                       std::vector<std::uint8_t>& out);

// Adapter kind: Ethernet frames as they are; other links get an Ethernet header built from
// their own (Linux cooked: its protocol and source address; loopback/null: IPv4 or IPv6 by the
// address family; raw IP: by the IP version). False for a packet too short for its link header.
bool ToAdapterFrame(int linkType, std::span<const std::uint8_t> packet,
                    std::vector<std::uint8_t>& out);

// What one packet of a capture of `kind` became.
enum class FrameOutcome : std::uint8_t {
  Kept,         // `out` holds the frame, of the kind returned
  NotIp,        // a raw IP link's packet whose version nibble is neither 4 nor 6
  CutShort,     // shorter than its link header
  NotForRawSockets,  // not IP, on a Raw Sockets capture of another link: by design, not a loss
};
struct ConvertedFrame {
  FrameOutcome outcome = FrameOutcome::Kept;
  InterfaceKind kind = InterfaceKind::RawSockets;
};
// The one conversion a capture makes. Raw IP links carry IPv4 or IPv6 by the version nibble;
// both become Raw Sockets frames, as a live Raw Sockets capture gives them, so a file's packets
// do not depend on which raw IP link type it was saved as, nor on whether it was written by us.
ConvertedFrame ToFrame(int linkType, InterfaceKind kind, std::span<const std::uint8_t> packet,
                       std::vector<std::uint8_t>& out);

}  // namespace vormelt
