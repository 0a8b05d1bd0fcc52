// Small enums shared by every layer: the program's modes and the kinds of capture interface.
#pragma once

#include <cstdint>

namespace vormelt {

// Which window a process runs. Kept as a signed number in the settings (the remembered mode).
enum class ProgramMode : std::int32_t {
  Decoder = -1,  // the stand-alone Base Encoder/Decoder
  Packet = 0,
  File = 1,
  GraphicalPackets = 2,
  Statistical = 3,
};

// No mode switch pending in a mode window.
inline constexpr std::int32_t kNoPendingSwitch = 100;

// How a capture reaches the traffic: Raw Sockets (an IPv4 address of the host; IP datagrams
// behind a pseudo Ethernet header) or an adapter (whole link-layer frames).
enum class InterfaceKind : std::uint8_t { RawSockets = 0, PacketDriver = 1 };

}  // namespace vormelt
