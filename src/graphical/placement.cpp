// Label placement and the label board. The placement rule spreads labels over the surface with
// integer steps from a 15-bit random number; a full surface still gets its label, overlapping.
#include "graphical/placement.hpp"

#include <algorithm>

namespace vormelt::graphical {
namespace {

// One random coordinate: the room left for a label is spread over 0..32767 in integer steps.
// A surface too small for a label puts it at the margin rather than dividing by zero.
int RandomCoordinate(LabelRandom& random, int room, int margin) {
  const int value = random.Next();
  if (room <= 0) return margin;
  const int divisor = std::max(1, LabelRandom::kMax / room);
  return value / divisor + margin;
}

bool OverlapsAny(const Rect& rect, std::span<const Rect> occupied) {
  return std::ranges::any_of(occupied, [&](const Rect& r) { return r.Overlaps(rect); });
}

}  // namespace

std::uint32_t PlacementSeed(int mouseX, int mouseY, std::int64_t nowMilliseconds) {
  const auto position = static_cast<std::uint32_t>(mouseX) * 65599u + static_cast<std::uint32_t>(mouseY);
  return position ^ static_cast<std::uint32_t>(nowMilliseconds) ^
         static_cast<std::uint32_t>(nowMilliseconds >> 32);
}

Rect PlaceLabel(std::span<const Rect> occupied, int surfaceWidth, int surfaceHeight,
                LabelRandom& random, int tries, int width) {
  Rect rect;
  for (int attempt = 0; attempt < std::max(1, tries); ++attempt) {
    const int x = RandomCoordinate(random, surfaceWidth - width, kLabelMarginX);
    const int y = RandomCoordinate(random, surfaceHeight - kLabelHeight, kLabelMarginY);
    rect = Rect{x, y, x + width, y + kLabelHeight};
    if (!OverlapsAny(rect, occupied)) break;
  }
  return rect;
}

int LabelWidthFor(std::string_view text) {
  constexpr std::size_t kLongestIpv4 = 15;  // "255.255.255.255"
  if (text.size() <= kLongestIpv4) return kLabelWidth;
  return static_cast<int>(kLabelWidth * text.size() / kLongestIpv4);
}

const Label& LabelBoard::Touch(const IpAddress& address, std::int64_t nowMs,
                               std::uint64_t packets, std::uint64_t bytes, int surfaceWidth,
                               int surfaceHeight, LabelRandom& random) {
  auto found = index_.find(address);
  if (found == index_.end()) {
    Label label;
    label.address = address;
    label.text = address.ToString();
    label.rect = PlaceLabel(occupied_, surfaceWidth, surfaceHeight, random, kPlacementTries,
                            LabelWidthFor(label.text));
    occupied_.push_back(label.rect);
    labels_.push_back(std::move(label));
    found = index_.emplace(address, labels_.size() - 1).first;
  }
  Label& label = labels_[found->second];
  label.lastPacketMs = std::max(label.lastPacketMs, nowMs);
  label.packets += packets;
  label.bytes += bytes;
  return label;
}

std::size_t LabelBoard::Expire(std::int64_t nowMs, int timeoutSeconds) {
  const std::int64_t limit = std::int64_t{std::max(0, timeoutSeconds)} * 1000;
  std::size_t removed = 0;
  for (std::size_t i = 0; i < labels_.size();) {
    if (nowMs - labels_[i].lastPacketMs <= limit) {
      ++i;
      continue;
    }
    // Swap with the last: the moved label keeps its rectangle, only its index changes.
    index_.erase(labels_[i].address);
    if (i + 1 != labels_.size()) {
      labels_[i] = std::move(labels_.back());
      occupied_[i] = occupied_.back();
      index_[labels_[i].address] = i;
    }
    labels_.pop_back();
    occupied_.pop_back();
    ++removed;
  }
  return removed;
}

void LabelBoard::Clear() {
  labels_.clear();
  occupied_.clear();
  index_.clear();
}

const Label* LabelBoard::Find(const IpAddress& address) const {
  const auto found = index_.find(address);
  return found == index_.end() ? nullptr : &labels_[found->second];
}

const Label* LabelBoard::At(int x, int y) const {
  for (const Label& label : labels_) {
    if (label.rect.Contains(x, y)) return &label;
  }
  return nullptr;
}

}  // namespace vormelt::graphical
