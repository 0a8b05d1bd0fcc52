// PacketStore: every packet Packet Mode keeps, by a stable index given once in arrival order.
// Records live in large arenas (no malloc per packet); an index is published only after its
// entry is fully written, so readers never see half a packet. Never reuses or compacts indices.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "common/frame_sink.hpp"
#include "common/clock.hpp"
#include "common/texts.hpp"
#include "common/types.hpp"
#include "packets/filter_seam.hpp"
#include "packets/record.hpp"

namespace vormelt {

// Indices 0..1,000,000. The limit test in Insert comes before the count moves on, so the
// packet that brings the count to the limit is followed by one more: 1,000,001 packets in all.
inline constexpr std::int32_t kStoreCapacity = 1'000'001;

enum class InsertOutcome : std::uint8_t {
  Stored,
  FilteredOut,       // the filter rejected the frame: nothing counted, no row
  OutOfMemory,       // no arena space for the record
  ListFull,          // no memory for the row table: nothing stored
  ItemLimitReached,  // stored at the last index, or refused because that index is taken
};

class PacketStore final : public FrameSink {
 public:
  // `capacity` is the number of indices; the item limit is capacity - 1. Smaller values exist
  // for tests of the limit; the program uses the default.
  explicit PacketStore(std::int32_t capacity = kStoreCapacity);
  ~PacketStore() override;
  PacketStore(const PacketStore&) = delete;
  PacketStore& operator=(const PacketStore&) = delete;

  // Receive thread. The time text is the frame's own (a dump file's) or its capture time
  // formatted now with the current template.
  InsertOutcome Insert(const FrameRecord& frame);

  // FrameSink: Insert, with its outcome mapped to the capture loop's verdict.
  SinkVerdict Take(const FrameRecord& frame) override;
  bool IsFull() const override;

  // The filter asked for each frame while it is Enabled(); null asks nobody. Not owned: the
  // owner keeps it alive until it sets another one (or null) here.
  void SetFilter(PacketFilterSeam* filter);
  // The date/time template for the time texts of packets inserted from now on.
  void SetDateTimeTemplate(std::string dateTimeTemplate);

  // Window thread. Frees every record except the one at the last index, which keeps its
  // record and time text (long-standing behaviour the lookup rule depends on); empties the rows.
  void Clear();
  // The same for a caller that holds Lock() (`held`): one that must clear exactly what it has
  // read, with no insert slipping in between (the logger's clear-after-log).
  void Clear(const std::unique_lock<std::mutex>& held);
  // Removes one packet's row; its index stays given and lookups of it fail from now on. The
  // record's memory is returned at the next Clear. False when the index is not present.
  bool Delete(std::int32_t index);
  // Removes several at once with one pass over the rows; returns how many were present.
  std::size_t DeleteMany(std::span<const std::int32_t> indices);

  // Lookups: safe while the receive thread inserts. A PacketRef (and the filter texts) stays
  // valid until the next Clear; a thread other than the one that clears holds Lock() meanwhile.
  bool IsPresent(std::int32_t index) const;
  PacketRef Get(std::int32_t index) const;  // frame == nullptr when not present
  // Get, or the record of a row deleted since the last Clear (records stay until then): what
  // a save of every packet the store holds writes. The caller holds Lock().
  PacketRef GetHeld(std::int32_t index) const;
  // The must/must-not-contain texts of the filter that kept this packet; null when no active
  // filter was asked.
  const FilterColumnTexts* FilterTexts(std::int32_t index) const;

  // Rows: the present indices in ascending order. The window appends rows for
  // RowCount() - (rows it has) on its timer, and rebuilds when Generation() changed.
  std::size_t RowCount() const;
  std::int32_t IndexAtRow(std::size_t row) const;               // -1 when out of range
  std::optional<std::size_t> RowOfIndex(std::int32_t index) const;  // nullopt when not listed
  // Changes on Clear and Delete (anything but an append).
  std::uint64_t Generation() const;
  // Changes on Clear only: a reader that walks indices (the logger) starts again from 0.
  std::uint64_t ClearCount() const;

  // The last index is taken: the store refuses every packet until the next Clear. What a
  // "Stopped/Item Limit Reached" capture and a full dump load have in common.
  bool LimitReached() const;

  // Packets inserted since the last clear; the next index to give.
  std::int32_t ItemCount() const;
  std::int32_t Capacity() const { return capacity_; }
  // Sum of frame length + kRecordOverhead over the packets inserted since the last clear.
  std::uint64_t AllocatedMemory() const;
  // MillisecondsSinceStart() at the last clear (0 before the first): the base of rate displays.
  std::int64_t LastClearTime() const;

  // Holds off Insert, Clear and Delete while a reader on another thread uses PacketRefs.
  std::unique_lock<std::mutex> Lock() const;

 private:
  // An index's slot: null, or the packet's block (see store.cpp for its layout). Everything
  // about a packet is reached through this one pointer, so publishing it is atomic.
  using Slot = std::atomic<std::uint8_t*>;
  class Arena;

  Slot* SlotAt(std::int32_t index) const;
  Slot* EnsureSlot(std::int32_t index);
  std::uint32_t FilterTextsId(std::shared_ptr<const FilterColumnTexts> texts);
  void KeepLastRecord();
  void ClearLocked();
  void RemoveRows(std::span<const std::int32_t> sortedIndices);
  std::string_view TimeText(CaptureTime time);

  const std::int32_t capacity_;
  mutable std::mutex mutex_;
  std::unique_ptr<Arena> arena_;
  // Slots in fixed chunks, allocated on first use so an empty store costs next to nothing.
  std::vector<std::unique_ptr<Slot[]>> slotChunks_;
  std::unique_ptr<std::atomic<Slot*>[]> slotChunkTable_;
  // Row number -> index, sized to capacity on the first insert; pages are touched as used.
  std::unique_ptr<std::int32_t[]> rows_;
  std::atomic<std::size_t> rowCount_{0};
  std::atomic<std::int32_t> itemCount_{0};
  std::atomic<std::uint64_t> allocatedMemory_{0};
  std::atomic<std::int64_t> lastClearTime_{0};
  std::atomic<std::uint64_t> generation_{0};
  std::atomic<std::uint64_t> clearCount_{0};
  std::atomic<PacketFilterSeam*> filter_{nullptr};
  std::string dateTimeTemplate_;
  // The last time text made, and the millisecond it was made for.
  std::int64_t lastTimeMillisecond_ = 0;
  LocalTime lastFields_{};
  std::array<char, 255> lastTimeText_{};
  std::size_t lastTimeLength_ = 0;
  bool timeTextValid_ = false;
  bool lastIndexFilled_ = false;  // the last index was stored since the last clear
  // Distinct filter column texts since the last clear; a block holds a 1-based id into it.
  std::vector<std::shared_ptr<const FilterColumnTexts>> filterTexts_;
  // Blocks of deleted rows by index, until the next Clear.
  std::unordered_map<std::int32_t, const std::uint8_t*> deletedBlocks_;
  // The last index's block, copied out of the arena by Clear so it survives it.
  std::unique_ptr<std::uint8_t[]> keptLastBlock_;
};

// What the user is told when the limit cut the input off: with the count of packets not taken,
// or, when that is unknown (a live capture simply stopped), that the capture stopped.
std::string StoreLimitText(std::int32_t capacity, std::optional<std::uint64_t> notTaken,
                           UiLanguage language);

}  // namespace vormelt
