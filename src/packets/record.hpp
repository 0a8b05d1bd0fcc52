// The layout of one stored packet and the read-only view every reader uses.
// A record block is: a leading 0 byte, the frame (14-byte Ethernet header + network bytes),
// the InterfaceKind byte, then zeroed reserve, frame length + 89 bytes in all. Decoders read
// fixed header offsets without bounds checks; the 88 bytes after each frame make that safe.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "common/frame_sink.hpp"
#include "common/wire.hpp"
#include "common/types.hpp"

namespace vormelt {

// Block size = frame length + kRecordOverhead.
inline constexpr std::uint32_t kRecordOverhead = 89;
// Readable bytes after the last frame byte: the kind byte, then zeroed reserve.
inline constexpr std::uint32_t kSpareAfterFrame = kRecordOverhead - 1;
static_assert(kSpareAfterFrame == kFrameSpareBytes);

// A view of one stored packet. `frame` points at the Ethernet header; kSpareAfterFrame readable
// bytes follow frame + frameLength. Valid while the store keeps the record.
struct PacketRef {
  const std::uint8_t* frame = nullptr;
  std::uint32_t frameLength = 0;  // includes the Ethernet header
  InterfaceKind kind = InterfaceKind::RawSockets;
  std::string_view timeText;
  CaptureTime time{};  // when it was captured (a dump file's packets: as near as its text says)

  const std::uint8_t* network() const { return frame + kEthernetHeaderLength; }
  std::uint32_t networkLength() const {
    return frameLength >= kEthernetHeaderLength ? frameLength - kEthernetHeaderLength : 0;
  }
};

// Writes a record into `block` (at least frame.size() + kRecordOverhead bytes): leading 0,
// the frame, the kind byte, and zeroes up to the end. Returns the frame's address in the block.
std::uint8_t* LayOutRecord(std::uint8_t* block, std::span<const std::uint8_t> frame,
                           InterfaceKind kind);

// One record in its own buffer, laid out exactly as the store keeps it. For loaders, tests
// and any caller that needs a PacketRef over bytes it holds itself.
class RecordBuffer {
 public:
  RecordBuffer(std::span<const std::uint8_t> frame, InterfaceKind kind,
               std::string_view timeText = {});
  PacketRef ref() const;

 private:
  std::vector<std::uint8_t> block_;
  std::uint32_t frameLength_;
  InterfaceKind kind_;
  std::string timeText_;
};

}  // namespace vormelt
