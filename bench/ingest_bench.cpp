// bench_ingest FILE: reads a capture file through the capture loop into a PacketStore, as
// Packet Mode does, and reports packets per second and resident bytes per stored packet
// (VmRSS before and after). Prints "name value" lines for bench/ingest.bench.sh.
#include <sys/resource.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <string>

#include "capture/session.hpp"
#include "packets/store.hpp"

namespace {

long ResidentKilobytes() {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind("VmRSS:", 0) == 0) return std::stol(line.substr(6));
  }
  return 0;
}

// User + system CPU seconds so far: unlike wall time, not stretched by a busy machine.
double CpuSeconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](const timeval& t) { return t.tv_sec + t.tv_usec / 1e6; };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: bench_ingest FILE\n");
    return 2;
  }
  using namespace vormelt;
  PacketStore store;
  CaptureSession session;
  const long residentBefore = ResidentKilobytes();
  const double cpuBefore = CpuSeconds();
  const auto begun = std::chrono::steady_clock::now();
  session.Start(CaptureTarget::File(argv[1]), store);
  session.Wait();
  const double seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - begun).count();
  const double cpuSeconds = CpuSeconds() - cpuBefore;
  const long residentAfter = ResidentKilobytes();
  for (const auto& message : session.Messages().Drain()) {
    std::fprintf(stderr, "%s\n", FormatMessage(message, UiLanguage::English).c_str());
    return 1;
  }
  const double packets = static_cast<double>(store.RowCount());
  std::printf("packets %.0f\n", packets);
  std::printf("seconds %.3f\n", seconds);
  std::printf("cpu_seconds %.3f\n", cpuSeconds);
  std::printf("packets_per_second %.0f\n", packets / seconds);
  std::printf("allocated_bytes_per_packet %.1f\n", store.AllocatedMemory() / packets);
  std::printf("resident_bytes_per_packet %.1f\n", (residentAfter - residentBefore) * 1024.0 / packets);
  return 0;
}
