// The desktop program in Graphical Packets Mode under a virtual X display: a replayed capture
// file and, as root, live ping on loopback put labels and lines on the screen within seconds.
// The screen is photographed and its lit (non-black) pixels counted. Skips where the X tools,
// the program or the right to capture are missing.
#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string>

#include "support/frames.hpp"
#include "support/pcap_file.hpp"
#include "support/process.hpp"

namespace vormelt {
namespace {

const std::string kProgram = VORMELT_BINARY_DIR "/src/main/vormelt";
// A 1024 x 768 screen; the window covers most of it.
constexpr int kEnoughLitPixels = 3000;

std::string Quoted(const std::string& text) { return "'" + text + "'"; }

// Runs the program with `arguments` on a fresh virtual display, runs `meanwhile` beside it,
// photographs the screen every second from `seconds` on, `shots` times (a loaded machine may
// start the program late), and returns the most lit pixels of any photograph (-1 when none
// could be taken).
int LitPixelsAfter(const test::TempDir& dir, const std::string& arguments, int seconds,
                   const std::string& meanwhile = "true", int shots = 6) {
  const std::string shot = dir.File("screen");
  const std::string script = "XDG_CONFIG_HOME=" + Quoted(dir.File("config")) + " " + Quoted(kProgram) +
                             " " + arguments + " & p=$!; (" + meanwhile + ") >/dev/null 2>&1 & sleep " +
                             std::to_string(seconds) + "; for i in $(seq " + std::to_string(shots) +
                             "); do import -window root " + Quoted(shot) + "-$i.png; sleep 1; done" +
                             "; kill $p; wait $p";
  int status = 0;
  // Each test program looks for a free display from a number of its own: two xvfb-run -a started
  // at once by ctest -j2 may otherwise both take the first free one.
  const std::string firstDisplay = std::to_string(100 + getpid() % 800);
  test::ShellOutput("timeout 120 xvfb-run -a -n " + firstDisplay + " -s '-screen 0 1024x768x24' sh -c " +
                        Quoted(script) + " >/dev/null 2>&1", &status);
  int most = -1;
  for (int i = 1; i <= shots; ++i) {
    const std::string file = shot + "-" + std::to_string(i) + ".png";
    if (!std::filesystem::exists(file)) continue;
    const std::string lit = test::ShellOutput(
        "convert " + Quoted(file) + " -colorspace gray -threshold 0 -format '%[fx:round(mean*w*h)]' info:");
    if (!lit.empty()) most = std::max(most, std::stoi(lit));
  }
  return most;
}

void SkipWithoutDisplayTools() {
  if (!std::filesystem::exists(kProgram)) GTEST_SKIP() << "vormelt is not built";
  if (std::system("command -v xvfb-run >/dev/null && command -v import >/dev/null") != 0) {
    GTEST_SKIP() << "xvfb-run or ImageMagick's import is missing (scripts/install-deps.sh)";
  }
}

TEST(GraphicalScreen, ReplayedCaptureFileDrawsLabelsAndLines) {
  SkipWithoutDisplayTools();
  test::TempDir dir;
  {
    // Twelve hosts talking for twenty seconds, so lines are still being drawn at the photographs
    // even when a loaded machine starts the program late.
    test::PcapFileWriter pcap(dir.File("talk.pcap"), test::kLinkRaw);
    for (int i = 0; i < 2000; ++i) {
      test::Ipv4Header ip;
      ip.source = {10, 0, 0, static_cast<std::uint8_t>(1 + i % 12)};
      ip.destination = {192, 168, 0, static_cast<std::uint8_t>(1 + (i * 7) % 12)};
      pcap.Write(test::UdpPacket(ip, 1000, 53, test::ToBytes("x")), 1700000000 + i / 100,
                 (i % 100) * 10000);
    }
  }
  const int lit = LitPixelsAfter(dir, "-noinstall -gp_mode auto_listen --read " + dir.File("talk.pcap"), 4,
                                 "true", 14);
  ASSERT_GE(lit, 0) << "no screenshot was taken";
  EXPECT_GT(lit, kEnoughLitPixels);
}

TEST(GraphicalScreen, LivePingOnLoopbackShowsUp) {
  SkipWithoutDisplayTools();
  if (geteuid() != 0) GTEST_SKIP() << "live capture needs root";
  test::TempDir dir;
  // Before the first packet the picture is black; ping (bounded: 2,400 packets, 24 s) from
  // 127.0.0.1 to 127.0.0.2 lights two labels (about 240 pixels each) and the line between;
  // every 10 ms, so the line is always there when a photograph is taken.
  const int lit = LitPixelsAfter(dir, "-noinstall -gp_mode auto_listen", 3,
                                 "sleep 1; ping -c 2400 -i 0.01 -w 24 127.0.0.2", 14);
  ASSERT_GE(lit, 0) << "no screenshot was taken";
  EXPECT_GT(lit, 2 * 240 + 50);
}

}  // namespace
}  // namespace vormelt
