// The picture's model. Lines are kept one per direction of a pair and lengthened by later
// packets; pixels one per pair and frame. Both are capped, and what the caps turn away is
// counted, so a flood slows nothing and the user still sees how much was left out.
#include "graphical/scene.hpp"

#include <algorithm>
#include <arpa/inet.h>
#include <cmath>
#include <utility>

namespace vormelt::graphical {
namespace {

constexpr int kMinBrightSum = 381;
// How far a curve bows out, as a share of the distance, and at most.
constexpr double kCurveBow = 0.18;
constexpr double kMaxCurveBow = 120.0;
// Pixels advance this many surface pixels per step for each unit of "Speed of Pixels".
constexpr double kPixelsPerStepPerSpeed = 2.0;
// A circling pixel turns this many radians per surface pixel travelled.
constexpr double kTurnPerPixel = 0.15;

PointF Centre(const Rect& r) {
  return {static_cast<double>(r.CentreX()), static_cast<double>(r.CentreY())};
}

double Distance(PointF a, PointF b) { return std::hypot(b.x - a.x, b.y - a.y); }

}  // namespace

Colour BrightColour(LabelRandom& random) {
  for (;;) {
    const int red = (random.Next() / 128) & 255;
    const int green = (random.Next() / 128) & 255;
    const int blue = (random.Next() / 128) & 255;
    if (red + green + blue >= kMinBrightSum) {
      return Colour{static_cast<std::uint8_t>(red), static_cast<std::uint8_t>(green),
                    static_cast<std::uint8_t>(blue)};
    }
  }
}

Path MakePath(const Rect& from, const Rect& to, bool curved) {
  Path path;
  path.start = Centre(from);
  path.end = Centre(to);
  path.curved = curved;
  const double dx = path.end.x - path.start.x, dy = path.end.y - path.start.y;
  const double length = std::hypot(dx, dy);
  // The normal turns with the direction, so the way back bows to the other side.
  const double bow = std::min(kMaxCurveBow, length * kCurveBow);
  const double nx = length > 0 ? -dy / length * bow : 0, ny = length > 0 ? dx / length * bow : 0;
  path.control1 = {path.start.x + dx / 3 + nx, path.start.y + dy / 3 + ny};
  path.control2 = {path.start.x + 2 * dx / 3 + nx, path.start.y + 2 * dy / 3 + ny};
  return path;
}

PointF PointOnPath(const Path& p, double t) {
  t = std::clamp(t, 0.0, 1.0);
  if (!p.curved) return {p.start.x + (p.end.x - p.start.x) * t, p.start.y + (p.end.y - p.start.y) * t};
  const double u = 1 - t;
  const double a = u * u * u, b = 3 * u * u * t, c = 3 * u * t * t, d = t * t * t;
  return {a * p.start.x + b * p.control1.x + c * p.control2.x + d * p.end.x,
          a * p.start.y + b * p.control1.y + c * p.control2.y + d * p.end.y};
}

Scene::Scene(std::uint32_t seed, GraphicalSettings options) : random_(seed) {
  state_.options = options;
}

void Scene::SetSurface(int width, int height) {
  width_ = std::max(1, width);
  height_ = std::max(1, height);
}

std::int64_t Scene::LineLifeMs() const {
  const std::int64_t step = kStepMilliseconds + state_.options.extraDelayMs;
  return state_.options.slowMode ? step * kSlowLineSteps : step;
}

void Scene::Feed(std::span<const PairTraffic> pairs, Colour colour, std::int64_t nowMs) {
  // The rule puts labels up to a margin past the room it is given; giving it the surface less
  // the margins keeps them as far from the right and bottom edges as from the left and top.
  const int roomWidth = width_ - 2 * kLabelMarginX, roomHeight = height_ - 2 * kLabelMarginY;
  for (const PairTraffic& pair : pairs) {
    const Label& from = board_.Touch(pair.source, nowMs, pair.packets, pair.bytes, roomWidth, roomHeight, random_);
    const Rect fromRect = from.rect;  // Touch below may move the board's storage
    // Both ends count the pair's traffic: the hover tip shows all an address sent and received.
    const Label& to = board_.Touch(pair.destination, nowMs, pair.packets, pair.bytes, roomWidth, roomHeight, random_);
    if (pair.source == pair.destination) continue;  // nowhere to go; the label shows it
    const bool pixels = state_.options.pixelMode;
    const bool curved = pixels ? !state_.options.straightPixels : state_.options.curvedLines;
    const Path path = MakePath(fromRect, to.rect, curved);
    if (pixels) {
      AddPixel(pair, path, colour, nowMs);
    } else {
      AddLine(pair, path, colour, nowMs);
    }
  }
}

void Scene::AddLine(const PairTraffic& pair, const Path& path, Colour colour, std::int64_t nowMs) {
  const AddressPair key{pair.source, pair.destination};
  if (const auto found = lineIndex_.find(key); found != lineIndex_.end()) {
    Line& line = lines_[found->second];
    line.untilMs = nowMs + LineLifeMs();
    line.packets += pair.packets;
    line.path = path;
    drawnPackets_ += pair.packets;
    return;
  }
  if (lines_.size() >= kMaxLines) {
    notDrawn_ += pair.packets;
    return;
  }
  lineIndex_.emplace(key, lines_.size());
  lines_.push_back(Line{pair.source, pair.destination, path, colour, nowMs, nowMs + LineLifeMs(),
                        pair.packets, false});
  drawnPackets_ += pair.packets;
}

void Scene::AddPixel(const PairTraffic& pair, const Path& path, Colour colour, std::int64_t nowMs) {
  if (pixels_.size() >= kMaxMovingPixels) {
    notDrawn_ += pair.packets;
    return;
  }
  const double stepPixels = kPixelsPerStepPerSpeed * state_.options.pixelSpeed;
  const double stepMs = kStepMilliseconds + state_.options.extraDelayMs;
  const double length = std::max(1.0, Distance(path.start, path.end));
  const double phase = random_.Next() * (2 * M_PI / LabelRandom::kMax);
  pixels_.push_back(MovingPixel{path, colour, nowMs, length / stepPixels * stepMs, phase});
  // One pixel stands for the pair's packets of this frame.
  drawnPackets_ += pair.packets;
}

void Scene::Advance(std::int64_t nowMs) {
  board_.Expire(nowMs, state_.options.ipTimeout);
  std::erase_if(pixels_, [&](const MovingPixel& p) { return nowMs - p.bornMs >= p.durationMs; });
  const auto gone = [&](const Line& l) { return l.shown && nowMs >= l.untilMs; };
  if (std::ranges::any_of(lines_, gone)) {
    std::erase_if(lines_, gone);
    lineIndex_.clear();
    for (std::size_t i = 0; i < lines_.size(); ++i) {
      lineIndex_.emplace(AddressPair{lines_[i].source, lines_[i].destination}, i);
    }
  }
}

void Scene::MarkShown() {
  for (Line& line : lines_) line.shown = true;
}

void Scene::Clear() {
  board_.Clear();
  lines_.clear();
  lineIndex_.clear();
  pixels_.clear();
  notDrawn_ = 0;
}

PointF Scene::PixelPosition(const MovingPixel& pixel, std::int64_t nowMs) const {
  const double t = static_cast<double>(nowMs - pixel.bornMs) / pixel.durationMs;
  PointF at = PointOnPath(pixel.path, t);
  const double radius = state_.options.circularity;
  if (radius <= 0) return at;
  const double travelled = t * Distance(pixel.path.start, pixel.path.end);
  const double angle = pixel.phase + travelled * kTurnPerPixel;
  if (state_.options.oscillate) {
    // Swing across the straight direction of travel.
    const double dx = pixel.path.end.x - pixel.path.start.x, dy = pixel.path.end.y - pixel.path.start.y;
    const double length = std::max(1.0, std::hypot(dx, dy));
    at.x += -dy / length * radius * std::sin(angle);
    at.y += dx / length * radius * std::sin(angle);
    return at;
  }
  at.x += radius * std::cos(angle);
  at.y += radius * std::sin(angle);
  return at;
}

int Scene::Level(std::int64_t bornMs, std::int64_t nowMs) const {
  return BlinkLevel(state_.options.blinkMode, nowMs - bornMs);
}

std::uint64_t Scene::TakeDrawnPackets() {
  return std::exchange(drawnPackets_, 0);
}

AddressChanges CompareAddresses(std::span<const std::string> before,
                                std::span<const std::string> now) {
  AddressChanges changes;
  for (const std::string& address : now) {
    if (std::ranges::find(before, address) == before.end()) changes.added.push_back(address);
  }
  for (const std::string& address : before) {
    if (std::ranges::find(now, address) == now.end()) changes.removed.push_back(address);
  }
  return changes;
}

Ipv4 ParseDotted(const std::string& text) {
  in_addr parsed{};
  if (inet_pton(AF_INET, text.c_str(), &parsed) != 1) return 0;
  return ntohl(parsed.s_addr);
}

}  // namespace vormelt::graphical
