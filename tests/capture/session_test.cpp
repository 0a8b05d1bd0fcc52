// CaptureSession over capture files: the frames a sink receives and their kind, how damaged
// files end, how a full store ends a capture with its status, and the start/stop/restart
// races (a sink that holds the receive thread inside Take makes them deterministic). Live on
// loopback: a held receive thread behind a small buffer makes the kernel drop, and says so.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <thread>
#include <vector>

#include "capture/session.hpp"
#include "packets/store.hpp"
#include "support/frames.hpp"
#include "support/live_capture.hpp"
#include "support/pcap_file.hpp"

namespace vormelt {
namespace {

using test::Bytes;
using namespace std::chrono_literals;

const test::Mac kDestination{0x00, 0x1b, 0x21, 0xaa, 0xbb, 0xcc};
const test::Mac kSource{0x3c, 0x7c, 0x3f, 0x01, 0x02, 0x0d};

// Keeps every frame; with `hold`, keeps the receive thread inside Take until Release().
class RecordingSink final : public FrameSink {
 public:
  SinkVerdict Take(const FrameRecord& frame) override {
    std::unique_lock lock(mutex_);
    frames.emplace_back(frame.bytes.begin(), frame.bytes.end());
    wireLengths.push_back(frame.wireLength);
    released_.wait(lock, [&] { return !hold; });
    return SinkVerdict::Stored;
  }
  bool IsFull() const override { return false; }
  void Release() {
    std::lock_guard lock(mutex_);
    hold = false;
    released_.notify_all();
  }
  std::size_t Count() {
    std::lock_guard lock(mutex_);
    return frames.size();
  }

  std::vector<Bytes> frames;
  std::vector<std::uint32_t> wireLengths;
  bool hold = false;

