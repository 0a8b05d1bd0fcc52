// The one thing a receive loop knows about whoever consumes its frames: the FrameRecord it hands
// over and the FrameSink that takes it. Packet Mode's store, File Mode's stream table and the
// statistics all implement FrameSink, so the same loop feeds every mode, live or from a file.
// Nothing here may depend on a consumer.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <span>
#include <string_view>

#include "common/owned_counter.hpp"
#include "common/types.hpp"
#include "common/wire.hpp"

namespace vormelt {

// The largest frame any sink is handed: the longest IPv6 packet behind the 14-byte header (a
// loopback IPv6 segment is that long; the longest IPv4 datagram is 40 bytes shorter).
inline constexpr std::uint32_t kMaxFrameLength = kMaxIpv6PacketLength + kEthernetHeaderLength;
// Zeroed, readable bytes that follow the last byte of every frame handed to a sink. Parsers
// written against fixed header offsets may read that far past a short frame and see zeroes.
inline constexpr std::uint32_t kFrameSpareBytes = 88;

// Capture times: nanoseconds since the Unix epoch (UTC). Live captures stamp the arrival time;
// capture files carry the time the file recorded, so a file is processed by its own clock.
using CaptureTime = std::chrono::sys_time<std::chrono::nanoseconds>;

// One received frame, as every sink sees it. Valid only during the Take call.
struct FrameRecord {
  // The captured bytes, Ethernet-shaped (a pseudo header for the Raw Sockets kind), at most
  // kMaxFrameLength; kFrameSpareBytes zeroed bytes follow them.
  std::span<const std::uint8_t> bytes;
  // The frame's length on the wire, in the same Ethernet shape; at least bytes.size().
  std::uint32_t wireLength = 0;
  CaptureTime time{};
  InterfaceKind kind = InterfaceKind::RawSockets;
  // A packet dump file's own time text for this frame; empty when `time` is to be formatted.
  std::string_view timeText;

  std::uint32_t length() const { return static_cast<std::uint32_t>(bytes.size()); }
};

// What the sink did with a frame; the three stop verdicts end the capture with their status.
enum class SinkVerdict : std::uint8_t {
  Stored,            // kept; the loop raises the session's new-data flag
  Skipped,           // dropped on purpose (a filter said no); the loop goes on
  OutOfMemory,       // -> "Stopped/Memory Error"
  ListFull,          // -> "Stopped/Max List Items"
  ItemLimitReached,  // stored, and now full -> "Stopped/Item Limit Reached"
};

class FrameSink {
 public:
  virtual ~FrameSink() = default;
  // Called on the receive thread, one frame at a time.
  virtual SinkVerdict Take(const FrameRecord& frame) = 0;
  // True when the sink can take nothing more; a capture started on a full sink stops at once.
  virtual bool IsFull() const { return false; }
  // The capture has ended (stopped, failed or at the end of its file). A sink that holds work
  // back for later packets finishes it now: a file has no later packets to wait for.
  virtual void Finish() {}
};

// Counts the frames, and their bytes on the wire, that a capture hands to `inner`: for the
// closing "N packets" lines and the metrics. Readable from any thread.
class CountingSink final : public FrameSink {
 public:
  explicit CountingSink(FrameSink& inner) : inner_(inner) {}
  SinkVerdict Take(const FrameRecord& frame) override {
    AddOwned(frames_, 1);
    AddOwned(bytes_, frame.wireLength);
    return inner_.Take(frame);
  }
  bool IsFull() const override { return inner_.IsFull(); }
  void Finish() override { inner_.Finish(); }
  std::uint64_t frames() const { return frames_.load(std::memory_order_relaxed); }
  std::uint64_t bytes() const { return bytes_.load(std::memory_order_relaxed); }

 private:
  FrameSink& inner_;
  std::atomic<std::uint64_t> frames_{0};
  std::atomic<std::uint64_t> bytes_{0};
};

// Lays out a frame with its spare bytes for sinks that are handed bytes by someone other than
// the receive loop (dump-file loaders, tests): copies at most kMaxFrameLength bytes.
class FrameBuffer {
 public:
  FrameRecord Fill(std::span<const std::uint8_t> bytes, InterfaceKind kind, CaptureTime time,
                   std::uint32_t wireLength = 0);

 private:
  std::unique_ptr<std::uint8_t[]> storage_ =
      std::make_unique<std::uint8_t[]>(kMaxFrameLength + kFrameSpareBytes);
};

}  // namespace vormelt
