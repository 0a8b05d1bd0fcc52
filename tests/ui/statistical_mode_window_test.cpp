// The Statistical Mode window on the offscreen platform: rows inserted and refreshed keep their
// sort, selection and ties; the settings window's bounds questions. Counting is the engine's.
#include <QHeaderView>
#include <QLineEdit>
#include <QRadioButton>
#include <QTableView>
#include <QtTest>
#include <filesystem>
#include <fstream>

// moc reads this file too, and cannot parse the text catalogue's generated enum.
#ifndef Q_MOC_RUN
#include "common/settings.hpp"
#include "statistics/engine.hpp"
#include "statistics/lists.hpp"
#include "support/frames.hpp"
#include "support/pcap_file.hpp"
#include "support/ui/widgets.hpp"
#include "ui/shell/qt_text.hpp"
#include "ui/statistics/statistical_mode_window.hpp"
#include "ui/statistics/statistics_list_model.hpp"
#include "ui/statistics/statistics_settings_window.hpp"
#endif

using namespace vormelt;
using statistics::StatisticsList;

namespace {

test::Bytes Tcp(std::uint8_t host, std::size_t payload) {
  test::Ipv4Header ip;
  ip.source = {127, 0, 0, 1};
  ip.destination = {10, 0, 0, host};
  return test::TcpPacket(ip, {}, test::Bytes(payload, 'x'));
}

// The offscreen screen is 800 pixels wide; the window is meant for a common 1920 by 1080 one.
const bool kWideScreen = [] {
  const auto path = std::filesystem::temp_directory_path() / "vormelt-wide-screen.json";
  std::ofstream(path) << R"({"screens":[{"name":"wide","width":1920,"height":1080}]})";
  return qputenv("QT_QPA_PLATFORM", "offscreen:configfile=" + QByteArray(path.c_str()));
}();

// The address shown in a view row, after sorting.
QString AddressAt(const QTableView& view, int row) {
  return view.model()->index(row, 0).data().toString();
}

}  // namespace

class StatisticalModeWindowTest : public QObject {
  Q_OBJECT

 private slots:
  void updatesKeepSortSelectionAndTies() {
    ProgramSettings settings;
    ui::StatisticalModeWindow window(settings, {8192}, false, false);
    statistics::StatisticsEngine& engine = window.engine();
    // Hosts 1..6 get 100 bytes each, so they tie; host 7 gets more.
    for (std::uint8_t host = 1; host <= 6; ++host) engine.CountPacket(Tcp(host, 100));
    engine.CountPacket(Tcp(7, 900));
    window.refresh();
    QTableView& view = window.view(StatisticsList::IpAddresses);
    QCOMPARE(view.model()->rowCount(), 8);  // 127.0.0.1 and seven hosts
    view.sortByColumn(3, Qt::DescendingOrder);  // Bytes total
    QCOMPARE(AddressAt(view, 1), QStringLiteral("10.0.0.7"));
    QStringList tiesBefore;
    for (int row = 2; row < 8; ++row) tiesBefore << AddressAt(view, row);
    view.selectRow(3);
    const QString selected = AddressAt(view, 3);

    // More traffic to a tied host and to a new one: the sort holds, the selection follows its
    // record, and the other tied rows keep their order.
    for (int i = 0; i < 5; ++i) engine.CountPacket(Tcp(6, 400));
    engine.CountPacket(Tcp(8, 10));
    window.refresh();
    QCOMPARE(view.model()->rowCount(), 9);
    QCOMPARE(AddressAt(view, 1), QStringLiteral("10.0.0.6"));
    QCOMPARE(view.horizontalHeader()->sortIndicatorSection(), 3);
    const QModelIndexList rows = view.selectionModel()->selectedRows();
    QCOMPARE(rows.size(), 1);
    QCOMPARE(rows.front().data().toString(), selected);
    QStringList tiesAfter;
    for (int row = 3; row < 9; ++row) {  // below 10.0.0.6 and 10.0.0.7
      if (AddressAt(view, row) != QStringLiteral("10.0.0.8")) tiesAfter << AddressAt(view, row);
    }
    tiesBefore.removeAll(QStringLiteral("10.0.0.6"));
    QCOMPARE(tiesAfter, tiesBefore);
  }

