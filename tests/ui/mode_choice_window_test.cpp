// The mode-choice window on the offscreen platform: what each button does to the settings and
// the decision, the blinking-warning question, and the ways out that count as Exit.
#include <QApplication>
#include <QCheckBox>
#include <QPushButton>
#include <QtTest>

// moc reads this file too, and cannot parse the text catalogue's generated enum.
#ifndef Q_MOC_RUN
#include "app/startup.hpp"
#include "support/ui/widgets.hpp"
#include "ui/shell/mode_choice_window.hpp"
#include "ui/shell/qt_text.hpp"
#endif

using namespace vormelt;
using vormelt::ui::ModeChoiceWindow;
using vormelt::test::MessageLog;

class ModeChoiceWindowTest : public QObject {
  Q_OBJECT

 private slots:
  void init() {
    ui::SetLanguage(UiLanguage::English);
    settings_ = ProgramSettings{};
    decision_ = StartupDecision{};
  }

  void modeButtonsSetTheRememberedModeAndTheCheckBoxDecidesTheNextStart_data() {
    QTest::addColumn<int>("button");
    QTest::addColumn<int>("mode");
    QTest::addColumn<bool>("remember");
    QTest::newRow("packet") << int(ModeChoiceButton::Packet) << 0 << false;
    QTest::newRow("file, remembered") << int(ModeChoiceButton::File) << 1 << true;
    QTest::newRow("statistical") << int(ModeChoiceButton::Statistical) << 3 << false;
  }
  void modeButtonsSetTheRememberedModeAndTheCheckBoxDecidesTheNextStart() {
    QFETCH(int, button);
    QFETCH(int, mode);
    QFETCH(bool, remember);
    settings_.rememberedMode = 2;
    ModeChoiceWindow window(settings_, decision_);
    window.show();
    if (remember) window.rememberBox()->click();
    QTest::mouseClick(window.modeButton(static_cast<ModeChoiceButton>(button)), Qt::LeftButton);

    QCOMPARE(window.choice(), ModeChoiceResult::Close);
    QVERIFY(!window.isVisible());
    QCOMPARE(settings_.rememberedMode, mode);
    QCOMPARE(settings_.showModeChoiceAtStartup, !remember);
  }

  void graphicalModeAsksTheWarningFirstAndStaysOpenWhenDeclined() {
    MessageLog log;
    log.answer = MessageAnswer::No;
    ModeChoiceWindow window(settings_, decision_);
    window.show();
    window.modeButton(ModeChoiceButton::GraphicalPackets)->click();

    QCOMPARE(log.asked.size(), size_t{1});
    QCOMPARE(log.asked[0].text, ui::FromCrLf(Tr(Text::GraphicalWarning, ui::Language())));
    QVERIFY(window.isVisible());
    QCOMPARE(window.choice(), ModeChoiceResult::Exit);
    QCOMPARE(settings_.rememberedMode, 0);
    QVERIFY(!settings_.graphicalWarningAcknowledged);

    log.answer = MessageAnswer::Yes;
    window.modeButton(ModeChoiceButton::GraphicalPackets)->click();
    QCOMPARE(window.choice(), ModeChoiceResult::Close);
    QCOMPARE(settings_.rememberedMode, 2);
    QVERIFY(settings_.graphicalWarningAcknowledged);

    // Once acknowledged, the next start goes straight on.
    ModeChoiceWindow again(settings_, decision_);
    again.show();
    again.modeButton(ModeChoiceButton::GraphicalPackets)->click();
    QCOMPARE(log.asked.size(), size_t{2});
    QCOMPARE(again.choice(), ModeChoiceResult::Close);
  }

  // The Exit button, closing by the desktop and Escape.
  void everyWayOutCountsAsExit() {
    for (int way = 0; way < 3; ++way) {
      ModeChoiceWindow window(settings_, decision_);
      window.show();
      QVERIFY(QTest::qWaitForWindowActive(&window));
      if (way == 0) window.modeButton(ModeChoiceButton::Exit)->click();
      if (way == 1) window.close();
      if (way == 2) QTest::keyClick(&window, Qt::Key_Escape);
      QVERIFY(!window.isVisible());
      QCOMPARE(window.choice(), ModeChoiceResult::Exit);
    }
    QCOMPARE(settings_.rememberedMode, ProgramSettings{}.rememberedMode);
    QCOMPARE(settings_.showModeChoiceAtStartup, ProgramSettings{}.showModeChoiceAtStartup);
    QVERIFY(!decision_.AnyModeSwitch());
  }

 private:
  ProgramSettings settings_;
  StartupDecision decision_;
};

QTEST_MAIN(ModeChoiceWindowTest)
#include "mode_choice_window_test.moc"
