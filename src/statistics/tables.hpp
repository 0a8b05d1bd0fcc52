// The three statistics tables: fixed arrays of kTableCapacity records, each found through a
// SlotIndex and replaced, when full, through a tournament tree that names the same victim a
// pass over every slot would. Plain data under the engine's lock; nothing here locks or
// allocates after construction.
#pragma once

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>
#include <memory>
#include <numeric>
#include <vector>

#include "common/ip_address.hpp"
#include "statistics/slot_index.hpp"

namespace vormelt::statistics {

// The largest list size a user may choose, and the size of every table.
inline constexpr std::int32_t kTableCapacity = 8192;

// An IPv4 address as the four bytes seen on the wire, read big-endian: 10.0.0.1 is 0x0A000001.
using Ipv4 = std::uint32_t;

// The index key of an address: an IPv4 address is its own key, as the tables have always been
// keyed; an IPv6 address folds its sixteen bytes into one word. Records are told apart by their
// whole identity, so two IPv6 addresses with the same fold cost a probe, never a merged record.
// Every packet computes several keys, so they are word loads rather than byte loops.
inline std::uint64_t AddressKey(const IpAddress& address) {
  if (address.isV4()) {
    std::uint32_t word;
    std::memcpy(&word, address.bytes().data(), sizeof word);
    return __builtin_bswap32(word);
  }
  std::uint64_t words[2];
  std::memcpy(words, address.bytes().data(), sizeof words);
  return std::rotl(words[0] * 0x9E3779B97F4A7C15ull, 31) ^ words[1];
}

// Address equality as two word compares: the lookups run it for every packet, and the
// general comparison goes through memcmp.
inline bool SameAddress(const IpAddress& a, const IpAddress& b) {
  std::uint64_t x[2], y[2];
  std::memcpy(x, a.bytes().data(), sizeof x);
  std::memcpy(y, b.bytes().data(), sizeof y);
  return ((x[0] ^ y[0]) | (x[1] ^ y[1])) == 0 && a.family() == b.family();
}

// What a full table gives up for a new record.
enum class VictimPolicy : std::uint8_t {
  LongestAgo,  // the smallest last update
  Lowest,      // the smallest packet total
  Highest,     // the greatest packet total
};

struct IpRecord {
  std::int64_t bytesTo = 0, bytesFrom = 0, packetsTo = 0, packetsFrom = 0;
  std::int64_t lastUpdate = 0;
  IpAddress address;  // after the counters: the record then fits 64 bytes
  bool changed = false, fresh = false;  // fresh: the "new" flag, the row is still to be inserted

  static std::uint64_t KeyOf(const IpAddress& address) { return AddressKey(address); }
  std::uint64_t Key() const { return KeyOf(address); }
  bool Is(const IpAddress& other) const { return SameAddress(address, other); }
  std::int64_t PacketTotal() const { return packetsTo + packetsFrom; }
  std::int64_t ByteTotal() const { return bytesTo + bytesFrom; }
};

// One ordered pair; each talking pair of hosts has two, so that each host leads one row.
struct IpPairRecord {
  IpAddress first, second;
  std::int64_t bytesSecondToFirst = 0, bytesFirstToSecond = 0;
  std::int64_t packetsSecondToFirst = 0, packetsFirstToSecond = 0;
  std::int64_t lastUpdate = 0;
  bool changed = false, fresh = false;

  // From the two addresses' keys, as the engine has them at hand.
  static std::uint64_t KeyOfKeys(std::uint64_t first, std::uint64_t second, bool v4) {
    return v4 ? (first << 32) | second : std::rotl(first, 32) ^ (second * 0xC2B2AE3D27D4EB4Full);
  }
  static std::uint64_t KeyOf(const IpAddress& first, const IpAddress& second) {
    return KeyOfKeys(AddressKey(first), AddressKey(second), first.isV4());
  }
  std::uint64_t Key() const { return KeyOf(first, second); }
  bool Is(const IpAddress& a, const IpAddress& b) const {
    return SameAddress(first, a) && SameAddress(second, b);
  }
  std::int64_t PacketTotal() const { return packetsSecondToFirst + packetsFirstToSecond; }
  std::int64_t ByteTotal() const { return bytesSecondToFirst + bytesFirstToSecond; }
};

struct LocalPortRecord {
  std::uint16_t port = 0;
  IpAddress address;
  std::int64_t bytesIn = 0, bytesOut = 0, packetsIn = 0, packetsOut = 0;
  std::int64_t lastUpdate = 0;
  bool tcp = false;  // the protocol flag: TCP, else UDP
  bool changed = false, fresh = false;

