// The one thing a receive loop knows about whoever consumes its frames: FrameSink.
// Packet Mode's store, File Mode's stream table and the statistics all implement it, so the same
// loop feeds every mode, live or from a file. Nothing here may depend on a consumer.
#pragma once

#include <cstdint>
#include <span>

#include "common/types.hpp"

namespace vormelt {

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
  // Called on the receive thread, one frame at a time. `frame` starts with the 14-byte Ethernet
  // header (a pseudo header for the Raw Sockets kind) and is valid only during the call.
  virtual SinkVerdict Take(std::span<const std::uint8_t> frame, InterfaceKind kind) = 0;
  // True when the sink can take nothing more; a capture started on a full sink stops at once.
  virtual bool IsFull() const { return false; }
};

}  // namespace vormelt
