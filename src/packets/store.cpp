// PacketStore: arenas of packet blocks, slots that publish them, and the row table.
// Insert is the receive thread's hot path: one bump allocation, two copies, no per-packet heap.
// Must never hand a reader a slot before the block behind it is complete.
#include "packets/store.hpp"

#include <sys/mman.h>

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <system_error>
#include <thread>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

#include "common/clock.hpp"
#include "packets/format.hpp"

namespace vormelt {
namespace {

// A packet's block in the arena:
//   [prefix: frame length u32, filter texts id u32, time text length u16, 2 spare,
//            capture time i64 ns (capture files written from the store keep it)]
//   [record: 0, frame, kind byte, zeroed reserve — frame length + kRecordOverhead bytes]
//   [time text, not NUL-terminated]
// The slot points at the prefix, so one atomic pointer carries everything about the packet.
constexpr std::size_t kPrefixSize = 20;
constexpr std::size_t kBlockAlignment = 4;
constexpr std::size_t kArenaChunkSize = 1u << 20;
constexpr std::size_t kPageSize = 4096;
constexpr std::int32_t kSlotsPerChunk = 1 << 16;

struct BlockView {
  std::uint32_t frameLength;
  std::uint32_t filterTextsId;
  std::uint16_t timeLength;
  std::int64_t timeNs;
  const std::uint8_t* frame;
  const char* time;
};

BlockView ReadBlock(const std::uint8_t* block) {
  BlockView view{};
  std::memcpy(&view.frameLength, block, 4);
  std::memcpy(&view.filterTextsId, block + 4, 4);
  std::memcpy(&view.timeLength, block + 8, 2);
  std::memcpy(&view.timeNs, block + 12, 8);
  view.frame = block + kPrefixSize + 1;
  view.time = reinterpret_cast<const char*>(block + kPrefixSize + view.frameLength +
                                            kRecordOverhead);
  return view;
}

std::size_t BlockSize(std::uint32_t frameLength, std::size_t timeLength) {
  return kPrefixSize + frameLength + kRecordOverhead + timeLength;
}

PacketRef RefOfBlock(const std::uint8_t* block) {
  if (!block) return {};
  const BlockView view = ReadBlock(block);
  return PacketRef{view.frame, view.frameLength,
                   static_cast<InterfaceKind>(view.frame[view.frameLength]),
                   std::string_view(view.time, view.timeLength),
                   CaptureTime(std::chrono::nanoseconds(view.timeNs))};
}

std::size_t BlockSize(const std::uint8_t* block) {
  const BlockView view = ReadBlock(block);
  return BlockSize(view.frameLength, view.timeLength);
}

}  // namespace

// Bump allocation from 1 MiB chunks. Blocks are never freed one by one; Reset frees them all.
// Each chunk is mapped with MAP_POPULATE: the kernel faults in and zeroes its 4 KiB pages in one
// call. Measured over 8 runs each on a 126 MB capture (100,000 packets), system time per run
// was 0.12-0.15 s this way, 0.12-0.17 s faulting page by page, and 0.04-0.47 s with huge pages
// (madvised, faulted or populated): a huge page takes a free 2 MiB block, which on a virtual
// machine is often memory the host has not backed yet (or, when memory is fragmented, one the
// kernel compacts first), so huge pages are fast at best and several times slower at worst.
// No compaction stall was counted in those runs; the spread came from the faults themselves.
//
// That populating is a fifth of the cost of storing a packet, so it is done ahead, off the
// inserting thread: once the current chunk is half used, a helper thread maps and populates the
// next one, and the receive thread only swaps it in. At most one chunk waits ready, which keeps
// the memory held beyond the packets to a few megabytes.
class PacketStore::Arena {
 public:
  ~Arena() {
    if (!preparer_.joinable()) return;
    {
      std::lock_guard lock(mutex_);
      stopping_ = true;
    }
    changed_.notify_all();
    preparer_.join();
  }

  // Null when the system has no memory left.
  std::uint8_t* Allocate(std::size_t size) {
    size = (size + kBlockAlignment - 1) & ~(kBlockAlignment - 1);
    if (chunks_.empty() || used_ + size > chunks_.back().size) {
      if (!AddChunk(std::max(size, kArenaChunkSize))) return nullptr;
    }
    std::uint8_t* block = chunks_.back().memory + used_;
    used_ += size;
    if (!nextRequested_ && used_ > chunks_.back().size / 2) RequestNext();
    return block;
  }

