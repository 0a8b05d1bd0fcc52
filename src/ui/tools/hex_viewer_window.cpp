// The Hex viewer's three columns, their font, selection mirroring and scrolling in step.
// All layout and position arithmetic comes from the packet engine; this file only converts
// between CR LF positions and the one-character line breaks of Qt text boxes.
#include "ui/tools/hex_viewer_window.hpp"

#include <QFontDatabase>
#include <QFontInfo>
#include <QFontMetrics>
#include <QHBoxLayout>
#include <QPlainTextEdit>
#include <QScrollBar>
#include <QTextCursor>
#include <algorithm>
#include <array>
#include <optional>
#include <string_view>

#include "common/settings.hpp"
#include "packets/decoder.hpp"
#include "packets/render.hpp"
#include "ui/shell/qt_text.hpp"

namespace vormelt::ui {
namespace {

// Tried in this order; the first one the system really has wins.
constexpr std::array<const char*, 3> kFixedFamilies = {"Courier New", "Lucida Console", "Terminal"};
constexpr int kOffsetColumnChars = 8;
constexpr int kHexColumnChars = 16 * 3 - 1;
constexpr int kCharacterColumnChars = 16;
constexpr int kDefaultHeight = 320;

// Bytes 0x80-0x9F read as the Windows-1252 characters they stand for in single-byte text;
// as Latin-1 they would be control characters, drawn as empty boxes. The five bytes that code
// page leaves unassigned keep their Latin-1 reading (four of them are shown as '.' anyway).
constexpr std::array<char16_t, 32> kHighControlCharacters = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
    0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x008D, 0x017D, 0x008F,
    0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
    0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};

// One character per byte, so a position in the character column is a byte position. The
// engine has already turned every control byte into '.', so only the line breaks are special.
QString OneCharacterPerByte(std::string_view crlfText) {
  QString text;
  text.reserve(static_cast<qsizetype>(crlfText.size()));
  for (std::size_t i = 0; i < crlfText.size(); ++i) {
    const auto byte = static_cast<unsigned char>(crlfText[i]);
    if (byte == '\r' && i + 1 < crlfText.size() && crlfText[i + 1] == '\n') {
      text.append(QLatin1Char('\n'));
      ++i;
    } else if (byte >= 0x80 && byte < 0xA0) {
      text.append(QChar(kHighControlCharacters[byte - 0x80]));
    } else {
      text.append(QChar(byte));
    }
  }
  return text;
}

// The inverse of QtPositionFromCrLf: every Qt line break before the position stands for a
// CR LF pair in the engine's text.
int CrLfPositionFromQt(std::string_view crlfText, int qtPosition) {
  int qt = 0;
  std::size_t i = 0;
  while (qt < qtPosition && i < crlfText.size()) {
    const bool pair = crlfText[i] == '\r' && i + 1 < crlfText.size() && crlfText[i + 1] == '\n';
    i += pair ? 2 : 1;
    ++qt;
  }
  return static_cast<int>(i) + (qtPosition - qt);
}

void ClearSelection(QPlainTextEdit& box) {
  QTextCursor cursor = box.textCursor();
  cursor.clearSelection();
  box.setTextCursor(cursor);
}

QPlainTextEdit* MakeColumn(const char* name, const QFont& font, int chars, bool scrollBar) {
  auto* box = new QPlainTextEdit;
  box->setObjectName(QString::fromLatin1(name));
  box->setReadOnly(true);
  box->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
  box->setLineWrapMode(QPlainTextEdit::NoWrap);
  box->setFont(font);
  box->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
  box->setVerticalScrollBarPolicy(scrollBar ? Qt::ScrollBarAsNeeded : Qt::ScrollBarAlwaysOff);
  ShowSelectionWithoutFocus(*box);
  const QFontMetrics metrics(font);
  const int frame = 2 * box->frameWidth() + 2 * static_cast<int>(box->document()->documentMargin());
  const int bar = scrollBar ? box->verticalScrollBar()->sizeHint().width() : 0;
  box->setFixedWidth(metrics.horizontalAdvance(QString(chars, QLatin1Char('0'))) + frame + bar + 2);
  return box;
}

}  // namespace

void SelectCrLfRange(QPlainTextEdit& box, std::string_view crlfText, int start, int end) {
  const int last = std::max(box.document()->characterCount() - 1, 0);
  QTextCursor cursor(box.document());
  cursor.setPosition(std::clamp(QtPositionFromCrLf(crlfText, start), 0, last));
  cursor.setPosition(std::clamp(QtPositionFromCrLf(crlfText, end), 0, last), QTextCursor::KeepAnchor);
  box.setTextCursor(cursor);
}

void ShowSelectionWithoutFocus(QPlainTextEdit& box) {
  QPalette palette = box.palette();
  for (QPalette::ColorRole role : {QPalette::Highlight, QPalette::HighlightedText}) {
    palette.setColor(QPalette::Inactive, role, palette.color(QPalette::Active, role));
  }
  box.setPalette(palette);
}

