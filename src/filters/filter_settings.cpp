// The packet filter test and its settings. The test runs once per received frame, so it takes
// no heap memory in the common case: patterns are prepared when a list is set, and the
// payload copy reuses one buffer per thread.
#include "filters/filter_settings.hpp"

#include <algorithm>
#include <array>
#include <cstdio>
#include <utility>

#include "common/frame_sink.hpp"
#include "common/wire.hpp"
#include "packets/headers.hpp"

namespace vormelt {
namespace {

// The largest payload a stored frame can have; the per-thread buffer is sized for it once.
constexpr std::size_t kLargestPayload = kMaxFrameLength;

using ByteTable = std::array<char, 256>;

constexpr std::uint8_t FoldByteImpl(std::uint8_t byte) {
  const bool asciiCapital = byte >= 'A' && byte <= 'Z';
  const bool latinCapital = byte >= 0xC0 && byte <= 0xDE && byte != 0xD7;
  return (asciiCapital || latinCapital) ? static_cast<std::uint8_t>(byte + 0x20) : byte;
}

// Byte translation for the payload copy: zero bytes read as spaces so that a pattern with a
// space finds text broken by NULs, optionally lower-cased in the same pass.
constexpr ByteTable MakeCopyTable(bool fold) {
  ByteTable table{};
  for (int i = 0; i < 256; ++i) {
    std::uint8_t byte = static_cast<std::uint8_t>(i);
    if (byte == 0) byte = ' ';
    if (fold) byte = FoldByteImpl(byte);
    table[i] = static_cast<char>(byte);
  }
  return table;
}

constexpr ByteTable kExactCopy = MakeCopyTable(false);
constexpr ByteTable kFoldedCopy = MakeCopyTable(true);

template <typename Address>
bool AnyRangeContains(const std::vector<IpRange>& ranges, const Address& address) {
  return std::any_of(ranges.begin(), ranges.end(),
                     [address](const IpRange& r) { return r.Contains(address); });
}

bool ListHas(const std::vector<std::uint16_t>& ports, std::uint16_t port) {
  return std::find(ports.begin(), ports.end(), port) != ports.end();
}

}  // namespace

std::optional<std::uint32_t> ParseIpv4(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\r\n";
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return std::nullopt;
  text = text.substr(first, text.find_last_not_of(kBlanks) - first + 1);

  std::uint32_t address = 0;
  for (int part = 0; part < 4; ++part) {
    if (part > 0) {
      if (text.empty() || text.front() != '.') return std::nullopt;
      text.remove_prefix(1);
    }
    std::uint32_t value = 0;
    std::size_t digits = 0;
    while (digits < text.size() && text[digits] >= '0' && text[digits] <= '9' && digits < 3) {
      value = value * 10 + static_cast<std::uint32_t>(text[digits] - '0');
      ++digits;
    }
    if (digits == 0 || value > 255) return std::nullopt;
    text.remove_prefix(digits);
    address = (address << 8) | value;
  }
  if (!text.empty()) return std::nullopt;
  return address;
}

std::optional<IpRange> ParseIpRange(std::string_view from, std::string_view to) {
  constexpr std::string_view kBlanks = " \t\r\n";
  const auto trimmed = [&](std::string_view text) {
    const std::size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string_view::npos) return std::string_view();
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
  };
  // IPv4 keeps its own strict reading (exactly four decimal parts).
  const auto v4From = ParseIpv4(from), v4To = ParseIpv4(to);
  if (v4From && v4To) return *v4From <= *v4To ? IpRange(*v4From, *v4To) : IpRange(*v4To, *v4From);
  const auto a = IpAddress::Parse(trimmed(from)), b = IpAddress::Parse(trimmed(to));
  if (!a || !b || !a->isV6() || !b->isV6()) return std::nullopt;
  return *a <= *b ? IpRange(*a, *b) : IpRange(*b, *a);
}