  void Reset() {
    chunks_.clear();
    used_ = 0;
  }

 private:
  struct Chunk {
    std::uint8_t* memory;
    std::size_t size;
    Chunk(std::uint8_t* m, std::size_t s) : memory(m), size(s) {}
    Chunk(Chunk&& other) noexcept : memory(std::exchange(other.memory, nullptr)), size(other.size) {}
    Chunk& operator=(Chunk&& other) noexcept {
      std::swap(memory, other.memory);
      size = other.size;
      return *this;
    }
    Chunk(const Chunk&) = delete;
    Chunk& operator=(const Chunk&) = delete;
    ~Chunk() {
      if (memory) munmap(memory, size);
    }
  };

  static std::optional<Chunk> MapChunk(std::size_t size) {
    size = (size + kPageSize - 1) & ~(kPageSize - 1);
    void* memory = mmap(nullptr, size, PROT_READ | PROT_WRITE,
                        MAP_PRIVATE | MAP_ANONYMOUS | MAP_POPULATE, -1, 0);
    if (memory == MAP_FAILED) return std::nullopt;
    return Chunk(static_cast<std::uint8_t*>(memory), size);
  }

  bool AddChunk(std::size_t size) {
    std::optional<Chunk> chunk = size == kArenaChunkSize ? TakePrepared() : std::nullopt;
    if (!chunk) chunk = MapChunk(size);
    if (!chunk) return false;
    try {
      chunks_.push_back(std::move(*chunk));
    } catch (const std::bad_alloc&) {
      return false;  // the chunk unmaps itself
    }
    used_ = 0;
    nextRequested_ = false;
    return true;
  }

  // The chunk the helper made ready, waiting for it when it is still being made; none when
  // none was asked for or the helper could not map one.
  std::optional<Chunk> TakePrepared() {
    if (!nextRequested_) return std::nullopt;
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return !preparing_; });
    return std::exchange(prepared_, std::nullopt);
  }

  void RequestNext() {
    nextRequested_ = true;
    {
      std::lock_guard lock(mutex_);
      if (prepared_) return;  // left over from before a Reset
      preparing_ = true;
    }
    if (!preparer_.joinable()) {
      try {
        preparer_ = std::thread([this] { PrepareChunks(); });
      } catch (const std::system_error&) {
        std::lock_guard lock(mutex_);
        preparing_ = false;  // no helper: chunks are mapped when needed
        return;
      }
    }
    changed_.notify_all();
  }

  void PrepareChunks() {
    std::unique_lock lock(mutex_);
    for (;;) {
      changed_.wait(lock, [&] { return stopping_ || preparing_; });
      if (stopping_) return;
      lock.unlock();
      std::optional<Chunk> chunk = MapChunk(kArenaChunkSize);
      lock.lock();
      prepared_ = std::move(chunk);
      preparing_ = false;
      changed_.notify_all();
    }
  }

  std::vector<Chunk> chunks_;
  std::size_t used_ = 0;
  bool nextRequested_ = false;  // the inserting thread's: the next chunk is asked for

  std::mutex mutex_;  // guards the three below, shared with the helper
  std::condition_variable changed_;
  bool preparing_ = false;
  bool stopping_ = false;
  std::optional<Chunk> prepared_;
  std::thread preparer_;
};

PacketStore::PacketStore(std::int32_t capacity)
    : capacity_(std::max<std::int32_t>(capacity, 2)),
      arena_(std::make_unique<Arena>()),
      dateTimeTemplate_("%Y.%MY.%D - %H24:%MN:%S.%MS") {
  const std::size_t chunkCount = (capacity_ + kSlotsPerChunk - 1) / kSlotsPerChunk;
  slotChunks_.resize(chunkCount);
  slotChunkTable_ = std::make_unique<std::atomic<Slot*>[]>(chunkCount);
}

PacketStore::~PacketStore() = default;

PacketStore::Slot* PacketStore::SlotAt(std::int32_t index) const {
  if (index < 0 || index >= capacity_) return nullptr;
  Slot* chunk = slotChunkTable_[index / kSlotsPerChunk].load(std::memory_order_acquire);
  return chunk ? chunk + index % kSlotsPerChunk : nullptr;
}

