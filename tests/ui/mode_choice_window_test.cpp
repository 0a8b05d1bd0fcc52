// The mode-choice window on the offscreen platform: what each button does to the settings and
// the decision, the blinking-warning question, Tools, the ways out that count as Exit, the drag
// handle and the remembered place. Run with --screenshot PATH to also save a picture of it.
#include <QApplication>
#include <QCheckBox>
#include <QLabel>
#include <QMenu>
#include <QPainter>
#include <QPushButton>
#include <QtTest>

// moc reads this file too, and cannot parse the text catalogue's generated enum.
#ifndef Q_MOC_RUN
#include "app/startup.hpp"
#include "ui/app_startup.hpp"
#include "support/ui/widgets.hpp"
#include "ui/mode_choice_window.hpp"
#include "ui/qt_text.hpp"
#endif

using vormelt::ModeChoiceButton;
using vormelt::ModeChoiceResult;
using vormelt::ProgramSettings;
using vormelt::StartupDecision;
using vormelt::MessageAnswer;
using vormelt::ui::MessageRequest;
using vormelt::ui::ModeChoiceWindow;
using vormelt::test::MessageLog;

namespace {

QString Catalogue(vormelt::Text key) {
  return vormelt::ui::FromCrLf(vormelt::Tr(key, vormelt::ui::Language()));
}

}  // namespace

class ModeChoiceWindowTest : public QObject {
  Q_OBJECT

 private slots:
  void init() {
    vormelt::ui::SetLanguage(vormelt::UiLanguage::English);
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
    QVERIFY(!window.rememberBox()->isChecked());
    if (remember) window.rememberBox()->click();
    QTest::mouseClick(window.modeButton(static_cast<ModeChoiceButton>(button)), Qt::LeftButton);

    QCOMPARE(window.choice(), ModeChoiceResult::Close);
    QVERIFY(!window.isVisible());
    QCOMPARE(settings_.rememberedMode, mode);
    QCOMPARE(settings_.showModeChoiceAtStartup, !remember);
    QVERIFY(!decision_.decoder);
    QVERIFY(settings_.modeChoiceWindow.valid);  // where it stood is kept for next time
  }

  void graphicalModeAsksTheWarningFirstAndStaysOpenWhenDeclined() {
    MessageLog log;
    log.answer = MessageAnswer::No;
    ModeChoiceWindow window(settings_, decision_);
    window.show();
    window.modeButton(ModeChoiceButton::GraphicalPackets)->click();

    QCOMPARE(log.asked.size(), size_t{1});
    QCOMPARE(log.asked[0].text, Catalogue(vormelt::Text::GraphicalWarning));
    QCOMPARE(log.asked[0].buttons, vormelt::ui::MessageButtons::YesNo);
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

  void toolsMenuOpensBelowTheButtonAndChoosesTheEncoderWithoutTouchingTheMode() {
    settings_.rememberedMode = 3;
    ModeChoiceWindow window(settings_, decision_);
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    window.rememberBox()->setChecked(true);
    window.toolsButton()->click();
    QMenu* menu = window.toolsMenu();
    QTRY_VERIFY(menu->isVisible());
    const QPoint below = window.toolsButton()->mapToGlobal(QPoint(0, window.toolsButton()->height()));
    QCOMPARE(menu->pos(), below);
    QCOMPARE(menu->actions().size(), 1);

    menu->actions()[0]->trigger();
    QVERIFY(decision_.decoder);
    QCOMPARE(window.choice(), ModeChoiceResult::Close);
    QCOMPARE(settings_.rememberedMode, 3);
    QVERIFY(settings_.showModeChoiceAtStartup);
  }

  void exitButtonCloseAndEscapeAllCountAsExit_data() {
    QTest::addColumn<int>("way");
    QTest::newRow("X Exit X") << 0;
    QTest::newRow("closed by the desktop") << 1;
    QTest::newRow("Escape") << 2;
  }
  void exitButtonCloseAndEscapeAllCountAsExit() {
    QFETCH(int, way);
    const ProgramSettings before = settings_;
    ModeChoiceWindow window(settings_, decision_);
    window.show();
    QVERIFY(QTest::qWaitForWindowActive(&window));
    if (way == 0) window.modeButton(ModeChoiceButton::Exit)->click();
    if (way == 1) window.close();
    if (way == 2) QTest::keyClick(&window, Qt::Key_Escape);
    QVERIFY(!window.isVisible());
    QCOMPARE(window.choice(), ModeChoiceResult::Exit);
    QCOMPARE(settings_.rememberedMode, before.rememberedMode);
    QCOMPARE(settings_.showModeChoiceAtStartup, before.showModeChoiceAtStartup);
    QVERIFY(!decision_.AnyModeSwitch());
  }

  void titlePictureDragsTheWindowAndTheLogoDoesNot() {
    ModeChoiceWindow window(settings_, decision_);
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    QLabel* title = window.titlePicture();
    const QPoint handle(20, title->height() - 10);  // beside the logo

    QTest::mousePress(title, Qt::LeftButton, {}, handle);
    QVERIFY(window.isDragging());
    QTest::mouseRelease(title, Qt::LeftButton, {}, handle);
    QVERIFY(!window.isDragging());

    QTest::mousePress(window.logo(), Qt::LeftButton, {}, QPoint(10, 10));
    QVERIFY(!window.isDragging());
    QTest::mouseRelease(window.logo(), Qt::LeftButton, {}, QPoint(10, 10));
  }

  void reopensWhereItWasLeft() {
    ModeChoiceWindow first(settings_, decision_);
    first.show();
    first.move(first.pos() + QPoint(30, 20));
    const QPoint left = first.pos();
    first.modeButton(ModeChoiceButton::Packet)->click();
    ModeChoiceWindow second(settings_, decision_);
    QCOMPARE(second.pos(), left);
  }

 private:
  ProgramSettings settings_;
  StartupDecision decision_;
};

namespace {

bool SaveScreenshot(const QString& path) {
  ProgramSettings settings;
  StartupDecision decision;
  ModeChoiceWindow window(settings, decision);
  window.show();
  QTest::qWait(200);
  // The grab ignores the mask; paint what lies outside it as the desktop would show it.
  QPixmap picture = window.grab();
  QPixmap framed(picture.size());
  framed.fill(QColor(0x30, 0x30, 0x38));
  QPainter painter(&framed);
  painter.setClipRegion(window.mask());
  painter.drawPixmap(0, 0, picture);
  painter.end();
  return framed.save(path);
}

}  // namespace

VORMELT_WIDGET_TEST_MAIN(ModeChoiceWindowTest, SaveScreenshot)

#include "mode_choice_window_test.moc"
