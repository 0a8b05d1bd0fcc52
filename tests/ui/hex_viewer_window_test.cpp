// The Hex viewer on the offscreen platform: the three columns for short and odd ranges, hex
// selections mirrored into the character column, and field selections.
#include <QPlainTextEdit>
#include <QTextCursor>
#include <QtTest>
#include <cstdint>
#include <vector>

#ifndef Q_MOC_RUN
#include "ui/tools/hex_viewer_window.hpp"
#endif

using vormelt::ui::HexViewerWindow;

namespace {

std::vector<std::uint8_t> Sequence(std::size_t count, std::uint8_t first) {
  std::vector<std::uint8_t> bytes(count);
  for (std::size_t i = 0; i < count; ++i) bytes[i] = static_cast<std::uint8_t>(first + i);
  return bytes;
}

// Selects [anchor, position) in Qt positions, the way a mouse drag leaves it.
void Drag(QPlainTextEdit& box, int anchor, int position) {
  QTextCursor cursor(box.document());
  cursor.setPosition(anchor);
  cursor.setPosition(position, QTextCursor::KeepAnchor);
  box.setTextCursor(cursor);
}

QPair<int, int> Selection(const QPlainTextEdit& box) {
  const QTextCursor cursor = box.textCursor();
  return {cursor.selectionStart(), cursor.selectionEnd()};
}

}  // namespace

class HexViewerWindowTest : public QObject {
  Q_OBJECT

 private slots:
  void columnsShowOffsetsHexAndCharacters() {
    HexViewerWindow viewer;
    viewer.showBytes(Sequence(16, 'A'));
    // Exactly one line each: no break after the last line.
    QCOMPARE(viewer.offsetsBox().toPlainText(), QStringLiteral("00000000"));
    QCOMPARE(viewer.hexBox().toPlainText(),
             QStringLiteral("41 42 43 44 45 46 47 48 49 4A 4B 4C 4D 4E 4F 50"));
    QCOMPARE(viewer.charactersBox().toPlainText(), QStringLiteral("ABCDEFGHIJKLMNOP"));

    viewer.showBytes(Sequence(17, 'a'));
    QCOMPARE(viewer.offsetsBox().toPlainText(), QStringLiteral("00000000\n00000010"));
    QCOMPARE(viewer.charactersBox().toPlainText(), QStringLiteral("abcdefghijklmnop\nq"));
    QVERIFY(viewer.hexBox().toPlainText().endsWith(QStringLiteral("70\n71 ")));

    // C3 A9 is valid UTF-8 for one character; read that way it would shift every later
    // character and break the mirrored selections. 0x81 is one of the bytes shown as '.'.
    // 0x80 and 0x9C are single-byte text characters, not controls to draw as boxes.
    const std::vector<std::uint8_t> bytes = {0xC3, 0xA9, 0x81, 0xE9, 0x00, 0x0D, 0x0A, 'z', 0x80, 0x9C};
    viewer.showBytes(bytes);
    const QString characters = viewer.charactersBox().toPlainText();
    QCOMPARE(characters.size(), 10);
    QCOMPARE(characters.mid(2), QStringLiteral(".\u00E9...z\u20AC\u0153"));
    QCOMPARE(characters.at(0), QChar(0xC3));
  }

  void hexSelectionsAreMirroredIntoTheCharacters() {
    HexViewerWindow viewer;
    viewer.showBytes(Sequence(40, 0x40));
    QPlainTextEdit& hex = viewer.hexBox();
    QPlainTextEdit& characters = viewer.charactersBox();
    // The second value of the second line is byte 17: Qt positions 51..53 in the hex column
    // (48 characters per line there), character 18 in Qt terms, 19 counted over CR LF.
    Drag(hex, 51, 53);
    QCOMPARE(hex.textCursor().selectedText(), QStringLiteral("51"));
    QCOMPARE(Selection(characters), qMakePair(18, 19));
    QCOMPARE(characters.textCursor().selectedText(), QStringLiteral("Q"));

    // Dragged backwards, the same.
    Drag(hex, 53, 51);
    QCOMPARE(Selection(characters), qMakePair(18, 19));

    // Across a line end: from byte 14 to the start of byte 18.
    Drag(hex, 42, 54);
    QCOMPARE(Selection(characters), qMakePair(14, 19));
    QCOMPARE(characters.textCursor().selectedText(), QStringLiteral("NO\u2029PQ"));

    // A plain click is one character; a click at the very start clears the mirror.
    Drag(hex, 100, 100);  // line 2, column 4: byte 33
    QCOMPARE(Selection(characters), qMakePair(35, 36));
    Drag(hex, 0, 0);
    QVERIFY(!characters.textCursor().hasSelection());
  }

  void fieldSelectionsSelectInBothColumns() {
    HexViewerWindow viewer;
    viewer.showBytes(Sequence(40, 0x40));
    // Byte 22 and 23 in CR LF positions of the hex text: line 1 starts at 49, value 6 at 67.
    viewer.selectHexRange(67, 72);
    QCOMPARE(viewer.hexBox().textCursor().selectedText(), QStringLiteral("56 57"));
    QCOMPARE(viewer.charactersBox().textCursor().selectionStart(), 16 + 1 + 6);
    QVERIFY(viewer.charactersBox().textCursor().selectedText().startsWith(QLatin1Char('V')));
    // A range past the end stays inside the text.
    viewer.selectHexRange(110, 400);
    QCOMPARE(viewer.hexBox().textCursor().selectionEnd(), viewer.hexBox().toPlainText().size());
  }
};

QTEST_MAIN(HexViewerWindowTest)

#include "hex_viewer_window_test.moc"
