// Live capture on loopback as root: ping and a TCP connection on 127.0.0.1 show up as rows with
// the right protocol, addresses and ports, in both interface kinds, and Stop ends a quiet
// capture promptly. Skips with the reason where capturing is not permitted.
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>

#include "capture/interfaces.hpp"
#include "capture/session.hpp"
#include "packets/list_row.hpp"
#include "packets/names.hpp"
#include "packets/store.hpp"

namespace vormelt {
namespace {

using namespace std::chrono_literals;

struct Fd {
  int fd = -1;
  explicit Fd(int value) : fd(value) {}
  ~Fd() {
    if (fd >= 0) close(fd);
  }
};

sockaddr_in Loopback(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

// Opens a listener on 127.0.0.1, connects to it, sends a line and closes. Returns the port.
std::uint16_t TalkTcpOnLoopback() {
  Fd listener(socket(AF_INET, SOCK_STREAM, 0));
  sockaddr_in address = Loopback(0);
  bind(listener.fd, reinterpret_cast<sockaddr*>(&address), sizeof address);
  listen(listener.fd, 1);
  socklen_t length = sizeof address;
  getsockname(listener.fd, reinterpret_cast<sockaddr*>(&address), &length);
  Fd client(socket(AF_INET, SOCK_STREAM, 0));
  EXPECT_EQ(connect(client.fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  Fd accepted(accept(listener.fd, nullptr, nullptr));
  EXPECT_EQ(write(client.fd, "hello\n", 6), 6);
  return ntohs(address.sin_port);
}

// Starts a capture and waits until it is really listening; empty on success, else the reason.
std::string StartAndWait(CaptureSession& session, const CaptureTarget& target, PacketStore& store) {
  session.Start(target, store);
  const auto deadline = std::chrono::steady_clock::now() + 5s;
  while (std::chrono::steady_clock::now() < deadline) {
    if (session.Status().status == CaptureStatus::Listening) return {};
    if (!session.listening.load()) break;
    std::this_thread::sleep_for(5ms);
  }
  session.Wait();
  for (const auto& message : session.Messages().Drain()) return FormatMessage(message, UiLanguage::English);
  return "the capture did not start";
}

struct Seen {
  int icmp = 0;
  int toListener = 0;
  int fromListener = 0;
  bool macColumnsFilled = false;
};

Seen Inspect(const PacketStore& store, std::uint16_t port) {
  Seen seen;
  ListTextBuffer buffer{};
  const std::string portText = std::to_string(port);
  for (std::size_t row = 0; row < store.RowCount(); ++row) {
    const PacketRef packet = store.Get(store.IndexAtRow(row));
    const auto text = [&](ListColumn column) {
      return std::string(ListColumnText(packet, nullptr, column, buffer));
    };
    if (text(ListColumn::SourceIp) != "127.0.0.1" || text(ListColumn::DestinationIp) != "127.0.0.1") continue;
    seen.macColumnsFilled |= !text(ListColumn::SourceMac).empty();
    const std::string type = text(ListColumn::Type);
    if (type == names::ProtocolName(1)) ++seen.icmp;
    if (type != names::ProtocolName(6)) continue;
    if (text(ListColumn::DestinationPort) == portText) ++seen.toListener;
    if (text(ListColumn::SourcePort) == portText) ++seen.fromListener;
  }
  return seen;
}

void CaptureTraffic(const CaptureTarget& target, InterfaceKind expectedKind) {
  PacketStore store;
  CaptureSession session;
  if (const std::string reason = StartAndWait(session, target, store); !reason.empty()) {
    GTEST_SKIP() << "cannot capture on loopback here (needs root or cap_net_raw,cap_net_admin): "
                 << reason;
  }
  EXPECT_EQ(session.kindInUse.load(), expectedKind);
  ASSERT_EQ(std::system("ping -c 3 -i 0.2 127.0.0.1 >/dev/null 2>&1"), 0) << "ping failed";
  const std::uint16_t port = TalkTcpOnLoopback();
  std::this_thread::sleep_for(200ms);
  session.Stop();
  session.Wait();
  EXPECT_EQ(session.Status().status, CaptureStatus::Stopped);
  EXPECT_TRUE(session.newData.load());

  const Seen seen = Inspect(store, port);
  EXPECT_GE(seen.icmp, 6);  // three requests, three replies
  EXPECT_GE(seen.toListener, 2);
  EXPECT_GE(seen.fromListener, 1);
  EXPECT_EQ(seen.macColumnsFilled, expectedKind == InterfaceKind::PacketDriver);
}

TEST(LiveCapture, RawSocketsKindSeesPingAndTcpOnLoopback) {
  CaptureTraffic(CaptureTarget::Address("127.0.0.1"), InterfaceKind::RawSockets);
}

TEST(LiveCapture, AdapterKindSeesPingAndTcpOnLoopback) {
  CaptureTraffic(CaptureTarget::Adapter("lo", "Loopback"), InterfaceKind::PacketDriver);
}

TEST(LiveCapture, StopEndsAQuietCapturePromptly) {
  PacketStore store;
  CaptureSession session;
  // An address only a namespace of our own would carry traffic for is not needed: loopback
  // is quiet enough, and the stop must not wait for a packet anyway.
  if (const std::string reason = StartAndWait(session, CaptureTarget::Address("127.0.0.1"), store);
      !reason.empty()) {
    GTEST_SKIP() << "cannot capture on loopback here: " << reason;
  }
  EXPECT_EQ(StatusText(session.Status(), UiLanguage::English),
            "Listening on 127.0.0.1 (Using Raw Sockets)");
  const auto begun = std::chrono::steady_clock::now();
  session.Stop();
  session.Wait();
  EXPECT_LT(std::chrono::steady_clock::now() - begun, 500ms);
  EXPECT_FALSE(session.listening.load());
}

TEST(LiveCapture, ListsLoopbackAmongTheSocketsRows) {
  const InterfaceList list = ListInterfaces();
  ASSERT_FALSE(list.failure.has_value());
  bool loopback = false;
  for (const InterfaceRow& row : list.rows) {
    loopback |= row.kind == InterfaceKind::RawSockets && row.address == "127.0.0.1";
  }
  EXPECT_TRUE(loopback);
  EXPECT_EQ(InterfaceHoldingAddress("127.0.0.1"), "lo");
  EXPECT_EQ(InterfaceHoldingAddress("192.0.2.77"), std::nullopt);
  EXPECT_EQ(InterfaceHoldingAddress("not an address"), std::nullopt);
}

}  // namespace
}  // namespace vormelt
