// The Statistical Mode window on the offscreen platform: the updater inserts and refreshes rows
// while sorting, selection and ties stay put; Clear asks first; the settings window's bounds
// questions; a capture file is counted. Run with --screenshot DIR [--german] to also save a
// picture of each list and of the settings window.
#include <QApplication>
#include <QDir>
#include <QHeaderView>
#include <QLineEdit>
#include <QRadioButton>
#include <QTableView>
#include <QtTest>
#include <vector>

// moc reads this file too, and cannot parse the text catalogue's generated enum.
#ifndef Q_MOC_RUN
#include "common/settings.hpp"
#include "statistics/engine.hpp"
#include "statistics/lists.hpp"
#include "support/frames.hpp"
#include "support/pcap_file.hpp"
#include "ui/dialogs.hpp"
#include "ui/qt_text.hpp"
#include "ui/statistical_mode_window.hpp"
#include "ui/statistics_list_model.hpp"
#include "ui/statistics_settings_window.hpp"
#endif

using namespace vormelt;
using statistics::StatisticsList;
using vormelt::MessageAnswer;
using ui::MessageRequest;

namespace {

struct MessageLog {
  std::vector<MessageRequest> asked;
  MessageAnswer answer = MessageAnswer::Yes;
  MessageLog() { ui::SetMessageHandler([this](const MessageRequest& r) { return asked.push_back(r), answer; }); }
  ~MessageLog() { ui::SetMessageHandler({}); }
};

test::Bytes Tcp(std::uint8_t host, std::size_t payload, std::uint16_t port = 80) {
  test::Ipv4Header ip;
  ip.source = {127, 0, 0, 1};
  ip.destination = {10, 0, 0, host};
  test::TcpHeader tcp;
  tcp.sourcePort = port;
  return test::TcpPacket(ip, tcp, test::Bytes(payload, 'x'));
}

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
    QCOMPARE(AddressAt(view, 0), QStringLiteral("127.0.0.1"));
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

  void rateOverTheLastSeconds() {
    ProgramSettings settings;
    ui::StatisticalModeWindow window(settings, {}, false, false);
    ui::StatisticsListModel& model = window.model(StatisticsList::IpAddresses);
    const auto start = std::chrono::steady_clock::now() + std::chrono::hours(1);
    const test::Bytes packet = Tcp(1, 986);  // 1,040 bytes counted
    window.engine().CountPacket(packet);
    model.Refresh(window.engine(), start);
    for (int i = 0; i < 4; ++i) window.engine().CountPacket(packet);
    model.Refresh(window.engine(), start + std::chrono::seconds(2));
    QCOMPARE(model.index(1, 7).data(ui::StatisticsListModel::kSortRole).toLongLong(), 4 * 1040 / 2);
  }

  void clearAsksFirst() {
    ProgramSettings settings;
    ui::StatisticalModeWindow window(settings, {}, false, false);
    QCOMPARE(window.windowTitle(), QStringLiteral("Hollowbright VORMELT (Statistical Mode)"));
    QCOMPARE(window.statusText(), QStringLiteral("Status: Waiting for you to start me."));
    window.engine().CountPacket(Tcp(1, 10));
    window.refresh();
    MessageLog log;
    log.answer = MessageAnswer::No;
    window.clearAll();
    QCOMPARE(window.model(StatisticsList::IpAddresses).rowCount(), 2);
    log.answer = MessageAnswer::Yes;
    window.clearAll();
    QCOMPARE(log.asked.back().caption, QStringLiteral("Clear all statistical data?"));
    QCOMPARE(window.model(StatisticsList::IpAddresses).rowCount(), 0);
    window.engine().CountPacket(Tcp(2, 10));
    window.refresh();
    QCOMPARE(window.model(StatisticsList::IpAddresses).rowCount(), 2);
  }

