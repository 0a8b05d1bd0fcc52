// The walk looks for the next segment by its sequence number; a sorted index of the numbers
// replaces the search from the head, so an out-of-order stream costs no more than an ordered
// one. Numbers are taken relative to the start; the walk ends where the next byte's number
// would pass 2^32 - 1 (the wrap cuts a stream). The rebuilt bytes reuse the stream's own buffer where they can (in
// order: handed over; only copies or overlaps left out: moved down in place), and a stream that
// must be copied gives its pages back as the copy passes them: a rebuild never holds a large
// stream twice.
#include "filemode/reassembly.hpp"

#include <algorithm>
#include <cstring>
#include <limits>

namespace vormelt::filemode {
namespace {

constexpr std::uint64_t kLastSequence = 0xFFFF'FFFFu;
// The copy gives source pages back in steps of this many bytes, not segment by segment.
constexpr std::size_t kReleaseStep = 1 << 20;

// The start: the lowest number, the first of equals in arrival order. A stream whose numbers
// cross the 2^32 wrap is cut there, as it always has been: the walk starts at its lowest number,
// which is past the wrap, and never follows a segment across it.
std::size_t StartSegment(const std::vector<Segment>& segments) {
  std::size_t lowest = 0;
  for (std::size_t i = 1; i < segments.size(); ++i) {
    if (segments[i].sequence < segments[lowest].sequence) lowest = i;
  }
  return lowest;
}

// One step of the walk: a segment, from `skip` bytes into its payload (an overlapping
// retransmission carries bytes already taken before its new ones).
struct Piece {
  std::uint32_t index;
  std::uint32_t skip;
};

class Walk {
 public:
  explicit Walk(const std::vector<Segment>& segments)
      : segments_(segments), start_(StartSegment(segments)), base_(segments[start_].sequence) {}

  std::uint64_t Relative(const Segment& s) const { return s.sequence - base_; }
  std::uint64_t End(const Segment& s) const { return Relative(s) + s.payloadLength; }

  // Follows sequence + payload length from the start: the next in arrival order when it fits,
  // else the first in arrival order that starts there, else the one reaching furthest that
  // covers the next byte; none of them ends the walk (a gap). Every step moves the next byte
  // on, so no segment is taken twice.
  std::vector<Piece> Order() {
    std::vector<Piece> order;
    std::size_t current = start_;
    order.push_back({static_cast<std::uint32_t>(current), 0});
    std::uint64_t expected = End(segments_[current]);
    for (;;) {
      if (std::uint64_t{base_} + expected > kLastSequence) break;  // the wrap cuts the stream
      std::uint64_t skip = 0;
      if (current + 1 < segments_.size() && Relative(segments_[current + 1]) == expected) {
        ++current;
      } else if (!Find(expected, current, skip)) {
        break;
      }
      order.push_back({static_cast<std::uint32_t>(current), static_cast<std::uint32_t>(skip)});
      expected = End(segments_[current]);
    }
    length_ = expected;
    return order;
  }

  // The bytes the walk covers, from the start's first.
  std::uint64_t Length() const { return length_; }

 private:
  struct Entry {
    std::uint32_t relative;
    std::uint32_t index;
    bool operator<(const Entry& other) const {
      return relative != other.relative ? relative < other.relative : index < other.index;
    }
  };

  bool Find(std::uint64_t expected, std::size_t& found, std::uint64_t& skip) {
    if (expected > std::numeric_limits<std::uint32_t>::max()) return false;  // space used up
    if (sorted_.empty()) Index();
    const Entry probe{static_cast<std::uint32_t>(expected), 0};
    const auto at = std::lower_bound(sorted_.begin(), sorted_.end(), probe);
    if (at != sorted_.end() && at->relative == expected) {
      found = at->index;
      return true;
    }
    if (at == sorted_.begin()) return false;
    const std::uint32_t reaching = furthest_[static_cast<std::size_t>(at - sorted_.begin()) - 1];
    const Segment& s = segments_[reaching];
    if (End(s) <= expected) return false;
    found = reaching;
    skip = expected - Relative(s);
    return true;
  }

