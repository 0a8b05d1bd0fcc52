// Graphical Packets Mode without a display: placement on a full surface, label expiry, the
// keys' limits and cycles, pair gathering over hostile frames, the pixel cap, paced replay.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <thread>

#include "graphical/gatherer.hpp"
#include "graphical/placement.hpp"
#include "graphical/scene.hpp"
#include "graphical/view_state.hpp"
#include "support/frames.hpp"

namespace vormelt::graphical {
namespace {

test::Bytes Frame(std::string_view source, std::string_view destination) {
  test::Ipv4Header ip;
  ip.source = test::ParseIp(source);
  ip.destination = test::ParseIp(destination);
  return test::RawSocketsFrame(test::UdpPacket(ip, 1000, 53, test::ToBytes("x")));
}

TEST(LabelPlacement, FullSurfaceKeepsTheLastOf2048Tries) {
  const std::vector<Rect> everything = {Rect{0, 0, 5000, 5000}};
  LabelRandom random(7);
  const Rect placed = PlaceLabel(everything, 1024, 768, random);
  EXPECT_EQ(random.Draws(), 2u * kPlacementTries);  // x and y per try

  // Replaying the same seed: the result is the 2,048th rectangle, x then y.
  LabelRandom replay(7);
  for (int i = 0; i < 2 * (kPlacementTries - 1); ++i) replay.Next();
  const int x = replay.Next() / (32767 / (1024 - 120)) + 15;
  const int y = replay.Next() / (32767 / (768 - 20)) + 10;
  EXPECT_EQ(placed, (Rect{x, y, x + 120, y + 20}));

  // A free surface takes the first try; a surface smaller than a label does not divide by 0.
  LabelRandom fresh(7);
  PlaceLabel({}, 1024, 768, fresh);
  EXPECT_EQ(fresh.Draws(), 2u);
  EXPECT_EQ(PlaceLabel({}, 50, 5, fresh), (Rect{15, 10, 135, 30}));
}

TEST(LabelBoard, LabelsNeverOverlapWhileThereIsRoomAndStayPutWhenOthersGo) {
  LabelBoard board;
  LabelRandom random(1);
  for (Ipv4 a = 1; a <= 40; ++a) {
    board.Touch(IpAddress::V4(a), a <= 20 ? 0 : 5000, 1, 60, 1920, 1080, random);
  }
  for (std::size_t i = 0; i < 40; ++i) {
    for (std::size_t j = i + 1; j < 40; ++j) {
      EXPECT_FALSE(board.Labels()[i].rect.Overlaps(board.Labels()[j].rect));
    }
  }
  const Rect kept = board.Find(IpAddress::V4(33))->rect;
  // Timeout 3 s: the first twenty, quiet since 0, are gone at 3,001 ms; the rest stay put.
  EXPECT_EQ(board.Expire(3000, 3), 0u);
  EXPECT_EQ(board.Expire(3001, 3), 20u);
  EXPECT_EQ(board.Find(IpAddress::V4(5)), nullptr);
  EXPECT_EQ(board.Find(IpAddress::V4(33))->rect, kept);
  EXPECT_EQ(board.Find(IpAddress::V4(33))->text, "0.0.0.33");
  EXPECT_EQ(board.At(kept.left, kept.top), board.Find(IpAddress::V4(33)));
  EXPECT_EQ(board.Occupied().size(), 20u);
}

TEST(Keys, TimeoutLimitsBlinkCycleAndFullScreen) {
  ViewState state;
  state.options.ipTimeout = 0;
  KeyOutcome out = HandleKey(state, Key::F7);
  EXPECT_EQ(state.options.ipTimeout, 0);
  ASSERT_TRUE(out.notice);
  EXPECT_EQ(FormatText(out.notice->text, UiLanguage::English, *out.notice->number), "IP Timeout: 0");
  state.options.ipTimeout = 300;
  HandleKey(state, Key::F8);
  EXPECT_EQ(state.options.ipTimeout, 300);

  const int start = state.options.blinkMode;
  std::vector<Text> notices;
  for (int i = 0; i < 5; ++i) notices.push_back(HandleKey(state, Key::F9).notice->text);
  EXPECT_EQ(state.options.blinkMode, start);
  EXPECT_EQ(notices, (std::vector<Text>{Text::GpBlinkSlowSquared, Text::GpBlinkFastSquared,
                                        Text::GpBlinkSlowCubed, Text::GpBlinkFastCubed,
                                        Text::GpBlinkOff}));

  // Space and F11 share one state; F12 from primary goes straight to all displays.
  EXPECT_EQ(HandleKey(state, Key::Space).notice->text, Text::GpPrimaryFullScreenOn);
  EXPECT_EQ(HandleKey(state, Key::F12).notice->text, Text::GpMultiFullScreenOn);
  EXPECT_EQ(state.fullScreen, FullScreen::AllDisplays);
  EXPECT_EQ(HandleKey(state, Key::F11).notice->text, Text::GpPrimaryFullScreenOn);
  EXPECT_EQ(HandleKey(state, Key::F11).notice->text, Text::GpPrimaryFullScreenOff);
  EXPECT_EQ(state.fullScreen, FullScreen::Off);

  EXPECT_EQ(HandleKey(state, Key::F3).notice->text, Text::GpPixelModeOn);
  EXPECT_EQ(HandleKey(state, Key::Escape).action, KeyAction::ClearAndRestart);
  EXPECT_EQ(HandleKey(state, Key::Context).action, KeyAction::OpenSettings);
  EXPECT_EQ(HandleKey(state, Key::Enter).action, KeyAction::Begin);
  state.started = true;
  EXPECT_EQ(HandleKey(state, Key::Enter).action, KeyAction::None);
}

TEST(PairGatherer, SumsPerPairAndSkipsWhatIsNoIpv4Pair) {
  PairGatherer gatherer;
  for (int i = 0; i < 3; ++i) gatherer.Take(test::Record(Frame("10.0.0.1", "10.0.0.2"), InterfaceKind::RawSockets));
  gatherer.Take(test::Record(Frame("10.0.0.2", "10.0.0.1"), InterfaceKind::RawSockets));
  // Hostile frames: cut inside the addresses, an ARP frame, nothing at all.
  const test::Bytes good = Frame("1.2.3.4", "5.6.7.8");
  for (std::size_t cut : {0, 13, 14, 33}) {
    EXPECT_EQ(gatherer.Take(test::Record(std::span(good).first(cut), InterfaceKind::RawSockets)),
              SinkVerdict::Skipped);
  }
  test::Bytes arp = good;
  arp[12] = 0x08, arp[13] = 0x06;
  EXPECT_EQ(gatherer.Take(test::Record(arp, InterfaceKind::PacketDriver)), SinkVerdict::Skipped);

  std::uint64_t overflow = 0;
  std::vector<PairTraffic> pairs = gatherer.Drain(overflow);
  ASSERT_EQ(pairs.size(), 2u);
  std::ranges::sort(pairs, {}, &PairTraffic::packets);
  EXPECT_EQ(pairs[1].packets, 3u);
  EXPECT_EQ(pairs[1].source, *IpAddress::Parse("10.0.0.1"));
  EXPECT_EQ(pairs[1].bytes, 3u * good.size());
  EXPECT_TRUE(gatherer.Drain(overflow).empty());
  EXPECT_EQ(overflow, 0u);
}

TEST(PairGatherer, Ipv6PairsGetLabelsWideEnoughForTheirText) {
  test::Bytes frame(14 + 40, 0);
  frame[12] = 0x86, frame[13] = 0xDD, frame[14] = 0x60, frame[14 + 6] = 59;  // no next header
  frame[14 + 23] = 1, frame[14 + 24] = 0x20, frame[14 + 25] = 0x01, frame[14 + 39] = 2;  // 2001::2
  PairGatherer gatherer;
  EXPECT_EQ(gatherer.Take(test::Record(frame, InterfaceKind::PacketDriver)), SinkVerdict::Stored);
  EXPECT_EQ(gatherer.Take(test::Record(std::span(frame).first(53), InterfaceKind::PacketDriver)),
            SinkVerdict::Skipped);
  std::uint64_t overflow = 0;
  const std::vector<PairTraffic> pairs = gatherer.Drain(overflow);
  ASSERT_EQ(pairs.size(), 1u);
  EXPECT_EQ(pairs[0].source.ToString() + " " + pairs[0].destination.ToString(), "::1 2001::2");

  LabelBoard board;
  LabelRandom random(1);
  const Rect rect = board.Touch(*IpAddress::Parse("2001:db8:85a3::8a2e:370:7334"), 0, 1, 60, 1920,
                                1080, random).rect;
  EXPECT_EQ(rect.right - rect.left, kLabelWidth * 28 / 15);
}

TEST(Scene, PixelsAreCappedAndTheRestCountedAndCurvesSeparateDirections) {
  GraphicalSettings options;
  options.pixelMode = true;
  Scene scene(3, options);
  scene.SetSurface(4000, 4000);
  std::vector<PairTraffic> pairs;
  // Few labels, many pairs: 80 x 51 = 4,080 pairs, ten past the cap.
  for (Ipv4 a = 1; a <= 80; ++a) {
    for (Ipv4 b = 1000; b < 1051; ++b) {
      pairs.push_back({IpAddress::V4(a), IpAddress::V4(b), 2, 100});
    }
  }
  scene.Feed(pairs, Colour{255, 255, 255}, 0);
  EXPECT_EQ(scene.Pixels().size(), kMaxMovingPixels);
  EXPECT_EQ(scene.NotDrawn(), 2u * (80 * 51 - kMaxMovingPixels));
  scene.Advance(1'000'000);  // every pixel has arrived
  EXPECT_TRUE(scene.Pixels().empty());

  const Rect a{0, 0, 120, 20}, b{600, 400, 720, 420};
  const PointF there = PointOnPath(MakePath(a, b, true), 0.5);
  const PointF back = PointOnPath(MakePath(b, a, true), 0.5);
  const PointF straight = PointOnPath(MakePath(a, b, false), 0.5);
  EXPECT_GT(std::hypot(there.x - back.x, there.y - back.y), 50);
  EXPECT_NEAR(straight.x, 360, 1e-9);
  EXPECT_NEAR(PointOnPath(MakePath(a, b, true), 1).x, 660, 1e-9);
}

TEST(PacedSinkRace, ReplaysAtRecordedPaceAndCancelEndsALongWait) {
  PairGatherer gatherer;
  PacedSink paced(gatherer, 10);
  const test::Bytes frame = Frame("10.0.0.1", "10.0.0.2");
  const CaptureTime t0 = CaptureTime(std::chrono::seconds(1'000'000));
  const auto start = std::chrono::steady_clock::now();
  paced.Take(test::Record(frame, InterfaceKind::RawSockets, t0));
  paced.Take(test::Record(frame, InterfaceKind::RawSockets, t0 + std::chrono::milliseconds(500)));
  const auto took = std::chrono::steady_clock::now() - start;
  EXPECT_GE(took, std::chrono::milliseconds(45));  // 500 ms at x10
  EXPECT_LT(took, std::chrono::milliseconds(400));

  // An hour's gap in the file; Cancel from another thread ends the wait at once.
  std::jthread canceller([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    paced.Cancel();
  });
  EXPECT_EQ(paced.Take(test::Record(frame, InterfaceKind::RawSockets, t0 + std::chrono::hours(1))),
            SinkVerdict::Skipped);
  EXPECT_EQ(gatherer.Packets(), 2u);
}

}  // namespace
}  // namespace vormelt::graphical