  void settingsBoundsQuestions() {
    MessageLog log;
    ui::StatisticsSettingsWindow dialog({256, statistics::VictimPolicy::LongestAgo});
    QCOMPARE(dialog.windowTitle(), QStringLiteral("Statistical Mode specific Settings"));
    dialog.maxItemsField().setText(QStringLiteral("0"));
    dialog.policyButton(statistics::VictimPolicy::Highest).setChecked(true);
    log.answer = MessageAnswer::No;
    dialog.accept();
    QCOMPARE(dialog.result(), int(QDialog::Rejected));
    QCOMPARE(dialog.maxItemsField().selectedText(), QStringLiteral("0"));
    QCOMPARE(dialog.limits().maxItems, 256);
    QVERIFY(log.asked.back().text.startsWith(QStringLiteral("The maximum number of list items may not be set lower than 1.")));
    log.answer = MessageAnswer::Yes;
    dialog.maxItemsField().setText(QStringLiteral("9000"));
    dialog.accept();
    QCOMPARE(dialog.maxItemsField().text(), QStringLiteral("8192"));
    QCOMPARE(dialog.limits().maxItems, 8192);
    QCOMPARE(dialog.limits().policy, statistics::VictimPolicy::Highest);
  }

  void countsACaptureFileAndSavesTheList() {
    test::TempDir dir;
    const std::string capture = dir.File("few.pcap");
    {
      test::PcapFileWriter writer(capture, test::kLinkRaw);
      for (std::uint8_t host = 1; host <= 20; ++host) writer.Write(Tcp(host, host));
    }
    ProgramSettings settings;
    ui::StatisticalModeWindow window(settings, {}, false, false);
    window.showList(StatisticsList::IpAddressPairs);
    QVERIFY(window.openCaptureFile(QString::fromStdString(capture)));
    window.waitForCapture();
    QCOMPARE(window.statusText(), QStringLiteral("Status: Stopped"));
    QCOMPARE(window.model(StatisticsList::IpAddressPairs).rowCount(), 40);
    const QString saved = QString::fromStdString(dir.File("pairs.csv"));
    QVERIFY(window.saveList(saved, statistics::SaveFormat::Csv));
    QFile file(saved);
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(file.readAll().count('\n'), 41);
  }
};

namespace {

// Pictures of each list with counted traffic, and of the settings window, in the run's language.
bool SaveScreenshots(const QString& folder) {
  QDir().mkpath(folder);
  const QString suffix = ui::Language() == UiLanguage::German ? QStringLiteral("-de") : QStringLiteral("-en");
  ProgramSettings settings;
  settings.interface.address = "127.0.0.1";  // listens while ping runs (needs capture rights)
  ui::StatisticalModeWindow window(settings, {8192}, false, false);
  window.resize(1120, 420);
  window.startListening();
  std::system("ping -c 25 -i 0.1 127.0.0.1 >/dev/null 2>&1 &");
  for (int i = 0; i < 400; ++i) {
    const auto host = static_cast<std::uint8_t>(1 + i % 12);
    window.engine().CountPacket(Tcp(host, static_cast<std::size_t>(40 * host + i % 700),
                                    static_cast<std::uint16_t>(i % 3 ? 80 : 443)));
  }
  window.show();
  QTest::qWait(3000);
  bool ok = true;
  const char* names[] = {"addresses", "pairs", "ports"};
  for (int list = 0; list < 3; ++list) {
    window.showList(static_cast<StatisticsList>(list));
    window.refresh();
    QApplication::processEvents();
    ok = window.grab().save(folder + "/statistics-" + names[list] + suffix + ".png") && ok;
  }
  ui::StatisticsSettingsWindow dialog(window.limits());
  dialog.show();
  QApplication::processEvents();
  return dialog.grab().save(folder + "/statistics-settings" + suffix + ".png") && ok;
}

}  // namespace

int main(int argc, char** argv) {
  QApplication app(argc, argv);
  QString screenshots;
  std::vector<char*> testArgs;
  for (int i = 0; i < argc; ++i) {
    if (QByteArray(argv[i]) == "--screenshot" && i + 1 < argc) {
      screenshots = QString::fromLocal8Bit(argv[++i]);
    } else if (QByteArray(argv[i]) == "--german") {
      ui::SetLanguage(UiLanguage::German);
    } else {
      testArgs.push_back(argv[i]);
    }
  }
  if (!screenshots.isEmpty()) return SaveScreenshots(screenshots) ? 0 : 1;
  StatisticalModeWindowTest test;
  return QTest::qExec(&test, static_cast<int>(testArgs.size()), testArgs.data());
}

#include "statistical_mode_window_test.moc"
