// bench_gencap OUTPUT [COUNT]: writes a mixed Ethernet capture (default 1,000,000 packets) for
// the ingest benchmark: bulk TCP and its ACKs, DNS over UDP, ping, ARP, IPv6, LLDP and IPv4
// with options, at the sizes a busy office link shows. Deterministic: same count, same file.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "support/frames.hpp"
#include "capture_gen.hpp"

namespace {

using vormelt::test::Bytes;
namespace test = vormelt::test;

const test::Mac kHost{0x00, 0x0c, 0x29, 0x12, 0x34, 0x56};
const test::Mac kRouter{0xf0, 0x9f, 0xc2, 0x00, 0x00, 0x01};
const test::Mac kBroadcast{0xff, 0xff, 0xff, 0xff, 0xff, 0xff};

using vormelt::bench::Random;

test::Ipv4Header Ip(Random& random, bool outgoing) {
  test::Ipv4Header ip;
  const test::Ip4 local{192, 168, 1, 20};
  const test::Ip4 remote{static_cast<std::uint8_t>(20 + random.Below(200)),
                         static_cast<std::uint8_t>(random.Below(256)), 7,
                         static_cast<std::uint8_t>(1 + random.Below(254))};
  ip.source = outgoing ? local : remote;
  ip.destination = outgoing ? remote : local;
  ip.id = static_cast<std::uint16_t>(random.Next());
  return ip;
}

Bytes Frame(Random& random, std::uint32_t slot) {
  const bool outgoing = random.Below(2) == 0;
  const test::Mac& source = outgoing ? kHost : kRouter;
  const test::Mac& destination = outgoing ? kRouter : kHost;
  test::TcpHeader tcp;
  tcp.sourcePort = outgoing ? static_cast<std::uint16_t>(40000 + random.Below(20000)) : 443;
  tcp.destinationPort = outgoing ? 443 : static_cast<std::uint16_t>(40000 + random.Below(20000));
  tcp.sequence = random.Next();
  tcp.acknowledgement = random.Next();
  if (slot < 40) {  // bulk data, mostly full segments
    const std::size_t size = random.Below(3) ? 1460 : 100 + random.Below(1300);
    tcp.flags = vormelt::test::kAck | vormelt::test::kPsh;
    return test::EthernetFrame(destination, source, 0x0800,
                               test::TcpPacket(Ip(random, outgoing), tcp, Bytes(size, 'd')));
  }
  if (slot < 65) {
    return test::EthernetFrame(destination, source, 0x0800, test::TcpPacket(Ip(random, outgoing), tcp, {}));
  }
  if (slot < 77) {  // DNS question or answer
    const std::size_t size = outgoing ? 30 + random.Below(30) : 60 + random.Below(200);
    return test::EthernetFrame(destination, source, 0x0800,
                               test::UdpPacket(Ip(random, outgoing), outgoing ? 53000 : 53,
                                               outgoing ? 53 : 53000, Bytes(size, 'q')));
  }
  if (slot < 83) {
    return test::EthernetFrame(destination, source, 0x0800,
                               test::IcmpPacket(Ip(random, outgoing), outgoing ? 8 : 0, 0, Bytes(56, 'p')));
  }
  if (slot < 88) {
    Bytes arp = test::ArpPacket({});
    arp.resize(46, 0);  // padded to the Ethernet minimum
    return test::EthernetFrame(kBroadcast, kHost, 0x0806, arp);
  }
  if (slot < 94) {
    Bytes ipv6(40 + 20 + random.Below(1200), 0);
    ipv6[0] = 0x60;
    ipv6[6] = 6;
    ipv6[7] = 64;
    return test::EthernetFrame(destination, source, 0x86DD, ipv6);
  }
  if (slot < 97) return test::EthernetFrame(kBroadcast, kRouter, 0x88CC, Bytes(46, 0x02));
  test::Ipv4Header ip = Ip(random, outgoing);
  ip.options = {0x94, 0x04, 0x00, 0x00};
  return test::EthernetFrame(destination, source, 0x0800, test::TcpPacket(ip, tcp, Bytes(64, 'o')));
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: bench_gencap OUTPUT [COUNT]\n");
    return 2;
  }
  const long count = argc > 2 ? std::strtol(argv[2], nullptr, 10) : 1'000'000;
  Random random{12345};
  vormelt::bench::WriteCapture(argv[1], count, random, 37, 400,
                               [](Random& r) { return Frame(r, r.Below(100)); });
  return 0;
}
