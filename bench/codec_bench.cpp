// In-process throughput of the encoder tool's MD5 and Base64 over one file: the computation
// alone, without process start, pipes or page faults (one reused output buffer, as the CLI
// does), so codec.bench.sh can show how much of a tool run is the code itself.
// Usage: bench_codec FILE   (prints "<operation> <MiB/s>" lines by CPU time; decoding is
// counted in decoded bytes, as for the peer tools)
#include <time.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "tools/codec.hpp"
#include "tools/codec_stream.hpp"
#include "tools/md5.hpp"

namespace {

constexpr double kMegabyte = 1024.0 * 1024.0;
constexpr std::size_t kPiece = vormelt::tools::StreamConverter::kPieceBytes;  // a multiple of 3
constexpr std::size_t kEncodedPiece = kPiece / 3 * 4;

double CpuSeconds() {
  timespec now{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

template <typename Work>
void Measure(const char* name, std::size_t bytes, Work&& work) {
  const double start = CpuSeconds();
  const std::size_t produced = work();
  const double seconds = CpuSeconds() - start;
  std::printf("%s %.1f\n", name, static_cast<double>(bytes) / kMegabyte / seconds);
  std::fprintf(stderr, "  (%s: %zu bytes out)\n", name, produced);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: bench_codec FILE\n");
    return 2;
  }
  std::ifstream file(argv[1], std::ios::binary);
  const std::vector<std::uint8_t> data((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  if (data.empty()) {
    std::fprintf(stderr, "bench_codec: %s is empty or unreadable\n", argv[1]);
    return 1;
  }
  using namespace vormelt::tools;
  const std::span<const std::uint8_t> all(data);
  Measure("md5", data.size(), [&] { return Md5Hex(all).size(); });

  std::string encoded = EncodeBase64(all, false);  // untimed: the decoder's input
  std::string out;
  Measure("base64-encode", data.size(), [&] {
    std::size_t total = 0;
    for (std::size_t at = 0; at < data.size(); at += kPiece) {
      out.clear();
      AppendBase64(all.subspan(at, std::min(kPiece, data.size() - at)), false, out);
      total += out.size();
    }
    return total;
  });
  std::vector<std::uint8_t> decoded(kPiece);
  Measure("base64-decode", data.size(), [&] {
    std::size_t total = 0;
    for (std::size_t at = 0; at < encoded.size(); at += kEncodedPiece) {
      total += DecodeBase64(std::string_view(encoded).substr(at, kEncodedPiece), decoded);
    }
    return total;
  });
  return 0;
}
