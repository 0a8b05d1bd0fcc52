// Encoders and the one-shot conversion of the Base Encoder/Decoder. The decoded input lives in
// one working buffer sized before decoding, so no input can push a decoder past its end.
#include "tools/codec.hpp"

#include <algorithm>
#include <new>
#include <stdexcept>
#include <vector>

#include "tools/code_page.hpp"
#include "tools/decoders.hpp"
#include "tools/md5.hpp"

namespace vormelt::tools {
namespace {

constexpr std::string_view kCrLf = "\r\n";
constexpr std::size_t kMd5TextBytes = 33;  // 32 digits and a terminator
constexpr std::size_t kSpareBytes = 4;
constexpr std::size_t kHexBytesPerCleanLine = 16;
constexpr std::size_t kBase64CharsPerCleanLine = 64;

std::size_t SaturatingAdd(std::size_t a, std::size_t b) {
  return a > kNoMemoryLimit - b ? kNoMemoryLimit : a + b;
}

std::string Encode(std::span<const std::uint8_t> data, OutputType out, const CodecOptions& options) {
  switch (out) {
    case OutputType::Text: {
      std::string text = EncodeText(data, options.nullToSpace);
      return options.asciiText ? OemToSystem(text) : text;
    }
    case OutputType::Hex: return EncodeHex(data, options.cleanOutput);
    case OutputType::Base64: return EncodeBase64(data, options.cleanOutput);
    case OutputType::Md5: return Md5Hex(data);
  }
  return {};
}

ConversionResult ConvertUnguarded(std::string_view input, InputType in, OutputType out,
                                  const CodecOptions& options) {
  std::string oemText;
  if (options.asciiText) {
    oemText = SystemToOem(input);
    input = oemText;
  }
  const std::size_t bufferSize = WorkingBufferSize(in, out, input.size());
  if (bufferSize > options.memoryLimit) return {ConversionStatus::OutOfMemory, {}};
  std::vector<std::uint8_t> buffer(bufferSize);  // zero-filled, spare bytes included

  std::size_t decoded = 0;
  switch (in) {
    case InputType::Text:
      std::copy(input.begin(), input.end(), buffer.begin());
      decoded = input.size();
      break;
    case InputType::Hex: decoded = DecodeHex(input, buffer); break;
    case InputType::Base64: decoded = DecodeBase64(input, buffer); break;
  }
  // Nothing to show, except that the digest of nothing is still a digest.
  if (decoded == 0 && out != OutputType::Md5) return {ConversionStatus::Empty, {}};
  return {ConversionStatus::Converted, Encode(std::span(buffer.data(), decoded), out, options)};
}

}  // namespace

std::size_t DecodedCapacity(InputType in, std::size_t n) {
  switch (in) {
    case InputType::Text: return n;
    case InputType::Hex: return n / 2 + n % 2;
    case InputType::Base64: return n / 4 * 3 + (n % 4 * 3 + 3) / 4;
  }
  return n;
}

std::size_t WorkingBufferSize(InputType in, OutputType out, std::size_t inputBytes) {
  const std::size_t extra = (out == OutputType::Md5 ? kMd5TextBytes : 0) + kSpareBytes;
  return SaturatingAdd(DecodedCapacity(in, inputBytes), extra);
}

std::size_t DecodeHex(std::string_view text, std::span<std::uint8_t> out) {
  HexDecoder decoder;
  const std::size_t written = decoder.Feed(text, out);
  return written + decoder.Finish(out.subspan(written));
}

std::size_t DecodeBase64(std::string_view text, std::span<std::uint8_t> out) {
  Base64Decoder decoder;
  const std::size_t written = decoder.Feed(text, out);
  return written + decoder.Finish(out.subspan(written));
}

bool AppendText(std::span<const std::uint8_t> data, bool nullToSpace, std::string& out) {
  const std::size_t start = out.size();
  if (nullToSpace) {
    out.append(data.begin(), data.end());
    std::replace(out.begin() + static_cast<std::ptrdiff_t>(start), out.end(), '\0', ' ');
    return true;
  }
  const auto zero = std::find(data.begin(), data.end(), std::uint8_t{0});
  out.append(data.begin(), zero);
  return zero == data.end();
}

void AppendHex(std::span<const std::uint8_t> data, bool clean, std::string& out) {
  out.reserve(out.size() + data.size() * (clean ? 3 : 2) + data.size() / kHexBytesPerCleanLine);
  for (std::size_t i = 0; i < data.size(); ++i) {
    out.push_back(kHexDigits[data[i] >> 4]);
    out.push_back(kHexDigits[data[i] & 0x0f]);
    if (!clean) continue;
    if ((i + 1) % kHexBytesPerCleanLine == 0) {
      out.append(kCrLf);
    } else if (i + 1 < data.size()) {
      out.push_back(' ');
    }
  }
}

void AppendBase64(std::span<const std::uint8_t> data, bool clean, std::string& out) {
  const std::size_t chars = (data.size() + 2) / 3 * 4;
  const std::size_t breaks = clean ? chars / kBase64CharsPerCleanLine : 0;
  const std::size_t start = out.size();
  out.resize(start + chars + breaks * kCrLf.size());
  char* p = out.data() + start;
  std::size_t column = 0;
  // A line is 64 characters, a whole number of groups, so breaks fall between groups.
  const auto endGroup = [&] {
    p += 4;
    column += 4;
    if (!clean || column < kBase64CharsPerCleanLine) return;
    *p++ = '\r';
    *p++ = '\n';
    column = 0;
  };
  const std::size_t whole = data.size() / 3 * 3;
  for (std::size_t i = 0; i < whole; i += 3) {
    const std::uint32_t group = std::uint32_t{data[i]} << 16 | std::uint32_t{data[i + 1]} << 8 | data[i + 2];
    p[0] = kBase64Alphabet[group >> 18];
    p[1] = kBase64Alphabet[group >> 12 & 0x3f];
    p[2] = kBase64Alphabet[group >> 6 & 0x3f];
    p[3] = kBase64Alphabet[group & 0x3f];
    endGroup();
  }
  const std::size_t left = data.size() - whole;
  if (left == 0) return;
  const std::uint32_t group = std::uint32_t{data[whole]} << 16 | (left == 2 ? std::uint32_t{data[whole + 1]} << 8 : 0);
  p[0] = kBase64Alphabet[group >> 18];
  p[1] = kBase64Alphabet[group >> 12 & 0x3f];
  p[2] = left == 2 ? kBase64Alphabet[group >> 6 & 0x3f] : '=';
  p[3] = '=';
  endGroup();
}

std::string EncodeText(std::span<const std::uint8_t> data, bool nullToSpace) {
  std::string text;
  AppendText(data, nullToSpace, text);
  return text;
}

std::string EncodeHex(std::span<const std::uint8_t> data, bool clean) {
  std::string hex;
  AppendHex(data, clean, hex);
  return hex;
}

std::string EncodeBase64(std::span<const std::uint8_t> data, bool clean) {
  std::string text;
  AppendBase64(data, clean, text);
  return text;
}

ConversionResult Convert(std::string_view input, InputType in, OutputType out,
                         const CodecOptions& options) {
  // Every allocation of a conversion counts as "the memory for the intermediate operation":
  // whichever of them fails, the caller shows one message and keeps what it showed before.
  try {
    return ConvertUnguarded(input, in, out, options);
  } catch (const std::bad_alloc&) {
    return {ConversionStatus::OutOfMemory, {}};
  } catch (const std::length_error&) {
    return {ConversionStatus::OutOfMemory, {}};
  }
}

}  // namespace vormelt::tools
