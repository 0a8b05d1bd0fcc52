// Address labels and where they sit: the random placement with its overlap test, and the board
// that keeps every live label until it has been quiet for the IP Timeout. A label never moves
// once placed; nothing here lays labels out again or knows how they are drawn.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "common/ip_address.hpp"

namespace vormelt::graphical {

using Ipv4 = std::uint32_t;  // host order: 127.0.0.1 is 0x7F000001

// An ordered pair of addresses (source, destination), as the gatherer and the lines key them.
struct AddressPair {
  IpAddress source, destination;
  friend bool operator==(const AddressPair&, const AddressPair&) = default;
};
struct AddressPairHash {
  std::size_t operator()(const AddressPair& pair) const {
    const IpAddressHash hash;
    return hash(pair.source) * 31 + hash(pair.destination);
  }
};

inline constexpr int kLabelWidth = 120;
inline constexpr int kLabelHeight = 20;
inline constexpr int kPlacementTries = 2048;
// Labels keep this far from the left and top edges.
inline constexpr int kLabelMarginX = 15;
inline constexpr int kLabelMarginY = 10;

struct Rect {
  int left = 0, top = 0, right = 0, bottom = 0;

  // Half-open: labels that only touch along an edge do not overlap.
  bool Overlaps(const Rect& other) const {
    return left < other.right && other.left < right && top < other.bottom && other.top < bottom;
  }
  bool Contains(int x, int y) const { return x >= left && x < right && y >= top && y < bottom; }
  int CentreX() const { return (left + right) / 2; }
  int CentreY() const { return (top + bottom) / 2; }
  friend bool operator==(const Rect&, const Rect&) = default;
};

// The small random generator the placement and the interface colours draw from: 0..32767,
// the same sequence for the same seed, so a test can replay a placement.
class LabelRandom {
 public:
  static constexpr int kMax = 32767;
  explicit LabelRandom(std::uint32_t seed) : state_(seed) {}
  int Next() {
    ++draws_;
    state_ = state_ * 214013u + 2531011u;
    return static_cast<int>((state_ >> 16) & 0x7FFFu);
  }
  std::uint64_t Draws() const { return draws_; }

 private:
  std::uint32_t state_;
  std::uint64_t draws_ = 0;
};

// A seed from the mouse position and the clock, so two runs place labels differently.
std::uint32_t PlacementSeed(int mouseX, int mouseY, std::int64_t nowMilliseconds);

// Tries up to `tries` random rectangles `width` wide on a surface of the given size and returns
// the first that overlaps none of `occupied`; when all overlap (a full surface) the last one tried.
Rect PlaceLabel(std::span<const Rect> occupied, int surfaceWidth, int surfaceHeight,
                LabelRandom& random, int tries = kPlacementTries, int width = kLabelWidth);

// How wide the label of `text` is: kLabelWidth holds the longest IPv4 address; a longer IPv6
// text widens it in proportion.
int LabelWidthFor(std::string_view text);

struct Label {
  IpAddress address;
  Rect rect;
  std::string text;
  std::int64_t lastPacketMs = 0;
  std::uint64_t packets = 0;
  std::uint64_t bytes = 0;
};

// The live labels. Used from one thread (the window's); the capture threads never touch it.
class LabelBoard {
 public:
  // The label of `address`, placed now when it has none. Counts `packets` and `bytes` to it
  // and marks it active at `nowMs`.
  const Label& Touch(const IpAddress& address, std::int64_t nowMs, std::uint64_t packets,
                     std::uint64_t bytes, int surfaceWidth, int surfaceHeight, LabelRandom& random);
  // Removes labels quiet for longer than `timeoutSeconds`; returns how many went.
  std::size_t Expire(std::int64_t nowMs, int timeoutSeconds);
  void Clear();

  const Label* Find(const IpAddress& address) const;
  // The label under a point (the mouse), or null.
  const Label* At(int x, int y) const;
  std::span<const Label> Labels() const { return labels_; }
  std::span<const Rect> Occupied() const { return occupied_; }

 private:
  std::vector<Label> labels_;
  std::vector<Rect> occupied_;  // labels_[i].rect, kept apart for a tight overlap loop
  std::unordered_map<IpAddress, std::size_t, IpAddressHash> index_;
};

}  // namespace vormelt::graphical
