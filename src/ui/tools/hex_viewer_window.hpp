// The Hex viewer: a modeless window with three read-only columns (offsets, hex values,
// characters) for the selected packet's bytes, hex selections mirrored into the characters.
// It renders through the packet engine and keeps only those texts, never the packet's bytes.
#pragma once

#include <QDialog>
#include <QFont>
#include <QString>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>

class QPlainTextEdit;

namespace vormelt {
// Declared, not included: moc cannot parse the text catalogue's enum that settings.hpp pulls in.
struct WindowState;
}  // namespace vormelt

namespace vormelt::ui {

// Whether a font family is really installed (not merely substituted by the font matcher).
using FontInstalled = std::function<bool(const QString& family)>;
bool IsFontFamilyInstalled(const QString& family);

// The family for byte dumps: "Courier New", else "Lucida Console", else "Terminal", else the
// desktop's own fixed-pitch font.
QString FixedFontFamily(const FontInstalled& installed = IsFontFamilyInstalled);
QFont FixedFont(int pointSize, const FontInstalled& installed = IsFontFamilyInstalled);

// Selects [start, end) of `box`, given in character positions of `crlfText`, the CR LF form of
// the box's text; positions beyond the text are clamped to its end.
void SelectCrLfRange(QPlainTextEdit& box, std::string_view crlfText, int start, int end);
// Selections made for the user in a box without focus (mirrored or field selections) must be
// as visible as the ones drawn by hand: the inactive highlight takes the active colours.
void ShowSelectionWithoutFocus(QPlainTextEdit& box);

class HexViewerWindow : public QDialog {
  Q_OBJECT

 public:
  static constexpr int kFontPointSize = 9;

  explicit HexViewerWindow(QWidget* parent = nullptr,
                           const FontInstalled& installed = IsFontFamilyInstalled);
  ~HexViewerWindow() override;

  // Fills the three columns. An empty range leaves them as they were.
  void showBytes(std::span<const std::uint8_t> bytes);
  // Empties the three columns (the packet they showed is gone).
  void clearBytes();
  // Selects [start, end) of the hex column, given in CR LF character positions, and mirrors
  // the bytes into the character column.
  void selectHexRange(int crlfStart, int crlfEnd);

  void restoreState(const WindowState& state);
  WindowState savedState() const;

  QPlainTextEdit& offsetsBox() const { return *offsets_; }
  QPlainTextEdit& hexBox() const { return *hex_; }
  QPlainTextEdit& charactersBox() const { return *characters_; }

 private:
  void MirrorHexSelection();
  void FollowScroll(int firstLine);

  QPlainTextEdit* offsets_ = nullptr;
  QPlainTextEdit* hex_ = nullptr;
  QPlainTextEdit* characters_ = nullptr;
  // The texts as rendered, with CR LF breaks: selection arithmetic counts over them.
  std::string hexText_;
  std::string characterText_;
  int lastHexStart_ = -1;
  int lastHexEnd_ = -1;
  bool scrolling_ = false;  // set while one column moves the others, so they do not echo back
};

}  // namespace vormelt::ui