std::string FormatIpv4(std::uint32_t address) {
  char text[16];
  std::snprintf(text, sizeof text, "%u.%u.%u.%u", address >> 24, (address >> 16) & 0xFFu,
                (address >> 8) & 0xFFu, address & 0xFFu);
  return text;
}

std::uint8_t FoldByte(std::uint8_t byte) { return FoldByteImpl(byte); }

std::string FoldText(std::string_view text) {
  std::string folded(text);
  for (char& c : folded) c = static_cast<char>(FoldByte(static_cast<std::uint8_t>(c)));
  return folded;
}

std::string JoinFilterTexts(const std::vector<std::string>& texts) {
  std::string joined;
  for (std::size_t i = 0; i < texts.size(); ++i) {
    if (i > 0) joined += ',';
    joined += texts[i];
  }
  while (!joined.empty() && joined.back() == ',') joined.pop_back();
  return joined;
}

std::vector<IpRange>& FilterValues::Ranges(RangeKind kind) {
  return const_cast<std::vector<IpRange>&>(std::as_const(*this).Ranges(kind));
}

const std::vector<IpRange>& FilterValues::Ranges(RangeKind kind) const {
  switch (kind) {
    case RangeKind::SourceIn: return sourceInRanges;
    case RangeKind::SourceNotIn: return sourceNotInRanges;
    case RangeKind::DestIn: return destInRanges;
    case RangeKind::DestNotIn: return destNotInRanges;
    case RangeKind::EitherIn: break;
  }
  return eitherInRanges;
}

std::vector<std::uint16_t>& FilterValues::Ports(PortKind kind) {
  return const_cast<std::vector<std::uint16_t>&>(std::as_const(*this).Ports(kind));
}

const std::vector<std::uint16_t>& FilterValues::Ports(PortKind kind) const {
  switch (kind) {
    case PortKind::Source: return sourcePorts;
    case PortKind::SourceNot: return sourceNotPorts;
    case PortKind::Dest: return destPorts;
    case PortKind::DestNot: return destNotPorts;
    case PortKind::Either: break;
  }
  return eitherPorts;
}

// A text list prepared once per setter call: the patterns as typed, and lower-cased for the
// case-insensitive test, so no frame ever folds a pattern. The search is string_view::find,
// which scans for the first byte with memchr; on captured payloads that beats a skip-table
// search several times over, because most windows are rejected by the vectorised scan.
struct FilterSettings::PatternSet {
  explicit PatternSet(const std::vector<std::string>& texts) : exact(texts) {
    folded.reserve(texts.size());
    for (const std::string& t : texts) folded.push_back(FoldText(t));
  }

  bool Empty() const { return exact.empty(); }

  bool AnyFoundIn(std::string_view haystack, bool matchCase) const {
    const std::vector<std::string>& patterns = matchCase ? exact : folded;
    return std::any_of(patterns.begin(), patterns.end(), [haystack](const std::string& p) {
      return haystack.find(p) != std::string_view::npos;
    });
  }

  std::vector<std::string> exact;
  std::vector<std::string> folded;
};

FilterSettings::FilterSettings()
    : mustContainPatterns_(std::make_unique<const PatternSet>(std::vector<std::string>{})),
      mustNotContainPatterns_(std::make_unique<const PatternSet>(std::vector<std::string>{})),
      columnTexts_(std::make_shared<const FilterColumnTexts>()) {}

FilterSettings::~FilterSettings() = default;

void FilterSettings::SetAll(const FilterValues& v) {
  // One swap under one lock: a frame is tested against the old filter or the new one, never
  // against half of each.
  FilterValues adopted = v;
  std::unique_ptr<const PatternSet> must = std::make_unique<const PatternSet>(v.mustContain);
  std::unique_ptr<const PatternSet> mustNot = std::make_unique<const PatternSet>(v.mustNotContain);
  std::lock_guard lock(mutex_);
  std::swap(values_, adopted);
  mustContainPatterns_.swap(must);
  mustNotContainPatterns_.swap(mustNot);
  RebuildColumnTextsLocked();
}

