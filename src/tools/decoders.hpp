// Hex and Base64 decoders that keep a partial digit pair or character group between calls, so
// one input can be decoded whole or in pieces with the same result. Never write past `out`.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace vormelt::tools {

inline constexpr std::string_view kBase64Alphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
// Upper case, as the encoder writes; the decoder also takes lower case.
inline constexpr std::string_view kHexDigits = "0123456789ABCDEF";

// Non-digits are skipped; digits pair up high nibble first.
class HexDecoder {
 public:
  // `out` needs room for (pending() + text.size()) / 2 bytes; returns the bytes written.
  std::size_t Feed(std::string_view text, std::span<std::uint8_t> out);
  // A lone last digit becomes the high nibble of one more byte.
  std::size_t Finish(std::span<std::uint8_t> out);
  std::size_t pending() const { return high_ < 0 ? 0 : 1; }

 private:
  int high_ = -1;  // the first digit of a pair, until its partner arrives
};

// Characters outside the standard alphabet ("=" included) are skipped; four characters make
// three bytes.
class Base64Decoder {
 public:
  // `out` needs room for (pending() + text.size()) / 4 * 3 bytes; returns the bytes written.
  std::size_t Feed(std::string_view text, std::span<std::uint8_t> out);
  // A final group of 2 or 3 characters gives 1 or 2 bytes; a single character gives none.
  std::size_t Finish(std::span<std::uint8_t> out);
  std::size_t pending() const { return static_cast<std::size_t>(count_); }

 private:
  std::uint32_t group_ = 0;  // up to four 6-bit values, oldest highest
  int count_ = 0;
};

}  // namespace vormelt::tools
