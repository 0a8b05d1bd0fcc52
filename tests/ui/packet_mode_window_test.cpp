// The Packet Mode window end to end: capture files become rows with the right texts, unreadable
// files are reported, and the filter check boxes act on arriving packets. Live capture feeds the
// same sink; tests/e2e captures on loopback.
#include <QApplication>
#include <QCheckBox>
#include <QProgressBar>
#include <QTemporaryDir>
#include <QTest>

#include <fstream>
#include <vector>

// moc reads this file for the test class and cannot read the text catalogue behind these.
#ifndef Q_MOC_RUN
#include "common/settings.hpp"
#include "common/settings_store.hpp"
#include "packetmode/filter_profile.hpp"
#include "packets/list_row.hpp"
#include "packets/store.hpp"
#include "support/frames.hpp"
#include "support/pcap_file.hpp"
#include "support/ui/widgets.hpp"
#include "ui/packet_list_model.hpp"
#include "ui/packet_mode_window.hpp"
#endif

using namespace vormelt;
using namespace vormelt::test;
using vormelt::ui::PacketModeWindow;

namespace {

const Mac kMacA{0x00, 0x11, 0x22, 0x33, 0x44, 0x55};
const Mac kMacB{0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF};

Bytes Ethernet(const Bytes& network, std::uint16_t etherType = 0x0800) {
  return EthernetFrame(kMacB, kMacA, etherType, network);
}

Bytes HttpFrame(std::string_view payload) {
  return Ethernet(TcpPacket({}, {}, ToBytes(payload)));
}

// TCP, UDP, ARP and ICMP, as an adapter would capture them.
std::vector<Bytes> MixedFrames() {
  Ipv4Header udpIp;
  udpIp.protocol = 17;
  Ipv4Header icmpIp;
  icmpIp.protocol = 1;
  return {HttpFrame("GET / HTTP/1.1\r\n\r\n"), Ethernet(UdpPacket(udpIp, 53, 33000, ToBytes("dns"))),
          Ethernet(ArpPacket({}), 0x0806), Ethernet(IcmpPacket(icmpIp, 8, 0, ToBytes("ping")))};
}

QString Cell(const PacketModeWindow& window, int row, ListColumn column) {
  const ui::PacketListModel& model = window.listModel();
  return model.data(model.index(row, static_cast<int>(column))).toString();
}

}  // namespace

class PacketModeWindowTest : public QObject {
  Q_OBJECT

  std::unique_ptr<MessageLog> log_;
  QTemporaryDir config_;
  TempDir files_;

  // Loads `frames` as a pcap of `linkType` and waits until every frame is read.
  void Load(PacketModeWindow& window, const std::vector<Bytes>& frames,
            std::uint32_t linkType = kLinkEthernet) {
    const std::string path = files_.File("capture.pcap");
    WritePcap(path, linkType, frames);
    QVERIFY(window.openCaptureFile(QString::fromStdString(path)));
    window.waitForCapture();
  }

 private slots:
  void initTestCase() {
    QVERIFY(config_.isValid());
    qputenv("XDG_CONFIG_HOME", config_.path().toUtf8());
  }

  void init() {
    log_ = std::make_unique<MessageLog>();  // nothing here may show a box or start a program
    std::filesystem::remove(DefaultSettingsFile());
    std::filesystem::remove(CurrentProfilePath(FilterMode::Packet));
  }

  void cleanup() { log_.reset(); }

  void showsTheRowsOfACaptureFile() {
    ProgramSettings settings;
    PacketModeWindow window(settings, false, false);
    const std::vector<Bytes> frames = MixedFrames();
    Load(window, frames);

    QCOMPARE(window.listModel().rowCount(), 4);
    QCOMPARE(Cell(window, 0, ListColumn::Type), QStringLiteral("TCP"));
    QCOMPARE(Cell(window, 2, ListColumn::Type), QStringLiteral("ARP"));
    QCOMPARE(Cell(window, 3, ListColumn::Type), QStringLiteral("ICMP"));

    QCOMPARE(Child<QProgressBar>(window, "storeGauge").value(), 4);
    QCOMPARE(window.windowTitle(), QStringLiteral("VORMELT - Stopped"));
    QVERIFY(log_->asked.empty());
  }

  void anUnreadableFileIsReported() {
    ProgramSettings settings;
    PacketModeWindow window(settings, false, false);
    const std::string path = files_.File("not-a-capture.pcap");
    std::ofstream(path) << "hello";
    window.openCaptureFile(QString::fromStdString(path));
    window.waitForCapture();
    QCOMPARE(window.listModel().rowCount(), 0);
    QCOMPARE(log_->asked.size(), std::size_t{1});
    QVERIFY(log_->asked[0].text.contains(QString::fromStdString(path)));
  }

  // The current profile is applied at start; the two check boxes steer it per arriving packet.
  void checkBoxesSteerTheProfilesFilter() {
    FilterProfile profile;
    profile.values.mustContain = {"get"};
    QVERIFY(SaveFilterProfile(profile, CurrentProfilePath(FilterMode::Packet)).ok());
    ProgramSettings settings;
    settings.packetMode.filteringEnabled = true;
    PacketModeWindow window(settings, false, false);
    auto& applyFilters = Child<QCheckBox>(window, "applyFilters");
    auto& matchCase = Child<QCheckBox>(window, "matchCase");
    QVERIFY(applyFilters.isChecked());
    const std::vector<Bytes> frames = {HttpFrame("GET /index.html"), HttpFrame("POST /form")};

    Load(window, frames);
    QCOMPARE(window.listModel().rowCount(), 1);
    QCOMPARE(Cell(window, 0, ListColumn::MustContain), QStringLiteral("get"));

    matchCase.click();
    QVERIFY(settings.packetMode.matchCase);
    Load(window, frames);
    QCOMPARE(window.listModel().rowCount(), 0);

    applyFilters.click();
    QVERIFY(!settings.packetMode.filteringEnabled);
    Load(window, frames);
    QCOMPARE(window.listModel().rowCount(), 2);
    QCOMPARE(Cell(window, 0, ListColumn::MustContain), QString());
  }
};

QTEST_MAIN(PacketModeWindowTest)
#include "packet_mode_window_test.moc"
