// Builders for test frames: Ethernet, IPv4 (with options), TCP, UDP, ICMP and ARP, with correct
// lengths and checksums, so tshark and tcpdump read them like captured traffic.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "common/clock.hpp"
#include "common/frame_sink.hpp"

namespace vormelt::test {

using Bytes = std::vector<std::uint8_t>;
using Mac = std::array<std::uint8_t, 6>;
using Ip4 = std::array<std::uint8_t, 4>;

Ip4 ParseIp(std::string_view dotted);  // "10.0.0.1"; aborts the test program on bad text
Bytes ToBytes(std::string_view text);

// A frame record over `frame` as a receive loop hands it over, stamped now. Valid until the
// next call on the same thread.
inline FrameRecord Record(std::span<const std::uint8_t> frame, InterfaceKind kind,
                          CaptureTime time = CaptureNow()) {
  thread_local FrameBuffer buffer;
  return buffer.Fill(frame, kind, time);
}

inline constexpr std::uint8_t kSyn = 0x02, kPsh = 0x08, kAck = 0x10;

struct Ipv4Header {
  Ip4 source{10, 0, 0, 1};
  Ip4 destination{10, 0, 0, 2};
  std::uint8_t protocol = 6;
  std::uint8_t ttl = 64;
  std::uint16_t id = 1;
  Bytes options;  // padded to a multiple of four; sets the IHL
};

struct TcpHeader {
  std::uint16_t sourcePort = 40000;
  std::uint16_t destinationPort = 80;
  std::uint32_t sequence = 1;
  std::uint32_t acknowledgement = 0;
  std::uint8_t flags = kAck;
  std::uint16_t window = 65535;
  Bytes options;  // padded to a multiple of four; sets the data offset
};

// Network-layer packets (what a raw socket delivers).
Bytes Ipv4Packet(const Ipv4Header& ip, std::span<const std::uint8_t> transport);
Bytes TcpPacket(const Ipv4Header& ip, const TcpHeader& tcp, std::span<const std::uint8_t> payload);
Bytes UdpPacket(const Ipv4Header& ip, std::uint16_t sourcePort, std::uint16_t destinationPort,
                std::span<const std::uint8_t> payload);
Bytes IcmpPacket(const Ipv4Header& ip, std::uint8_t type, std::uint8_t code,
                 std::span<const std::uint8_t> payload);

struct ArpFields {
  std::uint16_t hardwareType = 1;
  std::uint16_t protocolType = 0x0800;
  std::uint8_t hardwareLength = 6;
  std::uint8_t protocolLength = 4;
  std::uint16_t operation = 1;
  Mac senderMac{0x00, 0x0c, 0x29, 0x12, 0x34, 0x56};
  Ip4 senderIp{192, 168, 1, 10};
  Mac targetMac{};
  Ip4 targetIp{192, 168, 1, 1};
};
// The ARP body; hardware addresses are padded or cut to hardwareLength, protocol addresses
// to protocolLength.
Bytes ArpPacket(const ArpFields& arp);

// A whole Ethernet frame around a network packet.
Bytes EthernetFrame(const Mac& destination, const Mac& source, std::uint16_t etherType,
                    std::span<const std::uint8_t> network);
// An IPv6 frame: `next` in the fixed header, `rest` (extension headers, transport...) behind it.
Bytes Ipv6Frame(std::string_view source, std::string_view destination, std::uint8_t next,
                std::span<const std::uint8_t> rest);

// The pseudo frame the Raw Sockets capture makes: zero MACs, EtherType 0x0800.
Bytes RawSocketsFrame(std::span<const std::uint8_t> ipPacket);

}  // namespace vormelt::test
