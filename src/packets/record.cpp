// Record layout: the one place that knows where the frame and the kind byte sit in a block.
#include "packets/record.hpp"

#include <cstring>

namespace vormelt {

std::uint8_t* LayOutRecord(std::uint8_t* block, std::span<const std::uint8_t> frame,
                           InterfaceKind kind) {
  const std::size_t length = frame.size();
  block[0] = 0;
  if (length != 0) std::memcpy(block + 1, frame.data(), length);
  block[1 + length] = static_cast<std::uint8_t>(kind);
  std::memset(block + 2 + length, 0, kRecordOverhead - 2);
  return block + 1;
}

RecordBuffer::RecordBuffer(std::span<const std::uint8_t> frame, InterfaceKind kind,
                           std::string_view timeText)
    : block_(frame.size() + kRecordOverhead),
      frameLength_(static_cast<std::uint32_t>(frame.size())),
      kind_(kind),
      timeText_(timeText) {
  LayOutRecord(block_.data(), frame, kind);
}

PacketRef RecordBuffer::ref() const {
  return PacketRef{block_.data() + 1, frameLength_, kind_, timeText_};
}

}  // namespace vormelt
