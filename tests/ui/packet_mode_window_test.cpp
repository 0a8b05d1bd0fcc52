// The Packet Mode window end to end: a capture file becomes rows, and the filter check boxes act
// on arriving packets. What a row says is tested with the list rows in tests/packets;
// tests/e2e captures on loopback.
#include <QCheckBox>
#include <QComboBox>
#include <QFile>
#include <QRadioButton>
#include <QItemSelectionModel>
#include <QTableView>
#include <QTemporaryDir>
#include <QTest>

#include <vector>

// moc reads this file for the test class and cannot read the text catalogue behind these.
#ifndef Q_MOC_RUN
#include "common/settings.hpp"
#include "filters/filter_profile.hpp"
#include "packets/list_row.hpp"
#include "support/frames.hpp"
#include "support/pcap_file.hpp"
#include "support/ui/widgets.hpp"
#include "ui/packetmode/dump_commands.hpp"
#include "ui/shell/dump_dialogs.hpp"
#include "ui/packetmode/packet_list_model.hpp"
#include "ui/packetmode/packet_mode_window.hpp"
#endif

using namespace vormelt;
using namespace vormelt::test;
using vormelt::ui::PacketModeWindow;

namespace {

Bytes HttpFrame(std::string_view payload) {
  return EthernetFrame({0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF}, {0x00, 0x11, 0x22, 0x33, 0x44, 0x55}, 0x0800,
                       TcpPacket({}, {}, ToBytes(payload)));
}

QString MustContainAt(const PacketModeWindow& window, int row) {
  const ui::PacketListModel& model = window.listModel();
  return model.data(model.index(row, static_cast<int>(ListColumn::MustContain))).toString();
}

}  // namespace

class PacketModeWindowTest : public QObject {
  Q_OBJECT

  QTemporaryDir config_;
  TempDir files_;

  // Loads `frames` as an Ethernet pcap and waits until every frame is read.
  void Load(PacketModeWindow& window, const std::vector<Bytes>& frames) {
    const std::string path = files_.File("capture.pcap");
    WritePcap(path, kLinkEthernet, frames);
    QVERIFY(window.openCaptureFile(QString::fromStdString(path)));
    window.waitForCapture();
  }

 private slots:
  void initTestCase() {
    QVERIFY(config_.isValid());
    qputenv("XDG_CONFIG_HOME", config_.path().toUtf8());
  }

  // The current profile is applied at start; the two check boxes steer it per arriving packet.
  void checkBoxesSteerTheProfilesFilter() {
    MessageLog log;  // nothing here may show a box or start a program
    FilterProfile profile;
    profile.values.mustContain = {"get"};
    QVERIFY(SaveFilterProfile(profile, CurrentProfilePath(FilterMode::Packet)).ok());
    ProgramSettings settings;
    settings.packetMode.filteringEnabled = true;
    PacketModeWindow window(settings, false, false);
    auto& applyFilters = Child<QCheckBox>(window, "applyFilters");
    QVERIFY(applyFilters.isChecked());
    const std::vector<Bytes> frames = {HttpFrame("GET /index.html"), HttpFrame("POST /form")};

    Load(window, frames);
    QCOMPARE(window.listModel().rowCount(), 1);
    QCOMPARE(MustContainAt(window, 0), QStringLiteral("get"));

    Child<QCheckBox>(window, "matchCase").click();
    QVERIFY(settings.packetMode.matchCase);
    Load(window, frames);
    QCOMPARE(window.listModel().rowCount(), 0);

    applyFilters.click();
    QVERIFY(!settings.packetMode.filteringEnabled);
    Load(window, frames);
    QCOMPARE(window.listModel().rowCount(), 2);
    QCOMPARE(MustContainAt(window, 0), QString());
    QVERIFY(log.asked.empty());
  }

