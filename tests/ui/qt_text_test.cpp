// The bridge between CR LF engine texts and Qt text boxes: every field selection and Hex viewer
// mirror passes through QtPositionFromCrLf, so an off-by-one here selects the wrong bytes.
#include <QtTest>

#ifndef Q_MOC_RUN
#include "ui/qt_text.hpp"
#endif

using vormelt::ui::FromCrLf;
using vormelt::ui::QtPositionFromCrLf;

class QtTextTest : public QObject {
  Q_OBJECT

 private slots:
  void positionsMapOntoTheBoxText() {
    const std::string text = "AB\r\nCD\r\nEF";  // the box holds "AB\nCD\nEF"
    const QString box = FromCrLf(text);
    QCOMPARE(box, QStringLiteral("AB\nCD\nEF"));
    // Every character that is not part of a break lands on the same character in the box.
    for (int crlf : {0, 1, 4, 5, 8, 9}) {
      QCOMPARE(box.at(QtPositionFromCrLf(text, crlf)), QChar(text[crlf]));
    }
    QCOMPARE(QtPositionFromCrLf(text, 10), 8);  // the end
    QCOMPARE(QtPositionFromCrLf(text, 0), 0);
    QCOMPARE(QtPositionFromCrLf(text, -3), 0);
  }

  void aSelectionEndingAtALineBreakLeavesTheBreakOut() {
    const std::string text = "AB\r\nCD";
    // [0, 3) in CR LF text ends between CR and LF: the Qt selection is "AB", without the break.
    QCOMPARE(QtPositionFromCrLf(text, 3), 2);
    QCOMPARE(QtPositionFromCrLf(text, 2), 2);
  }

  void bytesThatAreNotUtf8StayVisible() {
    const std::string latin = "caf\xE9";
    QCOMPARE(FromCrLf(latin), QString::fromLatin1("caf\xE9"));
    QCOMPARE(FromCrLf("caf\xC3\xA9"), QString::fromUtf8("caf\xC3\xA9"));
  }
};

QTEST_GUILESS_MAIN(QtTextTest)
#include "qt_text_test.moc"
