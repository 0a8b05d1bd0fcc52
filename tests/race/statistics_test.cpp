// The statistics threads at once: a receive thread counting, an updater clearing the flags the
// window reads, the address refresher and a second writer of the local list, and a window
// thread clearing and changing limits. Built with ThreadSanitizer this must report nothing; in
// any build the index must still find every record where it is.
#include <gtest/gtest.h>

#include <atomic>
#include <random>
#include <thread>
#include <vector>

#include "statistics/engine.hpp"
#include "support/frames.hpp"

namespace vormelt::statistics {
namespace {

std::vector<test::Bytes> Packets() {
  std::mt19937 random(3);
  std::vector<test::Bytes> packets;
  for (int i = 0; i < 512; ++i) {
    test::Ipv4Header ip;
    ip.source = {127, 0, 0, static_cast<std::uint8_t>(1 + random() % 3)};
    ip.destination = {10, 9, static_cast<std::uint8_t>(random() % 8), static_cast<std::uint8_t>(random())};
    if (i % 2) std::swap(ip.source, ip.destination);
    test::TcpHeader tcp;
    tcp.sourcePort = static_cast<std::uint16_t>(random());
    packets.push_back(i % 3 ? test::TcpPacket(ip, tcp, test::Bytes(i % 40, 0))
                            : test::UdpPacket(ip, 53, 5353, test::Bytes(8, 0)));
  }
  return packets;
}

TEST(StatisticsRace, ReceiveUpdaterRefresherAndWindowShareTheTables) {
  LocalAddressList locals;
  StatisticsEngine engine(locals, {64, VictimPolicy::LongestAgo});
  LocalAddressRefresher refresher(locals);
  const std::vector<test::Bytes> packets = Packets();
  std::atomic<bool> done{false};

  std::jthread receive([&] {
    for (int round = 0; round < 200; ++round) {
      for (const auto& packet : packets) engine.CountPacket(packet);
    }
    done = true;
  });
  std::jthread updater([&] {
    while (!done) {
      engine.WithTables([](StatisticsTables& t) {
        for (std::int32_t s = 0; s < t.ip.Used(); ++s) t.ip.At(s).changed = t.ip.At(s).fresh = false;
        for (std::int32_t s = 0; s < t.ports.Used(); ++s) t.ports.At(s).changed = false;
      });
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  });
  std::jthread addresses([&] {
    const std::vector<Ipv4> one{0x7F000001}, two{0x7F000002, 0x7F000003};
    for (int i = 0; !done; ++i) locals.Replace(i % 2 ? one : two);
  });
  std::jthread window([&] {
    const VictimPolicy policies[] = {VictimPolicy::Lowest, VictimPolicy::Highest,
                                     VictimPolicy::LongestAgo};
    for (int i = 0; !done; ++i) {
      if (i % 5 == 0) engine.ClearAll();
      engine.SetLimits({16 + i % 100, policies[i % 3]});
      (void)engine.PacketSequence();
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
  });
  for (std::jthread* thread : {&receive, &updater, &addresses, &window}) thread->join();

  EXPECT_EQ(engine.PacketSequence(), 200 * static_cast<std::int64_t>(packets.size()));
  // Limits and clearing changed all along: every record must still be found where it is.
  engine.WithTables([](const StatisticsTables& t) {
    for (std::int32_t s = 0; s < t.ip.Used(); ++s) EXPECT_EQ(t.ip.Find(t.ip.At(s).address), s);
    for (std::int32_t s = 0; s < t.pairs.Used(); ++s) {
      EXPECT_EQ(t.pairs.Find(t.pairs.At(s).first, t.pairs.At(s).second), s);
    }
    for (std::int32_t s = 0; s < t.ports.Used(); ++s) {
      EXPECT_EQ(t.ports.Find(t.ports.At(s).address, t.ports.At(s).port, t.ports.At(s).tcp), s);
    }
  });
}

}  // namespace
}  // namespace vormelt::statistics
