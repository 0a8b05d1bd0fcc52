// SlotIndex: a fixed-size open-addressing hash map from a record key to its table slot, so a
// statistics lookup costs a probe or two instead of a pass over every used slot. It never
// allocates after construction and never holds more keys than a table has slots.
#pragma once

#include <cstdint>
#include <memory>

namespace vormelt::statistics {

class SlotIndex {
 public:
  static constexpr std::int32_t kNoSlot = -1;

  // `capacity` is the most keys ever held at once; the bucket array is at least twice that, so
  // linear probes stay short. It is allocated here, once.
  explicit SlotIndex(std::int32_t capacity);

  // Uses only as many buckets as `keys` keys need (twice as many, a power of two) and empties
  // the index. A small list then touches a few cache lines instead of the whole array.
  void Resize(std::int32_t keys);
  // Brings the key's first bucket into the cache ahead of the lookup.
  void Prefetch(std::uint64_t key) const { __builtin_prefetch(&buckets_[Home(Hash(key))]); }

  // Buckets hold a 32-bit tag of the key, not the key (eight bytes a bucket keep the index in
  // the cache); a matching tag is confirmed with holds(slot): whether the record in that slot
  // is the one looked for.
  template <typename Holds>
  std::int32_t Find(std::uint64_t key, const Holds& holds) const {
    const std::uint64_t hash = Hash(key);
    const std::uint32_t tag = Tag(hash);
    for (std::uint32_t i = Home(hash);; i = (i + 1) & mask_) {
      const Bucket& bucket = buckets_[i];
      if (bucket.slot == kNoSlot) return kNoSlot;
      if (bucket.tag == tag && holds(bucket.slot)) return bucket.slot;
    }
  }
  // The key must not be present, nor the slot.
  void Insert(std::uint64_t key, std::int32_t slot);
  // Forgets the slot's key; the slot must be present. Needs no lookup: the index knows where
  // each slot's key sits.
  void EraseSlot(std::int32_t slot);
  void Clear();
  // Brings the bucket of the slot's key into the cache, ahead of EraseSlot.
  void PrefetchSlot(std::int32_t slot) const { __builtin_prefetch(&buckets_[position_[slot]]); }

 private:
  struct Bucket {
    std::uint32_t tag = 0;
    std::int32_t slot = kNoSlot;
  };
  // Fibonacci hashing spreads keys that differ only in their low bytes (neighbouring hosts);
  // the multiplication is a bijection, and the home bucket is the top bits of the product.
  static std::uint64_t Hash(std::uint64_t key) { return key * 0x9E3779B97F4A7C15ull; }
  static std::uint32_t Tag(std::uint64_t hash) { return static_cast<std::uint32_t>(hash >> 32); }
  std::uint32_t Home(std::uint64_t hash) const {
    return static_cast<std::uint32_t>(hash >> shift_) & mask_;
  }
  // The home bucket again from a stored tag: the top bits of the hash are the top of the tag.
  std::uint32_t HomeOfTag(std::uint32_t tag) const { return (tag >> (shift_ - 32)) & mask_; }

  std::uint32_t mask_ = 0;
  int shift_ = 64;
  std::uint32_t allocated_ = 0;
  std::unique_ptr<Bucket[]> buckets_;
  std::unique_ptr<std::uint32_t[]> position_;  // slot -> bucket holding its key
};

}  // namespace vormelt::statistics
