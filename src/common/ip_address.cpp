#include "common/ip_address.hpp"

#include <arpa/inet.h>

#include <cstring>

namespace vormelt {

namespace {

char* Decimal(char* out, std::uint8_t value) {
  if (value >= 100) *out++ = static_cast<char>('0' + value / 100);
  if (value >= 10) *out++ = static_cast<char>('0' + value / 10 % 10);
  *out++ = static_cast<char>('0' + value % 10);
  return out;
}

char* Dotted(char* out, const std::uint8_t* four) {
  for (int i = 0; i < 4; ++i) {
    if (i) *out++ = '.';
    out = Decimal(out, four[i]);
  }
  return out;
}

char* Group(char* out, unsigned value) {
  static constexpr char kDigits[] = "0123456789abcdef";
  bool started = false;
  for (int shift = 12; shift >= 0; shift -= 4) {
    const unsigned digit = (value >> shift) & 0xF;
    if (digit || started || shift == 0) {
      *out++ = kDigits[digit];
      started = true;
    }
  }
  return out;
}

}  // namespace

std::optional<IpAddress> IpAddress::Parse(std::string_view text) {
  char buffer[64];
  if (text.empty() || text.size() >= sizeof buffer) return std::nullopt;
  std::memcpy(buffer, text.data(), text.size());
  buffer[text.size()] = '\0';
  std::uint8_t wire[16];
  if (inet_pton(AF_INET, buffer, wire) == 1) return V4Bytes(wire);
  if (inet_pton(AF_INET6, buffer, wire) == 1) return V6Bytes(wire);
  return std::nullopt;
}

std::size_t IpAddress::ToChars(char* out) const {
  char* const start = out;
  if (isV4()) return static_cast<std::size_t>(Dotted(out, bytes_.data()) - start);

  unsigned groups[8];
  for (int i = 0; i < 8; ++i) groups[i] = (unsigned{bytes_[2 * i]} << 8) | bytes_[2 * i + 1];
  const bool mapped = groups[0] == 0 && groups[1] == 0 && groups[2] == 0 && groups[3] == 0 &&
                      groups[4] == 0 && groups[5] == 0xFFFF;
  if (mapped) {
    std::memcpy(out, "::ffff:", 7);
    return static_cast<std::size_t>(Dotted(out + 7, bytes_.data() + 12) - start);
  }
  int bestStart = -1, bestLength = 1;  // a lone zero group is written as 0, not as ::
  for (int i = 0; i < 8;) {
    if (groups[i] != 0) {
      ++i;
      continue;
    }
    int j = i;
    while (j < 8 && groups[j] == 0) ++j;
    if (j - i > bestLength) bestStart = i, bestLength = j - i;
    i = j;
  }
  for (int i = 0; i < 8; ++i) {
    if (i == bestStart) {
      *out++ = ':';
      *out++ = ':';
      i += bestLength - 1;
      continue;
    }
    if (i && i != bestStart + bestLength) *out++ = ':';
    out = Group(out, groups[i]);
  }
  return static_cast<std::size_t>(out - start);
}

std::string IpAddress::ToString() const {
  char text[kMaxTextLength];
  return std::string(text, ToChars(text));
}

std::size_t IpAddressHash::operator()(const IpAddress& address) const {
  // FNV-1a over the family and the address bytes.
  std::uint64_t hash = 1469598103934665603ull;
  const auto mix = [&hash](std::uint8_t byte) { hash = (hash ^ byte) * 1099511628211ull; };
  mix(static_cast<std::uint8_t>(address.family()));
  for (std::size_t i = 0; i < address.size(); ++i) mix(address.bytes()[i]);
  return static_cast<std::size_t>(hash);
}

}  // namespace vormelt
