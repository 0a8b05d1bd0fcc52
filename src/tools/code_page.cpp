// iconv-based code page conversion with an RAII handle. glibc reports a character the target
// lacks and a malformed source byte the same way (EILSEQ), so the loop tells them apart itself.
#include "tools/code_page.hpp"

#include <iconv.h>

#include <algorithm>
#include <cstdint>
#include <utility>

namespace vormelt::tools {
namespace {

constexpr const char* kSystemCodeSet = "UTF-8";
constexpr const char* kOemCodeSet = "CP437";
constexpr char kReplacement = '?';
// UTF-8 needs at most three bytes for any CP437 character (all lie in the BMP).
constexpr std::size_t kMaxUtf8PerOemByte = 3;

class IconvHandle {
 public:
  IconvHandle(const char* to, const char* from) : handle_(iconv_open(to, from)) {}
  ~IconvHandle() {
    if (valid()) iconv_close(handle_);
  }
  IconvHandle(const IconvHandle&) = delete;
  IconvHandle& operator=(const IconvHandle&) = delete;

  bool valid() const { return handle_ != reinterpret_cast<iconv_t>(-1); }
  iconv_t get() const { return handle_; }

 private:
  iconv_t handle_;
};

// Length of the well-formed UTF-8 sequence at the start of `s`, or 0 when it is malformed
// (bad lead byte, missing or bad continuation, overlong form, surrogate, beyond U+10FFFF).
// `truncated` tells whether `s` merely ends inside a sequence whose bytes so far fit.
std::size_t Utf8SequenceLength(std::string_view s, bool& truncated) {
  truncated = false;
  const auto byte = [&](std::size_t i) { return static_cast<std::uint8_t>(s[i]); };
  const std::uint8_t lead = byte(0);
  if (lead < 0x80) return 1;
  std::size_t length = 0;
  std::uint8_t low = 0x80, high = 0xBF;  // allowed range of the second byte
  if (lead >= 0xC2 && lead <= 0xDF) {
    length = 2;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3;
    if (lead == 0xE0) low = 0xA0;
    if (lead == 0xED) high = 0x9F;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4;
    if (lead == 0xF0) low = 0x90;
    if (lead == 0xF4) high = 0x8F;
  } else {
    return 0;
  }
  const std::size_t present = std::min(length, s.size());
  if (present > 1 && (byte(1) < low || byte(1) > high)) return 0;
  for (std::size_t i = 2; i < present; ++i) {
    if (byte(i) < 0x80 || byte(i) > 0xBF) return 0;
  }
  truncated = present < length;
  return truncated ? 0 : length;
}

// Runs iconv over a whole input into one output buffer sized for the worst case up front, so a
// long run of refused bytes costs one step each, not a reallocation each.
class Conversion {
 public:
  Conversion(const IconvHandle& converter, std::string_view in, std::size_t maxOutPerIn)
      : converter_(converter), in_(in), out_(in.size() * maxOutPerIn, '\0') {}

  // Converts until the end or the first sequence iconv refuses; true when all is converted.
  bool Run() {
    char* inPtr = const_cast<char*>(in_.data());  // iconv's signature is not const-correct
    std::size_t inLeft = in_.size();
    char* outPtr = out_.data() + written_;
    std::size_t outLeft = out_.size() - written_;
    iconv(converter_.get(), &inPtr, &inLeft, &outPtr, &outLeft);
    in_.remove_prefix(in_.size() - inLeft);
    written_ = out_.size() - outLeft;
    return in_.empty();
  }
  std::string_view rest() const { return in_; }
  void Skip(std::size_t count, char replacement) {
    in_.remove_prefix(count);
    // The buffer is sized for the worst case; growing here only guards against an iconv that
    // writes more than its code sets promise.
    if (written_ < out_.size()) {
      out_[written_] = replacement;
    } else {
      out_.push_back(replacement);
    }
    ++written_;
  }
  std::string Take() {
    out_.resize(written_);
    return std::move(out_);
  }

 private:
  const IconvHandle& converter_;
  std::string_view in_;
  std::string out_;
  std::size_t written_ = 0;
};

// One byte for a malformed UTF-8 byte: its Latin-1 character in CP437, else the replacement.
char Latin1ByteToOem(const IconvHandle& converter, std::uint8_t byte) {
  const char asUtf8[2] = {static_cast<char>(0xC0 | (byte >> 6)), static_cast<char>(0x80 | (byte & 0x3F))};
  Conversion one(converter, std::string_view(asUtf8, 2), 1);
  if (!one.Run()) return kReplacement;
  const std::string converted = one.Take();
  return converted.size() == 1 ? converted[0] : kReplacement;
}

// Without a usable iconv (a system without its gconv modules) ASCII still passes unchanged.
std::string AsciiOnly(std::string_view in) {
  std::string out(in);
  for (char& c : out) {
    if (static_cast<std::uint8_t>(c) >= 0x80) c = kReplacement;
  }
  return out;
}

}  // namespace

std::string SystemToOem(std::string_view utf8) {
  const IconvHandle converter(kOemCodeSet, kSystemCodeSet);
  if (!converter.valid()) return AsciiOnly(utf8);
  Conversion conversion(converter, utf8, 1);
  while (!conversion.Run()) {
    const std::string_view rest = conversion.rest();
    bool truncated = false;
    const std::size_t length = Utf8SequenceLength(rest, truncated);
    if (length > 0) {
      conversion.Skip(length, kReplacement);  // a real character that CP437 cannot hold
    } else {
      conversion.Skip(1, Latin1ByteToOem(converter, static_cast<std::uint8_t>(rest.front())));
    }
  }
  return conversion.Take();
}

std::size_t IncompleteUtf8Tail(std::string_view text) {
  constexpr std::size_t kLongestWait = 3;  // a 4-byte character missing its last byte
  for (std::size_t back = 1; back <= std::min(kLongestWait, text.size()); ++back) {
    bool truncated = false;
    Utf8SequenceLength(text.substr(text.size() - back), truncated);
    if (truncated) return back;
  }
  return 0;
}

std::string OemToSystem(std::string_view oem) {
  const IconvHandle converter(kSystemCodeSet, kOemCodeSet);
  if (!converter.valid()) return AsciiOnly(oem);
  Conversion conversion(converter, oem, kMaxUtf8PerOemByte);
  // Every CP437 byte has a character in glibc's table; a byte some other iconv lacks still
  // leaves a mark in the text.
  while (!conversion.Run()) conversion.Skip(1, kReplacement);
  return conversion.Take();
}

}  // namespace vormelt::tools
