// Table-driven Hex and Base64 decoding. Each write is checked against the output span, so a
// caller that sized it wrongly loses bytes instead of corrupting memory.
#include "tools/decoders.hpp"

#include <array>

namespace vormelt::tools {
namespace {

constexpr std::int8_t kNotInAlphabet = -1;

// Value of each character in a decoder's alphabet, kNotInAlphabet for the rest.
struct ValueTable {
  std::array<std::int8_t, 256> value{};
  constexpr ValueTable(std::string_view alphabet, bool caseInsensitive) {
    value.fill(kNotInAlphabet);
    for (std::size_t i = 0; i < alphabet.size(); ++i) {
      const auto c = static_cast<unsigned char>(alphabet[i]);
      value[c] = static_cast<std::int8_t>(i);
      if (caseInsensitive && c >= 'A' && c <= 'Z') value[c - 'A' + 'a'] = static_cast<std::int8_t>(i);
    }
  }
  int operator[](char c) const { return value[static_cast<unsigned char>(c)]; }
};

constexpr ValueTable kHexValues(kHexDigits, true);
constexpr ValueTable kBase64Values(kBase64Alphabet, false);

// Appends bytes to a span and drops what does not fit.
struct Writer {
  std::span<std::uint8_t> out;
  std::size_t written = 0;
  void Put(std::uint32_t byte) {
    if (written < out.size()) out[written++] = static_cast<std::uint8_t>(byte);
  }
};

}  // namespace

std::size_t HexDecoder::Feed(std::string_view text, std::span<std::uint8_t> out) {
  Writer writer{out};
  for (char c : text) {
    const int value = kHexValues[c];
    if (value == kNotInAlphabet) continue;
    if (high_ < 0) {
      high_ = value;
      continue;
    }
    writer.Put(static_cast<std::uint32_t>(high_ << 4 | value));
    high_ = -1;
  }
  return writer.written;
}

std::size_t HexDecoder::Finish(std::span<std::uint8_t> out) {
  Writer writer{out};
  if (high_ >= 0) writer.Put(static_cast<std::uint32_t>(high_ << 4));
  high_ = -1;
  return writer.written;
}

std::size_t Base64Decoder::Feed(std::string_view text, std::span<std::uint8_t> out) {
  Writer writer{out};
  for (char c : text) {
    const int value = kBase64Values[c];
    if (value == kNotInAlphabet) continue;
    group_ = group_ << 6 | static_cast<std::uint32_t>(value);
    if (++count_ < 4) continue;
    writer.Put(group_ >> 16 & 0xff);
    writer.Put(group_ >> 8 & 0xff);
    writer.Put(group_ & 0xff);
    group_ = 0;
    count_ = 0;
  }
  return writer.written;
}

std::size_t Base64Decoder::Finish(std::span<std::uint8_t> out) {
  Writer writer{out};
  if (count_ == 2) {
    writer.Put(group_ >> 4 & 0xff);
  } else if (count_ == 3) {
    writer.Put(group_ >> 10 & 0xff);
    writer.Put(group_ >> 2 & 0xff);
  }
  group_ = 0;
  count_ = 0;
  return writer.written;
}

}  // namespace vormelt::tools