  // Unticking "Save packet data" greys out the forms and the level, and the choices land in
  // the settings; a save and a load through the window's commands give the rows back.
  void savingOptionsAndADumpFileRoundTrip() {
    MessageLog log;
    ProgramSettings settings;
    ui::SavingOptionsDialog dialog(settings.packetMode.saving);
    Child<QRadioButton>(dialog, "form4").click();
    Child<QComboBox>(dialog, "level").setCurrentIndex(1);
    auto& saveData = Child<QCheckBox>(dialog, "saveData");
    saveData.click();
    QVERIFY(!Child<QRadioButton>(dialog, "form2").isEnabled());
    QVERIFY(!Child<QComboBox>(dialog, "level").isEnabled());
    saveData.click();
    dialog.ApplyTo(settings.packetMode.saving);
    QCOMPARE(settings.packetMode.saving.dataForm, 4);
    QCOMPARE(settings.packetMode.saving.dataLevel, 1);
    settings.packetMode.saving.dataLevel = 0;  // only Datalink loads back

    PacketModeWindow window(settings, false, false);
    Load(window, {HttpFrame("GET /a"), HttpFrame("GET /b"), HttpFrame("GET /c")});
    ui::DumpFileCommands& files = window.dumpFiles();
    const QString dump = QString::fromStdString(files_.File("saved.txt"));
    QVERIFY(files.SaveDumpFile(dump));
    QTRY_VERIFY(!files.Busy());
    settings.packetMode.saving.loadForm = 4;
    QVERIFY(files.LoadDumpFile(dump));
    QTRY_VERIFY(!files.Busy());
    QCOMPARE(window.listModel().rowCount(), 3);
    QVERIFY(log.asked.empty());
    QVERIFY(files.LoadDumpFile(QStringLiteral("/nonexistent/dump.txt")));
    QTRY_COMPARE(log.asked.size(), std::size_t{1});
    QCOMPARE(window.listModel().rowCount(), 3);  // what cannot be read clears nothing
    QFile saved(dump);
    QVERIFY(saved.open(QIODevice::ReadWrite));
    QByteArray text = saved.readAll();
    text[text.lastIndexOf("47 45 54")] = 'Q';  // the third record's "GET" in hex
    QVERIFY(saved.seek(0) && saved.write(text) == text.size());
    saved.close();
    QVERIFY(files.LoadDumpFile(dump));
    QTRY_COMPARE(log.asked.size(), std::size_t{2});
    QCOMPARE(window.listModel().rowCount(), 2);
    QVERIFY(log.asked[1].text.startsWith(dump + QStringLiteral(": loading stopped at an unreadable record")));
  }

  // Find stops at each listed match with the event loop running, and at the end asks whether
  // to search again: Yes starts over from the first packet, No ends the search.
  void findStopsAtEachMatchWithoutBlockingAndAsksToSearchAgain() {
    MessageLog log;
    log.answers = {MessageAnswer::Yes, MessageAnswer::No};
    ProgramSettings settings;
    PacketModeWindow window(settings, false, false);
    Load(window, {HttpFrame("GET /a"), HttpFrame("POST /b"), HttpFrame("xget")});
    const auto selectedRow = [&window] {
      const QModelIndexList rows = window.packetList().selectionModel()->selectedRows();
      return rows.isEmpty() ? -1 : rows.front().row();
    };
    for (const int expected : {0, 2, 0, 2}) {
      window.findNext(QStringLiteral("get"));
      QTRY_COMPARE(selectedRow(), expected);
      QVERIFY(!window.packetList().isHidden());  // shown again while waiting for the next press
    }
    window.findNext(QStringLiteral("get"));
    QTRY_COMPARE(log.asked.size(), std::size_t{2});
    QCOMPARE(log.asked[1].caption, QStringLiteral("Search again?"));
    QCOMPARE(selectedRow(), 2);
  }
};

QTEST_MAIN(PacketModeWindowTest)
#include "packet_mode_window_test.moc"
