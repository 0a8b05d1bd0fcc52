// The encoder tool's conversion for input that arrives in pieces (vormelt-cli reading a pipe):
// constant memory for any input size, and byte for byte the output Convert gives for the
// whole input. No working buffer, so it has no memory limit to report.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tools/codec.hpp"
#include "tools/decoders.hpp"
#include "tools/md5.hpp"

namespace vormelt::tools {

class StreamConverter {
 public:
  // A good piece size for callers: whole clean Hex (16 bytes) and Base64 (48 bytes) lines.
  static constexpr std::size_t kPieceBytes = 48 * 16 * 1024;

  StreamConverter(InputType in, OutputType out, const CodecOptions& options);

  // Takes the next piece of input, of any size, and appends to `output` what is final already.
  void Feed(std::string_view input, std::string& output);
  // Ends the input and appends the rest of the output.
  void Finish(std::string& output);

 private:
  void Decode(std::string_view text);
  void EncodeReady(bool atEnd, std::string& output);
  void EncodePiece(std::span<const std::uint8_t> piece, std::string& output);
  std::size_t LineBytes() const;

  InputType in_;
  OutputType out_;
  CodecOptions options_;
  HexDecoder hex_;
  Base64Decoder base64_;
  std::string heldUtf8_;              // a character cut by a piece end, for the CP437 option
  std::vector<std::uint8_t> decoded_;  // decoded but not yet encoded (less than a line)
  bool anyDecoded_ = false;
  bool textEnded_ = false;  // Text output stops at the first zero byte
  Md5 md5_;
};

}  // namespace vormelt::tools
