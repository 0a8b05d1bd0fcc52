// Pair gathering and paced replay. Frames that are neither IPv4 nor IPv6, or too short to hold
// both addresses, are skipped here and never reach the picture.
#include "graphical/gatherer.hpp"

#include <algorithm>

#include "packets/headers.hpp"

namespace vormelt::graphical {

std::optional<PairTraffic> ReadPair(const FrameRecord& frame) {
  const FrameView view(frame.bytes.data(), frame.length());
  const std::uint64_t bytes = std::max(frame.wireLength, frame.length());
  // The readable span runs into the spare bytes; the addresses must lie in captured bytes.
  if (view.etherType() == kEtherTypeIpv4) {
    if (view.networkLength() < Ipv4View::kFixedLength) return std::nullopt;
    const auto ip = Ipv4View::Parse(view.networkReadable());
    if (!ip) return std::nullopt;
    return PairTraffic{IpAddress::V4(ip->source()), IpAddress::V4(ip->destination()), 1, bytes};
  }
  if (view.etherType() == kEtherTypeIpv6) {
    if (view.networkLength() < Ipv6View::kFixedLength) return std::nullopt;
    const auto ip = Ipv6View::Parse(view.networkReadable());
    if (!ip) return std::nullopt;
    return PairTraffic{ip->source(), ip->destination(), 1, bytes};
  }
  return std::nullopt;
}

SinkVerdict PairGatherer::Take(const FrameRecord& frame) {
  const std::optional<PairTraffic> pair = ReadPair(frame);
  if (!pair) return SinkVerdict::Skipped;
  packets_.fetch_add(1, std::memory_order_relaxed);
  std::lock_guard lock(mutex_);
  const AddressPair key{pair->source, pair->destination};
  auto found = pairs_.find(key);
  if (found == pairs_.end()) {
    if (pairs_.size() >= kMaxPairsPerFrame) {
      ++overflow_;
      return SinkVerdict::Stored;
    }
    pairs_.emplace(key, *pair);
    return SinkVerdict::Stored;
  }
  found->second.packets += 1;
  found->second.bytes += pair->bytes;
  return SinkVerdict::Stored;
}

std::vector<PairTraffic> PairGatherer::Drain(std::uint64_t& overflow) {
  std::unordered_map<AddressPair, PairTraffic, AddressPairHash> taken;
  {
    std::lock_guard lock(mutex_);
    taken.swap(pairs_);
    overflow += overflow_;
    overflow_ = 0;
  }
  std::vector<PairTraffic> out;
  out.reserve(taken.size());
  for (const auto& [key, pair] : taken) out.push_back(pair);
  return out;
}

SinkVerdict PacedSink::Take(const FrameRecord& frame) {
  std::unique_lock lock(mutex_);
  for (;;) {
    if (cancelled_) return SinkVerdict::Skipped;
    if (!anchored_) {
      anchored_ = true;
      firstFrame_ = frame.time;
      firstWall_ = Clock::now();
    }
    // A frame stamped before the first (files are not always in order) goes at once.
    const auto recorded = std::max(frame.time - firstFrame_, CaptureTime::duration::zero());
    const auto due = firstWall_ + std::chrono::duration_cast<Clock::duration>(recorded / speed_);
    const std::uint64_t generation = generation_;
    if (!wake_.wait_until(lock, due, [&] { return cancelled_ || generation_ != generation; })) {
      break;  // due
    }
  }
  lock.unlock();
  return next_.Take(frame);
}

void PacedSink::SetSpeed(int speed) {
  std::lock_guard lock(mutex_);
  speed_ = std::max(1, speed);
  anchored_ = false;  // the waiting frame restarts the clock at the new pace
  ++generation_;
  wake_.notify_all();
}

void PacedSink::Cancel() {
  std::lock_guard lock(mutex_);
  cancelled_ = true;
  wake_.notify_all();
}

void PacedSink::Reset() {
  std::lock_guard lock(mutex_);
  cancelled_ = false;
  anchored_ = false;
}

}  // namespace vormelt::graphical
