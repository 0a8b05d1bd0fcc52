// Numbers fixed by the wire formats every engine reads: the Ethernet header, the EtherTypes and
// IP protocol numbers the program tells apart. One definition, so capture, decoding, rendering
// and filtering can never disagree on them.
#pragma once

#include <cstdint>

namespace vormelt {

inline constexpr std::uint32_t kEthernetHeaderLength = 14;
// The longest IP packets: IPv4's total length counts its header; IPv6's payload length does not
// count the 40 fixed bytes in front of it (jumbograms aside, which no link here carries).
inline constexpr std::uint32_t kMaxIpv4PacketLength = 65535;
inline constexpr std::uint32_t kMaxIpv6PacketLength = 40 + 65535;

inline constexpr std::uint16_t kEtherTypeIpv4 = 0x0800;
inline constexpr std::uint16_t kEtherTypeArp = 0x0806;
inline constexpr std::uint16_t kEtherTypeVlan = 0x8100;
inline constexpr std::uint16_t kEtherTypeIpv6 = 0x86DD;

inline constexpr std::uint8_t kProtocolIcmp = 1;
inline constexpr std::uint8_t kProtocolTcp = 6;
inline constexpr std::uint8_t kProtocolUdp = 17;
inline constexpr std::uint8_t kProtocolIcmpv6 = 58;

}  // namespace vormelt
