// The detail pane over a real store on the offscreen platform: field clicks selecting bytes in
// the dump and the Hex viewer at every level and form, and unreadable records. What the fields
// say is the decoder's, tested with it.
#include <QComboBox>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QRadioButton>
#include <QSignalSpy>
#include <QTextCursor>
#include <QtTest>

#ifndef Q_MOC_RUN
#include "common/settings.hpp"
#include "packets/decoder.hpp"
#include "packets/store.hpp"
#include "support/frames.hpp"
#include "support/ui/widgets.hpp"
#include "ui/tools/hex_viewer_window.hpp"
#include "ui/packetmode/packet_details_pane.hpp"
#endif

using namespace vormelt;
using namespace vormelt::test;
using vormelt::ui::PacketDetailsPane;

namespace {

// A pane over its own store; the pane is shown so clicks and visibility behave as on screen.
struct Bench {
  Bench() {
    pane.resize(1100, 420);
    pane.show();
  }
  std::uint32_t Add(const Bytes& frame) {
    if (store.Insert(test::Record(frame, InterfaceKind::PacketDriver)) != InsertOutcome::Stored) qFatal("refused");
    return static_cast<std::uint32_t>(store.ItemCount() - 1);
  }
  template <typename Widget = QLineEdit>
  Widget& Child(const char* name) const { return test::Child<Widget>(pane, name); }
  QPlainTextEdit& Dump() const {
    return Child<QPlainTextEdit>(settings.packetMode.wrapDump ? "wrappedDump" : "scrollingDump");
  }
  QString Selected() const { return Dump().textCursor().selectedText(); }
  void Click(const char* name) const { QTest::mouseClick(&Child<QWidget>(name), Qt::LeftButton); }

  PacketStore store{256};
  ProgramSettings settings;
  PacketDetailsPane pane{store, settings};
};

Bytes Tcp(std::uint8_t flags) {
  TcpHeader tcp;
  tcp.flags = flags;
  return EthernetFrame({0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF}, {0x00, 0x0C, 0x29, 0x12, 0x34, 0x56},
                       kEtherTypeIpv4, TcpPacket({}, tcp, {}));
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
    QCOMPARE(b.Dump().textCursor().selectionStart(), 8 * 4);
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
      no.answer = MessageAnswer::No;
      b.pane.showPacket(gone);
      QCOMPARE(no.asked.size(), std::size_t{1});
      }
    QCOMPARE(b.Dump().toPlainText(), QStringLiteral("Invalid packet data!"));
    QVERIFY(b.Child("ttl").text().isEmpty());
    QTest::qWait(20);
    QCOMPARE(deleteRequests.count(), 0);

    test::MessageLog yes;
    yes.answer = MessageAnswer::Yes;
    b.pane.showPacket(gone);
    QTRY_COMPARE(deleteRequests.count(), 1);
    QCOMPARE(deleteRequests.at(0).at(0).value<std::uint32_t>(), gone);
  }
};

QTEST_MAIN(PacketDetailsPaneTest)

#include "packet_details_pane_test.moc"
