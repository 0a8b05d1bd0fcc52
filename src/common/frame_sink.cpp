// FrameBuffer: the frame record's layout for frames that do not come from a receive loop.
#include "common/frame_sink.hpp"

#include <algorithm>
#include <cstring>

namespace vormelt {

FrameRecord FrameBuffer::Fill(std::span<const std::uint8_t> bytes, InterfaceKind kind,
                              CaptureTime time, std::uint32_t wireLength) {
  const std::size_t length = std::min<std::size_t>(bytes.size(), kMaxFrameLength);
  if (length) std::memmove(storage_.get(), bytes.data(), length);
  std::memset(storage_.get() + length, 0, kFrameSpareBytes);
  const auto captured = static_cast<std::uint32_t>(length);
  return FrameRecord{{storage_.get(), length}, std::max(wireLength, captured), time, kind, {}};
}

}  // namespace vormelt
