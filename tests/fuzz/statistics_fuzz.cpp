// Fuzz target for the statistics engine: the input becomes a run of IPv4 and IPv6 packets (raw,
// or built around a few addresses so that records meet and tables fill), Ethernet frames, list-size
// changes and clears. After every packet the address table must equal a plain model of the
// counting rules whose victim is found by a pass over every slot (lowest slot among equals),
// and at the end every list must save as valid JSON with one object per record.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <nlohmann/json.hpp>
#include <span>
#include <string>
#include <vector>

#include "common/frame_sink.hpp"
#include "packets/headers.hpp"
#include "statistics/engine.hpp"
#include "statistics/lists.hpp"
#include "statistics/local_addresses.hpp"
#include "support/fuzz_input.hpp"

using namespace vormelt::statistics;

namespace {

void Check(bool condition) {
  if (!condition) std::abort();
}

using vormelt::IpAddress;
using vormelt::test::ByteReader;

// The address table as the rules state it: linear lookups, and a full table's victim found by
// one pass over the used slots with a strict comparison.
class ModelIpTable {
 public:
  void Count(const IpAddress& source, const IpAddress& destination, std::int64_t bytes, std::int64_t sequence) {
    const int sourceSlot = Find(source), destinationSlot = Find(destination);
    if (sourceSlot >= 0) Touch(records_[sourceSlot], true, bytes, sequence);
    if (destinationSlot >= 0) Touch(records_[destinationSlot], false, bytes, sequence);
    const bool self = source == destination;
    if (sourceSlot < 0) Create(source, true, self, bytes, sequence);
    if (destinationSlot < 0 && !self) Create(destination, false, true, bytes, sequence);
  }
  void Clear() { records_.clear(); }
  void SetLimits(const StatisticsLimits& limits) { limits_ = limits; }
  const std::vector<IpRecord>& Records() const { return records_; }

 private:
  int Find(const IpAddress& address) const {
    for (std::size_t i = 0; i < records_.size(); ++i) {
      if (records_[i].address == address) return static_cast<int>(i);
    }
    return -1;
  }
  static void Touch(IpRecord& r, bool from, std::int64_t bytes, std::int64_t sequence) {
    (from ? r.bytesFrom : r.bytesTo) += bytes;
    (from ? r.packetsFrom : r.packetsTo) += 1;
    r.lastUpdate = sequence;
  }
  std::size_t Victim() const {
    std::size_t victim = 0;
    std::int64_t best = limits_.policy == VictimPolicy::Highest ? 0 : std::numeric_limits<std::int64_t>::max();
    for (std::size_t i = 0; i < records_.size(); ++i) {
      const IpRecord& r = records_[i];
      const bool better = limits_.policy == VictimPolicy::Highest ? r.PacketTotal() > best
                          : limits_.policy == VictimPolicy::Lowest ? r.PacketTotal() < best
                                                                     : r.lastUpdate < best;
      if (better) {
        victim = i;
        best = limits_.policy == VictimPolicy::LongestAgo ? r.lastUpdate : r.PacketTotal();
      }
    }
    return victim;
  }
  void Create(const IpAddress& address, bool from, bool to, std::int64_t bytes, std::int64_t sequence) {
    std::size_t slot = records_.size();
    if (static_cast<std::int32_t>(slot) < limits_.maxItems) {
      records_.emplace_back();
    } else {
      slot = Victim();
    }
    records_[slot] = IpRecord{.address = address};
    if (from) Touch(records_[slot], true, bytes, sequence);
    if (to) Touch(records_[slot], false, bytes, sequence);
  }

