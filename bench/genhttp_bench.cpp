// bench_genhttp OUTPUT [CONNECTIONS]: writes an Ethernet capture of HTTP/1.1 downloads for the
// File Mode benchmark: each connection has its handshake, a GET, a response with
// Content-Length (one in eight chunked) cut into 1448-byte segments with the client's ACKs,
// and the FIN exchange; eight connections run interleaved. Bodies are 2 to 120 KB of html,
// png, pdf and octet-stream. Deterministic: same count, same file. Prints packets and bodies.
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <string>
#include <vector>

#include "capture_gen.hpp"
#include "support/frames.hpp"

namespace {

namespace test = vormelt::test;
using test::Bytes;
using vormelt::bench::Random;

constexpr std::size_t kSegment = 1448;
constexpr int kInterleaved = 8;
constexpr const char* kTypes[] = {"text/html", "image/png", "application/pdf",
                                  "application/octet-stream"};
const test::Mac kClientMac{0x00, 0x0c, 0x29, 0x12, 0x34, 0x56};
const test::Mac kServerMac{0xf0, 0x9f, 0xc2, 0x00, 0x00, 0x01};

// One connection's packets, in order, as Ethernet frames.
struct Connection {
  std::deque<Bytes> packets;
};

std::string Body(Random& random) {
  std::string body(2048 + random.Below(120 * 1024), '\0');
  for (char& c : body) c = static_cast<char>(random.Next() >> 24);
  return body;
}

std::string Chunked(const std::string& body) {
  std::string out;
  for (std::size_t at = 0; at < body.size(); at += 4000) {
    const std::string part = body.substr(at, 4000);
    char size[16];
    std::snprintf(size, sizeof size, "%zx\r\n", part.size());
    out += size + part + "\r\n";
  }
  return out + "0\r\n\r\n";
}

Connection MakeConnection(Random& random, int index) {
  Connection c;
  test::Ipv4Header toServer;
  toServer.source = {192, 168, 1, 20};
  toServer.destination = {static_cast<std::uint8_t>(20 + index % 200), 7, 7, 7};
  test::Ipv4Header toClient;
  toClient.source = toServer.destination;
  toClient.destination = toServer.source;
  const auto port = static_cast<std::uint16_t>(40000 + index % 20000);
  std::uint32_t clientSeq = random.Next(), serverSeq = random.Next();
  const auto add = [&](bool fromClient, std::uint8_t flags, const std::string& payload) {
    test::TcpHeader tcp;
    tcp.sourcePort = fromClient ? port : 80;
    tcp.destinationPort = fromClient ? 80 : port;
    tcp.sequence = fromClient ? clientSeq : serverSeq;
    tcp.acknowledgement = flags == test::kSyn ? 0 : (fromClient ? serverSeq : clientSeq);
    tcp.flags = flags;
    const Bytes ip = test::TcpPacket(fromClient ? toServer : toClient, tcp, test::ToBytes(payload));
    c.packets.push_back(test::EthernetFrame(fromClient ? kServerMac : kClientMac,
                                            fromClient ? kClientMac : kServerMac, 0x0800, ip));
    const std::uint32_t advance = static_cast<std::uint32_t>(payload.size()) +
                                  ((flags & (test::kSyn | 0x01)) ? 1 : 0);
    (fromClient ? clientSeq : serverSeq) += advance;
  };
  add(true, test::kSyn, {});
  add(false, test::kSyn | test::kAck, {});
  add(true, test::kAck, {});
  add(true, test::kAck | test::kPsh, "GET /file" + std::to_string(index) + " HTTP/1.1\r\nHost: bench\r\n\r\n");
  const std::string body = Body(random);
  const bool chunked = index % 8 == 7;
  std::string response = "HTTP/1.1 200 OK\r\nContent-Type: " + std::string(kTypes[index % 4]) + "\r\n";
  response += chunked ? "Transfer-Encoding: chunked\r\n\r\n" + Chunked(body)
                      : "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
  for (std::size_t at = 0, n = 0; at < response.size(); at += kSegment, ++n) {
    const bool last = at + kSegment >= response.size();
    add(false, last ? (test::kAck | test::kPsh) : test::kAck, response.substr(at, kSegment));
    if (n % 2 == 1 || last) add(true, test::kAck, {});
  }
  add(false, test::kAck | 0x01, {});
  add(true, test::kAck | 0x01, {});
  add(false, test::kAck, {});
  return c;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: bench_genhttp OUTPUT [CONNECTIONS]\n");
    return 2;
  }
  const int connections = argc > 2 ? std::atoi(argv[2]) : 2500;
  Random random{20231114};
  std::vector<Bytes> order;
  std::deque<Connection> running;
  int made = 0;
  while (made < connections || !running.empty()) {
    while (made < connections && running.size() < kInterleaved) running.push_back(MakeConnection(random, made++));
    for (auto it = running.begin(); it != running.end();) {
      order.push_back(std::move(it->packets.front()));
      it->packets.pop_front();
      it = it->packets.empty() ? running.erase(it) : it + 1;
    }
  }
  std::size_t next = 0;
  vormelt::bench::WriteCapture(argv[1], static_cast<long>(order.size()), random, 20, 200,
                               [&](Random&) { return order[next++]; });
  std::printf("packets %zu\nbodies %d\n", order.size(), connections);
  return 0;
}
