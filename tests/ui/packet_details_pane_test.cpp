// The detail pane over a real store on the offscreen platform: field clicks selecting bytes in
// the dump and the Hex viewer at every level and form, unreadable records and the reverse
// look-ups. What the fields say is the decoder's, tested with it. Run with
// --screenshot DIR to also save pictures of pane and viewer.
#include <QComboBox>
#include <QDir>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QRadioButton>
#include <QSignalSpy>
#include <QTextCursor>
#include <QThread>
#include <QtTest>
#include <algorithm>
#include <optional>

#ifndef Q_MOC_RUN
#include "common/settings.hpp"
#include "packets/decoder.hpp"
#include "packets/store.hpp"
#include "support/frames.hpp"
#include "support/ui/widgets.hpp"
#include "ui/hex_viewer_window.hpp"
#include "ui/packet_details_pane.hpp"
#include "ui/reverse_resolver.hpp"
#endif

using namespace vormelt;
using namespace vormelt::test;
using vormelt::ui::PacketDetailsPane;

namespace {

const Mac kVmwareMac{0x00, 0x0C, 0x29, 0x12, 0x34, 0x56};
const Mac kOtherMac{0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF};

// A pane over its own store; the pane is shown so clicks and visibility behave as on screen.
struct Bench {
  explicit Bench(ProgramSettings initial = {}) : settings(initial) {
    pane.resize(1100, 420);
    pane.show();
  }
  std::uint32_t Add(const Bytes& frame, InterfaceKind kind = InterfaceKind::PacketDriver) {
    if (store.Insert(test::Record(frame, kind)) != InsertOutcome::Stored) qFatal("the store refused a frame");
    return static_cast<std::uint32_t>(store.ItemCount() - 1);
  }
  template <typename Widget = QLineEdit>
  Widget& Child(const char* name) const { return test::Child<Widget>(pane, name); }
  QString Value(const char* name) const { return Child(name).text(); }
  QPlainTextEdit& Dump() const {
    return Child<QPlainTextEdit>(settings.packetMode.wrapDump ? "wrappedDump" : "scrollingDump");
  }
  QString Selected() const { return Dump().textCursor().selectedText(); }
  void Click(const char* name) const { QTest::mouseClick(&Child<QWidget>(name), Qt::LeftButton); }

  PacketStore store{256};
  ProgramSettings settings;
  PacketDetailsPane pane{store, settings};
};

Bytes Tcp(std::uint8_t flags, Bytes ipOptions = {}, std::string_view payload = {}) {
  Ipv4Header ip;
  ip.options = std::move(ipOptions);
  TcpHeader tcp;
  tcp.flags = flags;
  tcp.sequence = 1000;
  tcp.acknowledgement = 2000;
  tcp.window = 0x1234;
  return EthernetFrame(kOtherMac, kVmwareMac, kEtherTypeIpv4, TcpPacket(ip, tcp, ToBytes(payload)));
}

}  // namespace

class PacketDetailsPaneTest : public QObject {
  Q_OBJECT

 private slots:
  void clickingAFieldSelectsItsBytesAtEveryLevelAndForm() {
    Bench b;
    b.pane.showPacket(b.Add(Tcp(kAck)));
    b.pane.openHexViewer();
    ui::HexViewerWindow* viewer = b.pane.hexViewer();
    QVERIFY(viewer && viewer->isVisible());

    // Datalink, Hex: the TTL is frame byte 22, the seventh value of the second line.
    b.Click("ttl");
    QCOMPARE(b.Selected(), QStringLiteral("40"));
    QCOMPARE(b.Dump().textCursor().selectionStart(), 48 + 18);
    QCOMPARE(viewer->hexBox().textCursor().selectedText(), QStringLiteral("40"));
    QCOMPARE(viewer->charactersBox().textCursor().selectedText(), QStringLiteral("@"));

    // The selection follows the form and level the user picks next.
    b.Child<QRadioButton>("dumpDec").click();
    QCOMPARE(b.Selected(), QStringLiteral(" 64"));
    QCOMPARE(b.Dump().textCursor().selectionStart(), 2 * 40 + 2 * 4);
    b.Child<QComboBox>("dataLevel").setCurrentIndex(static_cast<int>(DataLevel::Network));
    QCOMPARE(b.Selected(), QStringLiteral(" 64"));
    QCOMPARE(b.Dump().textCursor().selectionStart(), 8 * 4);
    QCOMPARE(viewer->hexBox().textCursor().selectedText(), QStringLiteral("40"));
    b.Click("sourceIp");
    QCOMPARE(b.Selected(), QStringLiteral(" 10   0   0   1"));
    QCOMPARE(b.Dump().textCursor().selectionStart(), 40 + 2 * 4);

    // Fields before the dump's first byte select from its start; Text form selects nothing.
    b.Click("sourceMac");
    QCOMPARE(b.Dump().textCursor().selectionStart(), 0);
    b.Child<QRadioButton>("dumpText").click();
    b.Click("ttl");
    QVERIFY(!b.Dump().textCursor().hasSelection());
  }

