// The counting rules: which packets count, what length they count with, and the order in which
// records are found, updated and created. Every slot is obtained under the lock, so a record
// replaced by one packet is never half-seen by the updater.
#include "statistics/engine.hpp"

#include <algorithm>

#include "common/wire.hpp"
#include "packets/headers.hpp"

namespace vormelt::statistics {
namespace {

// Byte counts add a link-layer header to every packet, so that they read as frame sizes.
constexpr std::int64_t kCountedLinkHeader = 14;

void TouchIp(IpRecord& record, bool from, std::int64_t bytes, std::int64_t sequence) {
  if (from) {
    record.bytesFrom += bytes;
    record.packetsFrom += 1;
  } else {
    record.bytesTo += bytes;
    record.packetsTo += 1;
  }
  record.changed = true;
  record.lastUpdate = sequence;
}

}  // namespace

StatisticsEngine::StatisticsEngine(const LocalAddressList& locals, StatisticsLimits limits)
    : locals_(locals), tables_(std::make_unique<StatisticsTables>()) {
  SetLimits(limits);
}

SinkVerdict StatisticsEngine::Take(const FrameRecord& frame) {
  const FrameView view(frame.bytes.data(), frame.length());
  if (view.etherType() == kEtherTypeIpv4) {
    CountPacket(frame.bytes.subspan(kEthernetHeaderLength));
  } else if (view.etherType() == kEtherTypeIpv6) {
    CountIpv6Packet(frame.bytes.subspan(kEthernetHeaderLength));
  } else {
    return SinkVerdict::Skipped;
  }
  // Only this thread writes the times; a reader sees each one whole. A file merged from
  // several may step back in time: the times kept are the earliest and latest seen.
  const std::int64_t ns = frame.time.time_since_epoch().count();
  const std::int64_t first = firstFrameNs_.load(std::memory_order_relaxed);
  if (first == 0 || ns < first) firstFrameNs_.store(ns, std::memory_order_relaxed);
  if (ns > newestFrameNs_.load(std::memory_order_relaxed)) {
    newestFrameNs_.store(ns, std::memory_order_relaxed);
  }
  return SinkVerdict::Stored;
}

StatisticsEngine::FrameTimes StatisticsEngine::Times() const {
  return {CaptureTime(std::chrono::nanoseconds(firstFrameNs_.load(std::memory_order_relaxed))),
          CaptureTime(std::chrono::nanoseconds(newestFrameNs_.load(std::memory_order_relaxed)))};
}

void StatisticsEngine::ResetFrameTimes() {
  firstFrameNs_.store(0, std::memory_order_relaxed);
  newestFrameNs_.store(0, std::memory_order_relaxed);
}

void StatisticsEngine::CountPacket(std::span<const std::uint8_t> received) {
  // The view spans the bytes as received, so no field is read from past them.
  if (received.size() > kMaxPacketLength) return;
  const std::optional<Ipv4View> ip = Ipv4View::Parse(received);
  if (!ip || ip->version() != 4) return;
  const std::uint8_t protocol = ip->protocol();
  const Ipv4 source = ip->source();
  const Ipv4 destination = ip->destination();

  // Only TCP trusts the header's total length over the received length (padding after a short
  // segment is not traffic); UDP and the rest count what arrived, as they always have.
  std::size_t length = received.size();
  if (protocol == kProtocolTcp) length = std::min<std::size_t>(length, ip->totalLength());

  // An IHL below 5 would put the ports inside the IP header: such a packet has none.
  const std::optional<PortsView> ports =
      ip->carriesPorts() && ip->headerLength() >= Ipv4View::kFixedLength
          ? PortsView::Parse(ip->transport())
          : std::nullopt;
  const LocalSide side = ports ? locals_.Classify(source, destination) : LocalSide::None;
  Count(IpAddress::V4(source), IpAddress::V4(destination), protocol, length, side, ports);
}

// IPv6 follows the IPv4 rules: TCP counts no more than the header's length says, and ports
// are read behind the extension headers, never from a fragment that holds no TCP or UDP header.
void StatisticsEngine::CountIpv6Packet(std::span<const std::uint8_t> received) {
  if (received.size() > kMaxIpv6PacketLength) return;
  const std::optional<Ipv6View> ip = Ipv6View::Parse(received);
  if (!ip) return;
  const Ipv6Chain chain = ip->Chain(received.size());
  std::size_t length = received.size();
  if (chain.protocol == kProtocolTcp) {
    length = std::min<std::size_t>(length, Ipv6View::kFixedLength + ip->payloadLength());
  }
  const bool carriesPorts = (chain.protocol == kProtocolTcp || chain.protocol == kProtocolUdp) &&
                            !chain.truncated && !chain.nonFirstFragment;
  const std::optional<PortsView> ports =
      carriesPorts ? PortsView::Parse(chain.transport) : std::nullopt;
  const IpAddress source = ip->source();
  const IpAddress destination = ip->destination();
  const LocalSide side = ports ? locals_.Classify(source, destination) : LocalSide::None;
  Count(source, destination, chain.protocol, length, side, ports);
}

// Flattened: one packet's lookups and updates compile as one body, as they did when addresses
// were plain integers; left to itself the compiler keeps the record steps as calls.
[[gnu::flatten]] void StatisticsEngine::Count(const IpAddress& source, const IpAddress& destination,
                             std::uint8_t protocol, std::size_t length, LocalSide side,
                             const std::optional<PortsView>& ports) {
  const std::int64_t bytes = static_cast<std::int64_t>(length) + kCountedLinkHeader;
  // The local end, if any: its address and port, and whether the packet leaves from it.
  const bool outgoing = side == LocalSide::Source;
  const IpAddress& localAddress = outgoing ? source : destination;
  const std::uint16_t localPort =
      side == LocalSide::None ? 0 : (outgoing ? ports->source() : ports->destination());
  const bool tcp = protocol == kProtocolTcp;
  // Each index key once: lookups, prefetches and new records all use them.
  const bool v4 = source.isV4();
  PacketKeys keys{AddressKey(source), AddressKey(destination), 0, 0, 0};
  keys.forward = IpPairRecord::KeyOfKeys(keys.source, keys.destination, v4);
  keys.backward = IpPairRecord::KeyOfKeys(keys.destination, keys.source, v4);
  keys.port =
      LocalPortRecord::KeyOfKeys(outgoing ? keys.source : keys.destination, localPort, tcp, v4);

  const std::int64_t sequence = sequence_.load(std::memory_order_relaxed) + 1;
  sequence_.store(sequence, std::memory_order_relaxed);

  std::lock_guard lock(mutex_);
  // The lookups below miss the cache on a busy link; start all their loads at once.
  StatisticsTables& tables = *tables_;
  tables.ip.Prefetch(keys.source);
  tables.ip.Prefetch(keys.destination);
  tables.pairs.Prefetch(keys.forward);
  tables.pairs.Prefetch(keys.backward);
  if (side != LocalSide::None) tables.ports.Prefetch(keys.port);
  CountAddresses(source, destination, keys, bytes, sequence);
  CountPairs(source, destination, keys, bytes, sequence);
  if (side != LocalSide::None) {
    CountPort(localAddress, localPort, tcp, outgoing, keys.port, bytes, sequence);
  }
  // The records the next packet would replace are known now; their loads complete while the
  // receive loop fetches that packet.
  tables.ip.PrefetchVictims(limits_.maxItems, 2);
  tables.pairs.PrefetchVictims(limits_.maxItems, 2);
  tables.ports.PrefetchVictims(limits_.maxItems, 1);
}

// Both addresses are looked up before anything is created, so a record made for the source may
// itself be the victim the destination's record replaces (with a list of one item).
void StatisticsEngine::CountAddresses(const IpAddress& source, const IpAddress& destination,
                                      const PacketKeys& keys, std::int64_t bytes,
                                      std::int64_t sequence) {
  StatTable<IpRecord>& table = tables_->ip;
  const std::int32_t sourceSlot = table.FindKeyed(keys.source, source);
  const std::int32_t destinationSlot = table.FindKeyed(keys.destination, destination);
  if (sourceSlot >= 0) {
    TouchIp(table.At(sourceSlot), true, bytes, sequence);
    table.Touched(sourceSlot);
  }
  if (destinationSlot >= 0) {
    TouchIp(table.At(destinationSlot), false, bytes, sequence);
    table.Touched(destinationSlot);
  }
  const auto create = [&](const IpAddress& address, std::uint64_t key, bool from, bool to) {
    const std::int32_t slot = table.Obtain(limits_.maxItems);
    IpRecord& record = table.At(slot);
    record = IpRecord{.address = address, .fresh = true};
    if (from) TouchIp(record, true, bytes, sequence);
    if (to) TouchIp(record, false, bytes, sequence);
    table.Commit(slot, key);
  };
  // A packet to itself has one record, which takes both directions.
  const bool self = SameAddress(source, destination);
  if (sourceSlot < 0) create(source, keys.source, true, self);
  if (destinationSlot < 0 && !self) create(destination, keys.destination, false, true);
}

void StatisticsEngine::CountPairs(const IpAddress& source, const IpAddress& destination,
                                  const PacketKeys& keys, std::int64_t bytes,
                                  std::int64_t sequence) {
  StatTable<IpPairRecord>& table = tables_->pairs;
  const std::int32_t forwardSlot = table.FindKeyed(keys.forward, source, destination);
  const std::int32_t backwardSlot = table.FindKeyed(keys.backward, destination, source);
  // sent: the record whose first address is the source; else it is the reverse record.
  const auto touch = [&](IpPairRecord& record, bool sent) {
    if (sent) {
      record.bytesFirstToSecond += bytes;
      record.packetsFirstToSecond += 1;
    } else {
      record.bytesSecondToFirst += bytes;
      record.packetsSecondToFirst += 1;
    }
    record.changed = true;
    record.lastUpdate = sequence;
  };
  if (forwardSlot >= 0) {
    touch(table.At(forwardSlot), true);
    table.Touched(forwardSlot);
  }
  if (backwardSlot >= 0) {
    touch(table.At(backwardSlot), false);
    table.Touched(backwardSlot);
  }
  const auto create = [&](const IpAddress& first, const IpAddress& second, std::uint64_t key,
                          bool sent, bool received) {
    const std::int32_t slot = table.Obtain(limits_.maxItems);
    IpPairRecord& record = table.At(slot);
    record = IpPairRecord{.first = first, .second = second, .fresh = true};
    if (sent) touch(record, true);
    if (received) touch(record, false);
    table.Commit(slot, key);
  };
  const bool self = SameAddress(source, destination);
  if (forwardSlot < 0) create(source, destination, keys.forward, true, self);
  if (backwardSlot < 0 && !self) create(destination, source, keys.backward, false, true);
}

void StatisticsEngine::CountPort(const IpAddress& address, std::uint16_t port, bool tcp,
                                 bool outgoing, std::uint64_t key, std::int64_t bytes,
                                 std::int64_t sequence) {
  StatTable<LocalPortRecord>& table = tables_->ports;
  std::int32_t slot = table.FindKeyed(key, address, port, tcp);
  const bool create = slot < 0;
  if (create) {
    slot = table.Obtain(limits_.maxItems);
    table.At(slot) = LocalPortRecord{.port = port, .address = address, .tcp = tcp, .fresh = true};
  }
  LocalPortRecord& record = table.At(slot);
  if (outgoing) {
    record.bytesOut += bytes;
    record.packetsOut += 1;
  } else {
    record.bytesIn += bytes;
    record.packetsIn += 1;
  }
  record.changed = true;
  record.lastUpdate = sequence;
  if (create) {
    table.Commit(slot, key);
  } else {
    table.Touched(slot);
  }
}

void StatisticsEngine::ClearAll() {
  std::lock_guard lock(mutex_);
  tables_->ip.Clear();
  tables_->pairs.Clear();
  tables_->ports.Clear();
}

void StatisticsEngine::SetLimits(StatisticsLimits limits) {
  limits.maxItems = std::clamp(limits.maxItems, std::int32_t{1}, kTableCapacity);
  std::lock_guard lock(mutex_);
  limits_ = limits;
  tables_->ip.Reshape(limits.maxItems, limits.policy);
  tables_->pairs.Reshape(limits.maxItems, limits.policy);
  tables_->ports.Reshape(limits.maxItems, limits.policy);
}

StatisticsLimits StatisticsEngine::Limits() const {
  std::lock_guard lock(mutex_);
  return limits_;
}

}  // namespace vormelt::statistics