 private:
  std::mutex mutex_;
  std::condition_variable released_;
};

std::vector<Bytes> MixedEthernetFrames() {
  return {
      test::EthernetFrame(kDestination, kSource, 0x0800,
                          test::TcpPacket({}, {}, test::ToBytes("GET / HTTP/1.1\r\n\r\n"))),
      test::EthernetFrame(kDestination, kSource, 0x0806, test::ArpPacket({})),
      test::EthernetFrame(kDestination, kSource, 0x86DD, Bytes(40, 0x60)),
      Bytes(10, 0xEE),  // a runt, as the wire had it
  };
}

// Runs one capture of `path` into `sink` to its end; returns its messages.
std::vector<CaptureMessage> Capture(CaptureSession& session, const std::string& path, FrameSink& sink) {
  EXPECT_TRUE(session.Start(CaptureTarget::File(path), sink));
  session.Wait();
  EXPECT_FALSE(session.listening.load());
  return session.Messages().Drain();
}

TEST(CaptureFromFile, EthernetFilesGiveWholeFramesAndRawIpFilesThePseudoHeader) {
  test::TempDir dir;
  const auto frames = MixedEthernetFrames();
  test::WritePcap(dir.File("mixed.pcap"), test::kLinkEthernet, frames);
  CaptureSession session;
  RecordingSink ethernet, raw;
  EXPECT_TRUE(Capture(session, dir.File("mixed.pcap"), ethernet).empty());
  EXPECT_EQ(ethernet.frames, frames);
  EXPECT_EQ(session.kindInUse.load(), InterfaceKind::PacketDriver);
  EXPECT_EQ(session.BytesRead(), std::filesystem::file_size(dir.File("mixed.pcap")));

  const Bytes udp = test::UdpPacket({}, 53, 40000, test::ToBytes("answer"));
  Bytes ipv6(40, 0);
  ipv6[0] = 0x60;
  Bytes padded = udp;  // bytes behind the datagram are no part of it, on the wire either
  padded.resize(udp.size() + 6, 0);
  // The largest datagram becomes a 65,549-byte frame.
  const Bytes largest = test::UdpPacket({}, 9, 9, Bytes(65535 - 28, 'z'));
  // Raw IP carries IPv6 too, as an IPv6 link gives it; what is neither is counted, not kept.
  test::WritePcap(dir.File("raw.pcap"), test::kLinkRaw, {padded, ipv6, Bytes(20, 0x50), largest});
  EXPECT_TRUE(Capture(session, dir.File("raw.pcap"), raw).empty());
  EXPECT_EQ(raw.frames, (std::vector<Bytes>{test::RawSocketsFrame(udp), test::EthernetFrame({}, {}, kEtherTypeIpv6, ipv6),
                                            test::RawSocketsFrame(largest)}));
  EXPECT_EQ(raw.wireLengths, (std::vector<std::uint32_t>{14 + static_cast<std::uint32_t>(udp.size()), 54, 65549}));
  EXPECT_EQ(session.kindInUse.load(), InterfaceKind::RawSockets);
  EXPECT_EQ(session.Skipped().notIp, 1u);
}

TEST(CaptureFromFile, DamagedFilesKeepWhatWasReadAndSaySo) {
  test::TempDir dir;
  const auto frames = MixedEthernetFrames();
  test::WritePcap(dir.File("cut.pcap"), test::kLinkEthernet, frames);
  std::filesystem::resize_file(dir.File("cut.pcap"), std::filesystem::file_size(dir.File("cut.pcap")) - 4);
  std::ofstream(dir.File("garbage.pcap")) << "this is not a capture file at all";
  test::WritePcap(dir.File("wifi.pcap"), 105, frames);  // 802.11: not ours to read
  const std::pair<const char*, Text> cases[] = {{"cut.pcap", Text::CaptureFileDamaged},
                                                {"garbage.pcap", Text::CaptureFileUnreadable},
                                                {"missing.pcap", Text::CaptureFileUnreadable},
                                                {"wifi.pcap", Text::CaptureFileLinkType}};
  CaptureSession session;
  RecordingSink sink;
  for (const auto& [file, text] : cases) {
    const auto messages = Capture(session, dir.File(file), sink);
    ASSERT_EQ(messages.size(), 1u) << file;
    EXPECT_EQ(messages[0].text, text) << file;
  }
  EXPECT_EQ(sink.frames, std::vector<Bytes>(frames.begin(), frames.end() - 1));
}

TEST(CaptureFromFile, AFullStoreEndsTheCaptureWithItsStatus) {
  test::TempDir dir;
  const std::string path = dir.File("mixed.pcap");
  test::WritePcap(path, test::kLinkEthernet, MixedEthernetFrames());
  PacketStore store(3);  // fills up, so the capture stops; a fresh start on it stops at once
  CaptureSession session;
  for (int start = 0; start < 2; ++start) {
    Capture(session, path, store);
    EXPECT_EQ(store.RowCount(), 3u);
    EXPECT_EQ(store.ItemCount(), 2);
    EXPECT_EQ(StatusText(session.Status(), UiLanguage::German),
              "Angehalten/Höchstzahl an Paketen erreicht");
  }
}

// A capture of a.pcap whose receive thread is held inside Take on the first frame.
struct HeldCapture {
  test::TempDir dir;
  CaptureSession session;
  RecordingSink sink;
  CaptureTarget a, b;
  const Bytes other = test::EthernetFrame(kSource, kDestination, 0x0800, test::UdpPacket({}, 1, 2, {}));

