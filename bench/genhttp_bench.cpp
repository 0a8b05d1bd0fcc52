// bench_genhttp OUTPUT [mixed [PACKETS [MBIT]] | one-stream [SEGMENTS]]: writes an Ethernet
// capture for the File Mode benchmark, paced as a link of MBIT Mbit/s (one-stream: 1000) carries
// it: each frame follows the one before by its own length at that rate.
//   mixed (default 100,000 packets): sixteen connections at a time, by count half HTTP/1.1
//     downloads (2 to 120 KB of html, png, pdf or octet-stream, Content-Length or, one in eight,
//     chunked; one in forty a download of 1 to 4 MB), one in ten HTTPS transfers of 20 to 600 KB
//     (TLS records to port 443, never files) and the rest DNS questions and answers over UDP.
//     Each TCP connection has its handshake, a request, the response cut into 1448-byte
//     segments with an ACK every fourth one (as a receiver that coalesces does), and the FIN exchange. The file ends at PACKETS,
//     mid-transfer for the last connections, as a capture that is stopped does.
//   one-stream (default 400,000 segments): one HTTP download of SEGMENTS full segments.
// Deterministic: same arguments, same file. Prints packets and the HTTP bodies begun.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "capture_gen.hpp"
#include "support/frames.hpp"

namespace {

namespace test = vormelt::test;
using test::Bytes;
using vormelt::bench::Random;

constexpr std::size_t kSegment = 1448;
constexpr std::size_t kInterleaved = 16;
constexpr std::uint8_t kFin = 0x01;
constexpr const char* kTypes[] = {"text/html", "image/png", "application/pdf",
                                  "application/octet-stream"};
const test::Mac kClientMac{0x00, 0x0c, 0x29, 0x12, 0x34, 0x56};
const test::Mac kServerMac{0xf0, 0x9f, 0xc2, 0x00, 0x00, 0x01};

using Emit = std::function<void(Bytes)>;

// Writes frames with the time stamps of a link of `mbits` Mbit/s, the preamble and gap counted.
class PacedWriter {
 public:
  PacedWriter(const std::string& path, long mbits)
      : writer_(path, test::kLinkEthernet, 65535), mbits_(static_cast<std::uint64_t>(mbits)) {}
  void Write(const Bytes& frame) {
    nanoseconds_ += (frame.size() + 20) * 8000 / mbits_;
    writer_.Write(frame, static_cast<std::uint32_t>(1'700'000'000 + nanoseconds_ / 1'000'000'000),
                  static_cast<std::uint32_t>(nanoseconds_ % 1'000'000'000 / 1000));
    ++packets_;
  }
  long packets() const { return packets_; }

 private:
  test::PcapFileWriter writer_;
  std::uint64_t mbits_;
  std::uint64_t nanoseconds_ = 0;
  long packets_ = 0;
};

std::string RandomText(Random& random, std::size_t size) {
  std::string text(size, '\0');
  for (char& c : text) c = static_cast<char>(random.Next() >> 24);
  return text;
}

// One TCP connection between the client and a server: the frames of each direction, with the
// sequence numbers kept.
class Flow {
 public:
  Flow(Random& random, int index, std::uint16_t serverPort, Emit emit)
      : emit_(std::move(emit)), serverPort_(serverPort),
        clientPort_(static_cast<std::uint16_t>(40000 + index % 20000)),
        clientSeq_(random.Next()), serverSeq_(random.Next()) {
    toServer_.source = {192, 168, 1, 20};
    toServer_.destination = {static_cast<std::uint8_t>(20 + index % 200), 7, 7, 7};
    toClient_.source = toServer_.destination;
    toClient_.destination = toServer_.source;
  }

  void Add(bool fromClient, std::uint8_t flags, std::string_view payload) {
    test::TcpHeader tcp;
    tcp.sourcePort = fromClient ? clientPort_ : serverPort_;
    tcp.destinationPort = fromClient ? serverPort_ : clientPort_;
    tcp.sequence = fromClient ? clientSeq_ : serverSeq_;
    tcp.acknowledgement = flags == test::kSyn ? 0 : (fromClient ? serverSeq_ : clientSeq_);
    tcp.flags = flags;
    const Bytes ip = test::TcpPacket(fromClient ? toServer_ : toClient_, tcp,
                                     {reinterpret_cast<const std::uint8_t*>(payload.data()),
                                      payload.size()});
    emit_(test::EthernetFrame(fromClient ? kServerMac : kClientMac,
                              fromClient ? kClientMac : kServerMac, 0x0800, ip));
    const auto advance = static_cast<std::uint32_t>(payload.size()) +
                         ((flags & (test::kSyn | kFin)) ? 1 : 0);
    (fromClient ? clientSeq_ : serverSeq_) += advance;
  }

  void Open(const std::string& request) {
    Add(true, test::kSyn, {});
    Add(false, test::kSyn | test::kAck, {});
    Add(true, test::kAck, {});
    Add(true, test::kAck | test::kPsh, request);
  }
  // The server's segment `n` of a response, the last when `last`, with the client's ACKs.
  void Respond(std::size_t n, bool last, std::string_view segment) {
    Add(false, last ? (test::kAck | test::kPsh) : test::kAck, segment);
    if (n % 4 == 3 || last) Add(true, test::kAck, {});
  }
  void Close() {
    Add(false, test::kAck | kFin, {});
    Add(true, test::kAck | kFin, {});
    Add(false, test::kAck, {});
  }

 private:
  Emit emit_;
  std::uint16_t serverPort_, clientPort_;
  std::uint32_t clientSeq_, serverSeq_;
  test::Ipv4Header toServer_, toClient_;
};

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

void Exchange(Flow& flow, const std::string& request, const std::string& response) {
  flow.Open(request);
  for (std::size_t at = 0, n = 0; at < response.size(); at += kSegment, ++n) {
    flow.Respond(n, at + kSegment >= response.size(), std::string_view(response).substr(at, kSegment));
  }
  flow.Close();
}

void HttpDownload(Random& random, int index, const Emit& emit) {
  Flow flow(random, index, 80, emit);
  const std::size_t size = index % 40 == 39 ? (1 << 20) + random.Below(3 << 20)
                                            : 2048 + random.Below(120 * 1024);
  const std::string body = RandomText(random, size);
  const bool chunked = index % 8 == 7;
  std::string response = "HTTP/1.1 200 OK\r\nContent-Type: " + std::string(kTypes[index % 4]) + "\r\n";
  response += chunked ? "Transfer-Encoding: chunked\r\n\r\n" + Chunked(body)
                      : "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
  Exchange(flow, "GET /file" + std::to_string(index) + " HTTP/1.1\r\nHost: bench\r\n\r\n", response);
}

void HttpsTransfer(Random& random, int index, const Emit& emit) {
  Flow flow(random, index, 443, emit);
  std::string records = "\x16\x03\x03" + RandomText(random, 4000);  // the server's hello
  const std::size_t size = 20 * 1024 + random.Below(580 * 1024);
  while (records.size() < size) records += "\x17\x03\x03" + RandomText(random, 16384);
  Exchange(flow, "\x16\x03\x01" + RandomText(random, 500), records);
}

void DnsLookup(Random& random, int index, const Emit& emit) {
  test::Ipv4Header out;
  out.source = {192, 168, 1, 20};
  out.destination = {192, 168, 1, 1};
  test::Ipv4Header back;
  back.source = out.destination;
  back.destination = out.source;
  const auto port = static_cast<std::uint16_t>(50000 + index % 10000);
  const Bytes question(30 + random.Below(30), 'q'), answer(60 + random.Below(200), 'a');
  emit(test::EthernetFrame(kServerMac, kClientMac, 0x0800, test::UdpPacket(out, port, 53, question)));
  emit(test::EthernetFrame(kClientMac, kServerMac, 0x0800, test::UdpPacket(back, 53, port, answer)));
}

int Mixed(const std::string& path, long packets, long mbits) {
  Random random{20231114};
  PacedWriter writer(path, mbits);
  std::deque<std::deque<Bytes>> running;
  int made = 0, bodies = 0;
  while (writer.packets() < packets) {
    while (running.size() < kInterleaved) {
      std::deque<Bytes>& frames = running.emplace_back();
      const Emit emit = [&frames](Bytes frame) { frames.push_back(std::move(frame)); };
      const std::uint32_t kind = random.Below(10);
      if (kind < 5) {
        HttpDownload(random, made, emit);
        ++bodies;
      } else if (kind < 6) {
        HttpsTransfer(random, made, emit);
      } else {
        DnsLookup(random, made, emit);
      }
      ++made;
    }
    for (auto it = running.begin(); it != running.end() && writer.packets() < packets;) {
      writer.Write(it->front());
      it->pop_front();
      it = it->empty() ? running.erase(it) : it + 1;
    }
  }
  std::printf("packets %ld\nbodies %d\n", writer.packets(), bodies);
  return 0;
}

int OneStream(const std::string& path, long segments) {
  Random random{20231115};
  PacedWriter writer(path, 1000);
  Flow flow(random, 1, 80, [&](Bytes frame) { writer.Write(frame); });
  const std::string header = "HTTP/1.1 200 OK\r\nContent-Type: application/octet-stream\r\n"
                             "Content-Length: ";
  const std::size_t bodySize = static_cast<std::size_t>(segments) * kSegment;
  std::string head = header + std::to_string(bodySize) + "\r\n\r\n";
  flow.Open("GET /big HTTP/1.1\r\nHost: bench\r\n\r\n");
  // The header rides in front of the first segment's bytes; every segment is full but the last.
  std::string pending = head;
  std::size_t left = bodySize, n = 0;
  while (left > 0 || !pending.empty()) {
    const std::size_t take = std::min(left, kSegment - std::min(kSegment, pending.size()));
    pending += RandomText(random, take);
    left -= take;
    const std::string segment = pending.substr(0, kSegment);
    pending.erase(0, segment.size());
    flow.Respond(n++, left == 0 && pending.empty(), segment);
  }
  flow.Close();
  std::printf("packets %ld\nbodies 1\nbody_bytes %zu\n", writer.packets(), bodySize);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: bench_genhttp OUTPUT [mixed [PACKETS [MBIT]] | one-stream [SEGMENTS]]\n");
    return 2;
  }
  const std::string mode = argc > 2 ? argv[2] : "mixed";
  const long count = argc > 3 ? std::atol(argv[3]) : 0;
  const long mbits = argc > 4 ? std::atol(argv[4]) : 0;
  if (mode == "mixed") return Mixed(argv[1], count > 0 ? count : 100'000, mbits > 0 ? mbits : 100);
  if (mode == "one-stream") return OneStream(argv[1], count > 0 ? count : 400'000);
  std::fprintf(stderr, "bench_genhttp: unknown mode '%s'\n", mode.c_str());
  return 2;
}
