// Graphical Packets Mode frame cost: 1,000 labels on a 1920 x 1080 surface and 20,000 packets
// a second, gathered per pair by the capture side and drawn once per 60 Hz frame into a
// QImage. Prints the mean and 99th-percentile frame time per drawing mode, and what one
// packet costs the receive thread. Usage: bench_graphical [FRAMES]
#include <QGuiApplication>
#include <QImage>
#include <QPainter>
#include <time.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <vector>

#include "graphical/gatherer.hpp"
#include "graphical/scene.hpp"
#include "support/frames.hpp"
#include "ui/graphical/graphical_painter.hpp"

namespace {

using namespace vormelt;
using Clock = std::chrono::steady_clock;

// The drawing thread's own CPU time: the machine this runs on is shared, and wall time there
// measures the neighbours as much as the frame.
double ThreadCpuMs() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return now.tv_sec * 1e3 + now.tv_nsec / 1e6;
}

constexpr int kWidth = 1920, kHeight = 1080;
constexpr int kLabels = 1000;
constexpr int kPacketsPerSecond = 20000;
constexpr double kFrameMs = 1000.0 / 60;
constexpr int kPacketsPerFrame = kPacketsPerSecond / 60;

graphical::Ipv4 Host(int i) { return 0x0A000000u + static_cast<graphical::Ipv4>(i); }

test::Bytes FrameBetween(graphical::Ipv4 source, graphical::Ipv4 destination) {
  test::Ipv4Header ip;
  ip.source = {10, static_cast<std::uint8_t>(source >> 16), static_cast<std::uint8_t>(source >> 8),
               static_cast<std::uint8_t>(source)};
  ip.destination = {10, static_cast<std::uint8_t>(destination >> 16),
                    static_cast<std::uint8_t>(destination >> 8), static_cast<std::uint8_t>(destination)};
  return test::RawSocketsFrame(test::UdpPacket(ip, 1000, 53, test::ToBytes("0123456789")));
}

struct Figures {
  double meanMs = 0, p99Ms = 0, cpuMeanMs = 0;
  std::uint64_t notDrawn = 0;
};

Figures RunMode(const char* name, bool pixels, bool curved, int frames,
                const std::vector<test::Bytes>& packets) {
  GraphicalSettings options;
  options.pixelMode = pixels;
  options.curvedLines = curved;
  options.ipTimeout = 300;
  graphical::Scene scene(1, options);
  scene.SetSurface(kWidth, kHeight);
  // Every label on the surface before timing starts: placement is a one-off per address.
  std::vector<graphical::PairTraffic> warm;
  for (int i = 1; i <= kLabels; ++i) warm.push_back({IpAddress::V4(Host(i)), IpAddress::V4(Host(i % kLabels + 1)), 1, 60});
  scene.Feed(warm, {255, 255, 255}, 0);

  graphical::PairGatherer gatherer;
  QImage image(kWidth, kHeight, QImage::Format_RGB32);
  ui::PaintStyle style;
  ui::LabelTextCache texts;
  std::vector<double> times;
  double cpuMs = 0;
  std::size_t next = 0;
  for (int f = 0; f < frames; ++f) {
    // The capture side's share of the frame, outside the timed drawing: it runs on its own thread.
    for (int p = 0; p < kPacketsPerFrame; ++p) {
      gatherer.Take(test::Record(packets[next], InterfaceKind::RawSockets));
      next = (next + 1) % packets.size();
    }
    const auto now = static_cast<std::int64_t>(f * kFrameMs) + 1;
    const auto start = Clock::now();
    const double cpuStart = ThreadCpuMs();
    std::uint64_t overflow = 0;
    scene.Feed(gatherer.Drain(overflow), {0x60, 0xC0, 0xFF}, now);
    scene.AddNotDrawn(overflow);
    scene.Advance(now);
    ui::PaintScene(image, scene, now, style, texts);
    scene.MarkShown();
    times.push_back(std::chrono::duration<double, std::milli>(Clock::now() - start).count());
    cpuMs += ThreadCpuMs() - cpuStart;
  }
  std::ranges::sort(times);
  Figures figures;
  for (double t : times) figures.meanMs += t / times.size();
  figures.p99Ms = times[std::min(times.size() - 1, times.size() * 99 / 100)];
  figures.notDrawn = scene.NotDrawn();
  figures.cpuMeanMs = cpuMs / frames;
  std::printf("%s_alive %zu\n", name, pixels ? scene.Pixels().size() : scene.Lines().size());
  std::printf("%s_mean_ms %.3f\n%s_p99_ms %.3f\n%s_cpu_ms %.3f\n%s_not_drawn %llu\n", name,
              figures.meanMs, name, figures.p99Ms, name, figures.cpuMeanMs, name,
              static_cast<unsigned long long>(figures.notDrawn));
  return figures;
}

double TakeNanoseconds(const std::vector<test::Bytes>& packets) {
  graphical::PairGatherer gatherer;
  constexpr int kRounds = 400000;
  std::uint64_t overflow = 0;
  const auto start = Clock::now();
  for (int i = 0; i < kRounds; ++i) {
    gatherer.Take(test::Record(packets[i % packets.size()], InterfaceKind::RawSockets));
    if (i % kPacketsPerFrame == 0) gatherer.Drain(overflow);
  }
  return std::chrono::duration<double, std::nano>(Clock::now() - start).count() / kRounds;
}

}  // namespace

int main(int argc, char** argv) {
  qputenv("QT_QPA_PLATFORM", "offscreen");
  QGuiApplication app(argc, argv);
  const int frames = argc > 1 ? std::max(10, std::atoi(argv[1])) : 600;
  std::mt19937 random(42);
  std::uniform_int_distribution<int> host(1, kLabels);
  std::vector<test::Bytes> packets;
  for (int i = 0; i < 4096; ++i) packets.push_back(FrameBetween(Host(host(random)), Host(host(random))));

  std::printf("labels %d\npackets_per_second %d\nframes %d\nbudget_ms %.1f\n", kLabels,
              kPacketsPerSecond, frames, kFrameMs);
  RunMode("line", false, false, frames, packets);
  RunMode("curve", false, true, frames, packets);
  RunMode("pixel", true, false, frames, packets);
  std::printf("take_ns_per_packet %.1f\n", TakeNanoseconds(packets));
  return 0;
}
