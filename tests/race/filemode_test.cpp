// File Mode's threads on one table: the receive thread appending and opening streams while
// the pass thread takes, rebuilds and frees them (a zero ACK timeout makes every pass take what
// it can), or, reading a file, hands them to the writing thread, and a window thread reading
// counters and draining the list of files. Built with ThreadSanitizer this must report nothing;
// in any build each file must be a whole or cut copy of what was sent (a file: every one whole)
// and every byte of memory must be given back.
#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <sstream>
#include <thread>

#include "filemode/engine.hpp"
#include "support/pcap_file.hpp"
#include "support/tcp_stream.hpp"

namespace vormelt::filemode {
namespace {

void CaptureAndPassesShareTheTable(StreamClock clock) {
  test::TempDir dir;
  FileModeOptions options;
  options.ackTimeoutMs = 0;
  options.naming.folder = dir.path();
  options.naming.nameTemplate = "%FCS";
  const std::string body(3000, 'b');
  const std::string response = "HTTP/1.1 200 OK\r\n\r\n" + body;

  FileModeEngine engine;
  engine.Start(options, clock, {});
  std::atomic<bool> done{false};
  std::vector<WrittenFile> files;
  std::jthread window([&] {
    while (!done) {
      (void)engine.Counters();
      (void)engine.BusyText();
      for (auto& file : engine.DrainWritten()) files.push_back(std::move(file));
      std::this_thread::yield();
    }
  });
  constexpr std::uint32_t kResponses = 1000;
  for (std::uint32_t i = 1; i <= kResponses; ++i) {
    test::ResponseFlow flow;
    flow.ack = i;
    flow.segmentSize = 700;
    // A file's responses come a millisecond apart, each whole at once: its passes take every
    // hundredth, and none is cut.
    const CaptureTime time =
        clock == StreamClock::File ? CaptureTime(std::chrono::milliseconds(i)) : CaptureNow();
    for (const auto& packet : test::ResponseSegments(response, flow)) {
      const auto frame = test::RawSocketsFrame(packet);
      engine.Take(test::Record(frame, InterfaceKind::RawSockets, time));
    }
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(3 * kPassIntervalMs));
  done = true;
  window.join();
  engine.Finish();
  for (auto& file : engine.DrainWritten()) files.push_back(std::move(file));

  const FileModeCounters counters = engine.Counters();
  EXPECT_EQ(counters.memoryInUse, 0);
  EXPECT_EQ(counters.packetsStored, kResponses * 5);
  EXPECT_EQ(counters.filesWritten, files.size());
  EXPECT_GT(files.size(), 0u);
  if (clock == StreamClock::File) {
    EXPECT_EQ(files.size(), kResponses);
  }
  for (const WrittenFile& file : files) {
    std::ifstream in(file.path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    EXPECT_EQ(text.str(), body.substr(0, text.str().size())) << file.path;
    if (clock == StreamClock::File) {
      EXPECT_EQ(text.str().size(), body.size()) << file.path;
    }
  }
}

TEST(FileModeRace, CaptureAndPassesShareTheTable) {
  CaptureAndPassesShareTheTable(StreamClock::Live);
  CaptureAndPassesShareTheTable(StreamClock::File);
}

}  // namespace
}  // namespace vormelt::filemode
