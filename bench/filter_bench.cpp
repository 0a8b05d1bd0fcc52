// bench_filter FILE: reads a capture with libpcap and runs every frame through a packet filter
// with ten address ranges and ten case-insensitive must-contain texts, as the Packet Mode
// receive thread does. A read-only pass first gives the cost of reading alone, so the filter's
// own rate can be told apart. Prints "name value" lines for bench/filter.bench.sh.
#include <pcap/pcap.h>

#include <time.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

#include "capture/link_frames.hpp"
#include "filters/filter_settings.hpp"
#include "packets/record.hpp"

namespace {

using namespace vormelt;
using Clock = std::chrono::steady_clock;

struct PcapCloser {
  void operator()(pcap_t* p) const { pcap_close(p); }
};

FilterValues BenchFilter() {
  FilterValues v;
  v.eitherInRanges.push_back({*ParseIpv4("10.0.0.0"), *ParseIpv4("10.255.255.255")});
  for (std::uint32_t first = 20; first < 200; first += 20) {
    v.eitherInRanges.push_back({first << 24, ((first + 9) << 24) | 0x00FFFFFFu});
  }
  v.mustContain = {"password", "HTTP/1.1 200", "Content-Type: text/html", "GET /", "POST /",
                   "User-Agent", "Set-Cookie", "Authorization", "login", "secret"};
  return v;
}

// Reads every packet of `file` as an Ethernet frame followed by the record's zeroed spare
// bytes, and hands it to `visit`. Returns the packet count, or -1 when the file cannot be read.
template <typename Visit>
long ForEachFrame(const char* file, Visit visit) {
  char error[PCAP_ERRBUF_SIZE];
  std::unique_ptr<pcap_t, PcapCloser> capture(pcap_open_offline(file, error));
  if (!capture) {
    std::fprintf(stderr, "bench_filter: %s\n", error);
    return -1;
  }
  const int linkType = pcap_datalink(capture.get());
  std::vector<std::uint8_t> frame;
  std::vector<std::uint8_t> record(kMaxFrameLength + kRecordOverhead, 0);
  pcap_pkthdr* header = nullptr;
  const u_char* bytes = nullptr;
  long count = 0;
  while (pcap_next_ex(capture.get(), &header, &bytes) == 1) {
    if (!ToAdapterFrame(linkType, std::span(bytes, header->caplen), frame)) continue;
    const std::size_t length = std::min<std::size_t>(frame.size(), kMaxFrameLength);
    std::memcpy(record.data(), frame.data(), length);
    std::memset(record.data() + length, 0, kSpareAfterFrame);
    visit(record.data(), static_cast<std::uint32_t>(length));
    ++count;
  }
  return count;
}

double SecondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

// Processor time of this process: on a busy machine it shows what the work itself costs.
double CpuSeconds() {
  timespec now{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: bench_filter FILE\n");
    return 2;
  }
  FilterSettings filter;
  filter.SetAll(BenchFilter());

  std::uint64_t checksum = 0;
  double cpu = CpuSeconds();
  auto start = Clock::now();
  const long packets = ForEachFrame(argv[1], [&](const std::uint8_t* f, std::uint32_t n) {
    checksum += f[n / 2];
  });
  const double readSeconds = SecondsSince(start);
  const double readCpu = CpuSeconds() - cpu;
  if (packets < 0) return 1;

  long kept = 0;
  cpu = CpuSeconds();
  start = Clock::now();
  ForEachFrame(argv[1], [&](const std::uint8_t* f, std::uint32_t n) {
    kept += filter.PassesFilters(f, n, false, false) ? 1 : 0;
  });
  const double filteredSeconds = SecondsSince(start);
  const double filteredCpu = CpuSeconds() - cpu;
  const double filterOnlyCpu = std::max(filteredCpu - readCpu, 1e-9);

  std::printf("packets %ld\n", packets);
  std::printf("kept %ld\n", kept);
  std::printf("seconds_read %.3f\n", readSeconds);
  std::printf("seconds %.3f\n", filteredSeconds);
  std::printf("packets_per_second %.0f\n", packets / filteredSeconds);
  std::printf("cpu_seconds_read %.3f\n", readCpu);
  std::printf("cpu_seconds %.3f\n", filteredCpu);
  std::printf("filter_packets_per_cpu_second %.0f\n", packets / filterOnlyCpu);
  std::printf("read_checksum %llu\n", static_cast<unsigned long long>(checksum));
  return 0;
}
