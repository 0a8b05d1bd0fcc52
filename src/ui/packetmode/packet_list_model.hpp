// PacketListModel: the Packet Mode list as a Qt table model over the PacketStore. Rows are the
// store's present indices in order; every cell is computed from the record when the view asks,
// so a million rows cost no texts. It never holds a copy of a packet or a row's text.
#pragma once

#include <QAbstractTableModel>
#include <cstddef>
#include <cstdint>

namespace vormelt {
class PacketStore;
}

namespace vormelt::ui {

class PacketListModel : public QAbstractTableModel {
  Q_OBJECT

 public:
  // The store index of a row, under this role (a qint32; -1 when the row is gone).
  static constexpr int kStoreIndexRole = Qt::UserRole + 1;

  // The store must outlive the model. Clear and delete go through the model so the view hears
  // of them in the right order.
  explicit PacketListModel(PacketStore& store, QObject* parent = nullptr);

  int rowCount(const QModelIndex& parent = {}) const override;
  int columnCount(const QModelIndex& parent = {}) const override;
  QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
  QVariant headerData(int section, Qt::Orientation orientation,
                      int role = Qt::DisplayRole) const override;

  // Catches up with the store: appends the rows inserted since the last call with one insert
  // notification, or resets when rows were removed behind the model's back. Returns how many
  // rows were appended (0 after a reset).
  int syncWithStore();
  // Empties the store and the list.
  void clear();
  // Removes the packet at this store index from the list; false when it is not listed.
  bool deletePacket(std::int32_t storeIndex);

  // The store index shown in `row`, -1 when out of range.
  std::int32_t storeIndexAt(int row) const;
  // The row showing this store index, -1 when not listed (or not yet known to the model).
  int rowOfStoreIndex(std::int32_t storeIndex) const;
  // Headings follow the language of the run; call after the language changed.
  void retranslate();

 private:
  PacketStore& store_;
  // Rows the view has been told about. The store may already hold more: the receive thread
  // appends at any time, the view hears of them on the next sync.
  std::size_t knownRows_ = 0;
  std::uint64_t generation_ = 0;
};

}  // namespace vormelt::ui
