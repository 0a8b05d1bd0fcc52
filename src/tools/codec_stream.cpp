// Piecewise conversion. Decoded bytes wait until a whole output line (or Base64 group) can be
// written, so joining the pieces' output never differs from encoding everything at once.
#include "tools/codec_stream.hpp"

#include "tools/code_page.hpp"

namespace vormelt::tools {
namespace {

constexpr std::size_t kCleanHexLineBytes = 16;
constexpr std::size_t kCleanBase64LineBytes = 48;  // 64 characters
constexpr std::size_t kBase64GroupBytes = 3;
// Decoders may hold a few characters from the previous piece.
constexpr std::size_t kMostPendingChars = 4;

}  // namespace

StreamConverter::StreamConverter(InputType in, OutputType out, const CodecOptions& options)
    : in_(in), out_(out), options_(options) {}

std::size_t StreamConverter::LineBytes() const {
  switch (out_) {
    case OutputType::Hex: return options_.cleanOutput ? kCleanHexLineBytes : 1;
    case OutputType::Base64: return options_.cleanOutput ? kCleanBase64LineBytes : kBase64GroupBytes;
    case OutputType::Text:
    case OutputType::Md5: return 1;
  }
  return 1;
}

void StreamConverter::Decode(std::string_view text) {
  const std::size_t start = decoded_.size();
  if (in_ == InputType::Text) {
    decoded_.insert(decoded_.end(), text.begin(), text.end());
  } else {
    decoded_.resize(start + DecodedCapacity(in_, text.size() + kMostPendingChars));
    const std::span<std::uint8_t> room = std::span(decoded_).subspan(start);
    const std::size_t written = in_ == InputType::Hex ? hex_.Feed(text, room) : base64_.Feed(text, room);
    decoded_.resize(start + written);
  }
  anyDecoded_ = anyDecoded_ || decoded_.size() > start;
}

void StreamConverter::EncodePiece(std::span<const std::uint8_t> piece, std::string& output) {
  switch (out_) {
    case OutputType::Text: {
      if (textEnded_) return;
      if (!options_.asciiText) {
        textEnded_ = !AppendText(piece, options_.nullToSpace, output);
        return;
      }
      std::string oem;
      textEnded_ = !AppendText(piece, options_.nullToSpace, oem);
      output += OemToSystem(oem);
      return;
    }
    case OutputType::Hex: AppendHex(piece, options_.cleanOutput, output); return;
    case OutputType::Base64: AppendBase64(piece, options_.cleanOutput, output); return;
    case OutputType::Md5: md5_.Update(piece); return;
  }
}

void StreamConverter::EncodeReady(bool atEnd, std::string& output) {
  const std::size_t ready = atEnd ? decoded_.size() : decoded_.size() / LineBytes() * LineBytes();
  EncodePiece(std::span(decoded_).first(ready), output);
  decoded_.erase(decoded_.begin(), decoded_.begin() + static_cast<std::ptrdiff_t>(ready));
}

void StreamConverter::Feed(std::string_view input, std::string& output) {
  if (options_.asciiText) {
    std::string utf8 = heldUtf8_ + std::string(input);
    const std::size_t held = IncompleteUtf8Tail(utf8);
    heldUtf8_ = utf8.substr(utf8.size() - held);
    utf8.resize(utf8.size() - held);
    Decode(SystemToOem(utf8));
  } else {
    Decode(input);
  }
  EncodeReady(false, output);
}

void StreamConverter::Finish(std::string& output) {
  if (!heldUtf8_.empty()) Decode(SystemToOem(heldUtf8_));
  heldUtf8_.clear();
  const std::size_t start = decoded_.size();
  decoded_.resize(start + 2);  // a lone hex digit gives one byte, a Base64 tail two at most
  const std::span<std::uint8_t> room = std::span(decoded_).subspan(start);
  const std::size_t written = in_ == InputType::Hex ? hex_.Finish(room)
                              : in_ == InputType::Base64 ? base64_.Finish(room) : 0;
  decoded_.resize(start + written);
  anyDecoded_ = anyDecoded_ || written > 0;
  // As in Convert: nothing decoded writes nothing, except the digest of nothing.
  if (!anyDecoded_ && out_ != OutputType::Md5) return;
  EncodeReady(true, output);
  if (out_ == OutputType::Md5) output += DigestToHex(md5_.Final());
}

}  // namespace vormelt::tools