  void unreadableRecordsOfferToDeleteTheRow() {
    Bench b;
    const std::uint32_t shown = b.Add(Tcp(kAck));
    const std::uint32_t gone = b.Add(Tcp(kSyn));
    b.pane.showPacket(shown);
    QVERIFY(b.store.Delete(static_cast<std::int32_t>(gone)));
    QSignalSpy deleteRequests(&b.pane, &PacketDetailsPane::deleteRowRequested);
    {
      test::MessageLog no;
      no.answer = test::Answer::No;
      b.pane.showPacket(gone);
      QCOMPARE(no.asked.size(), std::size_t{1});
      QCOMPARE(no.asked[0].caption, QStringLiteral("Delete invalid packet?"));
    }
    QCOMPARE(b.Dump().toPlainText(), QStringLiteral("Invalid packet data!"));
    QVERIFY(b.Value("ttl").isEmpty());
    QTest::qWait(20);
    QCOMPARE(deleteRequests.count(), 0);

    test::MessageLog yes;
    yes.answer = test::Answer::Yes;
    b.pane.showPacket(gone);
    QTRY_COMPARE(deleteRequests.count(), 1);
    QCOMPARE(deleteRequests.at(0).at(0).value<std::uint32_t>(), gone);
  }

  void reverseLookupsAnswerOnTheWindowThread() {
    QThread* lookupThread = nullptr;
    ui::ReverseResolver resolver(
        [&lookupThread](const std::string& address) -> std::optional<std::string> {
          lookupThread = QThread::currentThread();
          if (address == "192.0.2.7") return "host.example";
          return std::nullopt;
        },
        nullptr);
    std::vector<std::optional<std::string>> answers;
    QThread* answerThread = nullptr;
    const auto record = [&](std::optional<std::string> name) {
      answerThread = QThread::currentThread();
      answers.push_back(std::move(name));
    };
    resolver.resolve("192.0.2.7", record);
    resolver.resolve("192.0.2.8", record);
    QTRY_COMPARE(answers.size(), std::size_t{2});
    QCOMPARE(resolver.pending(), 0);
    QVERIFY(lookupThread != QThread::currentThread());
    QCOMPARE(answerThread, QThread::currentThread());
    QVERIFY(std::count(answers.begin(), answers.end(), std::optional<std::string>("host.example")) == 1);
    QVERIFY(std::count(answers.begin(), answers.end(), std::nullopt) == 1);
  }
};

namespace {

// Pictures of the pane with a TCP packet, its sequence number selected, and the Hex viewer.
bool SaveScreenshots(const QString& folder) {
  Bench b;
  b.pane.resize(1180, 330);
  b.pane.showPacket(b.Add(Tcp(kAck | kPsh, {}, "GET /index.html HTTP/1.1\r\nHost: example.org\r\n\r\n")));
  b.pane.openHexViewer();
  b.Click("sequence");
  QTest::qWait(200);
  const QDir dir(folder);
  return b.pane.grab().save(dir.filePath(QStringLiteral("details_pane.png"))) &&
         b.pane.hexViewer()->grab().save(dir.filePath(QStringLiteral("hex_viewer.png")));
}

}  // namespace

VORMELT_WIDGET_TEST_MAIN(PacketDetailsPaneTest, SaveScreenshots)

#include "packet_details_pane_test.moc"
