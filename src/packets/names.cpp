// Name tables for IP protocols, EtherTypes, TCP/UDP ports and vendor prefixes, unpacked once
// per process from the generated data/generated/names_*.inc tables (vendors from the installed
// IEEE registry where there is one) and read-only from then on.
// Never writes a table after it is built and never allocates on a lookup.
#include "packets/names.hpp"

#include <algorithm>
#include <cstddef>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "packets/vendor_registry.hpp"

namespace vormelt::names {
namespace {

#include "generated/names_ethertypes.inc"
#include "generated/names_ports.inc"
#include "generated/names_protocols.inc"
#include "generated/names_vendors.inc"

constexpr std::size_t kEtherTypeTableSize = 0xFF00;  // 0xFF00 and above are never named
constexpr std::size_t kTcpTableSize = std::size_t{kLastTcpPort} + 1;
constexpr std::size_t kUdpTableSize = std::size_t{kLastUdpPort} + 1;

// The generated form of a table: ascending keys as differences, a text index per entry and
// the distinct texts NUL-separated.
struct PackedTable {
  std::span<const std::uint32_t> keyDeltas;
  std::span<const std::uint16_t> textIndex;
  std::string_view texts;  // without the literal's own terminator
};

template <std::size_t Keys, std::size_t Indices, std::size_t TextBytes>
constexpr PackedTable Pack(const std::uint32_t (&keyDeltas)[Keys],
                           const std::uint16_t (&textIndex)[Indices],
                           const char (&texts)[TextBytes]) {
  static_assert(Keys == Indices, "every key needs a text");
  return PackedTable{keyDeltas, textIndex, std::string_view(texts, TextBytes - 1)};
}

struct Entry {
  std::uint32_t key;
  const char* text;
};

std::vector<const char*> TextStarts(std::string_view texts) {
  std::vector<const char*> starts;
  std::size_t begin = 0;
  while (begin < texts.size()) {
    starts.push_back(texts.data() + begin);
    const std::size_t end = texts.find('\0', begin);
    begin = (end == std::string_view::npos) ? texts.size() : end + 1;
  }
  return starts;
}

std::vector<Entry> Unpack(const PackedTable& packed) {
  const std::vector<const char*> starts = TextStarts(packed.texts);
  std::vector<Entry> entries;
  entries.reserve(packed.keyDeltas.size());
  std::uint32_t key = 0;
  for (std::size_t i = 0; i < packed.keyDeltas.size(); ++i) {
    key += packed.keyDeltas[i];
    entries.push_back(Entry{key, starts.at(packed.textIndex[i])});
  }
  return entries;
}

// Direct-index table: one pointer per key, so a lookup is a bounds check and a load.
class DirectTable {
 public:
  DirectTable(const PackedTable& packed, std::size_t size) : texts_(size, nullptr) {
    for (const Entry& entry : Unpack(packed)) {
      if (entry.key < size) texts_[entry.key] = entry.text;
    }
  }
  const char* Find(std::uint32_t key) const { return key < texts_.size() ? texts_[key] : nullptr; }

 private:
  std::vector<const char*> texts_;
};

const DirectTable& EtherTypes() {
  static const DirectTable table(Pack(kEtherTypeKeyDeltas, kEtherTypeTextIndex, kEtherTypeTexts),
                                 kEtherTypeTableSize);
  return table;
}

const DirectTable& TcpPorts() {
  static const DirectTable table(Pack(kTcpPortKeyDeltas, kTcpPortTextIndex, kTcpPortTexts),
                                 kTcpTableSize);
  return table;
}

const DirectTable& UdpPorts() {
  static const DirectTable table(Pack(kUdpPortKeyDeltas, kUdpPortTextIndex, kUdpPortTexts),
                                 kUdpTableSize);
  return table;
}

// The registry's rows, sorted by key with equal keys in the registry's order (the first of them
// answers), then the hand-kept additions for the keys the registry lacks. The installed
// registry comes first, so names follow the system's ieee-data; the compiled copy stands in
// where it is not installed (package builds depend on ieee-data and leave the copy out).
class VendorTable {
 public:
  VendorTable() {
    if (std::optional<std::vector<VendorPair>> read = ReadVendorRegistry(VendorRegistryFile())) {
      installed_ = std::move(*read);
      for (const VendorPair& pair : installed_) entries_.push_back(Entry{pair.oui, pair.name.c_str()});
    } else {
#if VORMELT_EMBED_VENDORS
      entries_ = Unpack(Pack(kVendorKeyDeltas, kVendorTextIndex, kVendorTexts));
#endif
    }
    const auto byKey = [](const Entry& a, const Entry& b) { return a.key < b.key; };
    std::stable_sort(entries_.begin(), entries_.end(), byKey);
    const std::size_t registryEnd = entries_.size();
    for (const Entry& addition :
         Unpack(Pack(kVendorAdditionKeyDeltas, kVendorAdditionTextIndex, kVendorAdditionTexts))) {
      if (!std::binary_search(entries_.begin(), entries_.begin() + static_cast<std::ptrdiff_t>(registryEnd),
                              addition, byKey)) {
        entries_.push_back(addition);
      }
    }
    std::stable_sort(entries_.begin(), entries_.end(), byKey);
  }
  const std::vector<Entry>& entries() const { return entries_; }

 private:
  std::vector<VendorPair> installed_;  // owns the names the entries point into
  std::vector<Entry> entries_;
};

const std::vector<Entry>& Vendors() {
  static const VendorTable table;
  return table.entries();
}

constexpr std::size_t kOuiDigits = 6;

int HexDigitValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace

const char* ProtocolName(std::uint8_t protocol) { return kProtocolNames[protocol]; }

const char* Ipv6ProtocolName(std::uint8_t protocol) {
  switch (protocol) {
    case 0: return "HOPOPT";
    case 43: return "IPv6-Route";
    case 44: return "IPv6-Frag";
    case 51: return "AH";
    case 58: return "ICMPv6";
    case 59: return "IPv6-NoNxt";
    case 60: return "IPv6-Opts";
    default: return kProtocolNames[protocol];
  }
}

const char* EtherTypeName(std::uint16_t etherType) { return EtherTypes().Find(etherType); }

const char* PortName(PortProtocol protocol, std::uint16_t port) {
  return protocol == PortProtocol::Tcp ? TcpPorts().Find(port) : UdpPorts().Find(port);
}

const char* VendorName(std::uint32_t oui) {
  const std::vector<Entry>& entries = Vendors();
  const auto found = std::lower_bound(entries.begin(), entries.end(), oui,
                                      [](const Entry& entry, std::uint32_t key) {
                                        return entry.key < key;
                                      });
  return (found != entries.end() && found->key == oui) ? found->text : nullptr;
}

std::optional<std::uint32_t> ParseOui(std::string_view text) {
  std::uint32_t oui = 0;
  std::size_t digits = 0;
  for (const char c : text) {
    if (c == ':' || c == '-') continue;
    const int value = HexDigitValue(c);
    if (value < 0) return std::nullopt;
    if (digits < kOuiDigits) oui = (oui << 4) | static_cast<std::uint32_t>(value);
    ++digits;
  }
  if (digits < kOuiDigits) return std::nullopt;
  return oui;
}

}  // namespace vormelt::names
