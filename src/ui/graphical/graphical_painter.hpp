// Paints one frame of the Graphical Packets picture into a QImage: black ground, the lines or
// moving pixels, the address labels. Used by the window (which then shows the image) and by
// the benchmark; it reads the scene and never changes it.
#pragma once

#include <QColor>
#include <QFont>
#include <QHash>
#include <QImage>
#include <QStaticText>
#include <cstdint>

#include "graphical/scene.hpp"

namespace vormelt {
// Lets an address key a QHash or QSet (the label text cache, the hover tip's names).
inline size_t qHash(const IpAddress& address, size_t seed = 0) {
  return IpAddressHash{}(address) ^ seed;
}
}  // namespace vormelt

namespace vormelt::ui {

// Label texts laid out once and kept while their label lives: drawing a thousand labels at
// 60 Hz must not lay out a thousand texts each frame.
class LabelTextCache {
 public:
  const QStaticText& Text(const graphical::Label& label, const QFont& font);
  // Drops texts of labels no longer on the board.
  void Prune(const graphical::LabelBoard& board);

 private:
  QHash<IpAddress, QStaticText> texts_;
};

struct PaintStyle {
  QColor labelColour{0xFF, 0xFF, 0x00};
  QFont labelFont;
};

// `image` is resized to the scene's surface when it differs; its format is kept 32-bit RGB.
void PaintScene(QImage& image, const graphical::Scene& scene, std::int64_t nowMs,
                const PaintStyle& style, LabelTextCache& texts);

}  // namespace vormelt::ui