  // At the default size every column shows whole, in either language.
  void columnsFitTheDefaultWindow() {
    for (const UiLanguage language : {UiLanguage::German, UiLanguage::English}) {
      ui::SetLanguage(language);
      ProgramSettings settings;
      ui::StatisticalModeWindow window(settings, {8192}, false, false);
      window.show();
      for (const int list : {0, 1, 2}) {
        window.showList(StatisticsList(list));
        QCoreApplication::processEvents();
        QTableView& view = window.view(StatisticsList(list));
        for (int c = 0; c < view.model()->columnCount(); ++c) {
          QVERIFY(view.columnWidth(c) >= view.horizontalHeader()->sectionSizeHint(c));
        }
        QVERIFY(view.horizontalHeader()->length() <= view.viewport()->width());
      }
    }
  }

  // A file read at once shows the rate it recorded over its 10 s (its last frame is not its
  // latest); a saved list has the rows in the order on screen, that rate last.
  void savedListFollowsTheScreenWithRecordedRates() {
    test::TempDir dir;
    {
      test::PcapFileWriter pcap(dir.File("ten.pcap"), test::kLinkRaw);
      for (std::uint32_t s = 0; s <= 10; ++s) pcap.Write(Tcp(1, 1000), 1700000000 + s);
      pcap.Write(Tcp(2, 10), 1700000005);
    }
    ProgramSettings settings;
    ui::StatisticalModeWindow window(settings, {8192}, false, false);
    QVERIFY(window.openCaptureFile(QString::fromStdString(dir.File("ten.pcap"))));
    window.waitForCapture();
    window.view(StatisticsList::IpAddresses).sortByColumn(3, Qt::AscendingOrder);
    QVERIFY(window.saveList(QString::fromStdString(dir.File("ip.csv")), statistics::SaveFormat::Csv));
    std::ifstream saved(dir.File("ip.csv"));
    std::string line, order;
    QVERIFY(std::getline(saved, line) && line.ends_with(",Bytes/s"));
    while (std::getline(saved, line)) {
      const QStringList fields = QString::fromStdString(line).split(',');
      order += fields[0].toStdString() + " ";
      QCOMPARE(fields.back().toLongLong(), fields[3].toLongLong() / 10);
    }
    QCOMPARE(order, std::string("10.0.0.2 10.0.0.1 127.0.0.1 "));
  }

  void settingsBoundsQuestions() {
    test::MessageLog log;
    ui::StatisticsSettingsWindow dialog({256, statistics::VictimPolicy::LongestAgo});
    dialog.maxItemsField().setText(QStringLiteral("0"));
    dialog.policyButton(statistics::VictimPolicy::Highest).setChecked(true);
    log.answers = {MessageAnswer::No, MessageAnswer::Yes};
    dialog.accept();
    QCOMPARE(dialog.result(), int(QDialog::Rejected));
    QCOMPARE(dialog.limits().maxItems, 256);
    QVERIFY(log.asked.back().text.startsWith(QStringLiteral("The maximum number of list items may not be set lower than 1.")));
    dialog.maxItemsField().setText(QStringLiteral("9000"));
    dialog.accept();
    QCOMPARE(dialog.maxItemsField().text(), QStringLiteral("8192"));
    QCOMPARE(dialog.limits().maxItems, 8192);
    QCOMPARE(dialog.limits().policy, statistics::VictimPolicy::Highest);
  }
};

QTEST_MAIN(StatisticalModeWindowTest)
#include "statistical_mode_window_test.moc"
