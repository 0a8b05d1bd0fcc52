// The Base Encoder/Decoder engine: reads input as Text, Hex or Base64 and writes it as Text,
// Hex, Base64 or an MD5 digest. Malformed input is never an error (foreign characters are
// skipped); the only failure is running out of memory. No Qt, no I/O.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>
#include <string>
#include <string_view>

namespace vormelt::tools {

// The numbers are the ones kept in the settings (CodecSettings::inputType / outputType).
enum class InputType : int { Text = 0, Hex = 1, Base64 = 2 };
enum class OutputType : int { Text = 0, Hex = 1, Base64 = 2, Md5 = 3 };

inline constexpr std::size_t kNoMemoryLimit = std::numeric_limits<std::size_t>::max();

struct CodecOptions {
  bool asciiText = false;    // "ASCII text (vs. ANSI).": input to CP437, Text output back
  bool cleanOutput = false;  // "Clean coded output.": line breaks and spaces in Hex and Base64
  bool nullToSpace = false;  // "Replace null with space (for text output)."
  // The most bytes the working buffer may take; a larger need is handled like a failed
  // allocation. Lets a caller bound its memory and lets that path be exercised.
  std::size_t memoryLimit = kNoMemoryLimit;
};

enum class ConversionStatus {
  Converted,    // `output` holds the result
  Empty,        // nothing was decoded: every output box is cleared
  OutOfMemory,  // the working buffer could not be had; nothing changes
};

struct ConversionResult {
  ConversionStatus status = ConversionStatus::Empty;
  std::string output;  // Hex and Base64 line breaks are CR LF
};

ConversionResult Convert(std::string_view input, InputType in, OutputType out,
                         const CodecOptions& options = {});

// Upper bound of the decoded size of `inputBytes` characters: n for Text, n * 0.5 for Hex and
// n * 0.75 for Base64, each rounded up when the product has a fraction.
std::size_t DecodedCapacity(InputType in, std::size_t inputBytes);
// Working buffer: the decoded capacity, 33 more for an MD5 output (digest text and its
// terminator), and 4 spare bytes. Saturates instead of wrapping for absurd sizes.
std::size_t WorkingBufferSize(InputType in, OutputType out, std::size_t inputBytes);

// Decoders write at most DecodedCapacity(...) bytes into `out` and return how many they wrote.
// Hex: non-digits are skipped anywhere; a lone last digit is the high nibble of a last byte.
std::size_t DecodeHex(std::string_view text, std::span<std::uint8_t> out);
// Base64: every character outside the standard alphabet is skipped ("=" included); a final
// group of 2 or 3 characters yields 1 or 2 bytes, a single left-over character nothing.
std::size_t DecodeBase64(std::string_view text, std::span<std::uint8_t> out);

// Encoders append to `out`, so a caller converting piece after piece reuses one buffer.
// Text: the bytes up to the first zero byte; with `nullToSpace` zero bytes become spaces first.
// Returns false when it stopped at a zero byte.
bool AppendText(std::span<const std::uint8_t> data, bool nullToSpace, std::string& out);
// Upper-case digit pairs. Clean: a space between bytes, CR LF after every 16th byte instead.
void AppendHex(std::span<const std::uint8_t> data, bool clean, std::string& out);
// Standard alphabet with "=" padding. Clean: CR LF after every 64 output characters.
void AppendBase64(std::span<const std::uint8_t> data, bool clean, std::string& out);

std::string EncodeText(std::span<const std::uint8_t> data, bool nullToSpace);
std::string EncodeHex(std::span<const std::uint8_t> data, bool clean);
std::string EncodeBase64(std::span<const std::uint8_t> data, bool clean);

}  // namespace vormelt::tools