// Under the lock. Throws std::bad_alloc when a new chunk cannot be had.
PacketStore::Slot* PacketStore::EnsureSlot(std::int32_t index) {
  const std::size_t chunkIndex = index / kSlotsPerChunk;
  if (!slotChunks_[chunkIndex]) {
    slotChunks_[chunkIndex] = std::make_unique<Slot[]>(kSlotsPerChunk);
    slotChunkTable_[chunkIndex].store(slotChunks_[chunkIndex].get(), std::memory_order_release);
  }
  return slotChunks_[chunkIndex].get() + index % kSlotsPerChunk;
}

// Under the lock. Rows of one filter share its texts: only a change of filter adds an entry.
std::uint32_t PacketStore::FilterTextsId(std::shared_ptr<const FilterColumnTexts> texts) {
  if (!texts) return 0;
  if (filterTexts_.empty() || filterTexts_.back() != texts) filterTexts_.push_back(std::move(texts));
  return static_cast<std::uint32_t>(filterTexts_.size());
}

InsertOutcome PacketStore::Insert(const FrameRecord& record) {
  std::span<const std::uint8_t> frame = record.bytes;
  const InterfaceKind kind = record.kind;
  if (frame.size() > kMaxFrameLength) frame = frame.first(kMaxFrameLength);
  const auto frameLength = static_cast<std::uint32_t>(frame.size());

  // The filter reads the frame exactly as it will be stored, spare bytes included; a scratch
  // record keeps rejected frames out of the arena altogether.
  std::shared_ptr<const FilterColumnTexts> texts;
  if (PacketFilterSeam* filter = filter_.load(std::memory_order_acquire);
      filter && filter->Enabled()) {
    thread_local std::vector<std::uint8_t> scratch;
    scratch.resize(frameLength + kRecordOverhead);
    const std::uint8_t* laidOut = LayOutRecord(scratch.data(), frame, kind);
    if (!filter->Passes(laidOut, frameLength)) return InsertOutcome::FilteredOut;
    texts = filter->ColumnTexts();
  }

  std::lock_guard lock(mutex_);
  const std::int32_t index = itemCount_.load(std::memory_order_relaxed);
  const bool atLimit = index >= capacity_ - 1;
  if (atLimit && lastIndexFilled_) return InsertOutcome::ItemLimitReached;

  Slot* slot = nullptr;
  try {
    slot = EnsureSlot(index);
    if (!rows_) rows_ = std::make_unique_for_overwrite<std::int32_t[]>(capacity_);
  } catch (const std::bad_alloc&) {
    return slot ? InsertOutcome::ListFull : InsertOutcome::OutOfMemory;
  }

  const std::string_view timeText =
      record.timeText.empty() ? TimeText(record.time) : record.timeText.substr(0, 0xFFFF);
  const std::size_t timeLength = timeText.size();
  std::uint8_t* block = arena_->Allocate(BlockSize(frameLength, timeLength));
  if (!block) return InsertOutcome::OutOfMemory;

  const std::uint32_t textsId = FilterTextsId(std::move(texts));
  const auto storedTimeLength = static_cast<std::uint16_t>(timeLength);
  std::memcpy(block, &frameLength, 4);
  std::memcpy(block + 4, &textsId, 4);
  std::memcpy(block + 8, &storedTimeLength, 2);
  block[10] = block[11] = 0;
  const std::int64_t timeNs = record.time.time_since_epoch().count();
  std::memcpy(block + 12, &timeNs, 8);
  LayOutRecord(block + kPrefixSize, frame, kind);
  std::memcpy(block + kPrefixSize + frameLength + kRecordOverhead, timeText.data(), timeLength);
  allocatedMemory_.fetch_add(frameLength + kRecordOverhead, std::memory_order_relaxed);

  // Publish: the slot first, then the row, then the count, each after what it points at.
  slot->store(block, std::memory_order_release);
  const std::size_t row = rowCount_.load(std::memory_order_relaxed);
  rows_[row] = index;
  rowCount_.store(row + 1, std::memory_order_release);

  if (atLimit) {
    lastIndexFilled_ = true;
    return InsertOutcome::ItemLimitReached;
  }
  itemCount_.store(index + 1, std::memory_order_release);
  return InsertOutcome::Stored;
}

