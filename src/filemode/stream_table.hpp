// StreamTable: the fixed table of TCP streams File Mode fills, one slot per acknowledgement
// number, and the capture-side steps that sort a packet into it. One mutex makes each step
// whole: the capture thread never appends to a stream being taken, and a slot is handed out
// again only once the stream taken from it is released. No files, no threads here.
// Memory follows what the streams hold: a slot costs a pointer until a stream opens in it, a
// stream's payloads grow in one StreamBytes, and a stream that cannot become a file (when only
// HTTP files are kept) gives its bytes up once it is clearly not one.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <unordered_map>
#include <vector>

#include "common/wire.hpp"
#include "filemode/stream_bytes.hpp"
#include "packets/headers.hpp"

namespace vormelt::filemode {

inline constexpr std::uint32_t kSlotCapacity = 100'000;  // "100,000 simultaneous files"
inline constexpr std::uint32_t kNoSlot = kSlotCapacity;
inline constexpr int kDirtySlotShift = 17;                // dirty slots 0 .. 32,767
inline constexpr std::uint32_t kMinPacketLength = 40;     // IP and TCP headers, no options
inline constexpr std::uint32_t kMaxPacketLength = kMaxIpv4PacketLength + 1;  // this long or longer is dropped
inline constexpr std::uint32_t kMaxIpv6Length = kMaxIpv6PacketLength + 1;     // the same for IPv6
inline constexpr std::uint32_t kIpHeaderLength = 20;      // the stored layout assumes no options
// What the memory display counts per segment on top of the packet itself.
inline constexpr std::int64_t kSegmentRecordBytes = 12;
// A stream whose first bytes (by sequence) are no HTTP file's status line keeps this much before
// it gives its bytes up: room for the response's first segment to arrive late.
inline constexpr std::size_t kNotHttpGraceBytes = 64 << 10;
// The most room a stream is given at once for the length its response declares.
inline constexpr std::size_t kMaxDeclaredRoom = 64 << 20;

// One stored segment: its place in the slot's byte buffer and its sequence number (that of its
// first payload byte: one past the SYN's own number when the SYN carries data).
struct Segment {
  std::uint64_t offset = 0;        // payload start in Stream::bytes
  std::uint32_t sequence = 0;
  std::uint16_t payloadLength = 0;
  std::uint16_t packetLength = 0;  // the stored IP length, for the memory display
};

// A stream as the reconstruction takes it out of its slot.
struct Stream {
  std::uint32_t slot = kNoSlot;
  StreamBytes bytes;                // payloads in arrival order
  std::vector<Segment> segments;    // arrival order
  IpAddress source, destination;  // of the first stored segment
  std::uint16_t sourcePort = 0, destinationPort = 0;
  std::int64_t firstMs = 0, lastMs = 0;  // packet clock, milliseconds since the epoch
};

struct TableOptions {
  bool dirty = false;    // "Dirty Mode (may be faster)"
  bool pshOnly = false;  // "Only watch PSH packets."
  // "Only store HTTP based file streams as files": a stream that cannot be one need not keep
  // its bytes. With "Accept partial content" a 206 answer counts as one.
  bool onlyHttp = false;
  bool acceptPartial = false;
};

// Why a packet was not stored, for counting.
enum class AppendResult : std::uint8_t {
  Stored,
  NotTcpData,       // not TCP, no payload, acknowledgement 0, or not PSH when only PSH counts
  Clash,            // dirty mode: the slot of its key holds another stream
  TableFull,
  NoMemoryAppend,   // no room for a segment of a known stream
  NoMemoryNew,      // no room to open a stream
};

class StreamTable {
 public:
  StreamTable();
  ~StreamTable();

  // Empties every slot (the Start button) and takes the options read at start.
  void Reset(TableOptions options);

  // Capture-side steps from the TCP test on: `ip` is the IPv4 (AppendIpv6: IPv6) packet as
  // received, cut here to the length its header gives; `nowMs` the packet's time.
  AppendResult Append(std::span<const std::uint8_t> ip, std::int64_t nowMs);
  AppendResult AppendIpv6(std::span<const std::uint8_t> ip, std::int64_t nowMs);

  // Takes the first stream from slot `from` on that has been quiet since before `cutoffMs` (any
  // filling stream when `everything`): its key is cleared so no later packet joins it, and the
  // slot stays held until Release.
  std::optional<Stream> TakeRipe(std::uint32_t from, std::int64_t cutoffMs, bool everything);
  // Streams still filling.
  std::uint32_t CountFilling() const;
  // Gives the slot of a taken stream back.
  void Release(std::uint32_t slot);
  // Drops every stream still filling (Stop of a live capture).
  void DiscardAll();

  std::uint32_t SlotCount() const;
  std::int64_t MemoryInUse() const { return memory_.load(std::memory_order_relaxed); }

 private:
  struct Slot;

  std::uint32_t FindSlot(std::uint32_t key, bool& open);
  void GiveUpIfNotHttp(Slot& slot);
  void ReserveDeclaredLength(StreamBytes& bytes, std::span<const std::uint8_t> payload) const;
  std::uint32_t LowestFreeSlot() const;
  void MarkUsed(std::uint32_t slot, bool used);
  // What the steps after the header checks read of one segment, whichever the family.
  struct SegmentHeaders {
    TcpView tcp;
    std::size_t payloadStart;      // from the start of the IP header
    const std::uint8_t* source;    // the address bytes in wire order
    const std::uint8_t* destination;
    const std::uint8_t* ports;     // the TCP header's first four bytes
    IpFamily family;
  };
  AppendResult Store(const SegmentHeaders& headers, std::span<const std::uint8_t> ip,
                     std::int64_t nowMs);
  void OpenStream(std::uint32_t slot, std::uint32_t key, const SegmentHeaders& headers,
                  std::span<const std::uint8_t> ip, std::int64_t nowMs);
  void AddSegment(Slot& slot, const SegmentHeaders& headers, std::span<const std::uint8_t> ip,
                  std::int64_t nowMs);

  mutable std::mutex mutex_;
  // A slot's state exists only while it holds a stream.
  std::unique_ptr<std::unique_ptr<Slot>[]> slots_;
  // Which slots hold a stream (filling or being taken), one bit each, for the lowest free slot.
  std::vector<std::uint64_t> used_;
  // Key -> slot of every filling stream: gives the slot the scan of the keys would find first,
  // as a key is held by at most one filling stream.
  std::unordered_map<std::uint32_t, std::uint32_t> index_;
  TableOptions options_;
  std::uint32_t nextFree_ = 0;
  std::uint32_t count_ = 0;
  std::uint32_t filling_ = 0;
  std::atomic<std::int64_t> memory_{0};  // changed under mutex_ only
};

}  // namespace vormelt::filemode
