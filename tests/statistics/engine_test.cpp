// The statistics engine against the counting rules it must keep: the five named cases (two
// local ends: live_loopback_test), a reference model that finds records and victims by passing
// over every slot (the index, LRU list and tree must agree with it packet by packet), and frames
// no sender should have sent.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "statistics/engine.hpp"
#include "statistics/lists.hpp"
#include "support/frames.hpp"

namespace vormelt::statistics {
namespace {

using test::Bytes;

constexpr Ipv4 kA = 0x0A000001, kB = 0x0A000002, kC = 0x0A000003;

test::Ipv4Header Ip(Ipv4 source, Ipv4 destination, std::uint8_t protocol) {
  test::Ipv4Header ip;
  for (int i = 0; i < 4; ++i) {
    ip.source[i] = static_cast<std::uint8_t>(source >> (24 - 8 * i));
    ip.destination[i] = static_cast<std::uint8_t>(destination >> (24 - 8 * i));
  }
  ip.protocol = protocol;
  return ip;
}

// From port 40000 (the builder's default).
Bytes Tcp(Ipv4 source, Ipv4 destination, std::size_t payload = 10) {
  return test::TcpPacket(Ip(source, destination, 6), test::TcpHeader{}, Bytes(payload, 'x'));
}

struct Fixture {
  LocalAddressList locals;
  StatisticsEngine engine;
  explicit Fixture(std::vector<Ipv4> local = {}, StatisticsLimits limits = {8192})
      : engine(locals, limits) {
    locals.Replace(local);
  }
};

TEST(StatisticsEngine, TwoHostTcpFillsAddressPairAndLocalPortRecords) {
  Fixture f({kA});
  const Bytes packet = Tcp(kA, kB);
  const std::int64_t length = static_cast<std::int64_t>(packet.size()) + 14;
  f.engine.CountPacket(packet);
  f.engine.WithTables([&](const StatisticsTables& t) {
    ASSERT_EQ(t.ip.Used(), 2);
    EXPECT_EQ(t.ip.At(0).Key(), kA);
    EXPECT_EQ(t.ip.At(0).bytesFrom + t.ip.At(0).bytesTo, length);
    ASSERT_EQ(t.pairs.Used(), 2);
    EXPECT_EQ(t.pairs.At(0).Key(), IpPairRecord::KeyOf(IpAddress::V4(kA), IpAddress::V4(kB)));
    EXPECT_EQ(t.pairs.At(0).bytesFirstToSecond, length);
    ASSERT_EQ(t.ports.Used(), 1);
    EXPECT_EQ(t.ports.At(0).Key(), LocalPortRecord::KeyOf(IpAddress::V4(kA), 40000, true));
    EXPECT_EQ(t.ports.At(0).bytesOut, t.ports.At(0).ByteTotal());
  });
}

TEST(StatisticsEngine, OnlyTcpTrustsTheTotalLengthOverTheReceivedLength) {
  Fixture f;
  Bytes tcp = Tcp(kA, kB, 10), udp = test::UdpPacket(Ip(kA, kC, 17), 5000, 53, Bytes(10, 'y'));
  const std::size_t tcpTotal = tcp.size(), udpReceived = udp.size() + 30;
  tcp.resize(tcpTotal + 30, 0);  // padding after each datagram
  udp.resize(udpReceived, 0);
  f.engine.CountPacket(tcp);
  f.engine.CountPacket(udp);
  f.engine.WithTables([&](const StatisticsTables& t) {
    EXPECT_EQ(t.ip.At(1).bytesTo, static_cast<std::int64_t>(tcpTotal + 14));
    EXPECT_EQ(t.ip.At(2).bytesTo, static_cast<std::int64_t>(udpReceived + 14));
  });
}

// IPv6 ports behind a hop-by-hop header; address order: numeric, every IPv4 before IPv6.
TEST(StatisticsEngine, Ipv6PortsBehindExtensionHeadersAndAddressOrder) {
  Fixture f;
  const IpAddress local = *IpAddress::Parse("2001:db8::1"), peer = *IpAddress::Parse("2001:db8::2");
  f.locals.ReplaceIpv6(std::vector{local});
  Bytes ip(40 + 8 + 20 + 10 + 6, 0);  // six bytes of link padding behind the datagram
  ip[0] = 0x60, ip[5] = 8 + 20 + 10, ip[40] = kProtocolTcp, ip[60] = 0x50;
  std::copy(local.bytes().begin(), local.bytes().end(), ip.begin() + 8);
  std::copy(peer.bytes().begin(), peer.bytes().end(), ip.begin() + 24);
  ip[48] = 0x01, ip[49] = 0xBB;  // from port 443
  f.engine.CountIpv6Packet(ip);
  f.engine.CountPacket(Tcp(kA, 0x0A00000A));
  const auto order = [](const IpRecord& r) { return CellOf(r, 0, UiLanguage::English).order; };
  f.engine.WithTables([&](const StatisticsTables& t) {
    ASSERT_EQ(t.ports.Used(), 1);
    EXPECT_TRUE(t.ports.At(0).Is(local, 443, true));
    EXPECT_EQ(t.ports.At(0).bytesOut, 40 + 8 + 20 + 10 + 14);
    EXPECT_LT(order(t.ip.At(2)), order(t.ip.At(3)));  // 10.0.0.1 before 10.0.0.10
    EXPECT_LT(order(t.ip.At(3)), order(t.ip.At(0)));  // before 2001:db8::1
    EXPECT_LT(order(t.ip.At(0)), order(t.ip.At(1)));
  });
}

TEST(StatisticsEngine, ListOfOneKeepsTheLastRecordCreated) {
  Fixture f({}, {1, VictimPolicy::LongestAgo});
  f.engine.CountPacket(Tcp(kA, kB));
  f.engine.WithTables([](const StatisticsTables& t) {
    ASSERT_EQ(t.ip.Used(), 1);
    EXPECT_EQ(t.ip.At(0).address, IpAddress::V4(kB));
    EXPECT_EQ(t.ip.At(0).bytesFrom, 0);
    EXPECT_EQ(t.pairs.At(0).first, IpAddress::V4(kB));
  });
  f.engine.CountPacket(Tcp(kC, kA));
  f.engine.WithTables([](const StatisticsTables& t) {
    EXPECT_EQ(t.ip.At(0).address, IpAddress::V4(kA));
    EXPECT_EQ(t.ip.At(0).packetsTo, 1);
    EXPECT_EQ(t.ip.Replaced(), 3);
  });
}

TEST(StatisticsEngine, TieAtTheLowestCountReplacesTheLowerSlot) {
  Fixture f({}, {3, VictimPolicy::Lowest});
  f.engine.CountPacket(Tcp(kA, kB));  // A: 1, B: 1
  f.engine.CountPacket(Tcp(kC, kB));  // C: 1, B: 2
  f.engine.CountPacket(Tcp(kB, 0x0A000004));  // D replaces A (slot 0), not C (slot 2)
  f.engine.WithTables([](const StatisticsTables& t) {
    EXPECT_EQ(t.ip.At(0).address, IpAddress::V4(0x0A000004));
    EXPECT_EQ(t.ip.At(1).address, IpAddress::V4(kB));
    EXPECT_EQ(t.ip.At(2).address, IpAddress::V4(kC));
  });
}

TEST(StatisticsEngine, IcmpUpdatesOnlyAddressesAndPairs) {
  Fixture f({kA, kB});
  f.engine.CountPacket(test::IcmpPacket(Ip(kA, kB, 1), 8, 0, Bytes(32, 0)));
  f.engine.WithTables([](const StatisticsTables& t) {
    EXPECT_EQ(t.ip.Used(), 2);
    EXPECT_EQ(t.pairs.Used(), 2);
    EXPECT_EQ(t.ports.Used(), 0);
  });
}

TEST(StatisticsEngine, HostileFramesCountNothingOrWhatTheirHeaderAllows) {
  Fixture f({kA});
  std::mt19937 random(7);
  const Bytes good = Tcp(kA, kB);
  // Every truncation of a good frame, and random garbage behind an IPv4 EtherType.
  for (std::size_t cut = 0; cut <= good.size(); ++cut) {
    const Bytes frame = test::RawSocketsFrame(std::span(good).first(cut));
    f.engine.Take(test::Record(frame, InterfaceKind::RawSockets));
  }
  for (int i = 0; i < 2000; ++i) {
    Bytes garbage(random() % 80);
    for (auto& byte : garbage) byte = static_cast<std::uint8_t>(random());
    f.engine.Take(test::Record(test::RawSocketsFrame(garbage), InterfaceKind::RawSockets));
    f.engine.Take(test::Record(garbage, InterfaceKind::PacketDriver));
  }
  // 20 bytes of header are needed; a port needs its four bytes inside the buffer.
  const std::int64_t counted = f.engine.PacketSequence();
  EXPECT_GT(counted, 0);
  f.engine.WithTables([&](const StatisticsTables& t) {
    const std::int32_t found = t.ip.Find(IpAddress::V4(kA));
    ASSERT_GE(found, 0);
    EXPECT_EQ(t.ip.At(found).packetsFrom, static_cast<std::int64_t>(good.size() - 20 + 1));
    EXPECT_EQ(t.ports.At(0).packetsOut, static_cast<std::int64_t>(good.size() - 24 + 1));
  });
  const Bytes oversized(65536, 0x45);
  f.engine.CountPacket(oversized);
  EXPECT_EQ(f.engine.PacketSequence(), counted);
}

// The rules written the plain way: a pass over the used slots for every lookup and victim.
struct Reference {
  struct Row {
    std::uint64_t key;
    std::int64_t total, last;
  };
  std::vector<Row> rows;
  std::int32_t max;
  VictimPolicy policy;
  std::int32_t Find(std::uint64_t key) const {
    const auto it = std::find_if(rows.begin(), rows.end(), [&](const Row& r) { return r.key == key; });
    return it == rows.end() ? -1 : static_cast<std::int32_t>(it - rows.begin());
  }
  // The first slot with the lowest (highest) value: ties go to the lower slot.
  std::int32_t Victim() const {
    const auto less = [&](const Row& x, const Row& y) {
      return policy == VictimPolicy::LongestAgo ? x.last < y.last : x.total < y.total;
    };
    const auto it = policy == VictimPolicy::Highest ? std::max_element(rows.begin(), rows.end(), less)
                                                    : std::min_element(rows.begin(), rows.end(), less);
    return static_cast<std::int32_t>(it - rows.begin());
  }
  // Both keys are looked up first; a packet to itself is one record with both directions.
  void Count(std::uint64_t a, std::uint64_t b, std::int64_t seq) {
    const std::int32_t fa = Find(a), fb = a == b ? fa : Find(b);
    for (std::int32_t s : {fa, fb}) {
      if (s >= 0) rows[s].total += 1, rows[s].last = seq;
    }
    const auto create = [&](std::uint64_t key, std::int64_t total) {
      if (static_cast<std::int32_t>(rows.size()) < max) rows.push_back({key, total, seq});
      else rows[Victim()] = {key, total, seq};
    };
    if (fa < 0) create(a, a == b ? 2 : 1);
    if (fb < 0 && a != b) create(b, 1);
  }
};

TEST(StatisticsEngine, IndexAndVictimOrderAgreeWithAPassOverEverySlot) {
  for (const VictimPolicy policy :
       {VictimPolicy::LongestAgo, VictimPolicy::Lowest, VictimPolicy::Highest}) {
    for (const std::int32_t max : {1, 5, 64}) {
      Fixture f({}, {max, policy});
      Reference ip{{}, max, policy}, pairs{{}, max, policy};
      std::mt19937 random(static_cast<unsigned>(max) * 3 + static_cast<unsigned>(policy));
      for (std::int64_t seq = 1; seq <= 3000; ++seq) {
        // Few hosts, so records are found, replaced and found again; some talk to themselves.
        const Ipv4 a = 0x0A000000 + random() % 40, b = 0x0A000000 + random() % 40;
        f.engine.CountPacket(Tcp(a, b, 0));
        ip.Count(a, b, seq);
        pairs.Count(IpPairRecord::KeyOf(IpAddress::V4(a), IpAddress::V4(b)),
                    IpPairRecord::KeyOf(IpAddress::V4(b), IpAddress::V4(a)), seq);
        const bool same = f.engine.WithTables([&](const StatisticsTables& t) {
          bool ok = t.ip.Used() == static_cast<std::int32_t>(ip.rows.size()) &&
                    t.pairs.Used() == static_cast<std::int32_t>(pairs.rows.size());
          for (std::int32_t s = 0; ok && s < t.ip.Used(); ++s) {
            ok = t.ip.At(s).Key() == ip.rows[s].key && t.ip.At(s).PacketTotal() == ip.rows[s].total;
          }
          for (std::int32_t s = 0; ok && s < t.pairs.Used(); ++s) {
            ok = t.pairs.At(s).Key() == pairs.rows[s].key &&
                 t.pairs.At(s).PacketTotal() == pairs.rows[s].total;
          }
          return ok;
        });
        ASSERT_TRUE(same) << "policy " << int(policy) << " max " << max << " packet " << seq;
      }
    }
  }
}

}  // namespace
}  // namespace vormelt::statistics
