// Slots are found the way the table has always found them — the first filling slot whose key
// matches in normal mode, the key's top bits in dirty mode — but the normal search goes through
// an index instead of a walk over up to 100,000 keys, and each slot keeps its payloads in one
// buffer rather than one heap block per packet. Appending a segment is amortised constant
// time whatever the stream's length: both the bytes and the segment list grow geometrically.
#include "filemode/stream_table.hpp"

#include <algorithm>
#include <bit>
#include <new>

#include "common/byte_order.hpp"
#include "filemode/http_response.hpp"


namespace vormelt::filemode {
namespace {

constexpr std::size_t kProtocolOffset = 9;
constexpr std::size_t kTotalLengthOffset = 2;
constexpr std::size_t kSourceOffset = 12;
constexpr std::size_t kDestinationOffset = 16;
constexpr std::size_t kSourcePortOffset = 20;
constexpr std::size_t kDestinationPortOffset = 22;
constexpr std::size_t kSequenceOffset = 24;
constexpr std::size_t kAckOffset = 28;
constexpr std::size_t kDataOffsetOffset = 32;
constexpr std::size_t kFlagsOffset = 33;
constexpr std::uint8_t kTcpProtocol = 6;
constexpr std::uint8_t kPshFlag = 0x08;
constexpr std::uint8_t kSynFlag = 0x02;
constexpr std::size_t kWordBits = 64;

// Fields are read from the first 40 bytes as received, never from past the cut length.
std::uint32_t Read32(std::span<const std::uint8_t> header, std::size_t at) {
  return ReadBe32(header.subspan(at, 4).data());
}
std::uint16_t Read16(std::span<const std::uint8_t> header, std::size_t at) {
  return ReadBe16(header.subspan(at, 2).data());
}

// TCP header length plus the fixed 20-byte IP header: where the payload starts.
std::size_t HeaderLength(std::span<const std::uint8_t> header) {
  return static_cast<std::size_t>(header[kDataOffsetOffset] >> 4) * 4 + kIpHeaderLength;
}

}  // namespace

struct StreamTable::Slot {
  bool filling = true;  // segments may still join (false once taken)
  bool gaveUp = false;  // not an HTTP file: its segments are counted, not kept
  std::uint32_t key = 0;
  std::int64_t lastMs = 0;
  std::int64_t memory = 0;
  Stream stream;
  // The lowest sequence number so far, where the rebuild starts, and whether its payload may
  // open a file.
  std::uint32_t lowest = 0;
  bool lowestMayBeHttp = false;
};

StreamTable::StreamTable()
    : slots_(std::make_unique<std::unique_ptr<Slot>[]>(kSlotCapacity)),
      used_((kSlotCapacity + kWordBits - 1) / kWordBits, 0) {}

StreamTable::~StreamTable() = default;

void StreamTable::Reset(TableOptions options) {
  std::lock_guard lock(mutex_);
  // Only the slots marked used hold anything; the rest are already empty.
  for (std::size_t word = 0; word < used_.size(); ++word) {
    for (std::uint64_t bits = used_[word]; bits != 0; bits &= bits - 1) {
      slots_[word * kWordBits + static_cast<std::size_t>(std::countr_zero(bits))].reset();
    }
  }
  std::fill(used_.begin(), used_.end(), 0);
  index_.clear();
  options_ = options;
  nextFree_ = 0;
  count_ = 0;
  filling_ = 0;
  memory_.store(0, std::memory_order_relaxed);
}

AppendResult StreamTable::Append(std::span<const std::uint8_t> ip, std::int64_t nowMs) {
  if (ip.size() < kMinPacketLength || ip.size() >= kMaxPacketLength ||
      ip[kProtocolOffset] != kTcpProtocol) {
    return AppendResult::NotTcpData;
  }
  // Header fields come from the fixed 40 bytes that were received, whatever the total length.
  const auto header = ip.first(kMinPacketLength);
  const std::size_t total = Read16(header, kTotalLengthOffset);
  if (total < ip.size()) ip = ip.first(total);
  const std::size_t headerLength = HeaderLength(header);
  const std::uint32_t ack = Read32(header, kAckOffset);
  if (headerLength >= ip.size() || ack == 0) return AppendResult::NotTcpData;
  if (options_.pshOnly && !(header[kFlagsOffset] & kPshFlag)) return AppendResult::NotTcpData;

  std::lock_guard lock(mutex_);
  bool open = false;
  const std::uint32_t slot = FindSlot(ack, open);
  if (slot == kNoSlot) return open ? AppendResult::TableFull : AppendResult::Clash;
  try {
    if (open) {
      OpenStream(slot, ack, header, ip, nowMs);
    } else {
      AddSegment(*slots_[slot], header, ip, nowMs);
    }
  } catch (const std::bad_alloc&) {
    return open ? AppendResult::NoMemoryNew : AppendResult::NoMemoryAppend;
  }
  return AppendResult::Stored;
}

// The slot for `key`; `open` tells whether a new stream is to be opened there. kNoSlot with
// `open` set means the table is full, without it a dirty-mode clash.
std::uint32_t StreamTable::FindSlot(std::uint32_t key, bool& open) {
  if (options_.dirty) {
    const std::uint32_t slot = key >> kDirtySlotShift;
    const Slot* s = slots_[slot].get();
    if (!s) {
      open = true;
      return slot;
    }
    // A different key, or the stream being taken: the packet is lost, never a second stream.
    return s->filling && s->key == key ? slot : kNoSlot;
  }
  if (const auto found = index_.find(key); found != index_.end()) return found->second;
  open = true;
  return nextFree_;
}

void StreamTable::AddSegment(Slot& slot, std::span<const std::uint8_t> header,
                             std::span<const std::uint8_t> ip, std::int64_t nowMs) {
  Stream& stream = slot.stream;
  stream.lastMs = nowMs;
  slot.lastMs = nowMs;
  if (slot.gaveUp) return;
  const auto payload = ip.subspan(HeaderLength(header));
  std::uint32_t sequence = Read32(header, kSequenceOffset);
  if (header[kFlagsOffset] & kSynFlag) ++sequence;  // the SYN takes a number before the data
  const bool first = stream.segments.empty();
  const std::size_t offset = stream.bytes.size();
  stream.bytes.Append(payload);
  try {
    stream.segments.push_back({offset, sequence, static_cast<std::uint16_t>(payload.size()),
                               static_cast<std::uint16_t>(ip.size())});
  } catch (const std::bad_alloc&) {
    stream.bytes.Truncate(offset);
    throw;
  }
  const std::int64_t memory = static_cast<std::int64_t>(ip.size()) + kSegmentRecordBytes;
  slot.memory += memory;
  memory_.fetch_add(memory, std::memory_order_relaxed);
  if (!options_.onlyHttp) return;
  if (first || sequence < slot.lowest) {
    slot.lowest = sequence;
    slot.lowestMayBeHttp = MayStartFileResponse(payload, options_.acceptPartial);
  }
  GiveUpIfNotHttp(slot);
}

// A stream whose first bytes cannot start an HTTP file will never be written when only HTTP
// files count; past the grace its bytes are given back and later segments only keep it alive.
void StreamTable::GiveUpIfNotHttp(Slot& slot) {
  if (slot.lowestMayBeHttp) return;
  if (slot.stream.bytes.size() <= kNotHttpGraceBytes) return;
  memory_.fetch_sub(slot.memory, std::memory_order_relaxed);
  slot.memory = 0;
  slot.stream.bytes.Clear();
  slot.stream.segments = {};
  slot.gaveUp = true;
}

void StreamTable::OpenStream(std::uint32_t slot, std::uint32_t key,
                             std::span<const std::uint8_t> header,
                             std::span<const std::uint8_t> ip, std::int64_t nowMs) {
  auto s = std::make_unique<Slot>();
  s->stream.slot = slot;
  s->stream.source = Read32(header, kSourceOffset);
  s->stream.destination = Read32(header, kDestinationOffset);
  s->stream.sourcePort = Read16(header, kSourcePortOffset);
  s->stream.destinationPort = Read16(header, kDestinationPortOffset);
  s->stream.firstMs = nowMs;
  s->key = key;
  AddSegment(*s, header, ip, nowMs);
  if (!options_.dirty) {
    try {
      index_.emplace(key, slot);
    } catch (const std::bad_alloc&) {
      memory_.fetch_sub(s->memory, std::memory_order_relaxed);
      throw;
    }
  }
  slots_[slot] = std::move(s);
  ++filling_;
  MarkUsed(slot, true);
  if (options_.dirty) {
    // Strictly greater, on purpose: a slot equal to the count stays unscanned until a higher
    // slot raises the count (the end of a file takes it anyway). Dirty mode trades such
    // corners for speed, and its results must stay the same from run to run.
    if (slot > count_) count_ = slot + 1;
    return;
  }
  nextFree_ = LowestFreeSlot();
  if (nextFree_ > count_) count_ = nextFree_;
}

std::uint32_t StreamTable::LowestFreeSlot() const {
  for (std::size_t word = 0; word < used_.size(); ++word) {
    if (used_[word] == ~std::uint64_t{0}) continue;
    const auto slot = static_cast<std::uint32_t>(word * kWordBits + std::countr_one(used_[word]));
    return slot < kSlotCapacity ? slot : kNoSlot;
  }
  return kNoSlot;
}

void StreamTable::MarkUsed(std::uint32_t slot, bool used) {
  const std::uint64_t bit = std::uint64_t{1} << (slot % kWordBits);
  if (used) {
    used_[slot / kWordBits] |= bit;
  } else {
    used_[slot / kWordBits] &= ~bit;
  }
}

std::optional<Stream> StreamTable::TakeRipe(std::uint32_t from, std::int64_t cutoffMs,
                                            bool everything) {
  std::lock_guard lock(mutex_);
  // The end of a file looks past the count too: a dirty slot equal to the count is never in
  // the passes' range, but a file has no later packets to wait for.
  const std::uint32_t end = everything ? kSlotCapacity : std::min(count_, kSlotCapacity);
  for (std::uint32_t i = from; i < end; ++i) {
    // Whole words of empty slots are passed over without touching the slots themselves.
    if (used_[i / kWordBits] >> (i % kWordBits) == 0) {
      i = static_cast<std::uint32_t>((i / kWordBits + 1) * kWordBits - 1);
      continue;
    }
    Slot* s = slots_[i].get();
    if (!s || !s->filling || (!everything && s->lastMs >= cutoffMs)) continue;
    s->filling = false;
    --filling_;
    if (!options_.dirty) index_.erase(s->key);
    s->key = 0;
    return std::move(s->stream);
  }
  return std::nullopt;
}

std::uint32_t StreamTable::CountFilling() const {
  std::lock_guard lock(mutex_);
  return filling_;
}

void StreamTable::Release(std::uint32_t slot) {
  if (slot >= kSlotCapacity) return;
  std::lock_guard lock(mutex_);
  const Slot* s = slots_[slot].get();
  if (!s || s->filling) return;
  memory_.fetch_sub(s->memory, std::memory_order_relaxed);
  slots_[slot].reset();
  MarkUsed(slot, false);
  if (!options_.dirty) nextFree_ = slot;
}

void StreamTable::DiscardAll() {
  std::lock_guard lock(mutex_);
  for (std::uint32_t i = 0; i < kSlotCapacity; ++i) {
    const Slot* s = slots_[i].get();
    if (!s || !s->filling) continue;
    memory_.fetch_sub(s->memory, std::memory_order_relaxed);
    slots_[i].reset();
    MarkUsed(i, false);
  }
  index_.clear();
  filling_ = 0;
  nextFree_ = LowestFreeSlot();
}

std::uint32_t StreamTable::SlotCount() const {
  std::lock_guard lock(mutex_);
  return count_;
}

}  // namespace vormelt::filemode
