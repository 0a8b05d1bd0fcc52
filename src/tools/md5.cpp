// MD5 block function and padding. The 64 steps are expanded at compile time from constant
// tables, so every shift, constant and word index becomes an immediate.
#include "tools/md5.hpp"

#include <algorithm>
#include <bit>
#include <cstring>
#include <utility>

namespace vormelt::tools {
namespace {

constexpr std::array<std::uint32_t, 4> kInitialState = {0x67452301u, 0xefcdab89u, 0x98badcfeu,
                                                        0x10325476u};

// T[i] = floor(2^32 * |sin(i + 1)|), as tabulated in RFC 1321.
constexpr std::uint32_t kSine[64] = {
    0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613, 0xfd469501,
    0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193, 0xa679438e, 0x49b40821,
    0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d, 0x02441453, 0xd8a1e681, 0xe7d3fbc8,
    0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed, 0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a,
    0xfffa3942, 0x8771f681, 0x6d9d6122, 0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70,
    0x289b7ec6, 0xeaa127fa, 0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665,
    0xf4292244, 0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
    0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb, 0xeb86d391,
};

constexpr int kShift[64] = {
    7, 12, 17, 22, 7, 12, 17, 22, 7, 12, 17, 22, 7, 12, 17, 22,
    5, 9,  14, 20, 5, 9,  14, 20, 5, 9,  14, 20, 5, 9,  14, 20,
    4, 11, 16, 23, 4, 11, 16, 23, 4, 11, 16, 23, 4, 11, 16, 23,
    6, 10, 15, 21, 6, 10, 15, 21, 6, 10, 15, 21, 6, 10, 15, 21,
};

// Which message word step i reads: rounds 1-4 walk the block with strides 1, 5, 3 and 7.
constexpr int WordIndex(int step) {
  switch (step / 16) {
    case 0: return step;
    case 1: return (5 * step + 1) % 16;
    case 2: return (3 * step + 5) % 16;
    default: return (7 * step) % 16;
  }
}

constexpr std::uint32_t RoundFunction(int step, std::uint32_t b, std::uint32_t c, std::uint32_t d) {
  switch (step / 16) {
    case 0: return d ^ (b & (c ^ d));  // F = (b & c) | (~b & d)
    case 1: return c ^ (d & (b ^ c));  // G = (b & d) | (c & ~d)
    case 2: return b ^ c ^ d;          // H
    default: return c ^ (b | ~d);      // I
  }
}

// One step with every index known at compile time. Instead of renaming a, b, c, d after each
// step, step i updates v[(4 - i) % 4] and reads the three after it, as RFC 1321 writes the
// rounds out; the compiler then keeps v in registers.
template <int Step>
inline void OneStep(std::uint32_t (&v)[4], const std::uint32_t (&words)[16]) {
  constexpr int a = (4 - Step % 4) % 4;
  constexpr int b = (a + 1) % 4, c = (a + 2) % 4, d = (a + 3) % 4;
  const std::uint32_t sum = v[a] + RoundFunction(Step, v[b], v[c], v[d]) + kSine[Step] + words[WordIndex(Step)];
  v[a] = v[b] + std::rotl(sum, kShift[Step]);
}

template <int... Steps>
inline void AllSteps(std::uint32_t (&v)[4], const std::uint32_t (&words)[16],
                     std::integer_sequence<int, Steps...>) {
  (OneStep<Steps>(v, words), ...);
}

std::uint32_t ReadLe32(const std::uint8_t* p) {
  return std::uint32_t{p[0]} | (std::uint32_t{p[1]} << 8) | (std::uint32_t{p[2]} << 16) |
         (std::uint32_t{p[3]} << 24);
}

void WriteLe32(std::uint8_t* p, std::uint32_t v) {
  for (int i = 0; i < 4; ++i) p[i] = static_cast<std::uint8_t>(v >> (8 * i));
}

void WriteLe64(std::uint8_t* p, std::uint64_t v) {
  for (int i = 0; i < 8; ++i) p[i] = static_cast<std::uint8_t>(v >> (8 * i));
}

}  // namespace

void Md5::Reset() {
  state_ = kInitialState;
  byteCount_ = 0;
}

void Md5::ProcessBlocks(const std::uint8_t* data, std::size_t blockCount) {
  for (; blockCount > 0; --blockCount, data += kBlockSize) {
    std::uint32_t words[16];
    for (int i = 0; i < 16; ++i) words[i] = ReadLe32(data + 4 * i);
    std::uint32_t v[4] = {state_[0], state_[1], state_[2], state_[3]};
    AllSteps(v, words, std::make_integer_sequence<int, 64>());
    for (int i = 0; i < 4; ++i) state_[i] += v[i];
  }
}

void Md5::Update(std::span<const std::uint8_t> data) {
  std::size_t used = static_cast<std::size_t>(byteCount_ % kBlockSize);
  byteCount_ += data.size();
  const std::uint8_t* p = data.data();
  std::size_t left = data.size();
  if (used > 0) {
    const std::size_t take = std::min(left, kBlockSize - used);
    std::memcpy(pending_.data() + used, p, take);
    p += take;
    left -= take;
    if (used + take < kBlockSize) return;
    ProcessBlocks(pending_.data(), 1);
  }
  ProcessBlocks(p, left / kBlockSize);
  p += left / kBlockSize * kBlockSize;
  left %= kBlockSize;
  if (left > 0) std::memcpy(pending_.data(), p, left);
}

Md5::Digest Md5::Final() {
  constexpr std::size_t kLengthField = 8;
  const std::uint64_t bitCount = byteCount_ << 3;  // modulo 2^64 by unsigned arithmetic
  const std::size_t used = static_cast<std::size_t>(byteCount_ % kBlockSize);
  // One 0x80 byte, zeros up to 56 modulo 64, then the 64-bit length: 9 to 72 bytes in all.
  std::array<std::uint8_t, 2 * kBlockSize> tail{};
  tail[0] = 0x80;
  const std::size_t padding = (used < kBlockSize - kLengthField ? kBlockSize : 2 * kBlockSize) - used;
  WriteLe64(tail.data() + padding - kLengthField, bitCount);
  Update(std::span(tail.data(), padding));

  Digest digest{};
  for (int i = 0; i < 4; ++i) WriteLe32(digest.data() + 4 * i, state_[i]);
  Reset();
  return digest;
}

std::string DigestToHex(const Md5::Digest& digest) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string hex;
  hex.reserve(2 * digest.size());
  for (std::uint8_t byte : digest) {
    hex.push_back(kDigits[byte >> 4]);
    hex.push_back(kDigits[byte & 0x0f]);
  }
  return hex;
}

std::string Md5Hex(std::span<const std::uint8_t> data) {
  Md5 md5;
  md5.Update(data);
  return DigestToHex(md5.Final());
}

}  // namespace vormelt::tools
