#include "support/tcp_stream.hpp"

#include <algorithm>

namespace vormelt::test {

std::vector<Bytes> ResponseSegments(std::string_view response, const ResponseFlow& flow) {
  std::vector<Bytes> packets;
  for (std::size_t at = 0; at < response.size(); at += flow.segmentSize) {
    const std::string_view part = response.substr(at, flow.segmentSize);
    TcpHeader tcp;
    tcp.sourcePort = flow.serverPort;
    tcp.destinationPort = flow.clientPort;
    tcp.sequence = flow.firstSequence + static_cast<std::uint32_t>(at);
    tcp.acknowledgement = flow.ack;
    tcp.flags = at + flow.segmentSize >= response.size() ? (kAck | kPsh) : kAck;
    packets.push_back(TcpPacket(flow.ip, tcp, ToBytes(part)));
  }
  return packets;
}

}  // namespace vormelt::test
