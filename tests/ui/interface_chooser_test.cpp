// The interface chooser: its columns, the OK rule, and what a choice writes into the settings,
// over a made-up interface list and over the host's real one.
#include <QApplication>
#include <QTest>
#include <QTimer>
#include <QTreeWidget>

// moc reads this file for the test class and cannot read the text catalogue behind these.
#ifndef Q_MOC_RUN
#include "capture/interfaces.hpp"
#include "common/settings.hpp"
#include "support/ui/widgets.hpp"
#include "ui/interface_chooser.hpp"
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

  std::unique_ptr<test::MessageLog> log_;

 private slots:
  void init() { log_ = std::make_unique<test::MessageLog>(); }
  void cleanup() { log_.reset(); }

  void okStoresASocketsRowOrAnAdapterRowAndWithoutARowAsksForOne() {
    ProgramSettings settings;
    const InterfaceSettings before = settings.interface;
    InterfaceChooser sockets(settings, SampleList());
    sockets.accept();
    QCOMPARE(log_->asked.size(), std::size_t{1});
    QCOMPARE(log_->asked[0].text, QStringLiteral("Please choose an interface."));
    QCOMPARE(sockets.result(), int(QDialog::Rejected));
    QVERIFY(settings.interface == before);

    QCOMPARE(sockets.list().topLevelItem(1)->text(0), QStringLiteral("Sockets"));
    QCOMPARE(sockets.list().topLevelItem(2)->text(0), QStringLiteral("Adapter"));
    sockets.list().setCurrentItem(sockets.list().topLevelItem(1));
    sockets.accept();
    QCOMPARE(sockets.result(), int(QDialog::Accepted));
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

  // The host's own list always holds loopback; choosing it through the modal run stores it.
  void choosesFromTheHostsInterfaces() {
    ProgramSettings settings;
    bool sawLoopback = false;
    QTimer::singleShot(0, [&] {
      auto* chooser = qobject_cast<InterfaceChooser*>(QApplication::activeModalWidget());
      QVERIFY(chooser);
      const auto found = chooser->list().findItems(QStringLiteral("127.0.0.1"), Qt::MatchExactly,
                                                   InterfaceChooser::AddressColumn);
      sawLoopback = !found.isEmpty();
      if (sawLoopback) chooser->list().setCurrentItem(found.front());
      sawLoopback ? chooser->accept() : chooser->reject();
    });
    const bool chosen = InterfaceChooser::Choose(settings, nullptr);
    QVERIFY(sawLoopback);
    QVERIFY(chosen);
    QCOMPARE(settings.interface.address, std::string("127.0.0.1"));
  }
};

QTEST_MAIN(InterfaceChooserTest)
#include "interface_chooser_test.moc"
