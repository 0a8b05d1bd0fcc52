// The picture's model: labels, the lines and moving pixels of the packets gathered for each
// frame, their paths (straight or curved), blinking and the count of packets not drawn. The
// window advances it once per frame and paints what it holds; nothing here draws or waits.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

#include "graphical/gatherer.hpp"
#include "graphical/placement.hpp"
#include "graphical/view_state.hpp"

namespace vormelt::graphical {

// Moving pixels alive at once; packets beyond are counted in the corner instead. Chosen so a
// frame of pixels paints well inside the 16.7 ms of 60 Hz.
inline constexpr std::size_t kMaxMovingPixels = 4000;
// Lines alive at once, for the same reason.
inline constexpr std::size_t kMaxLines = 4000;
// Every animation step waits the extra delay plus this.
inline constexpr int kStepMilliseconds = 10;
// Slow mode keeps a line this many steps, so a 60 Hz display shows it.
inline constexpr int kSlowLineSteps = 6;

struct Colour {
  std::uint8_t red = 0, green = 0, blue = 0;
  friend bool operator==(const Colour&, const Colour&) = default;
};

// A random bright colour for an interface: each channel (random / 128) & 255, drawn again
// until the three add up to at least 381.
Colour BrightColour(LabelRandom& random);

struct PointF {
  double x = 0, y = 0;
};

// A connection from one label's centre to another's. Curved paths are cubic Bézier curves
// bowed to the left of their direction, so A->B and B->A take different ways.
struct Path {
  PointF start, control1, control2, end;
  bool curved = false;
};

Path MakePath(const Rect& from, const Rect& to, bool curved);
PointF PointOnPath(const Path& path, double t);  // t in 0..1

struct Line {
  IpAddress source, destination;
  Path path;
  Colour colour;
  std::int64_t bornMs = 0;
  std::int64_t untilMs = 0;
  std::uint64_t packets = 0;
  bool shown = false;  // painted at least once: a line never vanishes unseen
};

struct MovingPixel {
  Path path;
  Colour colour;
  std::int64_t bornMs = 0;
  double durationMs = 1;
  double phase = 0;  // where on its circle (or swing) the pixel starts
};

class Scene {
 public:
  explicit Scene(std::uint32_t seed, GraphicalSettings options = {});

  void SetSurface(int width, int height);
  int Width() const { return width_; }
  int Height() const { return height_; }

  ViewState& State() { return state_; }
  const GraphicalSettings& Options() const { return state_.options; }

  // One frame's gathered traffic of one capture, drawn in that capture's colour.
  void Feed(std::span<const PairTraffic> pairs, Colour colour, std::int64_t nowMs);
  void AddNotDrawn(std::uint64_t packets) { notDrawn_ += packets; }
  // Removes quiet labels, finished lines and arrived pixels.
  void Advance(std::int64_t nowMs);
  // The painter has shown the current lines once.
  void MarkShown();
  // Esc: an empty surface, as at the start.
  void Clear();

  // Where a pixel is at `nowMs`, with its circling or swinging around the path.
  PointF PixelPosition(const MovingPixel& pixel, std::int64_t nowMs) const;
  // Brightness 0..255 of something drawn at `bornMs`, by the blink mode.
  int Level(std::int64_t bornMs, std::int64_t nowMs) const;

  const LabelBoard& Board() const { return board_; }
  std::span<const Line> Lines() const { return lines_; }
  std::span<const MovingPixel> Pixels() const { return pixels_; }
  std::uint64_t NotDrawn() const { return notDrawn_; }
  // Packets drawn since the last call (one chirp per frame that drew any).
  std::uint64_t TakeDrawnPackets();

 private:
  void AddLine(const PairTraffic& pair, const Path& path, Colour colour, std::int64_t nowMs);
  void AddPixel(const PairTraffic& pair, const Path& path, Colour colour, std::int64_t nowMs);
  std::int64_t LineLifeMs() const;

  ViewState state_;
  LabelRandom random_;
  LabelBoard board_;
  int width_ = 800, height_ = 600;
  std::vector<Line> lines_;
  std::unordered_map<AddressPair, std::size_t, AddressPairHash> lineIndex_;
  std::vector<MovingPixel> pixels_;
  std::uint64_t notDrawn_ = 0;
  std::uint64_t drawnPackets_ = 0;
};

// Which of the host's addresses came and went between two looks.
struct AddressChanges {
  std::vector<std::string> added, removed;
};
AddressChanges CompareAddresses(std::span<const std::string> before,
                                std::span<const std::string> now);
// "a.b.c.d" as a number, or 0 for anything else.
Ipv4 ParseDotted(const std::string& text);

}  // namespace vormelt::graphical