FilterValues FilterSettings::Values() const {
  std::lock_guard lock(mutex_);
  return values_;
}

void FilterSettings::RebuildColumnTextsLocked() {
  columnTexts_ = std::make_shared<const FilterColumnTexts>(FilterColumnTexts{
      JoinFilterTexts(values_.mustContain), JoinFilterTexts(values_.mustNotContain)});
}

std::shared_ptr<const FilterColumnTexts> FilterSettings::ColumnTexts() {
  std::lock_guard lock(mutex_);
  return columnTexts_;
}

bool FilterSettings::Passes(const std::uint8_t* frame, std::uint32_t frameLength) {
  return PassesFilters(frame, frameLength, matchCase_.load(std::memory_order_relaxed), false);
}

bool FilterSettings::PassesFilters(const std::uint8_t* frame, std::uint32_t length,
                                   bool matchCase, bool headersOnly) const {
  std::lock_guard lock(mutex_);
  const FrameView view(frame, length);
  const PacketHeaders headers = HeadersOf(view);
  std::uint8_t ipProtocol = headers.ipv4 ? headers.ipv4->protocol() : 0;
  if (headers.ipv6) {
    // ICMPv6 is let through or held back with ICMP.
    ipProtocol = NetworkOf(*headers.ipv6, view).protocol;
    if (ipProtocol == kProtocolIcmpv6) ipProtocol = kProtocolIcmp;
  }

  if (!headersOnly) {
    if (values_.maxPacketSize != 0 && length > values_.maxPacketSize) return false;
    if (length < values_.minPacketSize) return false;

    bool allowed = values_.allowOther;
    if (headers.arp) {
      allowed = values_.allowArp;
    } else if (ipProtocol == kProtocolTcp) {
      allowed = values_.allowTcp;
    } else if (ipProtocol == kProtocolUdp) {
      allowed = values_.allowUdp;
    } else if (ipProtocol == kProtocolIcmp) {
      allowed = values_.allowIcmp;
    }
    if (!allowed) return false;
  }

  if (!PassesAddresses(view, headers)) return false;
  if (headers.ipv4) {
    // The transport header starts after the IP header as its IHL says, options included.
    if (headers.ipv4->carriesPorts() && !PassesPorts(headers.ipv4->transport())) return false;
  } else if (headers.ipv6) {
    const NetworkLayer layer = NetworkOf(*headers.ipv6, view);
    if (layer.carriesPorts() && !PassesPorts(layer.transport)) return false;
  }
  if (headersOnly) return true;
  return PassesTexts(view, headers, matchCase);
}

bool FilterSettings::PassesAddresses(const FrameView& frame, const PacketHeaders& headers) const {
  std::uint32_t source = 0;
  std::uint32_t destination = 0;
  if (headers.ipv4) {
    source = headers.ipv4->source();
    destination = headers.ipv4->destination();
  } else if (headers.arp) {
    // Loose on purpose: the bound is the whole frame length, Ethernet header included.
    const auto spots = headers.arp->Ipv4Addresses(frame.length());
    if (!spots) return true;
    source = headers.arp->Address(spots->sender);
    destination = headers.arp->Address(spots->target);
  } else if (headers.ipv6) {
    return PassesRanges(headers.ipv6->source(), headers.ipv6->destination());
  } else {
    return true;
  }
  return PassesRanges(source, destination);
}

