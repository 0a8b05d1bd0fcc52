// The interface chooser: the OK rule and what a choice writes into the settings, over a made-up
// interface list. Listing the host's interfaces is tested in tests/capture.
#include <QTest>
#include <QTreeWidget>

// moc reads this file for the test class and cannot read the text catalogue behind these.
#ifndef Q_MOC_RUN
#include "capture/interfaces.hpp"
#include "common/settings.hpp"
#include "support/ui/widgets.hpp"
#include "ui/shell/interface_chooser.hpp"
#endif

using namespace vormelt;
using vormelt::ui::InterfaceChooser;

namespace {

InterfaceList SampleList() {
  InterfaceList list;
  list.rows.push_back({InterfaceKind::RawSockets, "lo", "127.0.0.1", "lo"});
  list.rows.push_back({InterfaceKind::RawSockets, "lo", "127.0.0.2", "lo"});
  list.rows.push_back({InterfaceKind::PacketDriver, "Wired adapter", "", "eth0"});
  return list;
}

}  // namespace

class InterfaceChooserTest : public QObject {
  Q_OBJECT


 private slots:
  void okStoresASocketsRowOrAnAdapterRowAndWithoutARowAsksForOne() {
    test::MessageLog log;
    ProgramSettings settings;
    const InterfaceSettings before = settings.interface;
    InterfaceChooser sockets(settings, SampleList());
    sockets.accept();
    QCOMPARE(log.asked.size(), std::size_t{1});
    QCOMPARE(log.asked[0].text, QStringLiteral("Please choose an interface."));
    QCOMPARE(sockets.result(), int(QDialog::Rejected));
    QVERIFY(settings.interface == before);

    sockets.list().setCurrentItem(sockets.list().topLevelItem(1));
    sockets.accept();
    QCOMPARE(settings.interface.chosenKind, InterfaceKind::RawSockets);
    QCOMPARE(settings.interface.address, std::string("127.0.0.2"));

    InterfaceChooser adapter(settings, SampleList());
    adapter.list().setCurrentItem(adapter.list().topLevelItem(2));
    adapter.accept();
    QCOMPARE(settings.interface.chosenKind, InterfaceKind::PacketDriver);
    QCOMPARE(settings.interface.adapterDevice, std::string("eth0"));
    QCOMPARE(settings.interface.adapterDisplayName, std::string("Wired adapter"));
    QCOMPARE(settings.interface.address, std::string("127.0.0.2"));  // kept for going back
  }
};

QTEST_MAIN(InterfaceChooserTest)
#include "interface_chooser_test.moc"
