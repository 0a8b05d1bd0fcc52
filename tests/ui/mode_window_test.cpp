// What every mode window shares: each registered window opens, offers the other modes and its
// Help, and on close writes the settings file the run was started with; and Stop always ends a
// capture that Choose Interface is moving to another interface.
#include <QAction>
#include <QDialog>
#include <QApplication>
#include <QMainWindow>
#include <QMenuBar>
#include <QTemporaryDir>
#include <QTimer>
#include <QtTest>
#include <chrono>
#include <thread>

// moc reads this file for the test class and cannot read the text catalogue behind these.
#ifndef Q_MOC_RUN
#include "app/modes.hpp"
#include "app/startup.hpp"
#include "common/settings.hpp"
#include "support/ui/widgets.hpp"
#include "ui/packetmode/packet_mode_window.hpp"
#include "ui/shell/app_startup.hpp"
#include "ui/shell/mode_window.hpp"
#include "ui/shell/qt_text.hpp"
#endif

using namespace vormelt;

namespace {

QAction& Command(QWidget& window, Text text) {
  for (QAction* action : window.findChildren<QAction*>()) {
    if (action->text() == ui::T(text)) return *action;
  }
  qFatal("no command %s", ui::T(text).toUtf8().constData());
}

QStringList MenuEntries(QMainWindow& window, Text menu) {
  QStringList entries;
  for (QAction* top : window.menuBar()->actions()) {
    if (top->text() == ui::T(menu)) {
      for (QAction* entry : top->menu()->actions()) entries << entry->text();
    }
  }
  return entries;
}

WindowState* PlaceOf(ProgramSettings& s, ProgramMode mode) {  // null: the window keeps none
  if (mode == ProgramMode::Decoder) return nullptr;
  WindowState* places[] = {&s.packetMode.window, &s.fileMode.window, &s.graphical.window, &s.statistics.window};
  return places[static_cast<int>(mode)];
}

}  // namespace

class ModeWindowTest : public QObject {
  Q_OBJECT

  QTemporaryDir config_;

 private slots:
  void initTestCase() {
    QVERIFY(config_.isValid());
    qputenv("XDG_CONFIG_HOME", config_.path().toUtf8());
    ui::SetLanguage(UiLanguage::English);
    ui::RegisterModeWindows();
  }

  // Run as the program runs them: through the registry, until the window is closed.
  void everyRegisteredWindowOpensAndWritesItsOwnSettingsFile() {
    test::MessageLog log;
    const QRect kept(10, 20, 1300, 700), moved(30, 40, 1320, 720);
    for (const ModeEntry& entry : ModeList()) {
      QVERIFY(entry.window);
      const auto file = config_.filePath(ui::T(entry.name)).toStdString();
      ProgramSettings settings;
      settings.minimizeToTrayOnClose = false;
      if (WindowState* place = PlaceOf(settings, entry.mode)) *place = {true, 10, 20, 1300, 700};
      StartupDecision decision;
      QStringList switchEntries, helpEntries;
      QRect opened;
      QTimer closer;
      connect(&closer, &QTimer::timeout, [&] {
        if (QWidget* modal = QApplication::activeModalWidget()) return void(modal->close());
        for (QWidget* top : QApplication::topLevelWidgets()) {
          if (!top->isVisible() || top->inherits("QMenu")) continue;
          if (opened.isNull()) {  // moved on one tick, closed on the next
            opened = top->geometry();
            return top->setGeometry(moved);
          }
          if (auto* main = qobject_cast<QMainWindow*>(top)) {
            switchEntries = MenuEntries(*main, Text::PacketMenuSwitchModes);
            helpEntries = MenuEntries(*main, Text::ShellMenuHelp);
          }
          top->close();
        }
      });
      closer.start(20);
      QCOMPARE(entry.window(ModeStart{decision, settings, file}), 0);
      QVERIFY2(std::filesystem::exists(file), qPrintable(ui::T(entry.name)));
      if (const WindowState* place = PlaceOf(settings, entry.mode)) {
        QCOMPARE(opened, kept);
        QCOMPARE(QRect(place->x, place->y, place->width, place->height), moved);
      }
      if (entry.mode == ProgramMode::Packet || entry.mode == ProgramMode::File ||
          entry.mode == ProgramMode::Statistical) {
        QCOMPARE(switchEntries.size(), 3);  // the other capture modes, never itself
        QVERIFY(!switchEntries.contains(ui::T(entry.name)));
        QCOMPARE(helpEntries.size(), 2);
      }
    }
  }

  // Choose Interface while listening restarts the capture on a starter thread, and nothing
  // listens for a moment in between. Stop must end it whenever it comes, and the commands must
  // never show a stopped capture while the restart is under way.
  void stopAlwaysEndsACaptureMovedByChooseInterface() {
    test::MessageLog log;
    ProgramSettings settings;
    settings.minimizeToTrayOnClose = false;
    settings.interface.address = "127.0.0.1";
    ui::PacketModeWindow window(settings, false, false);
    QAction& start = Command(window, Text::PacketMenuStart);
    QAction& stop = Command(window, Text::PacketMenuStop);
    window.shell().Start();
    QTRY_VERIFY(!window.isCapturing() ||
                window.captionText() != ui::T(Text::PacketCaptionStopped));
    if (!window.isCapturing()) QSKIP("cannot capture on loopback here");
    for (int round = 0; round < 12; ++round) {
      if (!window.isCapturing()) window.shell().Start();
      QTimer::singleShot(0, [] { qobject_cast<QDialog*>(QApplication::activeModalWidget())->accept(); });
      window.shell().ChooseInterface();
      if (round % 2 == 1) {
        // Long enough to span the old capture's end and the new one's start.
        for (int spin = 0; spin < 50; ++spin) {
          std::this_thread::sleep_for(std::chrono::milliseconds(1));
          QCoreApplication::processEvents();
          QVERIFY(window.isCapturing());
          QVERIFY(stop.isEnabled());
          QVERIFY(!start.isEnabled());
        }
      } else {
        std::this_thread::sleep_for(std::chrono::milliseconds(round));  // Stop at varied moments
      }
      window.shell().Stop();
      QTRY_VERIFY(!window.isCapturing());
      QTRY_VERIFY(start.isEnabled() && !stop.isEnabled());
    }
    QVERIFY(log.asked.empty());
  }
};

QTEST_MAIN(ModeWindowTest)
#include "mode_window_test.moc"
