// The fuzz targets' view of their input: bytes handed out front to back, zeroes past the end,
// so that a target decodes any input, however short, into something to run.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>

namespace vormelt::test {

class ByteReader {
 public:
  ByteReader(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}
  bool AtEnd() const { return pos_ >= size_; }
  std::uint8_t Byte() { return pos_ < size_ ? data_[pos_++] : 0; }
  std::uint16_t Word() {
    const std::uint8_t high = Byte();
    return static_cast<std::uint16_t>((high << 8) | Byte());
  }
  std::uint32_t Address() {
    const std::uint32_t high = Word();
    return (high << 16) | Word();
  }
  // The next `n` bytes, or as many as are left.
  std::span<const std::uint8_t> Take(std::size_t n) {
    n = std::min(n, size_ - std::min(pos_, size_));
    const auto part = std::span(data_ + pos_, n);
    pos_ += n;
    return part;
  }
  std::span<const std::uint8_t> Rest() const {
    return pos_ < size_ ? std::span(data_ + pos_, size_ - pos_) : std::span<const std::uint8_t>();
  }

 private:
  const std::uint8_t* data_;
  std::size_t size_;
  std::size_t pos_ = 0;
};

}  // namespace vormelt::test
