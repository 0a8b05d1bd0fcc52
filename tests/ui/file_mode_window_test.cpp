// The File Mode window on the offscreen platform: a capture file rebuilt from the window lists
// its file with the status the user reads, and the naming dialog's preview follows its levels
// and writes only on Apply. With VORMELT_SCREENSHOTS=DIR both are saved there as PNGs, in
// English and German, for a look by eye.
#include <QLineEdit>
#include <QScopeGuard>
#include <QTableWidget>
#include <QTimer>
#include <QtTest>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

// moc reads this file too, and cannot parse the text catalogue's generated enum.
#ifndef Q_MOC_RUN
#include "common/settings.hpp"
#include "support/pcap_file.hpp"
#include "support/small_disk.hpp"
#include "support/tcp_stream.hpp"
#include "ui/filemode/file_mode_window.hpp"
#include "ui/filemode/file_naming_dialog.hpp"
#include "ui/shell/qt_text.hpp"
#endif

using namespace vormelt;

namespace {

void Snapshot(QWidget& widget, const QString& name) {
  const QString dir = qEnvironmentVariable("VORMELT_SCREENSHOTS");
  if (dir.isEmpty()) return;
  widget.show();
  QCoreApplication::processEvents();
  widget.grab().save(dir + QLatin1Char('/') + name + QStringLiteral(".png"));
}

QString LanguageTag() { return ui::Language() == UiLanguage::German ? "de" : "en"; }

}  // namespace

class FileModeWindowTest : public QObject {
  Q_OBJECT

 private slots:
  void captureFileListsItsFiles_data() {
    QTest::addColumn<int>("language");
    QTest::newRow("en") << 0;
    QTest::newRow("de") << 1;
  }
  void captureFileListsItsFiles() {
    QFETCH(int, language);
    ui::SetLanguage(static_cast<UiLanguage>(language));
    test::TempDir dir;
    {
      test::PcapFileWriter pcap(dir.File("web.pcap"), test::kLinkRaw);
      for (const auto& packet : test::ResponseSegments(
               "HTTP/1.1 200 OK\r\nContent-Type: image/png\r\n\r\n" + std::string(4000, 'p'))) {
        pcap.Write(packet);
      }
      // A second file that lost its second segment: listed, and marked as not complete.
      test::ResponseFlow lossy;
      lossy.ack = 2000;
      auto segments = test::ResponseSegments(
          "HTTP/1.1 200 OK\r\nContent-Length: 3000\r\n\r\n" + std::string(3000, 'q'), lossy);
      segments.erase(segments.begin() + 1);
      for (const auto& packet : segments) pcap.Write(packet);
    }
    ProgramSettings settings;
    settings.fileMode.folder = dir.File("out");
    settings.fileMode.nameTemplate = "%FCS";
    ui::FileModeWindow window(settings, false, false);
    QVERIFY(window.openCaptureFile(QString::fromStdString(dir.File("web.pcap"))));
    window.waitForCapture();
    QTableWidget& files = window.fileList();
    QCOMPARE(files.rowCount(), 2);
    QCOMPARE(files.item(0, 0)->text(), QStringLiteral("0.png"));
    QCOMPARE(files.item(0, 2)->text(), QStringLiteral("image/png"));
    QCOMPARE(files.horizontalHeaderItem(6)->text(), language ? QStringLiteral("Vollständig") : QStringLiteral("Complete"));
    QCOMPARE(files.item(0, 6)->text(), language ? QStringLiteral("Ja") : QStringLiteral("Yes"));
    QCOMPARE(files.item(1, 0)->text(), QStringLiteral("1.txt"));
    QVERIFY(files.item(1, 6)->text().startsWith(language ? QStringLiteral("Nein") : QStringLiteral("No")));
    QCOMPARE(window.statusText(), language ? QStringLiteral("Status: Fertig") : QStringLiteral("Status: Done"));
    QCOMPARE(settings.fileMode.countInstalled, 2u);
    Snapshot(window, QStringLiteral("file-mode-window-") + LanguageTag());
    QVERIFY(window.openCaptureFile(QString::fromStdString(dir.File("web.pcap"))));
    window.waitForCapture();
    QCOMPARE(files.rowCount(), 2);  // the second run's files only
  }

