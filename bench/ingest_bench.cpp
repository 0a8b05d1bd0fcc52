// bench_ingest OUTPUT [COUNT]: writes the capture bench/ingest.bench.sh reads: COUNT (default
// 100,000) Ethernet frames, mostly full-size TCP segments of many transfers, with ACKs, shorter
// segments, DNS, ping and ARP: about 1,260 bytes a packet on average (a 100,000-packet file is
// about 126 MB). Deterministic: same count, same file.
#include <cstdio>
#include <cstdlib>

#include "support/frames.hpp"
#include "capture_gen.hpp"

namespace {

namespace test = vormelt::test;
using test::Bytes;

constexpr std::size_t kFullSegment = 1460;

using vormelt::bench::Random;

// Many conversations at once, as on a busy link: random remote hosts, ports and sequence
// numbers (a reader that tracks TCP conversations does real work, as it would on real traffic).
Bytes Frame(Random& random) {
  const bool outgoing = random.Below(2) == 0;
  test::Ipv4Header ip;
  const test::Ip4 local{192, 168, 1, 20};
  const test::Ip4 remote{static_cast<std::uint8_t>(20 + random.Below(200)),
                         static_cast<std::uint8_t>(random.Below(256)), 7,
                         static_cast<std::uint8_t>(1 + random.Below(254))};
  ip.source = outgoing ? local : remote;
  ip.destination = outgoing ? remote : local;
  ip.id = static_cast<std::uint16_t>(random.Below(65536));
  test::TcpHeader tcp;
  const auto port = static_cast<std::uint16_t>(40000 + random.Below(20000));
  tcp.sourcePort = outgoing ? port : 443;
  tcp.destinationPort = outgoing ? 443 : port;
  tcp.sequence = random.Below(1u << 24) << 8;
  tcp.acknowledgement = random.Below(1u << 24) << 8;
  const test::Mac host{0x00, 0x0c, 0x29, 0x12, 0x34, 0x56}, router{0xf0, 0x9f, 0xc2, 0, 0, 1};
  const test::Mac& source = outgoing ? host : router;
  const test::Mac& destination = outgoing ? router : host;
  const std::uint32_t slot = random.Below(100);
  if (slot < 80) return test::EthernetFrame(destination, source, 0x0800, test::TcpPacket(ip, tcp, Bytes(kFullSegment, 'd')));
  if (slot < 85) {
    return test::EthernetFrame(destination, source, 0x0800,
                               test::TcpPacket(ip, tcp, Bytes(100 + random.Below(1300), 'p')));
  }
  if (slot < 91) return test::EthernetFrame(destination, source, 0x0800, test::TcpPacket(ip, tcp, {}));
  if (slot < 96) {
    return test::EthernetFrame(destination, source, 0x0800,
                               test::UdpPacket(ip, outgoing ? 53000 : 53, outgoing ? 53 : 53000,
                                               Bytes(30 + random.Below(200), 'q')));
  }
  if (slot < 98) return test::EthernetFrame(destination, source, 0x0800, test::IcmpPacket(ip, 8, 0, Bytes(56, 'i')));
  Bytes arp = test::ArpPacket({});
  arp.resize(46, 0);  // padded to the Ethernet minimum
  return test::EthernetFrame({0xff, 0xff, 0xff, 0xff, 0xff, 0xff}, host, 0x0806, arp);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: bench_ingest OUTPUT [COUNT]\n");
    return 2;
  }
  const long count = argc > 2 ? std::strtol(argv[2], nullptr, 10) : 100'000;
  Random random{4242};
  vormelt::bench::WriteCapture(argv[1], count, random, 10, 90, Frame);
  return 0;
}
