// MD5 message digest (RFC 1321) with a streaming interface, for the encoder tool's MD5 output.
// Pure computation: no I/O, no allocation, no Qt. Not for security; it names data, nothing more.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace vormelt::tools {

class Md5 {
 public:
  static constexpr std::size_t kDigestSize = 16;
  static constexpr std::size_t kBlockSize = 64;
  using Digest = std::array<std::uint8_t, kDigestSize>;

  Md5() { Reset(); }

  void Reset();
  void Update(std::span<const std::uint8_t> data);
  // Pads, returns the digest and leaves the object reset for the next message.
  Digest Final();

 private:
  void ProcessBlocks(const std::uint8_t* data, std::size_t blockCount);

  std::array<std::uint32_t, 4> state_{};
  // Bytes seen so far. The padding stores this times eight modulo 2^64, which is exactly the
  // RFC's "low-order 64 bits" of the bit length, so messages beyond 2^61 bytes wrap as required.
  std::uint64_t byteCount_ = 0;
  std::array<std::uint8_t, kBlockSize> pending_{};
};

// 32 lower-case hexadecimal digits, two per digest byte in order.
std::string DigestToHex(const Md5::Digest& digest);
// The lower-case hex digest of one whole message.
std::string Md5Hex(std::span<const std::uint8_t> data);

}  // namespace vormelt::tools
