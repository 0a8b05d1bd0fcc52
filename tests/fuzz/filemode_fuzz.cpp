// Fuzz target for File Mode's stream assembly and HTTP recognition: the input is cut into TCP
// segments whose acknowledgement, sequence, header length and total length it also chooses
// (lies included), which go through the stream table; every stream is then rebuilt, recognised
// and de-chunked as the engine does it. Beyond not crashing or reading out of bounds, a
// rebuilt stream is never longer than what was stored and an extension is always safe to use.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <vector>

#include "filemode/http_response.hpp"
#include "filemode/mime_table.hpp"
#include "filemode/naming.hpp"
#include "filemode/reassembly.hpp"
#include "filemode/stream_table.hpp"

using namespace vormelt::filemode;

namespace {

class ByteReader {
 public:
  ByteReader(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}
  bool AtEnd() const { return pos_ >= size_; }
  std::uint8_t Byte() { return pos_ < size_ ? data_[pos_++] : 0; }
  std::span<const std::uint8_t> Take(std::size_t n) {
    n = std::min(n, size_ - std::min(pos_, size_));
    const auto part = std::span(data_ + pos_, n);
    pos_ += n;
    return part;
  }

 private:
  const std::uint8_t* data_;
  std::size_t size_;
  std::size_t pos_ = 0;
};

// One IP packet as the table reads it: fixed 20-byte IP header, TCP header fields at 20..39.
std::vector<std::uint8_t> SegmentPacket(ByteReader& in, std::uint32_t& sequence) {
  const std::uint8_t control = in.Byte();
  const std::uint8_t length = in.Byte();
  const auto payload = in.Take(length);
  std::vector<std::uint8_t> ip(40, 0);
  ip[9] = control & 0x80 ? 17 : 6;
  const std::size_t total = control & 0x40 ? in.Byte() : 40 + payload.size();
  ip[2] = static_cast<std::uint8_t>(total >> 8);
  ip[3] = static_cast<std::uint8_t>(total);
  sequence += control & 0x20 ? static_cast<std::int8_t>(in.Byte()) : payload.size();
  for (int i = 0; i < 4; ++i) ip[24 + i] = static_cast<std::uint8_t>(sequence >> (24 - 8 * i));
  ip[31] = control & 0x03;  // four streams, and acknowledgement 0
  ip[32] = control & 0x10 ? static_cast<std::uint8_t>(in.Byte() & 0xf0) : 0x50;
  ip[33] = control & 0x08;
  ip.insert(ip.end(), payload.begin(), payload.end());
  return ip;
}

void Check(bool condition) {
  if (!condition) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static StreamTable table;
  ByteReader in(data, size);
  const std::uint8_t flags = in.Byte();
  table.Reset({static_cast<bool>(flags & 1), static_cast<bool>(flags & 2),
               static_cast<bool>(flags & 32), static_cast<bool>(flags & 8)});
  std::uint32_t sequence = 0xFFFFFF00u;  // near the wrap
  std::int64_t now = 1;
  while (!in.AtEnd()) {
    const std::vector<std::uint8_t> ip = SegmentPacket(in, sequence);
    table.Append(ip, now++);
  }
  std::uint32_t from = 0;
  while (auto stream = table.TakeRipe(from, 0, true)) {
    from = stream->slot + 1;
    if (flags & 4) DropEarlierDuplicates(*stream);
    const std::size_t stored = stream->bytes.size();
    const Assembled assembled = Assemble(*stream);
    Check(assembled.data.size() <= stored);
    if (const auto http = RecognizeHttp(assembled.data, flags & 8)) {
      Check(http->bodyOffset <= assembled.data.size());
      const std::string extension =
          SafeExtension(ExtensionForType(http->contentType, http->extension, flags & 16));
      Check(IsSafeComponent(extension) && extension.front() != '.');
      std::size_t chunked = 0;
      ForEachChunk(assembled.data, http->bodyOffset,
                   [&](std::span<const std::uint8_t> chunk) { chunked += chunk.size(); });
      Check(chunked <= assembled.data.size());
    }
    table.Release(stream->slot);
  }
  Check(table.MemoryInUse() == 0);
  return 0;
}
