// The Graphical Packets Mode window on the offscreen platform: keys reach the view state and
// show their notice, options survive the close, a replayed capture file puts labels and lines
// on the surface. With VORMELT_SCREENSHOTS=<folder> it also writes the pictures to look at.
#include <QDir>
#include <QElapsedTimer>
#include <QImage>
#include <QtTest>

// moc reads this file too, and cannot parse the text catalogue's generated enum.
#ifndef Q_MOC_RUN
#include "common/settings.hpp"
#include "common/settings_store.hpp"
#include "graphical/scene.hpp"
#include "support/frames.hpp"
#include "support/pcap_file.hpp"
#include "support/ui/widgets.hpp"
#include "ui/graphical_mode_window.hpp"
#include "ui/graphical_settings_window.hpp"
#include "ui/qt_text.hpp"
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

// A scene as a user would see it: a dozen hosts, each talking to a few others.
void FillScene(graphical::Scene& scene, std::int64_t now) {
  std::vector<graphical::PairTraffic> pairs;
  for (graphical::Ipv4 a = 1; a <= 12; ++a) {
    for (graphical::Ipv4 b = a + 1; b <= 12; b += 3) {
      const IpAddress near = IpAddress::V4(0x0A000000 + a), far = IpAddress::V4(0xC0A80000 + b);
      pairs.push_back({near, far, 3, 300});
      pairs.push_back({far, near, 1, 100});
    }
  }
  // Pixels started at different times stand at different places along their ways.
  for (int step = 0; step < 8; ++step) scene.Feed(pairs, {0x60, 0xC0, 0xFF}, now - step * 120);
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

  void screenshots() {
    const QString folder = qEnvironmentVariable("VORMELT_SCREENSHOTS");
    if (folder.isEmpty()) QSKIP("set VORMELT_SCREENSHOTS=<folder> to write the pictures");
    QDir().mkpath(folder);
    test::MessageLog log;
    for (const UiLanguage language : {UiLanguage::English, UiLanguage::German}) {
      ui::SetLanguage(language);
      const QString suffix = language == UiLanguage::German ? QStringLiteral("-de.png") : QStringLiteral("-en.png");
      ProgramSettings settings;
      ui::GraphicalModeWindow window(settings, false, false);
      QElapsedTimer clock;
      clock.start();
      window.resize(1024, 700);
      window.grab().save(folder + QStringLiteral("/start") + suffix);
      // An empty capture file leaves the start surface without listening anywhere.
      test::TempDir dir;
      test::PcapFileWriter(dir.File("empty.pcap"), test::kLinkRaw);
      window.openCaptureFile(QString::fromStdString(dir.File("empty.pcap")));
      graphical::Scene& scene = window.scene();
      scene.SetSurface(1024, 700);
      const auto shoot = [&](const QString& name) {
        scene.Clear();
        FillScene(scene, clock.elapsed());
        window.grab().save(folder + QLatin1Char('/') + name + suffix);
      };
      shoot(QStringLiteral("lines"));
      QTest::keyClick(&window, Qt::Key_F4);
      shoot(QStringLiteral("curves-notice"));
      QTest::keyClick(&window, Qt::Key_F3);
      scene.State().options.quadPixels = true;
      scene.State().options.circularity = 4;
      shoot(QStringLiteral("pixels"));
      QTest::keyClick(&window, Qt::Key_F1);
      shoot(QStringLiteral("help"));
      ui::GraphicalSettingsWindow dialog(settings.graphical, &window);
      dialog.grab().save(folder + QStringLiteral("/settings") + suffix);
    }
    ui::SetLanguage(UiLanguage::English);
  }
};

QTEST_MAIN(GraphicalModeWindowTest)
#include "graphical_mode_window_test.moc"
