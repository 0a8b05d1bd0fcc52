// Rebuilding a stream from the segments of real traffic: retransmissions whole or overlapping,
// reordering, a SYN that carries data, the 2^32 wrap and gaps; what a stream that is no HTTP
// file keeps; and that a long stream costs a handful of allocations, not one per segment (the
// global operator new of this program counts them).
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>
#include <string>
#include <utility>

#include "filemode/reassembly.hpp"
#include "filemode/stream_table.hpp"
#include "support/frames.hpp"

namespace {
std::atomic<std::size_t> allocations{0};
}  // namespace

// The replacements pair malloc with free; the compiler cannot see that and would warn.
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
void* operator new(std::size_t size) {
  allocations.fetch_add(1, std::memory_order_relaxed);
  if (void* p = std::malloc(size == 0 ? 1 : size)) return p;
  throw std::bad_alloc();
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }

namespace vormelt::filemode {
namespace {

struct Piece {
  std::uint32_t sequence;
  std::string payload;
  std::uint8_t flags = test::kAck;
};

test::Bytes Packet(const Piece& piece, std::uint32_t ack = 77) {
  test::TcpHeader tcp;
  tcp.sequence = piece.sequence;
  tcp.acknowledgement = ack;
  tcp.flags = piece.flags;
  return test::TcpPacket({}, tcp, test::ToBytes(piece.payload));
}

TEST(Reassembly, RetransmissionsReorderingSynWrapAndGaps) {
  constexpr std::uint32_t kTop = 0xFFFF'FFFCu;  // four numbers before the wrap
  struct Case {
    const char* name;
    std::vector<Piece> pieces;
    std::string data;
    bool whole;
  };
  const std::vector<Case> cases = {
      {"in order", {{10, "abc"}, {13, "def"}}, "abcdef", true},
      {"reordered", {{13, "def"}, {10, "abc"}}, "abcdef", true},
      {"gap ends the data", {{10, "abc"}, {16, "ghi"}}, "abc", false},
      // A tail-loss probe resends the end of a segment that was captured coalesced.
      {"retransmitted part of a held segment", {{10, "abcdef"}, {13, "def"}}, "abcdef", true},
      {"retransmission with new bytes", {{10, "abcd"}, {12, "cdefg"}, {17, "h"}}, "abcdefgh", true},
      {"syn carries data", {{9, "ab", test::kSyn | test::kAck}, {12, "cd"}}, "abcd", true},
      // The wrap cuts a stream: the walk starts at the lowest number and never crosses 2^32.
      {"up to the wrap", {{kTop - 4, "wxyz"}, {kTop, "abcd"}}, "wxyzabcd", true},
      {"across the wrap", {{kTop, "abcd"}, {0, "efgh"}, {4, "ij"}}, "efghij", false},
  };
  for (const Case& c : cases) {
    StreamTable table;
    table.Reset({});
    for (const Piece& piece : c.pieces) ASSERT_EQ(table.Append(Packet(piece), 1), AppendResult::Stored);
    auto stream = table.TakeRipe(0, 0, true);
    ASSERT_TRUE(stream) << c.name;
    const Assembled assembled = Assemble(*stream);
    const std::span<const std::uint8_t> data = assembled.data;
    EXPECT_EQ(std::string(data.begin(), data.end()), c.data) << c.name;
    EXPECT_EQ(assembled.gapFree, c.whole) << c.name;
  }
}

// With only HTTP files kept, a stream whose first bytes are no status line gives its bytes up
// once past the grace, while a response whose status segment comes late within it is kept.
TEST(Reassembly, StreamsThatCannotBeFilesGiveTheirBytesUp) {
  StreamTable table;
  table.Reset({.onlyHttp = true});
  const std::string block(1000, 'x');
  for (std::uint32_t i = 0; i < 100; ++i) {
    ASSERT_EQ(table.Append(Packet({1 + 1000 * i, block}, 1), 1), AppendResult::Stored);
  }
  ASSERT_EQ(table.Append(Packet({100'017, block}, 2), 1), AppendResult::Stored);
  ASSERT_EQ(table.Append(Packet({100'000, "HTTP/1.1 200 OK\r\n"}, 2), 1), AppendResult::Stored);
  EXPECT_LT(table.MemoryInUse(), 2 * (1040 + kSegmentRecordBytes));
  auto tls = table.TakeRipe(0, 0, true);
  ASSERT_TRUE(tls);
  EXPECT_TRUE(tls->bytes.empty() && tls->segments.empty());
  auto http = table.TakeRipe(tls->slot + 1, 0, true);
  ASSERT_TRUE(http);
  EXPECT_EQ(Assemble(*http).data.size(), 17 + block.size());
}

TEST(Reassembly, AppendingCostsAllocationsByTheLogarithmOfTheLength) {
  StreamTable table;
  table.Reset({});
  const test::Bytes first = Packet({1, "x"});
  ASSERT_EQ(table.Append(first, 1), AppendResult::Stored);
  constexpr std::uint32_t kSegments = 50'000;
  std::vector<test::Bytes> packets;
  for (std::uint32_t i = 2; i <= kSegments; ++i) packets.push_back(Packet({i, "y"}));
  const std::size_t before = allocations.load();
  for (const auto& packet : packets) table.Append(packet, 1);
  EXPECT_LT(allocations.load() - before, 64u);

  StreamBytes bytes;
  std::size_t growths = 0, capacity = 0;
  const std::uint8_t one = 1;
  for (int i = 0; i < 1'000'000; ++i) {
    bytes.Append({&one, 1});
    growths += bytes.capacity() != std::exchange(capacity, bytes.capacity());
  }
  EXPECT_LT(growths, 64u);
  EXPECT_EQ(bytes.size(), 1'000'000u);
  EXPECT_EQ(bytes.data()[999'999], 1);
}

}  // namespace
}  // namespace vormelt::filemode
