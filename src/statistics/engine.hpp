// StatisticsEngine: counts every IPv4 and IPv6 packet it is handed into the three tables, as a
// FrameSink for the capture loop (live or from a file). One lock guards the tables: the receive
// thread holds it for one packet, readers (the window's updater, the command line, saving) for
// one pass through WithTables. Nothing is allocated per packet.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>

#include "common/frame_sink.hpp"
#include "packets/headers.hpp"
#include "statistics/local_addresses.hpp"
#include "statistics/tables.hpp"

namespace vormelt::statistics {

// The largest buffer counted; anything longer cannot be one IP datagram (no IPv6 jumbograms).
inline constexpr std::size_t kMaxPacketLength = kMaxIpv4PacketLength;

struct StatisticsLimits {
  std::int32_t maxItems = 256;  // 1 .. kTableCapacity, the same for every table
  VictimPolicy policy = VictimPolicy::LongestAgo;
};

class StatisticsEngine final : public FrameSink {
 public:
  // `locals` decides which packets have a local port; it must outlive the engine.
  explicit StatisticsEngine(const LocalAddressList& locals, StatisticsLimits limits = {});

  // FrameSink: counts the frame's IPv4 or IPv6 packet; frames of other EtherTypes are skipped.
  SinkVerdict Take(const FrameRecord& frame) override;

  // One received IPv4 (CountIpv6Packet: IPv6) datagram, its size being the length as received.
  void CountPacket(std::span<const std::uint8_t> ipPacket);
  void CountIpv6Packet(std::span<const std::uint8_t> ipPacket);
  // Empties every table (the window asks the user first).
  void ClearAll();
  // Takes effect for the next record that needs a slot; `maxItems` is clamped to 1 .. capacity.
  void SetLimits(StatisticsLimits limits);
  StatisticsLimits Limits() const;

  // Packets counted since the engine was made (the last sequence number given).
  std::int64_t PacketSequence() const { return sequence_.load(std::memory_order_relaxed); }

  // The earliest and the latest capture time of the frames taken since ResetFrameTimes (zero
  // before any): a capture file's rates go by the time it recorded, not by how fast it is read.
  struct FrameTimes {
    CaptureTime first{}, newest{};
  };
  FrameTimes Times() const;
  // Before a capture starts (none runs): its frames are timed afresh.
  void ResetFrameTimes();

  // Runs `visit(StatisticsTables&)` under the statistics lock and returns what it returns. The
  // updater clears the changed and new flags here; keep the visit short, the receive thread waits.
  template <typename Visit>
  decltype(auto) WithTables(Visit&& visit) {
    std::lock_guard lock(mutex_);
    return visit(*tables_);
  }
  template <typename Visit>
  decltype(auto) WithTables(Visit&& visit) const {
    std::lock_guard lock(mutex_);
    return visit(static_cast<const StatisticsTables&>(*tables_));
  }

 private:
  void Count(const IpAddress& source, const IpAddress& destination, std::uint8_t protocol,
             std::size_t length, LocalSide side, const std::optional<PortsView>& ports);
  // One packet's index keys: its two addresses, the pair both ways, and its local port.
  struct PacketKeys {
    std::uint64_t source, destination, forward, backward, port;
  };
  void CountAddresses(const IpAddress& source, const IpAddress& destination,
                      const PacketKeys& keys, std::int64_t bytes, std::int64_t sequence);
  void CountPairs(const IpAddress& source, const IpAddress& destination, const PacketKeys& keys,
                  std::int64_t bytes, std::int64_t sequence);
  void CountPort(const IpAddress& address, std::uint16_t port, bool tcp, bool outgoing,
                 std::uint64_t key, std::int64_t bytes, std::int64_t sequence);

  const LocalAddressList& locals_;
  mutable std::mutex mutex_;
  std::unique_ptr<StatisticsTables> tables_;
  StatisticsLimits limits_;
  // Written only by the receive thread; atomic so that readers may look at it.
  std::atomic<std::int64_t> sequence_{0};
  std::atomic<std::int64_t> firstFrameNs_{0}, newestFrameNs_{0};
};

}  // namespace vormelt::statistics
