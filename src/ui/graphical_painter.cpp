// One frame of the picture. Runs of pixels in one colour go to QPainter in one call; lines
// are drawn with their blink level as alpha, so a dark phase simply shows the black ground.
#include "ui/graphical_painter.hpp"

#include <QPainter>
#include <QPainterPath>
#include <QVector>

namespace vormelt::ui {
namespace {

using graphical::Colour;

QColor ToQColor(Colour c, int level) { return QColor(c.red, c.green, c.blue, level); }

QPointF ToQPoint(graphical::PointF p) { return {p.x, p.y}; }

void PaintLines(QPainter& painter, const graphical::Scene& scene, std::int64_t nowMs) {
  painter.setBrush(Qt::NoBrush);
  for (const graphical::Line& line : scene.Lines()) {
    const int level = scene.Level(line.bornMs, nowMs);
    if (level == 0) continue;
    painter.setPen(QPen(ToQColor(line.colour, level), 1));
    const graphical::Path& p = line.path;
    if (!p.curved) {
      painter.drawLine(ToQPoint(p.start), ToQPoint(p.end));
      continue;
    }
    QPainterPath curve(ToQPoint(p.start));
    curve.cubicTo(ToQPoint(p.control1), ToQPoint(p.control2), ToQPoint(p.end));
    painter.drawPath(curve);
  }
}

void PaintPixels(QPainter& painter, const graphical::Scene& scene, std::int64_t nowMs) {
  const int size = scene.Options().quadPixels ? 2 : 1;
  QVector<QPointF> run;
  QColor runColour;
  const auto flush = [&] {
    if (run.isEmpty()) return;
    QPen pen(runColour, size);
    pen.setCapStyle(Qt::SquareCap);
    painter.setPen(pen);
    painter.drawPoints(run.constData(), static_cast<int>(run.size()));
    run.clear();
  };
  for (const graphical::MovingPixel& pixel : scene.Pixels()) {
    const QColor colour = ToQColor(pixel.colour, scene.Level(pixel.bornMs, nowMs));
    if (colour != runColour) {
      flush();
      runColour = colour;
    }
    if (colour.alpha() != 0) run.push_back(ToQPoint(scene.PixelPosition(pixel, nowMs)));
  }
  flush();
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

void PaintScene(QPainter& painter, const graphical::Scene& scene, std::int64_t nowMs,
                const PaintStyle& style, LabelTextCache& texts) {
  painter.fillRect(QRect(0, 0, scene.Width(), scene.Height()), Qt::black);
  if (scene.Options().pixelMode) {
    PaintPixels(painter, scene, nowMs);
  } else {
    painter.setRenderHint(QPainter::Antialiasing, false);
    PaintLines(painter, scene, nowMs);
  }
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