// Under the lock. Packets arrive many to the millisecond, so the text of the last one is
// reused while the millisecond is the same.
std::string_view PacketStore::TimeText(CaptureTime time) {
  const std::int64_t millisecond =
      std::chrono::floor<std::chrono::milliseconds>(time.time_since_epoch()).count();
  if (!timeTextValid_ || millisecond != lastTimeMillisecond_) {
    // Breaking a time into local fields consults the time zone; within one second only the
    // millisecond changes, so the fields of that second are kept.
    const std::int64_t second = millisecond / 1000 - (millisecond % 1000 < 0 ? 1 : 0);
    if (!timeTextValid_ || second != lastTimeMillisecond_ / 1000 -
                                         (lastTimeMillisecond_ % 1000 < 0 ? 1 : 0)) {
      lastFields_ = ToLocalTime(time);
    }
    lastFields_.millisecond = static_cast<int>(millisecond - second * 1000);
    lastTimeLength_ = format::ExpandDateTime(dateTimeTemplate_, lastFields_, lastTimeText_.data(),
                                             lastTimeText_.size());
    lastTimeMillisecond_ = millisecond;
    timeTextValid_ = true;
  }
  return {lastTimeText_.data(), lastTimeLength_};
}

SinkVerdict PacketStore::Take(const FrameRecord& frame) {
  switch (Insert(frame)) {
    case InsertOutcome::Stored: return SinkVerdict::Stored;
    case InsertOutcome::FilteredOut: return SinkVerdict::Skipped;
    case InsertOutcome::OutOfMemory: return SinkVerdict::OutOfMemory;
    case InsertOutcome::ListFull: return SinkVerdict::ListFull;
    case InsertOutcome::ItemLimitReached: return SinkVerdict::ItemLimitReached;
  }
  return SinkVerdict::OutOfMemory;
}

bool PacketStore::IsFull() const { return ItemCount() >= capacity_ - 1; }

bool PacketStore::LimitReached() const {
  std::lock_guard lock(mutex_);
  return lastIndexFilled_;
}

std::string StoreLimitText(std::int32_t capacity, std::optional<std::uint64_t> notTaken,
                           UiLanguage language) {
  const long limit = capacity;
  if (!notTaken) return FormatText(Text::StoreLimitCaptureStopped, language, limit);
  return FormatText(Text::StoreLimitNotTaken, language, limit,
                    static_cast<unsigned long long>(*notTaken));
}

void PacketStore::SetFilter(PacketFilterSeam* filter) {
  filter_.store(filter, std::memory_order_release);
}

void PacketStore::SetDateTimeTemplate(std::string dateTimeTemplate) {
  std::lock_guard lock(mutex_);
  dateTimeTemplate_ = std::move(dateTimeTemplate);
  timeTextValid_ = false;
}

// Under the lock: the last index outlives Clear, so its block leaves the arena first, and its
// filter texts become the only ones left.
void PacketStore::KeepLastRecord() {
  Slot* slot = SlotAt(capacity_ - 1);
  std::uint8_t* block = slot ? slot->load(std::memory_order_relaxed) : nullptr;
  if (!block) {
    filterTexts_.clear();
    return;
  }
  const std::uint32_t oldId = ReadBlock(block).filterTextsId;
  std::shared_ptr<const FilterColumnTexts> texts = oldId ? filterTexts_[oldId - 1] : nullptr;
  filterTexts_.clear();
  const std::uint32_t newId = FilterTextsId(std::move(texts));
  if (block != keptLastBlock_.get()) {
    const std::size_t size = BlockSize(block);
    auto kept = std::make_unique_for_overwrite<std::uint8_t[]>(size);
    std::memcpy(kept.get(), block, size);
    keptLastBlock_ = std::move(kept);
  }
  std::memcpy(keptLastBlock_.get() + 4, &newId, 4);
  slot->store(keptLastBlock_.get(), std::memory_order_release);
}

void PacketStore::Clear() {
  std::lock_guard lock(mutex_);
  ClearLocked();
}

void PacketStore::Clear(const std::unique_lock<std::mutex>& held) {
  if (held.mutex() == &mutex_ && held.owns_lock()) ClearLocked();
}

void PacketStore::ClearLocked() {
  allocatedMemory_.store(0, std::memory_order_relaxed);
  KeepLastRecord();
  deletedBlocks_.clear();
  const std::int32_t end = std::min(itemCount_.load() + 1, capacity_ - 1);
  for (std::int32_t index = 0; index < end; ++index) {
    if (Slot* slot = SlotAt(index)) slot->store(nullptr, std::memory_order_relaxed);
  }
  rowCount_.store(0, std::memory_order_release);
  itemCount_.store(0, std::memory_order_release);
  lastIndexFilled_ = false;
  arena_->Reset();
  lastClearTime_.store(MillisecondsSinceStart(), std::memory_order_relaxed);
  clearCount_.fetch_add(1, std::memory_order_release);
  generation_.fetch_add(1, std::memory_order_release);
}

