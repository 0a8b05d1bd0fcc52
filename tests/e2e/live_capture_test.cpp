// Live capture as root: ping on 127.0.0.1 shows up as rows with the right protocol, addresses
// and arrival time, in both interface kinds; Stop ends a quiet capture promptly; and on a veth
// pair in a namespace of our own, Ethernet padding stays out of Raw Sockets frames. Skips with
// the reason where capturing is not permitted.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>

#include "capture/session.hpp"
#include "packets/list_row.hpp"
#include "packets/names.hpp"
#include "packets/store.hpp"
#include "support/frames.hpp"

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

// Starts a capture and waits until it is really listening; empty on success, else the reason.
std::string StartAndWait(CaptureSession& session, const CaptureTarget& target, PacketStore& store) {
  session.Start(target, store);
  const auto deadline = std::chrono::steady_clock::now() + 5s;
  while (std::chrono::steady_clock::now() < deadline && session.listening.load()) {
    if (session.Status().status == CaptureStatus::Listening) return {};
    std::this_thread::sleep_for(5ms);
  }
  session.Wait();
  for (const auto& message : session.Messages().Drain()) return FormatMessage(message, UiLanguage::English);
  return "the capture did not start";
}

void CaptureTraffic(const CaptureTarget& target, InterfaceKind kind, const char* listeningText) {
  PacketStore store;
  store.SetDateTimeTemplate("%Y.%MY.%D");
  CaptureSession session;
  if (const std::string reason = StartAndWait(session, target, store); !reason.empty()) {
    GTEST_SKIP() << "cannot capture on loopback here (needs root or cap_net_raw,cap_net_admin): " << reason;
  }
  EXPECT_EQ(StatusText(session.Status(), UiLanguage::English), listeningText);
  EXPECT_EQ(session.kindInUse.load(), kind);
  ASSERT_EQ(std::system("ping -c 3 -i 0.2 127.0.0.1 >/dev/null 2>&1"), 0) << "ping failed";
  std::this_thread::sleep_for(300ms);  // quiet: Stop must not wait for another packet
  const auto stopped = std::chrono::steady_clock::now();
  session.Stop();
  session.Wait();
  EXPECT_LT(std::chrono::steady_clock::now() - stopped, 500ms);
  EXPECT_EQ(session.Status().status, CaptureStatus::Stopped);

  const std::time_t now = std::time(nullptr);
  char today[16];
  std::strftime(today, sizeof today, "%Y.%m.%d", std::localtime(&now));  // arrival, not 0 or a file's
  int icmp = 0;
  ListTextBuffer buffer{};
  for (std::size_t row = 0; row < store.RowCount(); ++row) {
    const PacketRef packet = store.Get(store.IndexAtRow(row));
    const auto text = [&](ListColumn column) { return std::string(ListColumnText(packet, nullptr, column, buffer)); };
    if (text(ListColumn::SourceIp) != "127.0.0.1" || text(ListColumn::DestinationIp) != "127.0.0.1") continue;
    EXPECT_EQ(packet.timeText, today);
    icmp += text(ListColumn::Type) == names::ProtocolName(1);
  }
  EXPECT_GE(icmp, 6);  // three requests, three replies
}

TEST(LiveCapture, BothKindsSeePingOnLoopbackAndStopPromptly) {
  CaptureTraffic(CaptureTarget::Address("127.0.0.1"), InterfaceKind::RawSockets,
                 "Listening on 127.0.0.1 (Using Raw Sockets)");
  CaptureTraffic(CaptureTarget::Adapter("lo", "Loopback"), InterfaceKind::PacketDriver,
                 "Listening on Loopback (Using Adapter)");
}

// A namespace of our own holding a veth pair: vmlt0 with 10.199.77.1/24, and its peer vmlt1.
// This thread (and the capture threads it starts) works inside it while the object lives; the
// namespace goes with the object.
class VethNamespace {
 public:
  VethNamespace() : name_("vormelt-veth-" + std::to_string(getpid())) {
    const std::string ip = "ip -n " + name_ + " ";
    if (std::system(("ip netns add " + name_ + " 2>/dev/null").c_str()) != 0) return;
    created_ = true;
    if (std::system((ip + "link add vmlt0 type veth peer name vmlt1 && " + ip +
                     "addr add 10.199.77.1/24 dev vmlt0 && " + ip + "link set vmlt0 up && " + ip +
                     "link set vmlt1 up").c_str()) != 0) {
      return;
    }
    home_ = open("/proc/self/ns/net", O_RDONLY);
    const int inside = open(("/var/run/netns/" + name_).c_str(), O_RDONLY);
    entered_ = home_ >= 0 && inside >= 0 && setns(inside, CLONE_NEWNET) == 0;
    if (inside >= 0) close(inside);
  }
  ~VethNamespace() {
    if (entered_) setns(home_, CLONE_NEWNET);
    if (home_ >= 0) close(home_);
    if (created_) std::system(("ip netns del " + name_).c_str());
  }
  bool ready() const { return entered_; }

  // Sends `frame` out of vmlt1 as it is, so vmlt0 receives it.
  static void SendFromPeer(const test::Bytes& frame) {
    Fd raw(socket(AF_PACKET, SOCK_RAW, 0));
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_ifindex = static_cast<int>(if_nametoindex("vmlt1"));
    address.sll_halen = 6;
    ASSERT_EQ(sendto(raw.fd, frame.data(), frame.size(), 0, reinterpret_cast<sockaddr*>(&address),
                     sizeof address),
              static_cast<ssize_t>(frame.size()));
  }

 private:
  std::string name_;
  bool created_ = false;
  bool entered_ = false;
  int home_ = -1;
};

TEST(LiveCapture, RawSocketsFramesOnEthernetLeaveTheLinkPaddingOut) {
  VethNamespace veth;
  if (!veth.ready()) GTEST_SKIP() << "cannot make a network namespace with a veth pair (needs root)";
  PacketStore store;
  CaptureSession session;
  ASSERT_EQ(StartAndWait(session, CaptureTarget::Address("10.199.77.1"), store), "");
  test::Ipv4Header ip;
  ip.source = {10, 199, 77, 2};
  ip.destination = {10, 199, 77, 1};
  test::TcpHeader ack;
  ack.flags = test::kAck;
  for (const test::Bytes& datagram : {test::TcpPacket(ip, ack, {}), test::UdpPacket(ip, 7, 7, test::Bytes{1, 2})}) {
    test::Bytes frame = test::EthernetFrame({0xff, 0xff, 0xff, 0xff, 0xff, 0xff}, {2, 0, 0, 0, 0, 2}, 0x0800, datagram);
    frame.resize(60, 0);  // what an Ethernet sender pads a short frame to
    VethNamespace::SendFromPeer(frame);
  }
  const auto deadline = std::chrono::steady_clock::now() + 3s;
  while (store.RowCount() < 2 && std::chrono::steady_clock::now() < deadline) std::this_thread::sleep_for(10ms);
  session.Stop();
  session.Wait();
  std::vector<std::uint32_t> lengths;
  for (std::size_t row = 0; row < store.RowCount(); ++row) {
    const PacketRef packet = store.Get(store.IndexAtRow(row));
    if (packet.network()[12] == 10 && packet.network()[15] == 2) lengths.push_back(packet.frameLength);
  }
  EXPECT_EQ(lengths, (std::vector<std::uint32_t>{14 + 40, 14 + 30}));
}

}  // namespace
}  // namespace vormelt
