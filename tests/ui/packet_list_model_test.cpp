// The packet list model over a real store: rows arrive in one insert per sync, deletes and clears
// keep rows and store indices in step, and every change passes Qt's own model consistency checks.
// Readers racing the receive thread are tested on the store (label race, run under TSan).
#include <QAbstractItemModelTester>
#include <QSignalSpy>
#include <QTest>

// moc reads this file for the test class and cannot read the text catalogue behind these.
#ifndef Q_MOC_RUN
#include "packets/list_row.hpp"
#include "packets/store.hpp"
#include "support/frames.hpp"
#include "ui/packetmode/packet_list_model.hpp"
#endif

using namespace vormelt;
using namespace vormelt::test;

namespace {

void InsertTcp(PacketStore& store, std::uint16_t sourcePort) {
  TcpHeader tcp;
  tcp.sourcePort = sourcePort;
  const Bytes frame = EthernetFrame({}, {}, 0x0800, TcpPacket({}, tcp, ToBytes("hello")));
  QCOMPARE(store.Insert(test::Record(frame, InterfaceKind::PacketDriver)), InsertOutcome::Stored);
}

QString Cell(const ui::PacketListModel& model, int row, ListColumn column) {
  return model.data(model.index(row, static_cast<int>(column))).toString();
}

}  // namespace

class PacketListModelTest : public QObject {
  Q_OBJECT

 private slots:
  void appendsNewRowsWithOneInsertPerSync() {
    PacketStore store;
    ui::PacketListModel model(store);
    QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::QtTest);
    QSignalSpy inserted(&model, &QAbstractItemModel::rowsInserted);

    for (std::uint16_t port = 1000; port < 1003; ++port) InsertTcp(store, port);
    QCOMPARE(model.rowCount(), 0);  // the view hears of rows only on the tick
    QCOMPARE(model.syncWithStore(), 3);
    QCOMPARE(inserted.count(), 1);
    QCOMPARE(inserted.at(0).at(2).toInt(), 2);

    InsertTcp(store, 1003);
    InsertTcp(store, 1004);
    QCOMPARE(model.syncWithStore(), 2);
    QCOMPARE(inserted.count(), 2);
    QCOMPARE(inserted.at(1).at(1).toInt(), 3);
    QCOMPARE(Cell(model, 4, ListColumn::SourcePort), QStringLiteral("1004"));
  }

  void deleteAndClearKeepRowsAndIndicesInStep() {
    PacketStore store;
    ui::PacketListModel model(store);
    QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::QtTest);
    for (std::uint16_t port = 1000; port < 1004; ++port) InsertTcp(store, port);
    model.syncWithStore();
    QSignalSpy removed(&model, &QAbstractItemModel::rowsRemoved);

    QVERIFY(model.deletePacket(1));
    QCOMPARE(removed.at(0).at(1).toInt(), 1);
    QCOMPARE(model.storeIndexAt(1), 2);  // rows below moved up, indices did not
    QCOMPARE(model.rowOfStoreIndex(1), -1);
    QCOMPARE(Cell(model, 1, ListColumn::SourcePort), QStringLiteral("1002"));
    QVERIFY(!model.deletePacket(1));
    QCOMPARE(removed.count(), 1);

    // New packets after a delete are appended, not mistaken for a removal elsewhere.
    QSignalSpy reset(&model, &QAbstractItemModel::modelReset);
    InsertTcp(store, 1004);
    QCOMPARE(model.syncWithStore(), 1);
    QCOMPARE(reset.count(), 0);
    QCOMPARE(model.storeIndexAt(3), 4);

    // Clear empties store and list; indices start again at 0.
    model.clear();
    QCOMPARE(reset.count(), 1);
    QCOMPARE(model.rowCount(), 0);
    QCOMPARE(store.AllocatedMemory(), std::uint64_t{0});
    InsertTcp(store, 3);
    QCOMPARE(model.syncWithStore(), 1);
    QCOMPARE(model.storeIndexAt(0), 0);
  }

  void removalsBehindTheModelsBackReset() {
    PacketStore store;
    ui::PacketListModel model(store);
    QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::QtTest);
    for (std::uint16_t port = 0; port < 5; ++port) InsertTcp(store, port);
    model.syncWithStore();
    QSignalSpy reset(&model, &QAbstractItemModel::modelReset);
    const std::int32_t gone[] = {0, 3};
    QCOMPARE(store.DeleteMany(gone), std::size_t{2});
    InsertTcp(store, 5);
    model.syncWithStore();
    QCOMPARE(reset.count(), 1);
    QCOMPARE(model.rowCount(), 4);
    QCOMPARE(model.storeIndexAt(0), 1);
    QCOMPARE(model.storeIndexAt(3), 5);
  }
};

QTEST_MAIN(PacketListModelTest)
#include "packet_list_model_test.moc"
