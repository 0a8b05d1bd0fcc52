// The File Mode window on the offscreen platform: a capture file rebuilt from the window lists
// its file with the status the user reads, and the naming dialog's preview follows its levels
// and writes only on Apply. With VORMELT_SCREENSHOTS=DIR both are saved there as PNGs, in
// English and German, for a look by eye.
#include <QTableWidget>
#include <QtTest>

// moc reads this file too, and cannot parse the text catalogue's generated enum.
#ifndef Q_MOC_RUN
#include "common/settings.hpp"
#include "support/pcap_file.hpp"
#include "support/tcp_stream.hpp"
#include "ui/file_mode_window.hpp"
#include "ui/file_naming_dialog.hpp"
#include "ui/qt_text.hpp"
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
    }
    ProgramSettings settings;
    settings.fileMode.folder = dir.File("out");
    settings.fileMode.nameTemplate = "%FCS";
    ui::FileModeWindow window(settings, false, false);
    QVERIFY(window.openCaptureFile(QString::fromStdString(dir.File("web.pcap"))));
    window.waitForCapture();
    QTableWidget& files = window.fileList();
    QCOMPARE(files.rowCount(), 1);
    QCOMPARE(files.item(0, 0)->text(), QStringLiteral("0.png"));
    QCOMPARE(files.item(0, 2)->text(), QStringLiteral("image/png"));
    QCOMPARE(window.statusText(), language ? QStringLiteral("Status: Fertig") : QStringLiteral("Status: Done"));
    QCOMPARE(settings.fileMode.countInstalled, 1u);
    Snapshot(window, QStringLiteral("file-mode-window-") + LanguageTag());
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