// Inlined into its two callers, so the IPv4 test runs as one function, as before IPv6 came.
template <typename Address>
[[gnu::always_inline]] inline bool FilterSettings::PassesRanges(const Address& source,
                                                                const Address& destination) const {
  const FilterValues& v = values_;
  if (!v.sourceInRanges.empty() && !AnyRangeContains(v.sourceInRanges, source)) return false;
  if (AnyRangeContains(v.sourceNotInRanges, source)) return false;
  if (!v.destInRanges.empty() && !AnyRangeContains(v.destInRanges, destination)) return false;
  if (AnyRangeContains(v.destNotInRanges, destination)) return false;
  if (v.eitherInRanges.empty()) return true;
  return std::any_of(v.eitherInRanges.begin(), v.eitherInRanges.end(), [&](const IpRange& r) {
    return r.Contains(source) || r.Contains(destination);
  });
}

bool FilterSettings::PassesPorts(ByteSpan transport) const {
  const auto ports = PortsView::Parse(transport);
  if (!ports) return true;
  const std::uint16_t source = ports->source();
  const std::uint16_t destination = ports->destination();

  const FilterValues& v = values_;
  if (!v.sourcePorts.empty() && !ListHas(v.sourcePorts, source)) return false;
  if (ListHas(v.sourceNotPorts, source)) return false;
  if (!v.destPorts.empty() && !ListHas(v.destPorts, destination)) return false;
  if (ListHas(v.destNotPorts, destination)) return false;
  if (v.eitherPorts.empty()) return true;
  return ListHas(v.eitherPorts, source) || ListHas(v.eitherPorts, destination);
}

namespace {

// Where the payload starts: after the IPv4 header and the TCP header (its data offset) or the
// eight UDP/ICMP bytes, after the IPv6 chain likewise; ARP and other frames from the end of
// the Ethernet header.
std::int64_t PayloadOffset(const FrameView& frame, const PacketHeaders& headers,
                           std::uint32_t length) {
  std::int64_t offset = kEthernetHeaderLength;
  if (headers.ipv6) {
    const auto payload = vormelt::PayloadOffset(NetworkOf(*headers.ipv6, frame));
    return payload ? offset + *payload : std::int64_t{length};
  }
  if (!headers.ipv4) return offset;
  offset += headers.ipv4->headerLength();
  switch (headers.ipv4->protocol()) {
    case kProtocolTcp: {
      const auto tcp = TcpView::Parse(headers.ipv4->transport());
      return tcp ? offset + tcp->headerLength() : std::int64_t{length};
    }
    case kProtocolUdp: return offset + kUdpHeaderLength;
    case kProtocolIcmp: return offset + kIcmpHeaderLength;
    default: return offset;
  }
}

}  // namespace

bool FilterSettings::PassesTexts(const FrameView& frame, const PacketHeaders& headers,
                                 bool matchCase) const {
  const PatternSet& must = *mustContainPatterns_;
  const PatternSet& mustNot = *mustNotContainPatterns_;
  if (must.Empty() && mustNot.Empty()) return true;

  const std::int64_t offset = PayloadOffset(frame, headers, frame.length());
  const std::int64_t payloadLength = static_cast<std::int64_t>(frame.length()) - offset;
  if (payloadLength < 1) return must.Empty();

  thread_local std::string text = [] {
    std::string buffer;
    buffer.reserve(kLargestPayload);
    return buffer;
  }();
  const std::size_t size = static_cast<std::size_t>(payloadLength);
  text.resize(size);
  const ByteTable& table = matchCase ? kExactCopy : kFoldedCopy;
  const std::uint8_t* payload = frame.data() + offset;
  // Through a plain pointer (a store through text[i] may alias the thread-local string itself,
  // which made the compiler reload its address on every byte), and unrolled: one turn of this
  // loop per payload byte is where the filter spends its time, and a short loop body runs at
  // the mercy of where the code happens to lie.
  char* const out = text.data();
#pragma GCC unroll 8
  for (std::size_t i = 0; i < size; ++i) out[i] = table[payload[i]];

  const std::string_view haystack(text.data(), size);
  if (!must.Empty() && !must.AnyFoundIn(haystack, matchCase)) return false;
  return !mustNot.AnyFoundIn(haystack, matchCase);
}

}  // namespace vormelt