  // A body that does not fit is told on the message line with its path and reason, and is not
  // listed; the run goes on.
  void aFullDiskIsToldOnTheMessageLine() {
    ui::SetLanguage(UiLanguage::English);
    test::SmallDisk disk(128 << 10);
    if (!disk.mounted()) QSKIP("no small tmpfs");
    test::TempDir dir;
    {
      test::PcapFileWriter pcap(dir.File("big.pcap"), test::kLinkRaw);
      test::ResponseFlow flow;
      flow.segmentSize = 60000;
      for (const auto& packet : test::ResponseSegments(
               "HTTP/1.1 200 OK\r\n\r\n" + std::string(300'000, 'b'), flow)) {
        pcap.Write(packet);
      }
    }
    ProgramSettings settings;
    settings.fileMode.folder = disk.path().string();
    settings.fileMode.nameTemplate = "%FCS";
    ui::FileModeWindow window(settings, false, false);
    QVERIFY(window.openCaptureFile(QString::fromStdString(dir.File("big.pcap"))));
    window.waitForCapture();
    QCOMPARE(window.fileList().rowCount(), 0);
    QVERIFY2(window.messageText().contains(QString::fromStdString(disk.path().string() + "/0.txt (No space left on device)")),
             qPrintable(window.messageText()));
  }

  // A pipe held open keeps a capture file running while the naming dialog changes the template
  // and %FCC: the next file takes both, and counting goes on from the typed value.
  void namingChangedWhileRunningTakesTheNextFile() {
    test::TempDir dir;
    const std::string pipe = dir.File("pipe.pcap");
    QCOMPARE(mkfifo(pipe.c_str(), 0600), 0);
    int feeder = open(pipe.c_str(), O_RDWR);  // reads too, so writing does not wait for the window
    const auto endOfFile = qScopeGuard([&feeder] { if (feeder >= 0) close(feeder); });
    {
      test::PcapFileWriter pcap(pipe, test::kLinkRaw);
      for (const auto& p : test::ResponseSegments("HTTP/1.1 200 OK\r\n\r\na")) pcap.Write(p);
      // 100 s on, long after the first body went quiet: that one is written now.
      for (const auto& p : test::ResponseSegments("HTTP/1.1 200 OK\r\n\r\nb", {.ack = 2000})) {
        pcap.Write(p, 1'700'000'100);
      }
    }
    ProgramSettings settings;
    settings.fileMode.folder = dir.File("out");
    settings.fileMode.nameTemplate = "a%FCC";
    ui::FileModeWindow window(settings, false, false);
    QVERIFY(window.openCaptureFile(QString::fromStdString(pipe)));
    QTRY_COMPARE_WITH_TIMEOUT(window.fileList().rowCount(), 1, 60'000);
    QTimer::singleShot(0, &window, [&] {
      auto* dialog = window.findChild<ui::FileNamingDialog*>();
      const auto fields = dialog->findChildren<QLineEdit*>();  // template, date format, %FCC
      fields[0]->setText(QStringLiteral("b%FCC"));
      fields[2]->setText(QStringLiteral("500"));
      dialog->apply();
      dialog->accept();
    });
    window.openNamingDialog();
    close(std::exchange(feeder, -1));
    window.waitForCapture();
    QCOMPARE(window.fileList().rowCount(), 2);
    QCOMPARE(window.fileList().item(1, 0)->text(), QStringLiteral("b500.txt"));
    QCOMPARE(settings.fileMode.countCustom, 501u);
  }

  void namingPreviewFollowsLevelsAndApplyWrites() {
    ui::SetLanguage(UiLanguage::English);
    ProgramSettings settings;
    ui::FileNamingDialog dialog(settings.fileMode);
    dialog.setLevel(0, 1);
    dialog.setLevel(2, 3);
    QCOMPARE(dialog.previewText(), QStringLiteral("Example: \\200.200.200.200\\html"));
    QCOMPARE(settings.fileMode.subfolderLevels, (std::vector<int>{0, 0, 0}));
    dialog.apply();
    QCOMPARE(settings.fileMode.subfolderLevels, (std::vector<int>{1, 0, 3}));
    for (const UiLanguage language : {UiLanguage::English, UiLanguage::German}) {
      ui::SetLanguage(language);
      ui::FileNamingDialog shown(settings.fileMode);
      Snapshot(shown, QStringLiteral("file-naming-dialog-") + LanguageTag());
    }
  }
};

QTEST_MAIN(FileModeWindowTest)
#include "file_mode_window_test.moc"
