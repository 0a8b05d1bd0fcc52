// Read-only name tables that turn numbers seen in packets into texts: IP protocols, EtherTypes,
// TCP/UDP ports and hardware vendor prefixes. Built once per process from generated data and
// never written afterwards; callers supply their own "Unknown" texts.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace vormelt::names {

// Every text of every table is UTF-8.
// Never null. The table's exact bytes: index 0 is "", 35 "IDPR " (with its trailing blank),
// 255 "Reserved", and every unassigned index "¿?" (bytes C2 BF 3F).
const char* ProtocolName(std::uint8_t protocol);
// The name an IPv6 packet's protocol is shown by: the IANA keywords of ICMPv6 and the IPv6
// extension headers (where a chain ends early), ProtocolName for the rest. Never null.
const char* Ipv6ProtocolName(std::uint8_t protocol);

// nullptr when the code has no entry; codes of 0xFF00 and above never have one.
const char* EtherTypeName(std::uint16_t etherType);

enum class PortProtocol { Tcp, Udp };
inline constexpr std::uint16_t kLastTcpPort = 65'301;
inline constexpr std::uint16_t kLastUdpPort = 54'321;

// nullptr when the port has no entry or lies beyond the protocol's table.
const char* PortName(PortProtocol protocol, std::uint16_t port);

// nullptr when the OUI has no entry; where the registry lists a key twice, the first one wins.
const char* VendorName(std::uint32_t oui);

// The OUI of a MAC address or prefix: "00:0C:29:12:34:56", "00-0C-29", "000C29" and
// "00:0c:29" all give 0x000C29. nullopt when fewer than six hex digits remain after removing
// ':' and '-', or when any other character is present.
std::optional<std::uint32_t> ParseOui(std::string_view text);

}  // namespace vormelt::names
