// Cells of the packet list, computed from the stored record on every request. The receive thread
// only ever appends to the store, so rows the view knows stay put until this model removes them
// itself (clear, delete) or notices another remover through the store's generation.
#include "ui/packetmode/packet_list_model.hpp"

#include <algorithm>
#include <limits>

#include "packets/list_row.hpp"
#include "packets/store.hpp"
#include "ui/shell/qt_text.hpp"

namespace vormelt::ui {
namespace {

bool IsNumberColumn(ListColumn column) {
  return column == ListColumn::Size || column == ListColumn::SourcePort ||
         column == ListColumn::DestinationPort;
}

// Qt counts rows in int; the store never holds more than about a million.
int ToRow(std::size_t rows) {
  return static_cast<int>(std::min<std::size_t>(rows, std::numeric_limits<int>::max()));
}

}  // namespace

PacketListModel::PacketListModel(PacketStore& store, QObject* parent)
    : QAbstractTableModel(parent), store_(store), generation_(store.Generation()) {
  knownRows_ = store_.RowCount();
}

int PacketListModel::rowCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : ToRow(knownRows_);
}

int PacketListModel::columnCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : kListColumnCount;
}

QVariant PacketListModel::data(const QModelIndex& index, int role) const {
  if (!index.isValid() || index.row() >= rowCount()) return {};
  const auto column = static_cast<ListColumn>(index.column());
  if (role == Qt::TextAlignmentRole) {
    const Qt::Alignment horizontal = IsNumberColumn(column) ? Qt::AlignRight : Qt::AlignLeft;
    return QVariant::fromValue(horizontal | Qt::AlignVCenter);
  }
  const std::int32_t storeIndex = storeIndexAt(index.row());
  if (role == kStoreIndexRole) return storeIndex;
  if (role != Qt::DisplayRole) return {};
  const PacketRef packet = store_.Get(storeIndex);
  if (!packet.frame) return {};
  // Only the two filter-text columns need the filter's texts, and finding them takes the store
  // lock: the receive thread must not wait on the view for the other nine.
  const bool filterColumn = column == ListColumn::MustContain || column == ListColumn::MustNotContain;
  const FilterColumnTexts* filterTexts = filterColumn ? store_.FilterTexts(storeIndex) : nullptr;
  ListTextBuffer buffer{};
  const std::string_view text = ListColumnText(packet, filterTexts, column, buffer);
  return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

QVariant PacketListModel::headerData(int section, Qt::Orientation orientation, int role) const {
  if (orientation != Qt::Horizontal || role != Qt::DisplayRole) return {};
  if (section < 0 || section >= kListColumnCount) return {};
  return T(ListColumnHeading(static_cast<ListColumn>(section)));
}

int PacketListModel::syncWithStore() {
  const std::uint64_t generation = store_.Generation();
  if (generation != generation_) {
    // Someone removed rows without telling us (a bulk delete): the cheapest correct answer for
    // the view is a reset, which also keeps the selection code from pointing at moved rows.
    beginResetModel();
    generation_ = generation;
    knownRows_ = store_.RowCount();
    endResetModel();
    return 0;
  }
  const std::size_t available = store_.RowCount();
  if (available <= knownRows_) return 0;
  const int first = ToRow(knownRows_);
  const int last = ToRow(available) - 1;
  if (last < first) return 0;
  beginInsertRows({}, first, last);
  knownRows_ = static_cast<std::size_t>(last) + 1;
  endInsertRows();
  return last - first + 1;
}

void PacketListModel::clear() {
  beginResetModel();
  store_.Clear();
  knownRows_ = 0;
  generation_ = store_.Generation();
  endResetModel();
}

bool PacketListModel::deletePacket(std::int32_t storeIndex) {
  const int row = rowOfStoreIndex(storeIndex);
  if (row < 0 || !store_.IsPresent(storeIndex)) return false;
  // Only this thread deletes, so a present, listed index is removed by the call below.
  beginRemoveRows({}, row, row);
  store_.Delete(storeIndex);
  --knownRows_;
  generation_ = store_.Generation();
  endRemoveRows();
  return true;
}

std::int32_t PacketListModel::storeIndexAt(int row) const {
  if (row < 0 || static_cast<std::size_t>(row) >= knownRows_) return -1;
  return store_.IndexAtRow(static_cast<std::size_t>(row));
}

int PacketListModel::rowOfStoreIndex(std::int32_t storeIndex) const {
  const std::optional<std::size_t> row = store_.RowOfIndex(storeIndex);
  if (!row || *row >= knownRows_) return -1;
  return static_cast<int>(*row);
}

void PacketListModel::retranslate() {
  emit headerDataChanged(Qt::Horizontal, 0, kListColumnCount - 1);
}

}  // namespace vormelt::ui
