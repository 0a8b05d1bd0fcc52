// Linear probing with backward-shift deletion: no tombstones, so a table that replaces records
// all day long keeps its probe lengths as short as on the first day.
#include "statistics/slot_index.hpp"

#include <algorithm>
#include <bit>

namespace vormelt::statistics {

namespace {
std::uint32_t BucketsFor(std::int32_t keys) {
  return std::bit_ceil(static_cast<std::uint32_t>(std::max(keys, std::int32_t{8})) * 2u);
}
}  // namespace

SlotIndex::SlotIndex(std::int32_t capacity) {
  allocated_ = BucketsFor(capacity);
  buckets_ = std::make_unique<Bucket[]>(allocated_);
  position_ = std::make_unique<std::uint32_t[]>(static_cast<std::size_t>(capacity));
  Resize(capacity);
}

void SlotIndex::Resize(std::int32_t keys) {
  const std::uint32_t buckets = std::min(BucketsFor(keys), allocated_);
  mask_ = buckets - 1;
  shift_ = 64 - std::countr_zero(buckets);
  Clear();
}

void SlotIndex::Insert(std::uint64_t key, std::int32_t slot) {
  const std::uint64_t hash = Hash(key);
  std::uint32_t i = Home(hash);
  while (buckets_[i].slot != kNoSlot) i = (i + 1) & mask_;
  buckets_[i] = Bucket{Tag(hash), slot};
  position_[slot] = i;
}

void SlotIndex::EraseSlot(std::int32_t slot) {
  std::uint32_t hole = position_[slot];
  buckets_[hole].slot = kNoSlot;
  // Pull later entries of the probe run back into the hole when their home allows it.
  for (std::uint32_t next = (hole + 1) & mask_; buckets_[next].slot != kNoSlot;
       next = (next + 1) & mask_) {
    const std::uint32_t home = HomeOfTag(buckets_[next].tag);
    const std::uint32_t fromHome = (next - home) & mask_;
    const std::uint32_t fromHole = (next - hole) & mask_;
    if (fromHome >= fromHole) {
      buckets_[hole] = buckets_[next];
      position_[buckets_[hole].slot] = hole;
      buckets_[next].slot = kNoSlot;
      hole = next;
    }
  }
}

void SlotIndex::Clear() {
  for (std::uint32_t i = 0; i <= mask_; ++i) buckets_[i] = Bucket{};
}

}  // namespace vormelt::statistics
