// An IP address of either family, as the program shows, filters, sorts and counts it: the family
// and sixteen bytes in network order (an IPv4 address fills the first four, zeroes the rest), so
// it copies, hashes and compares as plain bytes. Every IPv4 address sorts before every IPv6 one,
// and within a family the order is the numeric one.
#pragma once

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace vormelt {

enum class IpFamily : std::uint8_t { V4 = 4, V6 = 6 };

class IpAddress {
 public:
  // The longest text ToChars writes ("ffff:ffff:ffff:ffff:ffff:ffff:255.255.255.255").
  static constexpr std::size_t kMaxTextLength = 45;

  IpAddress() = default;  // 0.0.0.0
  static IpAddress V4(std::uint32_t hostOrder) {
    IpAddress a;
    a.bytes_ = {static_cast<std::uint8_t>(hostOrder >> 24), static_cast<std::uint8_t>(hostOrder >> 16),
                static_cast<std::uint8_t>(hostOrder >> 8), static_cast<std::uint8_t>(hostOrder)};
    return a;
  }
  static IpAddress V4Bytes(const std::uint8_t* wire) {
    IpAddress a;
    for (int i = 0; i < 4; ++i) a.bytes_[i] = wire[i];
    return a;
  }
  static IpAddress V6Bytes(const std::uint8_t* wire) {
    IpAddress a;
    a.family_ = IpFamily::V6;
    for (int i = 0; i < 16; ++i) a.bytes_[i] = wire[i];
    return a;
  }
  // Dotted IPv4 or any IPv6 text inet_pton takes; nullopt for anything else (no zone index,
  // no brackets, no surrounding blanks).
  static std::optional<IpAddress> Parse(std::string_view text);

  IpFamily family() const { return family_; }
  bool isV4() const { return family_ == IpFamily::V4; }
  bool isV6() const { return family_ == IpFamily::V6; }
  // The IPv4 address in host order; 0 for an IPv6 address.
  std::uint32_t v4() const {
    return isV4() ? (std::uint32_t{bytes_[0]} << 24) | (std::uint32_t{bytes_[1]} << 16) |
                        (std::uint32_t{bytes_[2]} << 8) | bytes_[3]
                  : 0;
  }
  const std::array<std::uint8_t, 16>& bytes() const { return bytes_; }
  // 4 or 16: how many of bytes() are the address.
  std::size_t size() const { return isV4() ? 4 : 16; }

  // Dotted decimal, or the RFC 5952 form (lower case, no leading zeros, the longest run of two
  // or more zero groups as "::", the first of equal runs; IPv4-mapped as ::ffff:a.b.c.d).
  // Writes at most kMaxTextLength characters, no terminator, and returns how many.
  std::size_t ToChars(char* out) const;
  std::string ToString() const;

  friend auto operator<=>(const IpAddress&, const IpAddress&) = default;
  friend bool operator==(const IpAddress&, const IpAddress&) = default;

 private:
  IpFamily family_ = IpFamily::V4;
  std::array<std::uint8_t, 16> bytes_{};
};

struct IpAddressHash {
  std::size_t operator()(const IpAddress& address) const;
};

}  // namespace vormelt
