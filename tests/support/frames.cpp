#include "support/frames.hpp"

#include <arpa/inet.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "common/byte_order.hpp"

namespace vormelt::test {
namespace {

std::uint32_t SumWords(std::span<const std::uint8_t> bytes, std::uint32_t sum = 0) {
  for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) sum += ReadBe16(&bytes[i]);
  if (bytes.size() % 2) sum += std::uint32_t{bytes.back()} << 8;
  return sum;
}

std::uint16_t Fold(std::uint32_t sum) {
  while (sum >> 16) sum = (sum & 0xffff) + (sum >> 16);
  return static_cast<std::uint16_t>(~sum);
}

void PadToFour(Bytes& bytes) {
  while (bytes.size() % 4) bytes.push_back(0);
}

// Checksum over the IPv4 pseudo header and a transport segment.
std::uint16_t TransportChecksum(const Ipv4Header& ip, std::span<const std::uint8_t> segment) {
  std::uint8_t pseudo[12];
  std::copy(ip.source.begin(), ip.source.end(), pseudo);
  std::copy(ip.destination.begin(), ip.destination.end(), pseudo + 4);
  pseudo[8] = 0;
  pseudo[9] = ip.protocol;
  WriteBe16(pseudo + 10, static_cast<std::uint16_t>(segment.size()));
  return Fold(SumWords(segment, SumWords(pseudo)));
}

}  // namespace

Ip4 ParseIp(std::string_view dotted) {
  Ip4 out{};
  const std::string text(dotted);
  if (inet_pton(AF_INET, text.c_str(), out.data()) != 1) {
    std::fprintf(stderr, "test support: bad IPv4 text '%s'\n", text.c_str());
    std::abort();
  }
  return out;
}

Bytes ToBytes(std::string_view text) { return Bytes(text.begin(), text.end()); }

Bytes Ipv4Packet(const Ipv4Header& ip, std::span<const std::uint8_t> transport) {
  Bytes options = ip.options;
  PadToFour(options);
  const std::size_t headerLength = 20 + options.size();
  Bytes packet(headerLength, 0);
  packet[0] = static_cast<std::uint8_t>(0x40 | (headerLength / 4));
  WriteBe16(&packet[2], static_cast<std::uint16_t>(headerLength + transport.size()));
  WriteBe16(&packet[4], ip.id);
  packet[8] = ip.ttl;
  packet[9] = ip.protocol;
  std::copy(ip.source.begin(), ip.source.end(), packet.begin() + 12);
  std::copy(ip.destination.begin(), ip.destination.end(), packet.begin() + 16);
  std::copy(options.begin(), options.end(), packet.begin() + 20);
  WriteBe16(&packet[10], Fold(SumWords(packet)));
  packet.insert(packet.end(), transport.begin(), transport.end());
  return packet;
}

Bytes TcpPacket(const Ipv4Header& ipIn, const TcpHeader& tcp,
                std::span<const std::uint8_t> payload) {
  Ipv4Header ip = ipIn;
  ip.protocol = 6;
  Bytes options = tcp.options;
  PadToFour(options);
  Bytes segment(20 + options.size(), 0);
  WriteBe16(&segment[0], tcp.sourcePort);
  WriteBe16(&segment[2], tcp.destinationPort);
  WriteBe32(&segment[4], tcp.sequence);
  WriteBe32(&segment[8], tcp.acknowledgement);
  segment[12] = static_cast<std::uint8_t>((segment.size() / 4) << 4);
  segment[13] = tcp.flags;
  WriteBe16(&segment[14], tcp.window);
  std::copy(options.begin(), options.end(), segment.begin() + 20);
  segment.insert(segment.end(), payload.begin(), payload.end());
  WriteBe16(&segment[16], TransportChecksum(ip, segment));
  return Ipv4Packet(ip, segment);
}

Bytes UdpPacket(const Ipv4Header& ipIn, std::uint16_t sourcePort, std::uint16_t destinationPort,
                std::span<const std::uint8_t> payload) {
  Ipv4Header ip = ipIn;
  ip.protocol = 17;
  Bytes segment(8, 0);
  WriteBe16(&segment[0], sourcePort);
  WriteBe16(&segment[2], destinationPort);
  WriteBe16(&segment[4], static_cast<std::uint16_t>(8 + payload.size()));
  segment.insert(segment.end(), payload.begin(), payload.end());
  std::uint16_t sum = TransportChecksum(ip, segment);
  WriteBe16(&segment[6], sum == 0 ? 0xffff : sum);
  return Ipv4Packet(ip, segment);
}

Bytes IcmpPacket(const Ipv4Header& ipIn, std::uint8_t type, std::uint8_t code,
                 std::span<const std::uint8_t> payload) {
  Ipv4Header ip = ipIn;
  ip.protocol = 1;
  Bytes message(8, 0);
  message[0] = type;
  message[1] = code;
  message.insert(message.end(), payload.begin(), payload.end());
  WriteBe16(&message[2], Fold(SumWords(message)));
  return Ipv4Packet(ip, message);
}

Bytes ArpPacket(const ArpFields& arp) {
  Bytes body(8, 0);
  WriteBe16(&body[0], arp.hardwareType);
  WriteBe16(&body[2], arp.protocolType);
  body[4] = arp.hardwareLength;
  body[5] = arp.protocolLength;
  WriteBe16(&body[6], arp.operation);
  auto put = [&body](std::span<const std::uint8_t> value, std::size_t width) {
    for (std::size_t i = 0; i < width; ++i) body.push_back(i < value.size() ? value[i] : 0);
  };
  put(arp.senderMac, arp.hardwareLength);
  put(arp.senderIp, arp.protocolLength);
  put(arp.targetMac, arp.hardwareLength);
  put(arp.targetIp, arp.protocolLength);
  return body;
}

Bytes EthernetFrame(const Mac& destination, const Mac& source, std::uint16_t etherType,
                    std::span<const std::uint8_t> network) {
  Bytes frame(14, 0);
  std::copy(destination.begin(), destination.end(), frame.begin());
  std::copy(source.begin(), source.end(), frame.begin() + 6);
  WriteBe16(&frame[12], etherType);
  frame.insert(frame.end(), network.begin(), network.end());
  return frame;
}

Bytes Ipv6Frame(std::string_view source, std::string_view destination, std::uint8_t next,
                std::span<const std::uint8_t> rest) {
  Bytes packet{0x60, 0, 0, 0, 0, 0, next, 64};
  WriteBe16(&packet[4], static_cast<std::uint16_t>(rest.size()));
  for (const std::string_view address : {source, destination}) {
    packet.resize(packet.size() + 16);
    if (inet_pton(AF_INET6, std::string(address).c_str(), &packet[packet.size() - 16]) != 1) std::abort();
  }
  packet.insert(packet.end(), rest.begin(), rest.end());
  return EthernetFrame(Mac{}, Mac{}, 0x86DD, packet);
}

Bytes RawSocketsFrame(std::span<const std::uint8_t> ipPacket) {
  return EthernetFrame(Mac{}, Mac{}, 0x0800, ipPacket);
}

}  // namespace vormelt::test