  static std::uint64_t KeyOfKeys(std::uint64_t address, std::uint16_t port, bool tcp, bool v4) {
    const std::uint64_t low = (std::uint64_t{port} << 1) | (tcp ? 1u : 0u);
    return v4 ? (address << 32) | low : address ^ (low * 0x9E3779B97F4A7C15ull);
  }
  static std::uint64_t KeyOf(const IpAddress& address, std::uint16_t port, bool tcp) {
    return KeyOfKeys(AddressKey(address), port, tcp, address.isV4());
  }
  std::uint64_t Key() const { return KeyOf(address, port, tcp); }
  bool Is(const IpAddress& a, std::uint16_t p, bool t) const {
    return port == p && tcp == t && SameAddress(address, a);
  }
  std::int64_t PacketTotal() const { return packetsIn + packetsOut; }
  std::int64_t ByteTotal() const { return bytesIn + bytesOut; }
};

template <typename Record>
class StatTable {
 public:
  StatTable()
      : records_(std::make_unique<Record[]>(kTableCapacity)),
        tree_(std::make_unique_for_overwrite<Node[]>(2 * kTableCapacity)) {
    Clear();
  }

  std::int32_t Used() const { return used_; }
  const Record& At(std::int32_t slot) const { return records_[slot]; }
  Record& At(std::int32_t slot) { return records_[slot]; }
  // Records overwritten by a newer one since the last Clear.
  std::int64_t Replaced() const { return replaced_; }

  // The slot of the record with the given identity (an address, a pair, an address, port and
  // protocol), or SlotIndex::kNoSlot.
  template <typename... Identity>
  std::int32_t Find(const Identity&... identity) const {
    return FindKeyed(Record::KeyOf(identity...), identity...);
  }
  // The same with the key already made (the engine makes each packet's keys once).
  template <typename... Identity>
  std::int32_t FindKeyed(std::uint64_t key, const Identity&... identity) const {
    return index_.Find(key, [&](std::int32_t slot) { return records_[slot].Is(identity...); });
  }

  // The slot for a new record: the next unused one while fewer than `maxItems` are used, else
  // the policy's victim, whose key is forgotten here. The caller fills it and calls Commit.
  std::int32_t Obtain(std::int32_t maxItems) {
    if (used_ < maxItems && used_ < kTableCapacity) return used_++;
    const std::int32_t victim = policy_ == VictimPolicy::LongestAgo ? head_ : tree_[1].slot;
    index_.EraseSlot(victim);
    ++replaced_;
    return victim;
  }
  void Commit(std::int32_t slot) { Commit(slot, records_[slot].Key()); }
  void Commit(std::int32_t slot, std::uint64_t key) {
    index_.Insert(key, slot);
    Touched(slot);
  }
  // The record's counters or last update changed: its place in the victim order may move. A
  // record is touched with the newest last update of the table (the packet's sequence number).
  void Touched(std::int32_t slot) {
    if (policy_ == VictimPolicy::LongestAgo) {
      Unlink(slot);
      Append(slot);
      return;
    }
    std::int32_t node = leaves_ + slot;
    tree_[node] = Node{Rank(records_[slot]), slot};
    for (node /= 2; node >= 1; node /= 2) {
      const Node before = tree_[node];
      tree_[node] = Better(tree_[2 * node], tree_[2 * node + 1]);
      // The same winner as before, and not the slot that moved: nothing above can change.
      if (tree_[node].slot == before.slot && before.slot != slot) return;
    }
  }

  // A new list size or policy: the index and the victim order are sized for the larger of the
  // new maximum and the records held, and worked out again from the records.
  void Reshape(std::int32_t maxItems, VictimPolicy policy) {
    policy_ = policy;
    const std::int32_t size = std::max(maxItems, used_);
    leaves_ = std::min<std::int32_t>(std::bit_ceil(static_cast<std::uint32_t>(size)), kTableCapacity);
    index_.Resize(size);
    for (std::int32_t slot = 0; slot < used_; ++slot) index_.Insert(records_[slot].Key(), slot);
    ResetOrder();
    if (policy_ == VictimPolicy::LongestAgo) {
      std::vector<std::int32_t> order(static_cast<std::size_t>(used_));
      std::iota(order.begin(), order.end(), 0);
      std::stable_sort(order.begin(), order.end(), [this](std::int32_t a, std::int32_t b) {
        return records_[a].lastUpdate < records_[b].lastUpdate;
      });
      for (const std::int32_t slot : order) Append(slot);
      return;
    }
    for (std::int32_t slot = 0; slot < used_; ++slot) {
      tree_[leaves_ + slot] = Node{Rank(records_[slot]), slot};
    }
    for (std::int32_t node = leaves_ - 1; node >= 1; --node) {
      tree_[node] = Better(tree_[2 * node], tree_[2 * node + 1]);
    }
  }

