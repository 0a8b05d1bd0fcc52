// Fuzz target for the encoder tool's input side: the Hex and Base64 decoders, the CP437
// conversion and a whole conversion, on arbitrary bytes. The first byte picks the types and
// options so one corpus reaches every path.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>
#include <vector>

#include "tools/code_page.hpp"
#include "tools/codec.hpp"

using namespace vormelt::tools;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const std::uint8_t choice = data[0];
  const std::string_view text(reinterpret_cast<const char*>(data + 1), size - 1);

  // Decoders into buffers of exactly the promised capacity.
  for (InputType type : {InputType::Hex, InputType::Base64}) {
    std::vector<std::uint8_t> out(DecodedCapacity(type, text.size()));
    const std::size_t written = type == InputType::Hex ? DecodeHex(text, out) : DecodeBase64(text, out);
    if (written > out.size()) std::abort();
  }

  // The CP437 conversion yields one byte per character or malformed byte, never more.
  if (SystemToOem(text).size() > text.size()) std::abort();
  OemToSystem(text);

  CodecOptions options;
  options.asciiText = choice & 0x10;
  options.cleanOutput = choice & 0x20;
  options.nullToSpace = choice & 0x40;
  const auto in = static_cast<InputType>(choice % 3);
  const auto out = static_cast<OutputType>((choice >> 2) % 4);
  const ConversionResult result = Convert(text, in, out, options);
  if (result.status == ConversionStatus::OutOfMemory) std::abort();
  if (out == OutputType::Md5 && result.output.size() != 32) std::abort();
  return 0;
}