// Under the lock. `sortedIndices` ascending; one compaction pass over the rows.
void PacketStore::RemoveRows(std::span<const std::int32_t> sortedIndices) {
  const std::size_t count = rowCount_.load(std::memory_order_relaxed);
  std::size_t kept = 0;
  for (std::size_t row = 0; row < count; ++row) {
    if (std::binary_search(sortedIndices.begin(), sortedIndices.end(), rows_[row])) continue;
    rows_[kept++] = rows_[row];
  }
  rowCount_.store(kept, std::memory_order_release);
}

bool PacketStore::Delete(std::int32_t index) {
  return DeleteMany(std::span<const std::int32_t>(&index, 1)) == 1;
}

std::size_t PacketStore::DeleteMany(std::span<const std::int32_t> indices) {
  std::vector<std::int32_t> removed;
  std::lock_guard lock(mutex_);
  for (const std::int32_t index : indices) {
    Slot* slot = SlotAt(index);
    const std::uint8_t* block = slot ? slot->load(std::memory_order_relaxed) : nullptr;
    if (!block) continue;
    try {
      deletedBlocks_.emplace(index, block);
    } catch (const std::bad_alloc&) {
      // Only a later save of every held packet misses this one.
    }
    slot->store(nullptr, std::memory_order_release);
    removed.push_back(index);
  }
  if (removed.empty()) return 0;
  std::sort(removed.begin(), removed.end());
  RemoveRows(removed);
  generation_.fetch_add(1, std::memory_order_release);
  return removed.size();
}

bool PacketStore::IsPresent(std::int32_t index) const {
  const Slot* slot = SlotAt(index);
  return slot && slot->load(std::memory_order_acquire) != nullptr;
}

PacketRef PacketStore::Get(std::int32_t index) const {
  const Slot* slot = SlotAt(index);
  return RefOfBlock(slot ? slot->load(std::memory_order_acquire) : nullptr);
}

PacketRef PacketStore::GetHeld(std::int32_t index) const {
  if (const PacketRef packet = Get(index); packet.frame) return packet;
  const auto deleted = deletedBlocks_.find(index);
  return RefOfBlock(deleted == deletedBlocks_.end() ? nullptr : deleted->second);
}


const FilterColumnTexts* PacketStore::FilterTexts(std::int32_t index) const {
  const Slot* slot = SlotAt(index);
  const std::uint8_t* block = slot ? slot->load(std::memory_order_acquire) : nullptr;
  if (!block) return nullptr;
  const std::uint32_t id = ReadBlock(block).filterTextsId;
  if (id == 0) return nullptr;
  std::lock_guard lock(mutex_);
  return id <= filterTexts_.size() ? filterTexts_[id - 1].get() : nullptr;
}

std::size_t PacketStore::RowCount() const { return rowCount_.load(std::memory_order_acquire); }

std::int32_t PacketStore::IndexAtRow(std::size_t row) const {
  return row < RowCount() ? rows_[row] : -1;
}

std::optional<std::size_t> PacketStore::RowOfIndex(std::int32_t index) const {
  const std::size_t count = RowCount();
  if (count == 0) return std::nullopt;
  const std::int32_t* begin = rows_.get();
  const std::int32_t* found = std::lower_bound(begin, begin + count, index);
  if (found == begin + count || *found != index) return std::nullopt;
  return static_cast<std::size_t>(found - begin);
}

std::uint64_t PacketStore::Generation() const {
  return generation_.load(std::memory_order_acquire);
}
std::uint64_t PacketStore::ClearCount() const {
  return clearCount_.load(std::memory_order_acquire);
}
std::int32_t PacketStore::ItemCount() const { return itemCount_.load(std::memory_order_acquire); }
std::uint64_t PacketStore::AllocatedMemory() const {
  return allocatedMemory_.load(std::memory_order_relaxed);
}
std::int64_t PacketStore::LastClearTime() const {
  return lastClearTime_.load(std::memory_order_relaxed);
}
std::unique_lock<std::mutex> PacketStore::Lock() const { return std::unique_lock(mutex_); }

}  // namespace vormelt
