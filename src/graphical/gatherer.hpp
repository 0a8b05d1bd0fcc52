// What the capture threads hand to the picture: packets summed per source-destination pair
// until the window's next frame takes them, and the pacing that replays a capture file at its
// recorded speed. The receive thread holds the lock for one map update; drawing never waits
// on a packet and a packet never waits on drawing.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <unordered_map>
#include <vector>

#include "common/frame_sink.hpp"
#include "graphical/placement.hpp"

namespace vormelt::graphical {

// Pairs kept between two frames. Past this, packets of new pairs are counted, not kept: a
// frame cannot draw more than this many connections anyway.
inline constexpr std::size_t kMaxPairsPerFrame = 16384;

struct PairTraffic {
  IpAddress source;
  IpAddress destination;
  std::uint64_t packets = 0;
  std::uint64_t bytes = 0;
};

// The IPv4 or IPv6 source and destination of an Ethernet-shaped frame, or nothing for other
// frames.
std::optional<PairTraffic> ReadPair(const FrameRecord& frame);

class PairGatherer final : public FrameSink {
 public:
  SinkVerdict Take(const FrameRecord& frame) override;
  void Finish() override { finished_.store(true); }

  // Everything gathered since the last call; `overflow` receives the packets that found no room.
  std::vector<PairTraffic> Drain(std::uint64_t& overflow);
  std::uint64_t Packets() const { return packets_.load(std::memory_order_relaxed); }
  // The capture behind it has ended (a file at its end, a stopped capture).
  bool Finished() const { return finished_.load(); }

 private:
  std::mutex mutex_;
  std::unordered_map<AddressPair, PairTraffic, AddressPairHash> pairs_;
  std::uint64_t overflow_ = 0;
  std::atomic<std::uint64_t> packets_{0};
  std::atomic<bool> finished_{false};
};

// Hands frames on no faster than their capture times allow, `speed` times the recorded pace.
// The first frame sets the clock. Take waits on the receive thread; Cancel ends every wait
// at once (the window stops or closes while a long gap in the file is being waited out).
class PacedSink final : public FrameSink {
 public:
  explicit PacedSink(FrameSink& next, int speed = 1) : next_(next), speed_(speed) {}

  SinkVerdict Take(const FrameRecord& frame) override;
  void Finish() override { next_.Finish(); }

  // Takes effect from the next frame on, without a jump: the clock restarts there.
  void SetSpeed(int speed);
  void Cancel();
  // For a new replay after Cancel.
  void Reset();

 private:
  using Clock = std::chrono::steady_clock;

  FrameSink& next_;
  std::mutex mutex_;
  std::condition_variable wake_;
  int speed_;
  bool cancelled_ = false;
  bool anchored_ = false;
  std::uint64_t generation_ = 0;  // moves on every speed change: a waiting frame re-times
  CaptureTime firstFrame_{};
  Clock::time_point firstWall_{};
};

}  // namespace vormelt::graphical
