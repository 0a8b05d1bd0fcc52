// Statistical Mode listening on loopback while ping and a TCP transfer run: the address and
// pair rows of 127.0.0.1 and the local-port rows of both TCP ends. Both ends are local, so every
// segment counts on its sender's side only. Needs capture rights; skips with the reason when
// the capture cannot start. Traffic stays on 127.0.0.1 and is bounded in count and time.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>

#include "capture/session.hpp"
#include "statistics/engine.hpp"
#include "support/live_capture.hpp"
#include "support/process.hpp"

namespace vormelt::statistics {
namespace {

using namespace std::chrono_literals;
constexpr Ipv4 kLoopback = 0x7F000001;

// Sends 4,000 bytes from a client to a listener on 127.0.0.1; returns {listener, client} ports.
std::pair<std::uint16_t, std::uint16_t> TalkTcp() {
  const int listener = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address);
  listen(listener, 1);
  getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length);
  const int client = socket(AF_INET, SOCK_STREAM, 0);
  connect(client, reinterpret_cast<sockaddr*>(&address), sizeof address);
  sockaddr_in own{};
  getsockname(client, reinterpret_cast<sockaddr*>(&own), &length);
  const int served = accept(listener, nullptr, nullptr);
  const std::string data(4000, 'd');
  (void)!write(client, data.data(), data.size());
  char buffer[8192];
  for (ssize_t got = 0, n = 1; got < 4000 && n > 0; got += n) n = read(served, buffer, sizeof buffer);
  for (const int fd : {client, served, listener}) close(fd);
  return {ntohs(address.sin_port), ntohs(own.sin_port)};
}

TEST(StatisticsLive, PingAndTcpOnLoopbackFillTheLocalPortRows) {
  LocalAddressList locals;
  locals.Replace(std::vector<Ipv4>{kLoopback});
  StatisticsEngine engine(locals, {kTableCapacity});
  CaptureSession session;
  session.Start(CaptureTarget::Address("127.0.0.1"), engine);
  if (const std::string reason = test::AwaitListening(session); !reason.empty()) {
    GTEST_SKIP() << reason;
  }
  ASSERT_EQ(std::system("ping -c 3 -i 0.2 127.0.0.1 >/dev/null 2>&1"), 0) << "ping failed";
  const auto [listenerPort, clientPort] = TalkTcp();
  std::this_thread::sleep_for(300ms);
  session.Stop();
  session.Wait();

  engine.WithTables([&](const StatisticsTables& t) {
    const std::int32_t host = t.ip.Find(IpAddress::V4(kLoopback));
    ASSERT_GE(host, 0);
    EXPECT_GE(t.ip.At(host).packetsFrom, 6 + 4);  // pings both ways, and the TCP segments
    EXPECT_EQ(t.ip.At(host).packetsFrom, t.ip.At(host).packetsTo);
    ASSERT_GE(t.pairs.Find(IpAddress::V4(kLoopback), IpAddress::V4(kLoopback)), 0);
    const std::int32_t server = t.ports.Find(IpAddress::V4(kLoopback), listenerPort, true);
    const std::int32_t client = t.ports.Find(IpAddress::V4(kLoopback), clientPort, true);
    ASSERT_TRUE(server >= 0 && client >= 0);
    EXPECT_GE(t.ports.At(server).packetsOut, 2);  // SYN-ACK and acknowledgements
    EXPECT_EQ(t.ports.At(server).packetsIn, 0);
    EXPECT_GE(t.ports.At(client).packetsOut, 3);  // SYN, ACK, data
    EXPECT_GE(t.ports.At(client).bytesOut, 4000 + 3 * (40 + 14));
    EXPECT_EQ(t.ports.At(client).packetsIn, 0);
  });
}

// A stop signal ends the stats command as the user asked, never the process outright: the table
// and the drop count still come out. (Before, a signal that reached the local address
// refresher's thread killed it; which thread takes a signal is the kernel's choice, so this
// catches that only when the main thread is busy at the moment.)
TEST(StatisticsLive, TheStatsCommandEndsOnSigintWithItsTableAndDrops) {
  {
    LocalAddressList locals;
    StatisticsEngine engine(locals);
    CaptureSession probe;
    probe.Start(CaptureTarget::Address("127.0.0.1"), engine);
    if (const std::string reason = test::AwaitListening(probe); !reason.empty()) GTEST_SKIP() << reason;
  }
  const test::ProcessRun run = test::RunCli({"stats", "--live", "127.0.0.1"}, {}, 800ms);
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out.rfind("IP Address\t", 0), 0u) << run.out;
  EXPECT_TRUE(run.err.ends_with(" dropped\n")) << run.err;
}

}  // namespace
}  // namespace vormelt::statistics