  std::vector<IpRecord> records_;
  StatisticsLimits limits_;
};

StatisticsLimits LimitsFrom(std::uint8_t byte) {
  return {1 + (byte & 0x0F), static_cast<VictimPolicy>((byte >> 4) % 3)};
}

// An IPv4 packet between two of four addresses (one of them local), the rest from the input;
// an IPv6 one between the same four (as ::a.b.c.d, no extension header) when it picks version 6.
std::vector<std::uint8_t> BuiltPacket(std::uint8_t control, ByteReader& in, Ipv4 local) {
  const Ipv4 pool[4] = {0x0A000001, 0x0A000002, local, 0xC0000201};
  const Ipv4 source = pool[control & 3], destination = pool[(control >> 2) & 3];
  static constexpr std::uint8_t kProtocols[4] = {6, 17, 1, 0};
  const std::uint8_t protocol = kProtocols[(control >> 4) & 3] ? kProtocols[(control >> 4) & 3] : in.Byte();
  std::vector<std::uint8_t> ip(20, 0);
  ip[0] = control & 0x40 ? in.Byte() : 0x45;
  const bool six = ip[0] >> 4 == 6;
  if (six) ip.assign(40, 0), ip[0] = 0x60;
  ip[six ? 4 : 2] = in.Byte();
  ip[six ? 5 : 3] = in.Byte();
  ip[six ? 6 : 9] = protocol;
  for (std::size_t i = 0, at = six ? 20 : 12, gap = six ? 16 : 4; i < 4; ++i) {
    ip[at + i] = static_cast<std::uint8_t>(source >> (24 - 8 * i));
    ip[at + gap + i] = static_cast<std::uint8_t>(destination >> (24 - 8 * i));
  }
  const auto rest = in.Take(in.Byte());
  ip.insert(ip.end(), rest.begin(), rest.end());
  return ip;
}

bool IsIpv6(std::span<const std::uint8_t> ip) { return !ip.empty() && ip[0] >> 4 == 6; }

// What the engine counts a counted packet with: TCP trusts a smaller total (IPv6: payload)
// length. Which protocol an IPv6 packet carries is its header chain's to say.
std::int64_t CountedBytes(std::span<const std::uint8_t> ip) {
  std::size_t length = ip.size();
  if (IsIpv6(ip)) {
    const auto view = vormelt::Ipv6View::Parse(ip);
    if (view->Chain(ip.size()).protocol == 6) length = std::min<std::size_t>(length, 40 + view->payloadLength());
  } else if (ip[9] == 6) {
    length = std::min<std::size_t>(length, std::size_t{ip[2]} << 8 | ip[3]);
  }
  return static_cast<std::int64_t>(length) + 14;
}

IpAddress Address(std::span<const std::uint8_t> ip, bool source) {
  if (IsIpv6(ip)) return IpAddress::V6Bytes(ip.data() + (source ? 8 : 24));
  return IpAddress::V4Bytes(ip.data() + (source ? 12 : 16));
}

void CompareWithModel(const StatisticsEngine& engine, const ModelIpTable& model) {
  engine.WithTables([&](const StatisticsTables& t) {
    const auto& records = model.Records();
    Check(t.ip.Used() == static_cast<std::int32_t>(records.size()));
    for (std::int32_t slot = 0; slot < t.ip.Used(); ++slot) {
      const IpRecord& ours = t.ip.At(slot);
      const IpRecord& rule = records[static_cast<std::size_t>(slot)];
      Check(ours.address == rule.address && ours.bytesTo == rule.bytesTo &&
            ours.bytesFrom == rule.bytesFrom && ours.packetsTo == rule.packetsTo &&
            ours.packetsFrom == rule.packetsFrom && ours.lastUpdate == rule.lastUpdate);
      Check(t.ip.Find(ours.address) == slot);
    }
    for (std::int32_t slot = 0; slot < t.pairs.Used(); ++slot) {
      Check(t.pairs.Find(t.pairs.At(slot).first, t.pairs.At(slot).second) == slot);
    }
    for (std::int32_t slot = 0; slot < t.ports.Used(); ++slot) {
      const LocalPortRecord& r = t.ports.At(slot);
      Check(t.ports.Find(r.address, r.port, r.tcp) == slot);
    }
  });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  ByteReader in(data, size);
  const Ipv4 local = 0x7F000001;
  // One engine for every input (its tables are large to make); each input starts it empty.
  static LocalAddressList locals;
  static StatisticsEngine engine(locals);
  locals.Replace(std::vector<Ipv4>{local});
  locals.ReplaceIpv6(std::vector<IpAddress>{*IpAddress::Parse("::127.0.0.1")});
  const StatisticsLimits limits = LimitsFrom(in.Byte());
  engine.ClearAll();
  engine.SetLimits(limits);
  ModelIpTable model;
  model.SetLimits(limits);
  std::vector<std::uint8_t> frame;

  while (!in.AtEnd()) {
    const std::uint8_t control = in.Byte();
    if (control == 0xFF) {
      engine.ClearAll();
      model.Clear();
      continue;
    }
    if (control == 0xFE) {
      const StatisticsLimits next = LimitsFrom(in.Byte());
      engine.SetLimits(next);
      model.SetLimits(next);
      continue;
    }
    std::vector<std::uint8_t> ip;
    if (control & 0x80) {
      ip = BuiltPacket(control, in, local);
    } else {
      const auto raw = in.Take(std::size_t{in.Byte()} << (control & 1 ? 2 : 0));
      ip.assign(raw.begin(), raw.end());
    }
    const std::int64_t before = engine.PacketSequence();
    if (control & 0x20) {  // through the capture loop's door: an Ethernet frame
      frame.assign(12, 0);
      const bool six = IsIpv6(ip) && !(control & 0x02);
      frame.push_back(six ? 0x86 : 0x08);
      frame.push_back(six ? 0xDD : control & 0x02 ? 0x06 : 0x00);  // ARP now and then: skipped
      frame.insert(frame.end(), ip.begin(), ip.end());
      frame.resize(frame.size() + vormelt::kFrameSpareBytes, 0);
      vormelt::FrameRecord record;
      record.bytes = std::span<const std::uint8_t>(frame.data(), frame.size() - vormelt::kFrameSpareBytes);
      record.wireLength = static_cast<std::uint32_t>(record.bytes.size());
      engine.Take(record);
    } else if (IsIpv6(ip)) {
      engine.CountIpv6Packet(ip);
    } else {
      engine.CountPacket(ip);
    }
    const std::int64_t after = engine.PacketSequence();
    Check(after == before || after == before + 1);
    if (after == before + 1) {
      Check(IsIpv6(ip) ? ip.size() >= 40 : ip.size() >= 20 && (ip[0] >> 4) == 4);
      model.Count(Address(ip, true), Address(ip, false), CountedBytes(ip), after);
    }
    CompareWithModel(engine, model);
  }

  for (const StatisticsList list :
       {StatisticsList::IpAddresses, StatisticsList::IpAddressPairs, StatisticsList::LocalPorts}) {
    std::string json, text;
    std::int32_t used = 0;
    engine.WithTables([&](const StatisticsTables& t) {
      WriteList(t, list, SaveFormat::Json, vormelt::UiLanguage::English, json);
      WriteList(t, list, SaveFormat::Csv, vormelt::UiLanguage::German, text);
      used = list == StatisticsList::IpAddresses      ? t.ip.Used()
             : list == StatisticsList::IpAddressPairs ? t.pairs.Used()
                                                      : t.ports.Used();
    });
    const auto parsed = nlohmann::json::parse(json, nullptr, false);
    Check(!parsed.is_discarded() && parsed.is_array() && parsed.size() == static_cast<std::size_t>(used));
  }
  return 0;
}
