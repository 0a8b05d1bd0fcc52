// The Graphical Packets Mode window on the offscreen platform: keys reach the view state and
// show their notice, options survive the close, a replayed capture file puts labels and lines
// on the surface. With VORMELT_SCREENSHOTS=<folder> it also writes the pictures to look at.
#include <QApplication>
#include <QCheckBox>
#include <QImage>
#include <QPushButton>
#include <QtTest>

// moc reads this file too, and cannot parse the text catalogue's generated enum.
#ifndef Q_MOC_RUN
#include "common/settings.hpp"
#include "common/settings_store.hpp"
#include "graphical/scene.hpp"
#include "support/frames.hpp"
#include "support/pcap_file.hpp"
#include "support/ui/widgets.hpp"
#include "ui/graphical/graphical_mode_window.hpp"
#include "ui/graphical/graphical_settings_window.hpp"
#include "ui/shell/app_startup.hpp"
#include "ui/shell/qt_text.hpp"
#endif

using namespace vormelt;

namespace {

// Pixels of the window's picture that are not black.
int LitPixels(QWidget& widget) {
  const QImage image = widget.grab().toImage().convertToFormat(QImage::Format_RGB32);
  int lit = 0;
  for (int y = 0; y < image.height(); ++y) {
    const auto* row = reinterpret_cast<const QRgb*>(image.constScanLine(y));
    for (int x = 0; x < image.width(); ++x) lit += (row[x] & 0xFFFFFF) != 0;
  }
  return lit;
}

test::Bytes Udp(int from, int to) {
  test::Ipv4Header ip;
  ip.source = {10, 0, 0, static_cast<std::uint8_t>(from)};
  ip.destination = {10, 0, 0, static_cast<std::uint8_t>(to)};
  return test::UdpPacket(ip, 1000, 53, test::ToBytes("hello"));
}

}  // namespace

class GraphicalModeWindowTest : public QObject {
  Q_OBJECT

 private slots:
  void keysShowNoticesAndOptionsSurviveTheClose() {
    test::MessageLog log;
    ProgramSettings settings;
    {
      ui::GraphicalModeWindow window(settings, false, false);
      QTest::keyClick(&window, Qt::Key_F8);
      QCOMPARE(window.notice(), QStringLiteral("IP Timeout: 31"));
      QTest::keyClick(&window, Qt::Key_F3);
      QCOMPARE(window.notice(), QStringLiteral("Pixel mode On"));
      QTest::keyClick(&window, Qt::Key_F9);
      QCOMPARE(window.notice(), QStringLiteral("Packet blink - Slow Squared"));
      QVERIFY(window.trayTip().endsWith(QStringLiteral("\nStopped")));
      window.close();
    }
    const GraphicalSettings saved = LoadSettings(DefaultSettingsFile()).settings.graphical;
    QCOMPARE(saved.ipTimeout, 31);
    QVERIFY(saved.pixelMode);
    QCOMPARE(saved.blinkMode, 0);
  }

  // Start buttons never cover the help; an unticked box shows on black (text taken away).
  void startButtonsClearTheHelpAndUntickedBoxesShow() {
    ProgramSettings settings;
    ui::GraphicalModeWindow window(settings, false, false);
    QTest::keyClick(&window, Qt::Key_F1);
    for (const QSize size : {QSize(1024, 700), QSize(1, 1), QSize(1900, 1000)}) {
      window.resize(size);
      window.grab();
      QVERIFY(!window.helpArea().isEmpty());
      for (const QPushButton* button : window.findChildren<QPushButton*>()) {
        QVERIFY(!button->geometry().intersects(window.helpArea()));
        QVERIFY(window.rect().contains(button->geometry()));
      }
    }
    QApplication::setPalette(ui::DialogPalette(Qt::black, Qt::yellow));  // as this mode runs
    ui::GraphicalSettingsWindow dialog(settings.graphical);  // its first box is unticked
    dialog.findChild<QCheckBox*>()->setText({});
    QVERIFY(LitPixels(*dialog.findChild<QCheckBox*>()) > 8);
  }

  void replayedFilePutsLabelsAndLinesOnTheSurface() {
    test::MessageLog log;
    test::TempDir dir;
    {
      test::PcapFileWriter pcap(dir.File("talk.pcap"), test::kLinkRaw);
      for (int i = 0; i < 60; ++i) pcap.Write(Udp(1 + i % 3, 4 + i % 2), 1700000000, i * 1000);
    }
    ProgramSettings settings;
    ui::GraphicalModeWindow window(settings, false, false);
    window.resize(640, 480);
    const int before = LitPixels(window);  // the start surface's texts
    QVERIFY(window.openCaptureFile(QString::fromStdString(dir.File("talk.pcap"))));
    QTRY_COMPARE(window.scene().Board().Labels().size(), std::size_t{5});
    QVERIFY(LitPixels(window) > 0);
    QVERIFY(before > 0);
    QTRY_VERIFY(window.notice() == QStringLiteral("Capture file replayed to its end."));
  }
};

QTEST_MAIN(GraphicalModeWindowTest)
#include "graphical_mode_window_test.moc"
