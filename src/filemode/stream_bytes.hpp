// StreamBytes: one stream's payload bytes, contiguous and growing at the end. A download can run
// to hundreds of megabytes, so growth must neither copy the bytes again and again nor hold the
// old and the new block at once: small buffers live on the heap and double, large ones are
// anonymous mappings that grow with mremap (the kernel moves page tables, not bytes). Only the
// pages written are resident, so memory follows what the stream holds. A mapping given up is
// kept for the next stream that grows large (16 MB of them at most, until ReleasePool), so its
// pages are not zeroed and faulted in once more.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace vormelt::filemode {

class StreamBytes {
 public:
  // From this capacity on the bytes live in a mapping of their own.
  static constexpr std::size_t kMapThreshold = 256 << 10;

  StreamBytes() = default;
  ~StreamBytes();
  StreamBytes(StreamBytes&& other) noexcept;
  StreamBytes& operator=(StreamBytes&& other) noexcept;
  StreamBytes(const StreamBytes&) = delete;
  StreamBytes& operator=(const StreamBytes&) = delete;

  // Throws std::bad_alloc when there is no room; the bytes held stay as they were.
  void Append(std::span<const std::uint8_t> bytes);
  void Reserve(std::size_t capacity);
  // Keeps the first `size` bytes (never grows).
  void Truncate(std::size_t size);
  // Gives the whole pages below `end` back to the system; the caller never reads those bytes
  // again. Heap buffers are small and keep theirs.
  void ReleaseBelow(std::size_t end);
  void Clear();
  // Unmaps the mappings kept for reuse (the end of a run).
  static void ReleasePool();

  const std::uint8_t* data() const { return data_; }
  std::uint8_t* data() { return data_; }
  std::size_t size() const { return size_; }
  std::size_t capacity() const { return capacity_; }
  bool empty() const { return size_ == 0; }
  operator std::span<const std::uint8_t>() const { return {data_, size_}; }

 private:
  std::uint8_t* data_ = nullptr;
  std::size_t size_ = 0;
  std::size_t capacity_ = 0;
  bool mapped_ = false;
};

}  // namespace vormelt::filemode
