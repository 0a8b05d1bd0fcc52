// The Base Encoder/Decoder window on the offscreen platform: typing converts, type and option
// changes convert again. The conversions themselves are the codec's, tested in tests/tools.
#include <QCheckBox>
#include <QPlainTextEdit>
#include <QRadioButton>
#include <QtTest>

// moc cannot parse the text catalogue's enum, and needs none of it.
#ifndef Q_MOC_RUN
#include "common/settings.hpp"
#include "support/ui/widgets.hpp"
#endif
#include "ui/tools/codec_window.hpp"

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
    // Nothing left to convert clears the box.
    Child<QPlainTextEdit>(window, "input").setPlainText(QStringLiteral("zz"));
    QTRY_COMPARE(Wrapped(window), QString());
  }
};

QTEST_MAIN(CodecWindowTest)

#include "codec_window_test.moc"
