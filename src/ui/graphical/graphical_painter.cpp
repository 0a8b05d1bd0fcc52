// One frame of the picture. Lines and pixels are written straight into the image's 32-bit
// rows: a thousand long lines a frame is a million pixels, which QPainter's general line
// path cannot set within the 16.7 ms of a 60 Hz frame, and a plain Bresenham walk can many
// times over. Blinking scales the colour towards the black ground. Labels go through QPainter.
#include "ui/graphical/graphical_painter.hpp"

#include <QPainter>
#include <cmath>
#include <cstdlib>

namespace vormelt::ui {
namespace {

using graphical::Colour;

// Curves are walked as this many straight pieces; at this size the eye cannot tell.
constexpr int kCurvePieces = 12;

QRgb Shade(Colour c, int level) {
  return qRgb(c.red * level / 255, c.green * level / 255, c.blue * level / 255);
}

class Canvas {
 public:
  explicit Canvas(QImage& image)
      : bits_(reinterpret_cast<QRgb*>(image.bits())),
        stride_(image.bytesPerLine() / 4),
        width_(image.width()),
        height_(image.height()) {}

  void Set(int x, int y, QRgb colour) {
    if (x >= 0 && y >= 0 && x < width_ && y < height_) bits_[y * stride_ + x] = colour;
  }

  void Block(int x, int y, int size, QRgb colour) {
    for (int dy = 0; dy < size; ++dy) {
      for (int dx = 0; dx < size; ++dx) Set(x + dx, y + dy, colour);
    }
  }

  void Line(int x0, int y0, int x1, int y1, QRgb colour) {
    if (!Clip(x0, y0, x1, y1)) return;
    const int dx = std::abs(x1 - x0), sx = x0 < x1 ? 1 : -1;
    const int dy = -std::abs(y1 - y0), sy = y0 < y1 ? 1 : -1;
    int error = dx + dy;
    for (;;) {
      Set(x0, y0, colour);
      if (x0 == x1 && y0 == y1) return;
      const int twice = 2 * error;
      if (twice >= dy) error += dy, x0 += sx;
      if (twice <= dx) error += dx, y0 += sy;
    }
  }

 private:
  // Lines wholly outside the image are skipped; the rest are walked with a bounds test per
  // pixel, which is cheap next to the walk itself.
  bool Clip(int x0, int y0, int x1, int y1) const {
    return !((x0 < 0 && x1 < 0) || (y0 < 0 && y1 < 0) || (x0 >= width_ && x1 >= width_) ||
             (y0 >= height_ && y1 >= height_));
  }

  QRgb* bits_;
  qsizetype stride_;
  int width_, height_;
};

void WalkPath(Canvas& canvas, const graphical::Path& path, QRgb colour) {
  const auto round = [](double v) { return static_cast<int>(std::lround(v)); };
  if (!path.curved) {
    canvas.Line(round(path.start.x), round(path.start.y), round(path.end.x), round(path.end.y), colour);
    return;
  }
  graphical::PointF from = path.start;
  for (int i = 1; i <= kCurvePieces; ++i) {
    const graphical::PointF to = graphical::PointOnPath(path, static_cast<double>(i) / kCurvePieces);
    canvas.Line(round(from.x), round(from.y), round(to.x), round(to.y), colour);
    from = to;
  }
}

void PaintLines(Canvas& canvas, const graphical::Scene& scene, std::int64_t nowMs) {
  for (const graphical::Line& line : scene.Lines()) {
    const int level = scene.Level(line.bornMs, nowMs);
    if (level > 0) WalkPath(canvas, line.path, Shade(line.colour, level));
  }
}

void PaintPixels(Canvas& canvas, const graphical::Scene& scene, std::int64_t nowMs) {
  const int size = scene.Options().quadPixels ? 2 : 1;
  for (const graphical::MovingPixel& pixel : scene.Pixels()) {
    const int level = scene.Level(pixel.bornMs, nowMs);
    if (level == 0) continue;
    const graphical::PointF at = scene.PixelPosition(pixel, nowMs);
    canvas.Block(static_cast<int>(at.x), static_cast<int>(at.y), size, Shade(pixel.colour, level));
  }
}

}  // namespace

const QStaticText& LabelTextCache::Text(const graphical::Label& label, const QFont& font) {
  auto found = texts_.find(label.address);
  if (found == texts_.end()) {
    QStaticText text(QString::fromStdString(label.text));
    text.setTextFormat(Qt::PlainText);
    text.prepare(QTransform(), font);
    found = texts_.insert(label.address, text);
  }
  return *found;
}

void LabelTextCache::Prune(const graphical::LabelBoard& board) {
  if (texts_.size() <= static_cast<qsizetype>(board.Labels().size())) return;
  for (auto it = texts_.begin(); it != texts_.end();) {
    it = board.Find(it.key()) ? std::next(it) : texts_.erase(it);
  }
}

void PaintScene(QImage& image, const graphical::Scene& scene, std::int64_t nowMs,
                const PaintStyle& style, LabelTextCache& texts) {
  if (image.size() != QSize(scene.Width(), scene.Height()) || image.format() != QImage::Format_RGB32) {
    image = QImage(scene.Width(), scene.Height(), QImage::Format_RGB32);
  }
  image.fill(Qt::black);
  Canvas canvas(image);
  if (scene.Options().pixelMode) {
    PaintPixels(canvas, scene, nowMs);
  } else {
    PaintLines(canvas, scene, nowMs);
  }
  QPainter painter(&image);
  painter.setFont(style.labelFont);
  painter.setPen(style.labelColour);
  for (const graphical::Label& label : scene.Board().Labels()) {
    // Black under the text so lines ending at the centre do not run through the digits.
    const QStaticText& text = texts.Text(label, style.labelFont);
    const QSizeF size = text.size();
    const QPointF at(label.rect.CentreX() - size.width() / 2, label.rect.CentreY() - size.height() / 2);
    painter.fillRect(QRectF(at, size), Qt::black);
    painter.drawStaticText(at, text);
  }
  texts.Prune(scene.Board());
}

}  // namespace vormelt::ui
