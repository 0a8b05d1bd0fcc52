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
  void Prefetch(std::uint64_t key) const { __builtin_prefetch(&buckets_[Home(key)]); }

  std::int32_t Find(std::uint64_t key) const;
  // The key must not be present.
  void Insert(std::uint64_t key, std::int32_t slot);
  void Erase(std::uint64_t key);
  void Clear();

 private:
  struct Bucket {
    std::uint64_t key = 0;
    std::int32_t slot = kNoSlot;
  };
  std::uint32_t Home(std::uint64_t key) const;

  std::uint32_t mask_ = 0;
  int shift_ = 64;
  std::uint32_t allocated_ = 0;
  std::unique_ptr<Bucket[]> buckets_;
};

}  // namespace vormelt::statistics
