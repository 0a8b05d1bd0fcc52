// Find over the store and the acknowledgement commands, on small stores built by hand: the
// match-case and zero-byte rules, the three-packet example, the deliberate sequence limits.
#include <gtest/gtest.h>

#include "packetmode/packet_find.hpp"
#include "packetmode/tcp_ack.hpp"
#include "support/frames.hpp"

namespace vormelt {
namespace {

test::Bytes Tcp(std::uint32_t sequence, std::uint32_t ack, std::string_view payload = {}) {
  test::TcpHeader tcp;
  tcp.sequence = sequence;
  tcp.acknowledgement = ack;
  return test::RawSocketsFrame(test::TcpPacket({}, tcp, test::ToBytes(payload)));
}

void Add(PacketStore& store, const test::Bytes& frame) {
  store.Insert(test::Record(frame, InterfaceKind::RawSockets));
}

PacketFinder::Step Scan(PacketFinder& finder, const PacketStore& store) {
  PacketFinder::Step step;
  while ((step = finder.Advance(store, 2)) == PacketFinder::Step::Running) {}
  return step;
}

TEST(PacketFind, MatchCaseZeroBytesAndTheOrderOfSlots) {
  PacketStore store;
  Add(store, Tcp(1, 1, "GET /index.html HTTP/1.1\r\n"));
  Add(store, Tcp(2, 1, std::string_view("xa\0b", 4)));
  PacketFinder finder;
  finder.Begin(store, "get", false);
  ASSERT_EQ(Scan(finder, store), PacketFinder::Step::Matched);
  EXPECT_EQ(finder.Hit().index, 0);
  EXPECT_EQ(finder.Hit().frameOffset, 14 + 20 + 20);  // the payload's first byte
  EXPECT_EQ(Scan(finder, store), PacketFinder::Step::Finished);
  EXPECT_TRUE(finder.AnyMatch());

  finder.Begin(store, "get", true);
  EXPECT_EQ(Scan(finder, store), PacketFinder::Step::Finished);
  EXPECT_FALSE(finder.AnyMatch());

  finder.Begin(store, "a b", false);
  ASSERT_EQ(Scan(finder, store), PacketFinder::Step::Matched);
  EXPECT_EQ(finder.Hit().index, 1);
  // The Text dump leaves the zero byte out; Hex selects "61 00 62" less the last blank.
  const PacketRef packet = store.Get(1);
  EXPECT_EQ(FindSelection(packet, DataLevel::Presentation, DumpForm::Text, finder.Hit()),
            (TextSelection{1, 3}));
  EXPECT_EQ(FindSelection(packet, DataLevel::Presentation, DumpForm::Hex, finder.Hit()),
            (TextSelection{3, 11}));

  // A match whose row was deleted is passed over.
  store.Delete(1);
  finder.Begin(store, "a b", false);
  EXPECT_EQ(Scan(finder, store), PacketFinder::Step::Finished);
  EXPECT_FALSE(finder.AnyMatch());
}

TEST(TcpAck, ThreePacketsWithTheSameAck) {
  PacketStore store;
  Add(store, Tcp(10, 7));
  Add(store, Tcp(20, 7));
  Add(store, Tcp(20, 7));
  Add(store, Tcp(15, 8));  // another ACK: never a candidate
  EXPECT_EQ(FindSameAck(store, 0, AckMove::Next).index, 1);  // the lower slot of the tie
  EXPECT_EQ(FindSameAck(store, 1, AckMove::Next).outcome, AckOutcome::NothingFound);
  EXPECT_EQ(FindSameAck(store, 2, AckMove::Previous).index, 0);
  EXPECT_EQ(FindSameAck(store, 2, AckMove::First).index, 0);
  EXPECT_EQ(FindSameAck(store, 0, AckMove::First).outcome, AckOutcome::AlreadySelected);
  EXPECT_EQ(FindSameAck(store, 2, AckMove::Last).index, 1);  // ties: lowest slot
  EXPECT_EQ(FindSameAck(store, 1, AckMove::Last).outcome, AckOutcome::AlreadySelected);
  EXPECT_EQ(DeleteByAck(store, 0, false), 1u);
  EXPECT_EQ(DeleteByAck(store, 0, true), 3u);
  EXPECT_EQ(store.RowCount(), 0u);
}

TEST(TcpAck, SequenceLimitsTiesOfFirstAndShortPackets) {
  PacketStore store;
  Add(store, Tcp(0, 1));
  Add(store, Tcp(5, 1));
  Add(store, Tcp(0xFFFFFFFFu, 1));
  Add(store, Tcp(5, 1));
  EXPECT_EQ(FindSameAck(store, 1, AckMove::Next).outcome, AckOutcome::NothingFound);
  EXPECT_EQ(FindSameAck(store, 1, AckMove::Previous).outcome, AckOutcome::NothingFound);
  EXPECT_EQ(FindSameAck(store, 2, AckMove::First).index, 0);
  EXPECT_EQ(FindSameAck(store, 0, AckMove::Last).index, 2);
  // First with equal sequences picks the highest slot.
  EXPECT_EQ(FindSameAck(store, 2, AckMove::Previous).index, 1);

  test::Bytes shortTcp = Tcp(1, 1);
  shortTcp.resize(14 + 39);
  Add(store, shortTcp);
  EXPECT_EQ(FindSameAck(store, 4, AckMove::Next).outcome, AckOutcome::InvalidTcp);
  EXPECT_EQ(DeleteByAck(store, 4, true), std::nullopt);
}

}  // namespace
}  // namespace vormelt
