// bench_logging CAPTURE FOLDER [RATE]: feeds the capture's frames into a Packet Mode store at
// RATE packets per second (default 100,000), three times over, while the logging thread writes
// Hex + Text logs into FOLDER every second, sampling how many packets are stored but not yet logged. Then one
// logging pass over a store already holding every frame, timed, for comparison with a peer
// that writes the same packets as text. Prints "name value" lines.
#include <pcap/pcap.h>
#include <time.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "packetmode/packet_logger.hpp"
#include "support/frames.hpp"

namespace {

using namespace vormelt;
using Clock = std::chrono::steady_clock;

std::vector<std::vector<std::uint8_t>> ReadFrames(const char* path) {
  char error[PCAP_ERRBUF_SIZE];
  pcap_t* pcap = pcap_open_offline(path, error);
  if (!pcap) {
    std::fprintf(stderr, "bench_logging: %s\n", error);
    std::exit(1);
  }
  std::vector<std::vector<std::uint8_t>> frames;
  pcap_pkthdr* header;
  const u_char* data;
  while (pcap_next_ex(pcap, &header, &data) == 1) frames.emplace_back(data, data + header->caplen);
  pcap_close(pcap);
  return frames;
}

LogConfig HexTextConfig(const std::string& folder, int intervalSeconds) {
  LogConfig config;
  config.settings.folder = folder;
  config.settings.form = 4;  // Hex + Text
  config.settings.method = static_cast<std::int32_t>(LogMethod::BySize);
  config.settings.maxFileKilobytes = 64 * 1024;
  config.settings.intervalSeconds = intervalSeconds;
  return config;
}

double ThreadCpuSeconds() {
  timespec t{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
  return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) / 1e9;
}

std::uint64_t FolderBytes(const std::string& folder) {
  std::uint64_t bytes = 0;
  for (const auto& file : std::filesystem::directory_iterator(folder)) bytes += file.file_size();
  return bytes;
}

// Paced inserts with the logging thread running, the capture played kRounds times so several
// logging passes fall inside the run; prints the figures.
constexpr std::size_t kRounds = 3;

void Paced(const std::vector<std::vector<std::uint8_t>>& capture, const std::string& folder, double rate) {
  std::vector<const std::vector<std::uint8_t>*> frames;
  for (std::size_t round = 0; round < kRounds; ++round) {
    for (const auto& frame : capture) frames.push_back(&frame);
  }
  PacketStore store;
  PacketLogger logger(store);
  logger.Start(HexTextConfig(folder, 1));
  std::int32_t maxBehind = 0;
  const auto start = Clock::now();
  auto nextSample = start;
  for (std::size_t i = 0; i < frames.size(); ++i) {
    const auto due = start + std::chrono::nanoseconds(static_cast<std::int64_t>(1e9 * i / rate));
    if ((i & 63) == 0) {
      const auto now = Clock::now();
      if (now < due) std::this_thread::sleep_until(due);
      if (now >= nextSample) {
        maxBehind = std::max(maxBehind, logger.Status().behind);
        nextSample = now + std::chrono::milliseconds(50);
      }
    }
    store.Insert(test::Record(*frames[i], InterfaceKind::PacketDriver));
  }
  const double insertSeconds = std::chrono::duration<double>(Clock::now() - start).count();
  const std::int32_t behindAtEnd = logger.Status().behind;
  // The next regular pass (at most one interval away) must take the rest.
  const auto drained = Clock::now();
  while (logger.Status().behind > 0 && Clock::now() - drained < std::chrono::seconds(30)) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  const double drainSeconds = std::chrono::duration<double>(Clock::now() - drained).count();
  logger.Stop();
  const LogStatus status = logger.Status();
  std::printf("packets %zu\n", frames.size());
  std::printf("rate_achieved %.0f\n", frames.size() / insertSeconds);
  std::printf("max_behind %d\n", maxBehind);
  std::printf("behind_at_end %d\n", behindAtEnd);
  std::printf("drain_seconds %.3f\n", drainSeconds);
  std::printf("logged %lld\n", static_cast<long long>(status.packetsLogged));
  std::printf("lost %lld\n", static_cast<long long>(frames.size()) - static_cast<long long>(status.packetsLogged));
  std::printf("log_bytes %llu\n", static_cast<unsigned long long>(FolderBytes(folder)));
}

// One pass over a full store: the work a peer does when it writes the same packets as text.
void OnePass(const std::vector<std::vector<std::uint8_t>>& frames, const std::string& folder) {
  PacketStore store;
  PacketLogger logger(store);
  logger.Start(HexTextConfig(folder, 3600));
  for (const auto& frame : frames) store.Insert(test::Record(frame, InterfaceKind::PacketDriver));
  const auto start = Clock::now();
  const double cpu = ThreadCpuSeconds();
  logger.Pass(CaptureNow());
  std::printf("pass_wall %.3f\n", std::chrono::duration<double>(Clock::now() - start).count());
  std::printf("pass_cpu %.3f\n", ThreadCpuSeconds() - cpu);
  logger.Stop();
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: bench_logging CAPTURE FOLDER [RATE]\n");
    return 2;
  }
  const auto frames = ReadFrames(argv[1]);
  const std::string folder = argv[2];
  const double rate = argc > 3 ? std::atof(argv[3]) : 100'000.0;
  std::filesystem::create_directories(folder + "/paced");
  std::filesystem::create_directories(folder + "/pass");
  Paced(frames, folder + "/paced", rate > 0 ? rate : 100'000.0);
  OnePass(frames, folder + "/pass");
  return 0;
}
