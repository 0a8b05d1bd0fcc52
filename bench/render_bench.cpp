// Renders every packet of a capture file in Hex + Text at Datalink level, the way saving does,
// into a file (default /dev/null). render.bench.sh times it beside tcpdump -XX on the same file.
// Usage: bench_render [--gen FILE COUNT] | [PCAP [OUTPUT]]
//   --gen writes COUNT mixed Ethernet packets to FILE (for when no bench capture exists yet).
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <variant>
#include <vector>

#include "capture/source.hpp"
#include "packets/record.hpp"
#include "packets/render.hpp"
#include "support/frames.hpp"
#include "support/pcap_file.hpp"

namespace {

using namespace vormelt;

// The time text a saved packet carries; its length is that of the default date/time template.
constexpr const char* kTimeText = "2024-01-01 12:00:00.000";
constexpr std::size_t kOutputBuffer = 1 << 20;

int Generate(const std::string& path, long count) {
  test::PcapFileWriter writer(path, test::kLinkEthernet);
  std::mt19937 rng(1);
  for (long i = 0; i < count; ++i) {
    test::Ipv4Header ip;
    ip.source = {10, 0, static_cast<std::uint8_t>(rng()), static_cast<std::uint8_t>(rng())};
    const test::Bytes payload(rng() % 1400, static_cast<std::uint8_t>(rng()));
    const test::Bytes network = i % 3 ? test::TcpPacket(ip, test::TcpHeader{}, payload)
                                      : test::UdpPacket(ip, 53, 4000, payload);
    writer.Write(test::EthernetFrame({1, 2, 3, 4, 5, 6}, {6, 5, 4, 3, 2, 1}, 0x0800, network),
                 1700000000 + static_cast<std::uint32_t>(i / 1000),
                 static_cast<std::uint32_t>(i % 1000) * 1000);
  }
  return 0;
}

int Render(const std::string& pcap, const std::string& output) {
  OpenResult opened = OpenSource(CaptureTarget::File(pcap));
  if (!std::holds_alternative<std::unique_ptr<CaptureSource>>(opened)) {
    std::fprintf(stderr, "bench_render: cannot open %s\n", pcap.c_str());
    return 1;
  }
  CaptureSource& source = *std::get<std::unique_ptr<CaptureSource>>(opened);
  std::FILE* out = std::fopen(output.c_str(), "wb");
  if (!out) {
    std::fprintf(stderr, "bench_render: cannot write %s\n", output.c_str());
    return 1;
  }
  std::vector<char> outBuffer(kOutputBuffer);
  std::setvbuf(out, outBuffer.data(), _IOFBF, outBuffer.size());

  PacketRenderer renderer({DataForm::HexText, IpGap::Narrow, DataLevel::Datalink});
  std::vector<std::uint8_t> block(kMaxFrameLength + kRecordOverhead);  // one record, reused
  const auto start = std::chrono::steady_clock::now();
  long packets = 0;
  FrameRecord frame;
  for (ReadResult r; (r = source.Next(frame)) != ReadResult::End && r != ReadResult::Failed;) {
    if (r != ReadResult::Frame) continue;
    const std::uint8_t* stored = LayOutRecord(block.data(), frame.bytes, source.Kind());
    const PacketRef ref{stored, frame.length(), source.Kind(), kTimeText};
    if (!renderer.Write(ref, out)) break;
    ++packets;
  }
  std::fclose(out);
  const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
  std::printf("packets %ld seconds %.3f packets/s %.0f\n", packets, seconds.count(),
              packets / seconds.count());
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 4 && std::string(argv[1]) == "--gen") return Generate(argv[2], std::atol(argv[3]));
  if (argc < 2 || argc > 3) {
    std::fprintf(stderr, "usage: bench_render PCAP [OUTPUT] | bench_render --gen FILE COUNT\n");
    return 2;
  }
  return Render(argv[1], argc == 3 ? argv[2] : "/dev/null");
}
