// Slots are found the way the table has always found them — the first filling slot whose key
// matches in normal mode, the key's top bits in dirty mode — but the normal search goes through
// an index instead of a walk over up to 100,000 keys, and each slot keeps its payloads in one
// buffer rather than one heap block per packet. Appending a segment is amortised constant
// time whatever the stream's length: both the bytes and the segment list grow geometrically.
#include "filemode/stream_table.hpp"

#include <algorithm>
#include <bit>
#include <new>

#include "common/owned_counter.hpp"
#include "filemode/http_response.hpp"


namespace vormelt::filemode {
namespace {

constexpr std::uint8_t kPshFlag = 0x08;
constexpr std::uint8_t kSynFlag = 0x02;
constexpr std::size_t kWordBits = 64;

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
  if (ip.size() < kMinPacketLength || ip.size() >= kMaxPacketLength) {
    return AppendResult::NotTcpData;
  }
  // Header fields come from the fixed 40 bytes that were received, whatever the total length;
  // the TCP header is read where it stands without IP options.
  const auto header = ip.first(kMinPacketLength);
  const Ipv4View ipv4 = *Ipv4View::Parse(header);
  if (ipv4.protocol() != kProtocolTcp) return AppendResult::NotTcpData;
  const ByteSpan transport = ipv4.optionlessTransport();
  const std::size_t total = ipv4.totalLength();
  if (total < ip.size()) ip = ip.first(total);
  const TcpView tcp = *TcpView::Parse(transport);
  // The payload starts behind the TCP header and the fixed 20-byte IP header.
  return Store({tcp, tcp.headerLength() + kIpHeaderLength, ipv4.sourceBytes(),
                ipv4.destinationBytes(), transport.data(), IpFamily::V4},
               ip, nowMs);
}

// IPv6 keeps the IPv4 rules: the length the header gives cuts link padding, and the TCP header
// is found behind the extension headers; a fragment or a chain cut short is no stream's data.
AppendResult StreamTable::AppendIpv6(std::span<const std::uint8_t> ip, std::int64_t nowMs) {
  if (ip.size() >= kMaxIpv6Length) return AppendResult::NotTcpData;
  const auto whole = Ipv6View::Parse(ip);
  if (!whole) return AppendResult::NotTcpData;
  const std::size_t total = Ipv6View::kFixedLength + whole->payloadLength();
  if (total < ip.size()) ip = ip.first(total);
  const auto ipv6 = Ipv6View::Parse(ip);
  if (!ipv6) return AppendResult::NotTcpData;
  const Ipv6Chain chain = ipv6->Chain(ip.size());
  if (chain.protocol != kProtocolTcp || chain.truncated || chain.nonFirstFragment) {
    return AppendResult::NotTcpData;
  }
  const auto tcp = TcpView::Parse(chain.transport);
  if (!tcp) return AppendResult::NotTcpData;
  return Store({*tcp, chain.transportOffset + tcp->headerLength(), ipv6->sourceBytes(),
                ipv6->destinationBytes(), chain.transport.data(), IpFamily::V6},
               ip, nowMs);
}

AppendResult StreamTable::Store(const SegmentHeaders& headers, std::span<const std::uint8_t> ip,
                                std::int64_t nowMs) {
  const std::uint32_t ack = headers.tcp.acknowledgement();
  if (headers.payloadStart >= ip.size() || ack == 0) return AppendResult::NotTcpData;
  if (options_.pshOnly && !(headers.tcp.flags() & kPshFlag)) return AppendResult::NotTcpData;

  std::lock_guard lock(mutex_);
  bool open = false;
  const std::uint32_t slot = FindSlot(ack, open);
  if (slot == kNoSlot) return open ? AppendResult::TableFull : AppendResult::Clash;
  try {
    if (open) {
      OpenStream(slot, ack, headers, ip, nowMs);
    } else {
      AddSegment(*slots_[slot], headers, ip, nowMs);
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

void StreamTable::AddSegment(Slot& slot, const SegmentHeaders& headers,
                             std::span<const std::uint8_t> ip, std::int64_t nowMs) {
  Stream& stream = slot.stream;
  stream.lastMs = nowMs;
  slot.lastMs = nowMs;
  if (slot.gaveUp) return;
  const auto payload = ip.subspan(headers.payloadStart);
  std::uint32_t sequence = headers.tcp.sequence();
  if (headers.tcp.flags() & kSynFlag) ++sequence;  // the SYN takes a number before the data
  const bool first = stream.segments.empty();
  if (first) ReserveDeclaredLength(stream.bytes, payload);
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
  AddOwned(memory_, memory);
  if (!options_.onlyHttp) return;
  if (first || sequence < slot.lowest) {
    slot.lowest = sequence;
    slot.lowestMayBeHttp = MayStartFileResponse(payload, options_.acceptPartial);
  }
  GiveUpIfNotHttp(slot);
}

// A response whose first segment says how long it is gets room for all of it at once:
// growing by doubling would copy a small body's bytes several times over on its way (a heap
// buffer rarely grows in place). Room is address space until it is written, and a length
// beyond kMaxDeclaredRoom only gets that much.
void StreamTable::ReserveDeclaredLength(StreamBytes& bytes, std::span<const std::uint8_t> payload) const {
  const auto http = RecognizeHttp(payload, options_.acceptPartial);
  if (!http || !http->contentLength) return;
  const std::uint64_t declared = http->bodyOffset + *http->contentLength;
  try {
    bytes.Reserve(static_cast<std::size_t>(std::min<std::uint64_t>(declared, kMaxDeclaredRoom)));
  } catch (const std::bad_alloc&) {
    // Doubling as the bytes come is the way without it.
  }
}

// A stream whose first bytes cannot start an HTTP file will never be written when only HTTP
// files count; past the grace its bytes are given back and later segments only keep it alive.
void StreamTable::GiveUpIfNotHttp(Slot& slot) {
  if (slot.lowestMayBeHttp) return;
  if (slot.stream.bytes.size() <= kNotHttpGraceBytes) return;
  AddOwned(memory_, -slot.memory);
  slot.memory = 0;
  slot.stream.bytes.Clear();
  slot.stream.segments = {};
  slot.gaveUp = true;
}

void StreamTable::OpenStream(std::uint32_t slot, std::uint32_t key,
                             const SegmentHeaders& headers, std::span<const std::uint8_t> ip,
                             std::int64_t nowMs) {
  auto s = std::make_unique<Slot>();
  s->stream.slot = slot;
  const bool v4 = headers.family == IpFamily::V4;
  s->stream.source = v4 ? IpAddress::V4Bytes(headers.source) : IpAddress::V6Bytes(headers.source);
  s->stream.destination =
      v4 ? IpAddress::V4Bytes(headers.destination) : IpAddress::V6Bytes(headers.destination);
  const PortsView ports = *PortsView::Parse({headers.ports, 4});
  s->stream.sourcePort = ports.source();
  s->stream.destinationPort = ports.destination();
  s->stream.firstMs = nowMs;
  s->key = key;
  AddSegment(*s, headers, ip, nowMs);
  if (!options_.dirty) {
    try {
      index_.emplace(key, slot);
    } catch (const std::bad_alloc&) {
      AddOwned(memory_, -s->memory);
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
  AddOwned(memory_, -s->memory);
  slots_[slot].reset();
  MarkUsed(slot, false);
  if (!options_.dirty) nextFree_ = slot;
}

void StreamTable::DiscardAll() {
  std::lock_guard lock(mutex_);
  for (std::uint32_t i = 0; i < kSlotCapacity; ++i) {
    const Slot* s = slots_[i].get();
    if (!s || !s->filling) continue;
    AddOwned(memory_, -s->memory);
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
