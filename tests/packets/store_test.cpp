// PacketStore: the item limit and its extra packet, clear keeping the last index, stable
// indices across deletes, the record layout and spare bytes, the filter seam, and reading
// while inserting.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <thread>
#include <vector>

#include "packets/list_row.hpp"
#include "common/byte_order.hpp"
#include "packets/store.hpp"
#include "support/frames.hpp"

namespace vormelt {
namespace {

using test::Bytes;

// A frame whose bytes say which packet it is: a UDP datagram with the number as payload.
Bytes NumberedFrame(std::uint32_t number, std::size_t payloadSize = 8) {
  Bytes payload(std::max<std::size_t>(payloadSize, 4), 0);
  WriteBe32(payload.data(), number);
  return test::RawSocketsFrame(test::UdpPacket({}, 1000, 2000, payload));
}

std::uint32_t NumberOf(const PacketRef& packet) {
  return ReadBe32(packet.network() + 28);  // 20 IP + 8 UDP header bytes
}

FrameRecord Numbered(std::uint32_t number, std::size_t payloadSize = 8) {
  return test::Record(NumberedFrame(number, payloadSize), InterfaceKind::RawSockets);
}

// The limit test comes before the count moves on: 1,000,001 packets in all, then nothing more.
TEST(PacketStore, TheRealCapacityHoldsOneMillionAndOnePacketsThenTakesNothing) {
  PacketStore store;
  Bytes frame = NumberedFrame(0);
  std::uint32_t stored = 0;
  InsertOutcome outcome = InsertOutcome::Stored;
  do WriteBe32(&frame[14 + 28], stored);
  while ((outcome = store.Insert(test::Record(frame, InterfaceKind::RawSockets))) == InsertOutcome::Stored && ++stored);
  EXPECT_EQ(outcome, InsertOutcome::ItemLimitReached);
  EXPECT_EQ(stored, 1'000'000u);
  EXPECT_TRUE(store.IsFull());
  EXPECT_EQ(store.RowCount(), 1'000'001u);
  EXPECT_EQ(NumberOf(store.Get(1'000'000)), 1'000'000u);
  EXPECT_FALSE(store.IsPresent(1'000'001));
  const auto memory = store.AllocatedMemory();
  EXPECT_EQ(memory, 1'000'001ull * (frame.size() + kRecordOverhead));

  EXPECT_EQ(store.Take(Numbered(99)), SinkVerdict::ItemLimitReached);
  EXPECT_EQ(NumberOf(store.Get(1'000'000)), 1'000'000u);  // nothing overwritten
  EXPECT_EQ(store.AllocatedMemory(), memory);
}

TEST(PacketStore, ClearFreesEverythingButTheLastIndexAndStartsAgainAtZero) {
  PacketStore store(6);
  for (std::uint32_t i = 0; i < 6; ++i) store.Insert(Numbered(i));

  store.Clear();
  EXPECT_EQ(store.ItemCount(), 0);
  EXPECT_EQ(store.AllocatedMemory() + store.RowCount(), 0u);
  for (std::int32_t i = 0; i < 5; ++i) EXPECT_FALSE(store.IsPresent(i)) << i;
  ASSERT_TRUE(store.IsPresent(5));  // survives, bytes intact, out of the arena
  EXPECT_EQ(NumberOf(store.Get(5)), 5u);

  const Bytes next = NumberedFrame(42, 100);
  ASSERT_EQ(store.Insert(test::Record(next, InterfaceKind::RawSockets)), InsertOutcome::Stored);
  EXPECT_EQ(NumberOf(store.Get(0)), 42u);
  EXPECT_EQ(store.AllocatedMemory(), next.size() + kRecordOverhead);

  store.Clear();  // a second clear still keeps it
  EXPECT_EQ(NumberOf(store.Get(5)), 5u);

  // Filling up again gives the last index to the new packet.
  for (std::uint32_t i = 0; i < 6; ++i) store.Insert(Numbered(100 + i));
  EXPECT_EQ(NumberOf(store.Get(5)), 105u);
}

TEST(PacketStore, DeleteKeepsIndicesAndDropsTheRow) {
  PacketStore store(100);
  for (std::uint32_t i = 0; i < 6; ++i) store.Insert(Numbered(i));
  EXPECT_TRUE(store.Delete(2));
  EXPECT_FALSE(store.Delete(2));
  EXPECT_EQ(store.DeleteMany(std::vector<std::int32_t>{5, 0, 3, 3, 40}), 3u);
  store.Insert(Numbered(6));  // indices are never given twice
  EXPECT_EQ(store.RowCount(), 3u);
  EXPECT_EQ(store.IndexAtRow(2), 6);
  EXPECT_EQ(store.RowOfIndex(4), 1u);
  EXPECT_EQ(store.RowOfIndex(3), std::nullopt);
}

TEST(PacketStore, RecordsKeepTheirLayoutKindAndTimeText) {
  PacketStore store;
  store.SetDateTimeTemplate("at %Y");
  const Bytes frame = test::EthernetFrame({1, 2, 3, 4, 5, 6}, {7, 8, 9, 10, 11, 12}, 0x0806,
                                          test::ArpPacket({}));
  // The time text is the frame's capture time (a file's own), not the moment of insertion.
  store.Insert(test::Record(frame, InterfaceKind::PacketDriver, CaptureTime(std::chrono::seconds(1'700'000'000))));
  const PacketRef packet = store.Get(0);
  ASSERT_NE(packet.frame, nullptr);
  ASSERT_EQ(packet.frameLength, frame.size());
  EXPECT_EQ(std::memcmp(packet.frame, frame.data(), frame.size()), 0);
  EXPECT_EQ(packet.kind, InterfaceKind::PacketDriver);
  EXPECT_EQ(packet.frame[-1], 0);
  EXPECT_EQ(packet.frame[frame.size()], 1);  // the kind byte
  for (std::uint32_t i = 1; i < kSpareAfterFrame; ++i) ASSERT_EQ(packet.frame[frame.size() + i], 0);
  EXPECT_EQ(packet.timeText, "at 2023");

  // Texts reused within a second must still follow the millisecond, and a new second (also
  // before 1970) must be broken down anew.
  store.SetDateTimeTemplate("%S.%MS");
  const auto at = [&](std::int64_t ms) {
    store.Insert(test::Record(frame, InterfaceKind::PacketDriver,
                              CaptureTime(std::chrono::milliseconds(ms))));
    return std::string(store.Get(store.ItemCount() - 1).timeText);
  };
  EXPECT_EQ(at(1'700'000'000'998), "20.998");
  EXPECT_EQ(at(1'700'000'000'999), "20.999");
  EXPECT_EQ(at(1'700'000'001'000), "21.000");
  EXPECT_EQ(at(-1), "59.999");
  store.SetDateTimeTemplate("at %Y");

  // Frames beyond the largest datagram are cut, and empty frames are still records.
  store.Insert(test::Record(Bytes(kMaxFrameLength + 500, 0xAB), InterfaceKind::PacketDriver));
  EXPECT_EQ(store.Get(store.ItemCount() - 1).frameLength, kMaxFrameLength);
  store.Insert(test::Record({}, InterfaceKind::RawSockets));
  EXPECT_EQ(store.Get(store.ItemCount() - 1).networkLength(), 0u);
}

class FakeFilter final : public PacketFilterSeam {
 public:
  bool Enabled() const override { return enabled; }
  bool Passes(const std::uint8_t* frame, std::uint32_t frameLength) override {
    sawKindByte = frame[frameLength] == 0 && frame[-1] == 0;
    return ReadBe32(frame + 14 + 28) % 2 == 0;  // keeps even numbers
  }
  std::shared_ptr<const FilterColumnTexts> ColumnTexts() override { return texts; }

  bool enabled = true;
  bool sawKindByte = false;
  std::shared_ptr<const FilterColumnTexts> texts =
      std::make_shared<FilterColumnTexts>(FilterColumnTexts{"GET", "favicon"});
};

TEST(PacketStore, FilteredFramesChangeNothingAndKeptOnesShareTheFilterTexts) {
  PacketStore store;
  FakeFilter filter;
  store.SetFilter(&filter);

  EXPECT_EQ(store.Insert(Numbered(1)), InsertOutcome::FilteredOut);
  EXPECT_EQ(store.Take(Numbered(3)), SinkVerdict::Skipped);
  EXPECT_EQ(store.ItemCount(), 0);
  EXPECT_EQ(store.AllocatedMemory() + store.RowCount(), 0u);
  EXPECT_TRUE(filter.sawKindByte);

  store.Insert(Numbered(2));
  EXPECT_EQ(store.FilterTexts(0), filter.texts.get());
  filter.enabled = false;  // not asked: the odd number is kept, without texts
  store.Insert(Numbered(5));
  EXPECT_EQ(store.ItemCount(), 2);
  EXPECT_EQ(store.FilterTexts(1), nullptr);
}

// One thread inserts while another reads rows and records, as the window does on its timer.
TEST(PacketStore, ReadersSeeOnlyCompletePacketsWhileInserting) {
  constexpr std::uint32_t kPackets = 100'000;
  PacketStore store;
  std::atomic<bool> done{false};
  std::thread inserter([&] {
    for (std::uint32_t i = 0; i < kPackets; ++i) store.Insert(Numbered(i, 8 + i % 300));
    done = true;
  });
  std::size_t checked = 0;
  ListTextBuffer buffer{};
  while (!done || checked < store.RowCount()) {
    const std::size_t rows = store.RowCount();
    for (; checked < rows; ++checked) {
      const std::int32_t index = store.IndexAtRow(checked);
      ASSERT_EQ(index, static_cast<std::int32_t>(checked));
      const PacketRef packet = store.Get(index);
      ASSERT_NE(packet.frame, nullptr);
      ASSERT_EQ(NumberOf(packet), static_cast<std::uint32_t>(index));
      ASSERT_EQ(packet.frameLength, 14 + 28 + 8 + index % 300);
      ASSERT_FALSE(packet.timeText.empty());
      ASSERT_EQ(ListColumnText(packet, nullptr, ListColumn::DestinationPort, buffer), "2000");
    }
  }
  inserter.join();
  EXPECT_EQ(checked, kPackets);
}

}  // namespace
}  // namespace vormelt