  void Index() {
    sorted_.reserve(segments_.size());
    for (std::size_t i = 0; i < segments_.size(); ++i) {
      sorted_.push_back({static_cast<std::uint32_t>(Relative(segments_[i])),
                         static_cast<std::uint32_t>(i)});
    }
    std::sort(sorted_.begin(), sorted_.end());
    // furthest_[k]: of sorted_[0..k], the segment whose payload ends last (the first such in
    // this order on a tie).
    furthest_.reserve(sorted_.size());
    for (std::size_t k = 0; k < sorted_.size(); ++k) {
      const std::uint32_t index = sorted_[k].index;
      furthest_.push_back(k == 0 || End(segments_[index]) > End(segments_[furthest_.back()])
                              ? index : furthest_.back());
    }
  }

  const std::vector<Segment>& segments_;
  std::size_t start_;
  std::uint32_t base_;
  std::uint64_t length_ = 0;
  std::vector<Entry> sorted_;
  std::vector<std::uint32_t> furthest_;
};

std::uint64_t PieceOffset(const std::vector<Segment>& segments, const Piece& piece) {
  return segments[piece.index].offset + piece.skip;
}
std::size_t PieceLength(const std::vector<Segment>& segments, const Piece& piece) {
  return segments[piece.index].payloadLength - piece.skip;
}

// The rebuilt bytes from the pieces, in the stream's own buffer when the pieces lie in it in
// order (each then moves down or stays), else in a new one.
StreamBytes Gather(Stream& stream, const std::vector<Piece>& order, std::uint64_t length) {
  const std::vector<Segment>& segments = stream.segments;
  bool ascending = true;
  for (std::size_t i = 1; i < order.size() && ascending; ++i) {
    ascending = PieceOffset(segments, order[i]) >=
                PieceOffset(segments, order[i - 1]) + PieceLength(segments, order[i - 1]);
  }
  if (ascending) {
    std::size_t out = 0;
    for (const Piece& piece : order) {
      const std::uint64_t from = PieceOffset(segments, piece);
      const std::size_t n = PieceLength(segments, piece);
      if (from != out) std::memmove(stream.bytes.data() + out, stream.bytes.data() + from, n);
      out += n;
    }
    stream.bytes.Truncate(out);
    return std::move(stream.bytes);
  }
  // Out of order: copied. Once no piece still to come lies below a point of the old buffer,
  // its pages before that point are given back.
  std::vector<std::uint64_t> lowestAhead(order.size() + 1, stream.bytes.size());
  for (std::size_t i = order.size(); i-- > 0;) {
    lowestAhead[i] = std::min(lowestAhead[i + 1], PieceOffset(segments, order[i]));
  }
  StreamBytes data;
  data.Reserve(static_cast<std::size_t>(length));
  std::uint64_t released = 0;
  for (std::size_t i = 0; i < order.size(); ++i) {
    data.Append({stream.bytes.data() + PieceOffset(segments, order[i]),
                 PieceLength(segments, order[i])});
    if (lowestAhead[i + 1] >= released + kReleaseStep) {
      released = lowestAhead[i + 1];
      stream.bytes.ReleaseBelow(static_cast<std::size_t>(released));
    }
  }
  stream.bytes.Clear();
  return data;
}

}  // namespace

void DropEarlierDuplicates(Stream& stream) {
  std::vector<Segment>& segments = stream.segments;
  std::size_t kept = 0;
  for (std::size_t i = 0; i < segments.size(); ++i) {
    if (i + 1 < segments.size() && segments[i].sequence == segments[i + 1].sequence) continue;
    segments[kept++] = segments[i];
  }
  segments.resize(kept);
}

Assembled Assemble(Stream& stream) {
  Assembled result;
  if (stream.segments.empty()) return result;
  Walk walk(stream.segments);
  const std::vector<Piece> order = walk.Order();
  // Whole when every stored segment's bytes lie inside what the walk covered: a retransmission
  // or a copy of bytes already held leaves nothing out.
  for (const Segment& s : stream.segments) {
    if (walk.End(s) > walk.Length()) result.gapFree = false;
  }
  result.data = Gather(stream, order, walk.Length());
  stream.segments = {};
  return result;
}

}  // namespace vormelt::filemode
