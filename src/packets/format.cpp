// Byte sizes, transfer rates and date/time templates as the program shows them.
// Writes only into the buffers it is given (truncating, never overrunning) and keeps the
// token order of the date/time templates, since saved and logged texts depend on it.
#include "packets/format.hpp"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <optional>

namespace vormelt::format {
namespace {

// A bounded text under construction: appends stop silently at capacity.
class BoundedText {
 public:
  BoundedText(char* data, std::size_t capacity) : data_(data), capacity_(capacity) {}
  void Append(std::string_view text) {
    const std::size_t count = std::min(text.size(), capacity_ - length_);
    std::memcpy(data_ + length_, text.data(), count);
    length_ += count;
  }
  std::string_view View() const { return {data_, length_}; }
  std::size_t Length() const { return length_; }

 private:
  char* data_;
  std::size_t capacity_;
  std::size_t length_ = 0;
};

struct Token {
  std::string_view name;
  std::array<char, 16> value;  // NUL-terminated replacement text
};

constexpr std::size_t kTokenCount = 9;

// The replacements for one point in time, in the order they are applied.
std::array<Token, kTokenCount> Tokens(const LocalTime& time) {
  unsigned hour12 = static_cast<unsigned>(time.hour);
  const char* amPm = "AM";
  if (time.hour >= 13) {
    hour12 -= 12;
    amPm = "PM";
  }
  if (hour12 == 0) hour12 = 12;  // midnight and noon both show 12, each with "AM"

  std::array<Token, kTokenCount> tokens{};
  const auto set = [&tokens](std::size_t i, std::string_view name, const char* form,
                             unsigned value) {
    tokens[i].name = name;
    std::snprintf(tokens[i].value.data(), tokens[i].value.size(), form, value);
  };
  set(0, "%Y", "%u", static_cast<unsigned>(time.year));
  set(1, "%MY", "%02u", static_cast<unsigned>(time.month));
  set(2, "%D", "%02u", static_cast<unsigned>(time.day));
  tokens[3].name = "%AP";
  std::snprintf(tokens[3].value.data(), tokens[3].value.size(), "%s", amPm);
  set(4, "%H12", "%02u", hour12);
  set(5, "%H24", "%02u", static_cast<unsigned>(time.hour));
  set(6, "%MN", "%02u", static_cast<unsigned>(time.minute));
  set(7, "%S", "%02u", static_cast<unsigned>(time.second));
  set(8, "%MS", "%03u", static_cast<unsigned>(time.millisecond));
  return tokens;
}

void ReplaceAll(std::string_view source, const Token& token, BoundedText& target) {
  const std::string_view value(token.value.data());
  std::size_t from = 0;
  for (std::size_t at = source.find(token.name); at != std::string_view::npos;
       at = source.find(token.name, from)) {
    target.Append(source.substr(from, at - from));
    target.Append(value);
    from = at + token.name.size();
  }
  target.Append(source.substr(from));
}

// One whole pass per token, in the fixed order, exactly as the texts were always produced: a
// later token can therefore match text an earlier replacement produced ("%H%D" on the 12th
// becomes "%H12" and then the hour), which a single left-to-right scan would not do.
// `scratchA` and `scratchB` each hold `scratchSize` bytes.
std::string_view ExpandInScratch(std::string_view dateTimeTemplate, const LocalTime& time,
                                 char* scratchA, char* scratchB, std::size_t scratchSize) {
  std::string_view current = dateTimeTemplate;
  char* buffers[2] = {scratchA, scratchB};
  std::size_t next = 0;
  for (const Token& token : Tokens(time)) {
    if (current.find(token.name) == std::string_view::npos) continue;
    BoundedText target(buffers[next], scratchSize);
    ReplaceAll(current, token, target);
    current = target.View();
    next ^= 1;
  }
  return current;
}

// Replacement texts are at most ten digits for a two-character token.
constexpr std::size_t kWorstGrowth = 5;
constexpr std::size_t kScratchSize = 4096;
constexpr std::size_t kMaxBufferedTemplate = kScratchSize / kWorstGrowth;

constexpr std::int64_t kUnitStep = 1024;
constexpr int kUnitCount = 6;  // none, K, M, G, T, P: 2^60 and above have no unit

// The scaled value, its unit index, and whether it is representable at all.
struct Scaled {
  double value;
  int unit;
};

std::optional<Scaled> Scale(std::uint64_t count) {
  std::uint64_t limit = kUnitStep;
  double value = static_cast<double>(count);
  for (int unit = 0; unit < kUnitCount; ++unit) {
    if (count < limit) return Scaled{value, unit};
    value /= kUnitStep;
    limit *= kUnitStep;
  }
  return std::nullopt;
}

// "%.2f" below 10, "%.1f" below 100, otherwise "%.0f", each followed by `suffix`.
std::string WithPrecision(double value, const char* suffix) {
  const char* form = value < 10 ? "%.2f%s" : (value < 100 ? "%.1f%s" : "%.0f%s");
  std::array<char, 64> text{};
  std::snprintf(text.data(), text.size(), form, value, suffix);
  return text.data();
}

}  // namespace

std::string ExpandDateTime(std::string_view dateTimeTemplate, const LocalTime& time) {
  const std::size_t scratchSize = dateTimeTemplate.size() * kWorstGrowth + 1;
  std::string scratchA(scratchSize, '\0');
  std::string scratchB(scratchSize, '\0');
  return std::string(ExpandInScratch(dateTimeTemplate, time, scratchA.data(), scratchB.data(),
                                     scratchSize));
}

std::size_t ExpandDateTime(std::string_view dateTimeTemplate, const LocalTime& time, char* out,
                           std::size_t capacity) {
  if (out == nullptr || capacity == 0) return 0;
  // Templates are a few dozen characters; anything beyond this prefix is not expanded.
  dateTimeTemplate = dateTimeTemplate.substr(0, kMaxBufferedTemplate);
  std::array<char, kScratchSize> scratchA;
  std::array<char, kScratchSize> scratchB;
  const std::string_view text =
      ExpandInScratch(dateTimeTemplate, time, scratchA.data(), scratchB.data(), kScratchSize);
  const std::size_t length = std::min(text.size(), capacity);
  std::memcpy(out, text.data(), length);
  return length;
}

std::string ByteSize(std::int64_t bytes) {
  static constexpr const char* kUnits[kUnitCount] = {"", " KB", " MB", " GB", " TB", " PB"};
  if (bytes < kUnitStep) {
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%.0f Bytes", static_cast<double>(bytes));
    return text.data();
  }
  const std::optional<Scaled> scaled = Scale(static_cast<std::uint64_t>(bytes));
  if (!scaled) return {};
  return WithPrecision(scaled->value, kUnits[scaled->unit]);
}

std::string Rate(std::uint64_t perSecond, bool bits) {
  static constexpr const char* kPrefixes[kUnitCount] = {"", "K", "M", "G", "T", "P"};
  constexpr std::uint64_t kBitsPerByte = 8;
  const std::uint64_t count = bits ? perSecond * kBitsPerByte : perSecond;
  const std::optional<Scaled> scaled = Scale(count);
  if (!scaled) return {};
  std::array<char, 16> suffix{};
  std::snprintf(suffix.data(), suffix.size(), " %s%cps", kPrefixes[scaled->unit],
                bits ? 'b' : 'B');
  return WithPrecision(scaled->value, suffix.data());
}

}  // namespace vormelt::format
