// The Base Encoder/Decoder window on the offscreen platform: typing converts, type and option
// changes convert again, the two output boxes trade places, unknown settings fall back. Run
// with --screenshot PATH to also save a picture of the window with a conversion.
#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QtTest>

// moc cannot parse the text catalogue's enum, and needs none of it.
#ifndef Q_MOC_RUN
#include "common/settings.hpp"
#include "support/ui/widgets.hpp"
#endif
#include "ui/codec_window.hpp"

using vormelt::ProgramSettings;
using vormelt::test::Child;
using vormelt::ui::CodecWindow;

namespace {

QString Wrapped(const CodecWindow& window) { return Child<QPlainTextEdit>(window, "wrappedOutput").toPlainText(); }

ProgramSettings DefaultSettings() {
  ProgramSettings settings;
  settings.codec.inputType = 0;
  settings.codec.outputType = 0;
  settings.codec.cleanOutput = false;
  settings.codec.wordWrap = true;
  return settings;
}

}  // namespace

class CodecWindowTest : public QObject {
  Q_OBJECT

 private slots:
  void typingConvertsAndEveryChangeConvertsAgain() {
    ProgramSettings settings = DefaultSettings();
    CodecWindow window(settings, true);
    window.show();
    Child<QRadioButton>(window, "inputHex").click();
    QTest::keyClicks(&Child<QPlainTextEdit>(window, "input"), "48 65 6c 6c 6f");
    QTRY_COMPARE(Wrapped(window), QStringLiteral("Hello"));

    Child<QRadioButton>(window, "outputHex").click();
    QTRY_COMPARE(Wrapped(window), QStringLiteral("48656C6C6F"));
    Child<QCheckBox>(window, "cleanOutput").click();
    QTRY_COMPARE(Wrapped(window), QStringLiteral("48 65 6C 6C 6F"));
    Child<QRadioButton>(window, "outputMd5").click();
    QTRY_COMPARE(Wrapped(window), QStringLiteral("8b1a9953c4611296a827abf8c47804d7"));

    // Deleting every digit leaves nothing to convert: the box is cleared, except for MD5.
    Child<QPlainTextEdit>(window, "input").setPlainText(QStringLiteral("zz"));
    QTRY_COMPARE(Wrapped(window), QStringLiteral("d41d8cd98f00b204e9800998ecf8427e"));
    Child<QRadioButton>(window, "outputText").click();
    QTRY_COMPARE(Wrapped(window), QString());
  }

  void convertButtonRunsAConversionAtOnce() {
    ProgramSettings settings = DefaultSettings();
    settings.codec.outputType = 1;
    CodecWindow window(settings, false);
    Child<QPlainTextEdit>(window, "input").setPlainText(QStringLiteral("A\nB"));
    Child<QPushButton>(window, "convert").click();
    // The box's line break reaches the engine as CR LF, like every text this program writes.
    QCOMPARE(Wrapped(window), QStringLiteral("410D0A42"));
  }

  void wordWrapShowsOneBoxAndEmptiesTheOther() {
    ProgramSettings settings = DefaultSettings();
    settings.codec.outputType = 1;
    settings.codec.cleanOutput = true;
    CodecWindow window(settings, true);
    window.show();
    auto* wrapped = &Child<QPlainTextEdit>(window, "wrappedOutput");
    auto* scrolling = &Child<QPlainTextEdit>(window, "scrollingOutput");
    Child<QPlainTextEdit>(window, "input").setPlainText(QString(17, QLatin1Char('a')));
    const QString expected = QStringLiteral("61 61 61 61 61 61 61 61 61 61 61 61 61 61 61 61\n61");
    QTRY_COMPARE(wrapped->toPlainText(), expected);

    Child<QCheckBox>(window, "wordWrap").click();
    QVERIFY(wrapped->isHidden());
    QVERIFY(!scrolling->isHidden());
    QCOMPARE(wrapped->toPlainText(), QString());
    QTRY_COMPARE(scrolling->toPlainText(), expected);

    Child<QCheckBox>(window, "wordWrap").click();
    QVERIFY(scrolling->isHidden());
    QCOMPARE(scrolling->toPlainText(), QString());
    QTRY_COMPARE(wrapped->toPlainText(), expected);
  }

  void undecodableTextOutputShowsAsLatin1() {
    ProgramSettings settings = DefaultSettings();
    settings.codec.inputType = 1;
    CodecWindow window(settings, true);
    Child<QPlainTextEdit>(window, "input").setPlainText(QStringLiteral("47 72 FC DF 65"));
    window.Convert();
    QCOMPARE(Wrapped(window), QString::fromUtf8("Grüße"));
  }

  void unknownSettingsFallBackToTheFirstChoices() {
    ProgramSettings settings;
    settings.codec.inputType = 7;
    settings.codec.outputType = -1;
    settings.codec.font = "Comic Sans";
    CodecWindow window(settings, false);
    QVERIFY(Child<QRadioButton>(window, "inputText").isChecked());
    QVERIFY(Child<QRadioButton>(window, "outputText").isChecked());
    QCOMPARE(Child<QComboBox>(window, "font").currentText(), QStringLiteral("Courier New"));
  }
};

namespace {

// A picture of the window with a typical conversion, for looking at the layout.
bool SaveScreenshot(const QString& path) {
  ProgramSettings settings;
  settings.codec.outputType = 1;
  settings.codec.cleanOutput = true;
  CodecWindow window(settings, true);
  window.show();
  Child<QPlainTextEdit>(window, "input").setPlainText(
      QStringLiteral("Hollowbright VORMELT turns text into hex,\nBase64 and MD5 and back again."));
  window.Convert();
  QTest::qWait(200);
  return window.grab().save(path);
}

}  // namespace

VORMELT_WIDGET_TEST_MAIN(CodecWindowTest, SaveScreenshot)

#include "codec_window_test.moc"