bool IsFontFamilyInstalled(const QString& family) {
  // The font matcher hands out a substitute for any name, so ask what was really matched.
  const QFont font(family);
  return QFontInfo(font).family().compare(family, Qt::CaseInsensitive) == 0;
}

QString FixedFontFamily(const FontInstalled& installed) {
  for (const char* name : kFixedFamilies) {
    const QString family = QString::fromLatin1(name);
    if (installed(family)) return family;
  }
  return QFontInfo(QFontDatabase::systemFont(QFontDatabase::FixedFont)).family();
}

QFont FixedFont(int pointSize, const FontInstalled& installed) {
  QFont font(FixedFontFamily(installed), pointSize);
  font.setStyleHint(QFont::TypeWriter);
  font.setFixedPitch(true);
  return font;
}

HexViewerWindow::HexViewerWindow(QWidget* parent, const FontInstalled& installed)
    : QDialog(parent) {
  setObjectName(QStringLiteral("hexViewer"));
  setWindowTitle(T(Text::HexViewerTitle));
  setModal(false);
  const QFont font = FixedFont(kFontPointSize, installed);
  offsets_ = MakeColumn("hexOffsets", font, kOffsetColumnChars, false);
  hex_ = MakeColumn("hexValues", font, kHexColumnChars, false);
  characters_ = MakeColumn("hexCharacters", font, kCharacterColumnChars, true);

  // The offsets are a ruler, not something to select; the hex column is where selecting starts.
  offsets_->setFocusPolicy(Qt::NoFocus);
  hex_->setFocus();

  auto* layout = new QHBoxLayout(this);
  layout->setContentsMargins(4, 4, 4, 4);
  layout->setSpacing(2);
  for (QPlainTextEdit* box : {offsets_, hex_, characters_}) layout->addWidget(box);
  resize(sizeHint().width(), kDefaultHeight);

  connect(hex_, &QPlainTextEdit::selectionChanged, this, &HexViewerWindow::MirrorHexSelection);
  connect(hex_, &QPlainTextEdit::cursorPositionChanged, this, &HexViewerWindow::MirrorHexSelection);
  for (QPlainTextEdit* box : {offsets_, hex_, characters_}) {
    connect(box->verticalScrollBar(), &QScrollBar::valueChanged, this, &HexViewerWindow::FollowScroll);
  }
}

HexViewerWindow::~HexViewerWindow() = default;

void HexViewerWindow::showBytes(std::span<const std::uint8_t> bytes) {
  HexViewerTexts texts;
  if (!BuildHexViewerTexts(bytes, texts)) return;
  hexText_ = std::move(texts.hex);
  characterText_ = std::move(texts.characters);
  lastHexStart_ = lastHexEnd_ = -1;
  offsets_->setPlainText(FromCrLf(texts.offsets));
  characters_->setPlainText(OneCharacterPerByte(characterText_));
  hex_->setPlainText(FromCrLf(hexText_));
}

void HexViewerWindow::clearBytes() {
  hexText_.clear();
  characterText_.clear();
  lastHexStart_ = lastHexEnd_ = -1;
  for (QPlainTextEdit* box : {offsets_, hex_, characters_}) box->clear();
}

void HexViewerWindow::selectHexRange(int crlfStart, int crlfEnd) {
  SelectCrLfRange(*hex_, hexText_, crlfStart, crlfEnd);
  MirrorHexSelection();
}

void HexViewerWindow::MirrorHexSelection() {
  const QTextCursor cursor = hex_->textCursor();
  const int start = CrLfPositionFromQt(hexText_, cursor.selectionStart());
  const int end = CrLfPositionFromQt(hexText_, cursor.selectionEnd());
  if (start == lastHexStart_ && end == lastHexEnd_) return;
  lastHexStart_ = start;
  lastHexEnd_ = end;
  const std::optional<TextSelection> mirrored = ::vormelt::MirrorHexSelection({start, end});
  if (!mirrored) {
    ClearSelection(*characters_);
    return;
  }
  SelectCrLfRange(*characters_, characterText_, mirrored->start, mirrored->end);
}

void HexViewerWindow::FollowScroll(int firstLine) {
  if (scrolling_) return;
  scrolling_ = true;
  for (QPlainTextEdit* box : {offsets_, hex_, characters_}) box->verticalScrollBar()->setValue(firstLine);
  scrolling_ = false;
}

void HexViewerWindow::restoreState(const WindowState& state) {
  if (!state.valid || state.width <= 0 || state.height <= 0) return;
  setGeometry(state.x, state.y, state.width, state.height);
}

WindowState HexViewerWindow::savedState() const {
  const QRect frame = geometry();
  return WindowState{true, frame.x(), frame.y(), frame.width(), frame.height(), false, false};
}

}  // namespace vormelt::ui
