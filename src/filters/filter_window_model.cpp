// The filter setup window's editing rules and field parsing, plus the resolver's look-ups.
// Nothing here shows a message: the window turns each outcome into its catalogue text.
#include "filters/filter_window_model.hpp"
#include "common/ip_address.hpp"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstdio>
#include <limits>
#include <memory>

namespace vormelt {
namespace {

constexpr std::uint32_t kPortModulus = 65536;
constexpr std::uint32_t kNullAddress = 0;

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

}  // namespace

std::string FormatRangeItem(const IpRange& range) {
  return FormatIpv4(range.from) + " - " + FormatIpv4(range.to);
}

std::vector<std::uint16_t> ParsePortField(std::string_view text) {
  std::vector<std::uint16_t> ports;
  std::size_t i = 0;
  while (i < text.size()) {
    if (!IsDigit(text[i])) {
      ++i;
      continue;
    }
    // Reducing as we go keeps any length of digit run exact modulo 65536.
    std::uint32_t port = 0;
    for (; i < text.size() && IsDigit(text[i]); ++i) {
      port = (port * 10 + static_cast<std::uint32_t>(text[i] - '0')) % kPortModulus;
    }
    if (port != 0) ports.push_back(static_cast<std::uint16_t>(port));
  }
  return ports;
}

std::string FormatPortField(std::span<const std::uint16_t> ports) {
  std::string text;
  for (std::uint16_t port : ports) {
    if (!text.empty()) text += ", ";
    text += std::to_string(port);
  }
  return text;
}

std::uint32_t ParseSizeField(std::string_view text) {
  constexpr std::uint64_t kLargest = std::numeric_limits<std::uint32_t>::max();
  std::uint64_t value = 0;
  for (char c : text) {
    if (!IsDigit(c)) continue;
    value = std::min<std::uint64_t>(value * 10 + static_cast<std::uint64_t>(c - '0'), kLargest);
  }
  return static_cast<std::uint32_t>(value);
}

FilterWindowModel::FilterWindowModel(FilterValues values, int selectedRangeKind)
    : values_(std::move(values)) {
  SelectRangeKind(selectedRangeKind);
}

void FilterWindowModel::SelectRangeKind(int kind) {
  selectedKind_ = (kind >= 0 && kind < kRangeKindCount) ? kind : -1;
}

RangeEdit FilterWindowModel::AddRange(std::string_view fromText, std::string_view toText) {
  if (selectedKind_ < 0) return RangeEdit::NoKindSelected;
  const std::uint32_t from = ParseIpv4(fromText).value_or(kNullAddress);
  const std::uint32_t to = ParseIpv4(toText).value_or(kNullAddress);
  if (from == kNullAddress || to == kNullAddress) return RangeEdit::NullAddress;

  const IpRange range = from <= to ? IpRange{from, to} : IpRange{to, from};
  std::vector<IpRange>& list = values_.Ranges(static_cast<RangeKind>(selectedKind_));
  if (std::find(list.begin(), list.end(), range) != list.end()) return RangeEdit::Duplicate;
  list.push_back(range);
  return RangeEdit::Done;
}

RangeEdit FilterWindowModel::RemoveRange(int row) {
  if (selectedKind_ < 0) return RangeEdit::NoKindSelected;
  std::vector<IpRange>& list = values_.Ranges(static_cast<RangeKind>(selectedKind_));
  if (row < 0 || static_cast<std::size_t>(row) >= list.size()) return RangeEdit::NoItemSelected;
  list.erase(list.begin() + row);
  return RangeEdit::Done;
}

std::vector<std::string> FilterWindowModel::RangeItems(RangeKind kind) const {
  std::vector<std::string> items;
  for (const IpRange& range : values_.Ranges(kind)) items.push_back(FormatRangeItem(range));
  return items;
}

long FilterWindowModel::RangeCount(RangeKind kind) const {
  return static_cast<long>(values_.Ranges(kind).size());
}

std::vector<std::string>& FilterWindowModel::TextsOf(TextList list) {
  switch (list) {
    case TextList::MustContain: return values_.mustContain;
    case TextList::MustNotContain: return values_.mustNotContain;
    case TextList::ExtensionsAllowed: return values_.extensionsAllowed;
    case TextList::ExtensionsDenied: break;
  }
  return values_.extensionsDenied;
}

const std::vector<std::string>& FilterWindowModel::Texts(TextList list) const {
  return const_cast<FilterWindowModel*>(this)->TextsOf(list);
}

bool FilterWindowModel::AddText(TextList list, std::string_view text) {
  std::vector<std::string>& texts = TextsOf(list);
  if (text.empty() || std::find(texts.begin(), texts.end(), text) != texts.end()) return false;
  texts.emplace_back(text);
  return true;
}

bool FilterWindowModel::RemoveText(TextList list, int row) {
  std::vector<std::string>& texts = TextsOf(list);
  if (row < 0 || static_cast<std::size_t>(row) >= texts.size()) return false;
  texts.erase(texts.begin() + row);
  return true;
}

void FilterWindowModel::ClearAll() { values_ = FilterValues{}; }

std::optional<std::string> ResolveHostName(const std::string& host) {
  if (host.empty()) return std::nullopt;
  addrinfo hints{};
  hints.ai_family = AF_INET;
  addrinfo* found = nullptr;
  if (getaddrinfo(host.c_str(), nullptr, &hints, &found) != 0 || found == nullptr) {
    return std::nullopt;
  }
  const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(found, &freeaddrinfo);
  const auto* address = reinterpret_cast<const sockaddr_in*>(found->ai_addr);
  return FormatIpv4(ntohl(address->sin_addr.s_addr));
}

std::optional<std::string> ReverseResolveAddress(const std::string& address) {
  sockaddr_storage socketAddress{};
  socklen_t length = 0;
  if (const std::optional<std::uint32_t> parsed = ParseIpv4(address)) {
    auto& inet = reinterpret_cast<sockaddr_in&>(socketAddress);
    inet.sin_family = AF_INET;
    inet.sin_addr.s_addr = htonl(*parsed);
    length = sizeof inet;
  } else if (const std::optional<IpAddress> v6 = IpAddress::Parse(address); v6 && v6->isV6()) {
    auto& inet6 = reinterpret_cast<sockaddr_in6&>(socketAddress);
    inet6.sin6_family = AF_INET6;
    std::copy(v6->bytes().begin(), v6->bytes().end(), inet6.sin6_addr.s6_addr);
    length = sizeof inet6;
  } else {
    return std::nullopt;
  }
  char name[NI_MAXHOST];
  const int status = getnameinfo(reinterpret_cast<const sockaddr*>(&socketAddress), length, name,
                                 sizeof name, nullptr, 0, NI_NAMEREQD);
  if (status != 0) return std::nullopt;
  return std::string(name);
}

}  // namespace vormelt
