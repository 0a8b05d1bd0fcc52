// FilterSettings: the packet filter of one mode window and its per-frame test, shared by the
// window thread (setters) and the receive thread (PassesFilters) under one lock.
// No Qt and no user texts here; the test must never read a payload byte past `length`.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "packets/filter_seam.hpp"
#include "packets/headers.hpp"

namespace vormelt {

// One address range, both ends included, of one family: an IPv4 range never holds an IPv6
// address nor the reverse. Within a family addresses compare as unsigned numbers (32 or 128
// bits), so 10.0.0.1 lies between 10.0.0.0 and 10.0.0.255 and ::1 between :: and ::ff.
struct IpRange {
  IpAddress from;
  IpAddress to;
  IpRange() = default;
  // IPv4 ends as big-endian numbers (10.0.0.1 is 0x0A000001).
  IpRange(std::uint32_t first, std::uint32_t last)
      : from(IpAddress::V4(first)), to(IpAddress::V4(last)), first4_(first), last4_(last) {}
  IpRange(const IpAddress& first, const IpAddress& last)
      : from(first), to(last), first4_(first.isV4() ? first.v4() : 1), last4_(last.v4()) {}
  // The filter asks this of every IPv4 packet, so it compares two plain numbers; an IPv6
  // range holds the empty IPv4 range 1..0.
  bool Contains(std::uint32_t address) const { return first4_ <= address && address <= last4_; }
  bool Contains(const IpAddress& address) const {
    return address.family() == from.family() && from <= address && address <= to;
  }
  friend bool operator==(const IpRange&, const IpRange&) = default;

 private:
  std::uint32_t first4_ = 0;
  std::uint32_t last4_ = 0;
};

// 0.0.0.0 and ::, which no range may start or end at.
inline bool IsNullAddress(const IpAddress& address) {
  return address.bytes() == std::array<std::uint8_t, 16>{};
}

// A range from two address texts (either family, both the same; blanks around each allowed),
// its ends put in order; nothing for unreadable text or mixed families.
std::optional<IpRange> ParseIpRange(std::string_view from, std::string_view to);

// Dotted-decimal IPv4 text ("10.0.0.1") as a big-endian number: exactly four decimal parts of
// 0..255, blanks around the whole text allowed. Anything else gives nothing.
std::optional<std::uint32_t> ParseIpv4(std::string_view text);
// "%u.%u.%u.%u" of a big-endian number.
std::string FormatIpv4(std::uint32_t address);

// The five range lists in the order of the window's radio buttons (kind 1..5 on screen).
enum class RangeKind : int { SourceIn = 0, SourceNotIn, DestIn, DestNotIn, EitherIn };
inline constexpr int kRangeKindCount = 5;

// The five port lists in the order of the window's port fields.
enum class PortKind : int { Source = 0, SourceNot, Dest, DestNot, Either };
inline constexpr int kPortKindCount = 5;

// Every list and scalar of a filter as plain values: what the window edits, what a profile
// stores and what FilterSettings hands out as a snapshot. Defaults keep every frame.
struct FilterValues {
  std::vector<IpRange> sourceInRanges;
  std::vector<IpRange> sourceNotInRanges;
  std::vector<IpRange> destInRanges;
  std::vector<IpRange> destNotInRanges;
  std::vector<IpRange> eitherInRanges;

  std::vector<std::uint16_t> sourcePorts;
  std::vector<std::uint16_t> sourceNotPorts;
  std::vector<std::uint16_t> destPorts;
  std::vector<std::uint16_t> destNotPorts;
  std::vector<std::uint16_t> eitherPorts;

  std::vector<std::string> mustContain;
  std::vector<std::string> mustNotContain;
  // File Mode only: extensions without the dot, as the user typed them.
  std::vector<std::string> extensionsAllowed;
  std::vector<std::string> extensionsDenied;

  std::uint32_t minPacketSize = 0;  // 0: no bound
  std::uint32_t maxPacketSize = 0;  // 0: no bound
  std::uint32_t minFileSize = 0;    // File Mode only
  std::uint32_t maxFileSize = 0;    // File Mode only

  bool allowTcp = true;
  bool allowUdp = true;
  bool allowIcmp = true;
  bool allowOther = true;
  bool allowArp = true;

  std::vector<IpRange>& Ranges(RangeKind kind);
  const std::vector<IpRange>& Ranges(RangeKind kind) const;
  std::vector<std::uint16_t>& Ports(PortKind kind);
  const std::vector<std::uint16_t>& Ports(PortKind kind) const;

  friend bool operator==(const FilterValues&, const FilterValues&) = default;
};

// Single-byte lower-casing for case-insensitive matching: ASCII A-Z and the Latin-1 capitals
// (0xC0-0xDE except the multiplication sign 0xD7). Every other byte stays as it is.
std::uint8_t FoldByte(std::uint8_t byte);
std::string FoldText(std::string_view text);

// Joins a text list with "," and trims trailing commas; an empty list gives "".
std::string JoinFilterTexts(const std::vector<std::string>& texts);

class FilterSettings final : public PacketFilterSeam {
 public:
  FilterSettings();
  ~FilterSettings() override;
  FilterSettings(const FilterSettings&) = delete;
  FilterSettings& operator=(const FilterSettings&) = delete;

  // Adopts every list and scalar of `values` at once, as OK and Apply do: the old lists are
  // released under the lock, so a test in progress finishes on the old filter and the next
  // test sees the new one whole.
  void SetAll(const FilterValues& values);
  // A copy of every list and scalar as they are now.
  FilterValues Values() const;

  // The test of one frame. `frame` points at the 14-byte Ethernet header of a stored record;
  // `length` includes that header. Fixed header fields may be read up to 88 bytes past the
  // frame's end (the record's spare bytes); the payload is searched only within `length`.
  // `headersOnly` stops after the address and port tests (File Mode's reduced form).
  bool PassesFilters(const std::uint8_t* frame, std::uint32_t length, bool matchCase,
                     bool headersOnly) const;

  // The two switches of the Packet Mode window; either may change between any two frames.
  void SetFilteringEnabled(bool enabled) { filteringEnabled_.store(enabled); }
  bool FilteringEnabled() const { return filteringEnabled_.load(); }
  void SetMatchCase(bool matchCase) { matchCase_.store(matchCase); }

  // PacketFilterSeam, as the packet store sees it.
  bool Enabled() const override { return FilteringEnabled(); }
  bool Passes(const std::uint8_t* frame, std::uint32_t frameLength) override;
  std::shared_ptr<const FilterColumnTexts> ColumnTexts() override;

 private:
  struct PatternSet;  // a text list prepared for searching, exact and case-folded

  bool PassesAddresses(const FrameView& frame, const PacketHeaders& headers) const;
  template <typename Address>
  bool PassesRanges(const Address& source, const Address& destination) const;
  bool PassesPorts(ByteSpan transport) const;
  bool PassesTexts(const FrameView& frame, const PacketHeaders& headers, bool matchCase) const;
  void RebuildColumnTextsLocked();

  mutable std::mutex mutex_;
  FilterValues values_;
  std::unique_ptr<const PatternSet> mustContainPatterns_;
  std::unique_ptr<const PatternSet> mustNotContainPatterns_;
  std::shared_ptr<const FilterColumnTexts> columnTexts_;
  std::atomic<bool> filteringEnabled_{false};
  std::atomic<bool> matchCase_{false};
};

}  // namespace vormelt
