// Rows are copied out of the engine in one short pass under its lock and applied to the view
// afterwards, so the receive thread never waits for Qt. Byte columns are shown through the
// size formatter, packet columns as plain integers.
#include "ui/statistics_list_model.hpp"

#include <algorithm>

#include "packets/format.hpp"
#include "ui/qt_text.hpp"

namespace vormelt::ui {

using statistics::Cell;
using statistics::ColumnKind;

StatisticsListModel::StatisticsListModel(statistics::StatisticsList list, UiLanguage language,
                                         QObject* parent)
    : QAbstractTableModel(parent), list_(list), language_(language) {}

template <typename Record>
void StatisticsListModel::Collect(statistics::StatTable<Record>& table,
                                  std::vector<std::pair<int, Row>>& changed, int& used) {
  used = table.Used();
  replaced_ = table.Replaced();
  const int columns = columnCount();
  for (std::int32_t slot = 0; slot < used; ++slot) {
    Record& record = table.At(slot);
    if (!record.fresh && !record.changed) continue;
    Row row;
    row.reserve(static_cast<std::size_t>(columns));
    for (int column = 0; column < columns; ++column) {
      row.push_back(statistics::CellOf(record, column, language_));
    }
    changed.emplace_back(slot, std::move(row));
    record.fresh = record.changed = false;
  }
}

int StatisticsListModel::Refresh(statistics::StatisticsEngine& engine) {
  std::vector<std::pair<int, Row>> changed;
  int used = 0;
  engine.WithTables([&](statistics::StatisticsTables& tables) {
    switch (list_) {
      case statistics::StatisticsList::IpAddresses: return Collect(tables.ip, changed, used);
      case statistics::StatisticsList::IpAddressPairs: return Collect(tables.pairs, changed, used);
      case statistics::StatisticsList::LocalPorts: return Collect(tables.ports, changed, used);
    }
  });
  if (used < static_cast<int>(rows_.size())) {
    // The tables were cleared since the last pass: every record they hold now is new.
    beginResetModel();
    rows_.clear();
    endResetModel();
  }
  const int before = static_cast<int>(rows_.size());
  int first = before, last = -1;
  if (used > before) {
    beginInsertRows({}, before, used - 1);
    rows_.resize(static_cast<std::size_t>(used));
  }
  for (auto& [slot, row] : changed) {
    rows_[static_cast<std::size_t>(slot)] = std::move(row);
    if (slot < before) {
      first = std::min(first, slot);
      last = std::max(last, slot);
    }
  }
  if (used > before) endInsertRows();
  // One signal for the whole changed range: the sort proxy then re-sorts once per pass.
  if (last >= first) emit dataChanged(index(first, 0), index(last, columnCount() - 1));
  return static_cast<int>(changed.size());
}

void StatisticsListModel::Clear() {
  beginResetModel();
  rows_.clear();
  replaced_ = 0;
  endResetModel();
}

int StatisticsListModel::rowCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : static_cast<int>(rows_.size());
}

int StatisticsListModel::columnCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : static_cast<int>(statistics::Columns(list_).size());
}

QVariant StatisticsListModel::data(const QModelIndex& index, int role) const {
  if (!index.isValid() || index.row() >= rowCount()) return {};
  const Row& row = rows_[static_cast<std::size_t>(index.row())];
  if (row.empty()) return {};
  const Cell& cell = row[static_cast<std::size_t>(index.column())];
  const ColumnKind kind = statistics::Columns(list_)[static_cast<std::size_t>(index.column())].kind;
  if (role == kSortRole) {
    if (kind != ColumnKind::Text || index.column() == 0) return QVariant::fromValue<qint64>(cell.number);
    return QString::fromStdString(cell.text);
  }
  if (role == Qt::TextAlignmentRole && kind != ColumnKind::Text) {
    return QVariant::fromValue(Qt::AlignRight | Qt::AlignVCenter);
  }
  if (role != Qt::DisplayRole) return {};
  switch (kind) {
    case ColumnKind::Bytes: return QString::fromStdString(format::ByteSize(cell.number));
    case ColumnKind::Packets: return QString::number(cell.number);
    case ColumnKind::Text: break;
  }
  return QString::fromStdString(cell.text);
}

QVariant StatisticsListModel::headerData(int section, Qt::Orientation orientation,
                                         int role) const {
  if (orientation != Qt::Horizontal || role != Qt::DisplayRole) return {};
  const auto columns = statistics::Columns(list_);
  if (section < 0 || section >= static_cast<int>(columns.size())) return {};
  return QString::fromUtf8(Tr(columns[static_cast<std::size_t>(section)].heading, language_));
}

bool StatisticsSortProxy::lessThan(const QModelIndex& left, const QModelIndex& right) const {
  const QVariant a = left.data(StatisticsListModel::kSortRole);
  const QVariant b = right.data(StatisticsListModel::kSortRole);
  if (a.typeId() == QMetaType::QString) {
    const int order = QString::compare(a.toString(), b.toString(), Qt::CaseInsensitive);
    if (order != 0) return order < 0;
  } else if (a.toLongLong() != b.toLongLong()) {
    return a.toLongLong() < b.toLongLong();
  }
  // Equal values: the lower slot first in either direction of sorting, so nothing jumps.
  const bool lower = left.row() < right.row();
  return sortOrder() == Qt::AscendingOrder ? lower : !lower;
}

}  // namespace vormelt::ui