  void Clear() {
    used_ = 0;
    replaced_ = 0;
    index_.Clear();
    ResetOrder();
  }

  void Prefetch(std::uint64_t key) const { index_.Prefetch(key); }
  // A full table will give up its next victims for the records a packet creates: start loading
  // what replacing them touches while the lookups run.
  void PrefetchVictims(std::int32_t maxItems, int count) const {
    if (used_ < maxItems) return;
    std::int32_t victim = policy_ == VictimPolicy::LongestAgo ? head_ : tree_[1].slot;
    for (int i = 0; i < count && victim >= 0; ++i) {
      index_.PrefetchSlot(victim);
      __builtin_prefetch(&records_[victim]);
      if (policy_ != VictimPolicy::LongestAgo) break;
      victim = links_[victim].next;
    }
  }

 private:
  static constexpr std::int32_t kNone = -1;
  static constexpr std::int32_t kUnlinked = -2;

  // Longest ago: the used slots in a list from the oldest last update to the newest, equal
  // ones by slot, so the head is the victim. A touch moves a record to the tail in O(1).
  void Unlink(std::int32_t slot) {
    if (links_[slot].previous == kUnlinked) return;
    const std::int32_t before = links_[slot].previous, after = links_[slot].next;
    (before == kNone ? head_ : links_[before].next) = after;
    (after == kNone ? tail_ : links_[after].previous) = before;
    links_[slot].previous = kUnlinked;
  }
  // Records touched by the same packet share a last update; among them the lower slot goes
  // first, as a pass over the slots with a strict comparison would find it first.
  void Append(std::int32_t slot) {
    std::int32_t after = kNone;  // the node the slot goes in front of
    std::int32_t before = tail_;
    while (before != kNone && before > slot &&
           records_[before].lastUpdate == records_[slot].lastUpdate) {
      after = before;
      before = links_[before].previous;
    }
    links_[slot] = Link{before, after};
    (before == kNone ? head_ : links_[before].next) = slot;
    (after == kNone ? tail_ : links_[after].previous) = slot;
  }

  void ResetOrder() {
    head_ = tail_ = kNone;
    if (policy_ == VictimPolicy::LongestAgo) {
      // The tree stays untouched (and its pages unmapped) while it is not used.
      for (std::int32_t slot = 0; slot < kTableCapacity; ++slot) links_[slot].previous = kUnlinked;
      return;
    }
    for (std::int32_t node = 0; node < 2 * leaves_; ++node) tree_[node] = kEmptyNode;
  }

  // A tournament tree over the slots: leaf leaves_ + slot, node n's children 2n, 2n + 1;
  // each node holds the slot that wins its range with its rank, the root (1) the victim of the
  // whole table. Ranks sit in the nodes so a climb never touches the records.
  struct Node {
    std::int64_t rank;
    std::int32_t slot;
  };
  static constexpr Node kEmptyNode{0, kNone};

  // The smaller rank is the better victim.
  std::int64_t Rank(const Record& record) const {
    return policy_ == VictimPolicy::Highest ? -record.PacketTotal() : record.PacketTotal();
  }

  // The left subtree holds the lower slots, so it wins every tie: among equals the lowest slot
  // is the victim, as in a pass over the slots with a strict comparison.
  static Node Better(const Node& left, const Node& right) {
    if (left.slot == kNone) return right;
    if (right.slot == kNone) return left;
    return right.rank < left.rank ? right : left;
  }

  std::unique_ptr<Record[]> records_;
  std::unique_ptr<Node[]> tree_;
  // The longest-ago list; both links of a slot share a cache line.
  struct Link {
    std::int32_t previous, next;
  };
  std::unique_ptr<Link[]> links_ = std::make_unique<Link[]>(kTableCapacity);
  std::int32_t head_ = kNone, tail_ = kNone;
  SlotIndex index_{kTableCapacity};
  std::int32_t leaves_ = kTableCapacity;  // a power of two, at least the slots in use
  std::int32_t used_ = 0;
  std::int64_t replaced_ = 0;
  VictimPolicy policy_ = VictimPolicy::LongestAgo;
};

struct StatisticsTables {
  StatTable<IpRecord> ip;
  StatTable<IpPairRecord> pairs;
  StatTable<LocalPortRecord> ports;
};

}  // namespace vormelt::statistics