  HeldCapture() {
    test::WritePcap(dir.File("a.pcap"), test::kLinkEthernet, MixedEthernetFrames());
    test::WritePcap(dir.File("b.pcap"), test::kLinkEthernet, {other});
    a = CaptureTarget::File(dir.File("a.pcap"));
    b = CaptureTarget::File(dir.File("b.pcap"));
    sink.hold = true;
    EXPECT_TRUE(session.Start(a, sink));
    while (sink.Count() == 0) std::this_thread::sleep_for(1ms);
  }
  // Lets the held loop go and waits until every capture has ended.
  void Finish() {
    sink.Release();
    do session.Wait();
    while (session.listening.load());
    session.Wait();
  }
};

TEST(CaptureSessionControl, ForcedStartWaitsForTheLoopAndAStopMeanwhileCancelsIt) {
  {
    HeldCapture held;
    EXPECT_EQ(StatusText(held.session.Status(), UiLanguage::English), "Reading a.pcap");
    EXPECT_FALSE(held.session.Start(held.b, held.sink));  // not forced: dropped
    ASSERT_TRUE(held.session.Start(held.b, held.sink, true));
    held.session.Stop();  // ends the held loop, and the forced start that waits behind it
    held.Finish();
    EXPECT_EQ(held.sink.frames.size(), 1u);
    EXPECT_EQ(held.session.Status().status, CaptureStatus::Stopped);
  }
  HeldCapture held;  // Restart: its own Stop ends the loop, then the new capture runs
  held.session.Restart(held.b, held.sink);
  held.Finish();
  ASSERT_EQ(held.sink.frames.size(), 2u);
  EXPECT_EQ(held.sink.frames.back(), held.other);
  EXPECT_TRUE(held.session.Messages().Drain().empty());
}

TEST(CaptureSessionControl, RestartNeverBlocksItsCallerAndGivesUpOnAStuckCapture) {
  HeldCapture held;
  const auto begun = std::chrono::steady_clock::now();
  held.session.Restart(held.b, held.sink);
  EXPECT_LT(std::chrono::steady_clock::now() - begun, 100ms);
  // The starter polls 100 times 10 ms, then says so and drops the request.
  std::vector<CaptureMessage> messages;
  while (messages.empty() && std::chrono::steady_clock::now() - begun < 10s) {
    std::this_thread::sleep_for(10ms);
    messages = held.session.Messages().Drain();
  }
  EXPECT_GE(std::chrono::steady_clock::now() - begun, 900ms);
  ASSERT_EQ(messages.size(), 1u);
  EXPECT_EQ(messages[0].text, Text::ProblemStoppingListening);
  held.Finish();
  EXPECT_EQ(held.sink.Count(), 1u);  // stopped after the frame it was holding; b never ran
}

// 4,000 UDP datagrams of 1,400 bytes to a closed port on 127.0.0.1: 5.6 MB, several times a
// 1 MiB capture buffer.
void FloodLoopback() {
  const int fd = socket(AF_INET, SOCK_DGRAM, 0);
  sockaddr_in to{};
  to.sin_family = AF_INET;
  to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  to.sin_port = htons(9);  // discard: nobody listens, the datagrams still cross loopback
  const std::vector<char> datagram(1400, 'f');
  for (int i = 0; i < 4000; ++i) {
    (void)sendto(fd, datagram.data(), datagram.size(), 0, reinterpret_cast<sockaddr*>(&to), sizeof to);
  }
  close(fd);
}

// The buffer size reaches the kernel: with the receive thread held in the sink, a flood larger
// than a 1 MiB buffer is dropped, counted, and said in the status line. (The program's default
// buffer would hold the whole flood, so this fails if the setting were not applied.)
TEST(CaptureLive, AHeldReceiveThreadBehindASmallBufferCountsAndSaysTheDrops) {
  RecordingSink sink;
  sink.hold = true;
  CaptureSession session;
  CaptureTarget target = CaptureTarget::Address("127.0.0.1");
  target.bufferMiB = 1;
  ASSERT_GT(kDefaultCaptureBufferMiB, 8);
  session.Start(target, sink);
  if (const std::string reason = test::AwaitListening(session); !reason.empty()) {
    sink.Release();
    GTEST_SKIP() << reason;
  }
  FloodLoopback();
  sink.Release();
  session.Stop();
  session.Wait();
  EXPECT_GT(session.Dropped(), 0u);
  EXPECT_GT(sink.Count(), 0u);
  const std::string status = StatusText(session.Status(), UiLanguage::English);
  EXPECT_EQ(status, "Stopped (" + std::to_string(session.Dropped()) + " dropped by the kernel)");
}

}  // namespace
}  // namespace vormelt
