// The walk looks for the next segment by its sequence number; a map from number to the first
// segment that carries it replaces the search from the head, so an out-of-order stream costs no
// more than an ordered one.
#include "filemode/reassembly.hpp"

#include <unordered_map>
#include <unordered_set>

namespace vormelt::filemode {
namespace {

std::size_t LowestSequence(const std::vector<Segment>& segments) {
  std::size_t lowest = 0;
  for (std::size_t i = 1; i < segments.size(); ++i) {
    if (segments[i].sequence < segments[lowest].sequence) lowest = i;
  }
  return lowest;
}

std::uint32_t NextExpected(const Segment& segment) {
  const std::uint64_t end = std::uint64_t{segment.sequence} + segment.payloadLength;
  return static_cast<std::uint32_t>(end > kSequenceWrap ? end - kSequenceWrap : end);
}

// The order in which segments are taken, by index.
std::vector<std::size_t> WalkOrder(const std::vector<Segment>& segments) {
  std::vector<std::size_t> order;
  if (segments.empty()) return order;
  std::unordered_map<std::uint32_t, std::size_t> firstWith;
  bool mapped = false;
  std::size_t current = LowestSequence(segments);
  // Each step takes one segment; a walk longer than the list can only be a sequence cycle.
  while (order.size() < segments.size()) {
    order.push_back(current);
    const std::uint32_t expected = NextExpected(segments[current]);
    if (current + 1 < segments.size() && segments[current + 1].sequence == expected) {
      ++current;
      continue;
    }
    if (!mapped) {
      for (std::size_t i = 0; i < segments.size(); ++i) firstWith.emplace(segments[i].sequence, i);
      mapped = true;
    }
    const auto found = firstWith.find(expected);
    if (found == firstWith.end()) break;
    current = found->second;
  }
  return order;
}

// True when the walk takes every segment in arrival order and their payloads lie back to back:
// the stream's buffer is then already the data, and it is handed over instead of copied.
bool InPlace(const Stream& stream, const std::vector<std::size_t>& order) {
  if (order.size() != stream.segments.size()) return false;
  std::size_t expected = 0;
  for (std::size_t i = 0; i < order.size(); ++i) {
    const Segment& s = stream.segments[i];
    if (order[i] != i || s.offset != expected) return false;
    expected += s.payloadLength;
  }
  return expected == stream.bytes.size();
}

}  // namespace

void DropEarlierDuplicates(Stream& stream) {
  std::vector<Segment>& segments = stream.segments;
  std::vector<Segment> kept;
  kept.reserve(segments.size());
  for (std::size_t i = 0; i < segments.size(); ++i) {
    if (i + 1 < segments.size() && segments[i].sequence == segments[i + 1].sequence) continue;
    kept.push_back(segments[i]);
  }
  segments.swap(kept);
}

Assembled Assemble(Stream& stream) {
  Assembled result;
  const std::vector<std::size_t> order = WalkOrder(stream.segments);
  if (InPlace(stream, order)) {
    result.data = std::move(stream.bytes);
    return result;
  }
  std::size_t total = 0;
  for (const std::size_t i : order) total += stream.segments[i].payloadLength;
  result.data.reserve(total);
  std::unordered_set<std::uint32_t> taken;
  for (const std::size_t i : order) {
    const Segment& s = stream.segments[i];
    const auto* payload = stream.bytes.data() + s.offset;
    result.data.insert(result.data.end(), payload, payload + s.payloadLength);
    taken.insert(s.sequence);
  }
  if (order.size() != stream.segments.size()) {
    for (const Segment& s : stream.segments) {
      if (!taken.contains(s.sequence)) result.gapFree = false;
    }
  }
  return result;
}

}  // namespace vormelt::filemode
