// Rows are copied out of the engine in one short pass under its lock and applied to the view
// afterwards, so the receive thread never waits for Qt. Byte columns are shown through the
// size formatter, packet columns as plain integers.
#include "ui/statistics/statistics_list_model.hpp"

#include <algorithm>

#include "packets/format.hpp"
#include "ui/shell/qt_text.hpp"

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

StatisticsListModel::RateClock StatisticsListModel::SteadyClock(std::chrono::nanoseconds start) {
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  return {now, start.count() ? start : now};
}

void StatisticsListModel::RestartRates() {
  for (RateHistory& history : rates_) history = {};
  lastSample_.reset();
}

int StatisticsListModel::Refresh(statistics::StatisticsEngine& engine, RateClock clock) {
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
    rates_.resize(static_cast<std::size_t>(used));
  }
  for (auto& [slot, row] : changed) {
    const Row& old = rows_[static_cast<std::size_t>(slot)];
    if (old.empty() || old.front().text != row.front().text) {
      // A new or replaced record had no bytes at the last sample (or the capture's start).
      RateHistory& history = rates_[static_cast<std::size_t>(slot)];
      history = {};
      history.samples[0] = Sample{lastSample_.value_or(clock.start), 0};
      history.count = 1;
      if (row.front().text.size() > static_cast<std::size_t>(widestAddress_.size())) {
        widestAddress_ = QString::fromStdString(row.front().text);
      }
    }
    rows_[static_cast<std::size_t>(slot)] = std::move(row);
    if (slot < before) {
      first = std::min(first, slot);
      last = std::max(last, slot);
    }
  }
  if (used > before) endInsertRows();
  const bool due = !lastSample_ || clock.now - *lastSample_ >= kRateInterval;
  if (clock.now.count() != 0 && due && !rows_.empty()) {
    TakeRateSamples(clock.now);
    first = 0;
    last = static_cast<int>(rows_.size()) - 1;
  }
  // One signal for the whole changed range: the sort proxy then re-sorts once per pass.
  if (last >= first) emit dataChanged(index(first, 0), index(last, columnCount() - 1));
  return static_cast<int>(changed.size());
}

int StatisticsListModel::RateColumn() const {
  return static_cast<int>(statistics::Columns(list_).size());
}

namespace {
// The column holding the list's byte total.
std::size_t ByteTotalColumn(statistics::StatisticsList list) {
  const auto columns = statistics::Columns(list);
  for (std::size_t c = 0; c < columns.size(); ++c) {
    if (columns[c].heading == Text::StatsColumnBytesTotal) return c;
  }
  return 0;
}
}  // namespace

void StatisticsListModel::TakeRateSamples(std::chrono::nanoseconds now) {
  lastSample_ = now;
  const std::size_t column = ByteTotalColumn(list_);
  for (std::size_t row = 0; row < rows_.size(); ++row) {
    if (rows_[row].empty()) continue;
    RateHistory& history = rates_[row];
    history.samples[history.count % kRateSamples] = Sample{now, rows_[row][column].number};
    ++history.count;
  }
}

std::int64_t StatisticsListModel::BytesPerSecond(std::size_t row) const {
  const RateHistory& history = rates_[row];
  if (history.count < 2) return 0;
  const Sample& newest = history.samples[(history.count - 1) % kRateSamples];
  const Sample& oldest =
      history.samples[history.count <= kRateSamples ? 0 : history.count % kRateSamples];
  const auto elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(newest.time - oldest.time);
  if (elapsed.count() <= 0) return 0;
  return (newest.bytes - oldest.bytes) * 1000 / elapsed.count();
}

std::vector<std::int64_t> StatisticsListModel::Rates() const {
  std::vector<std::int64_t> rates(rows_.size());
  for (std::size_t row = 0; row < rows_.size(); ++row) rates[row] = BytesPerSecond(row);
  return rates;
}

void StatisticsListModel::Clear() {
  beginResetModel();
  rows_.clear();
  rates_.clear();
  replaced_ = 0;
  endResetModel();
}

int StatisticsListModel::rowCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : static_cast<int>(rows_.size());
}

int StatisticsListModel::columnCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : RateColumn() + 1;
}

QVariant StatisticsListModel::data(const QModelIndex& index, int role) const {
  if (!index.isValid() || index.row() >= rowCount()) return {};
  const Row& row = rows_[static_cast<std::size_t>(index.row())];
  if (row.empty()) return {};
  if (index.column() == RateColumn()) {
    const std::int64_t rate = BytesPerSecond(static_cast<std::size_t>(index.row()));
    if (role == kSortRole) return QVariant::fromValue<qint64>(rate);
    if (role == Qt::TextAlignmentRole) return QVariant::fromValue(Qt::AlignRight | Qt::AlignVCenter);
    if (role != Qt::DisplayRole) return {};
    return QString::fromStdString(format::Rate(static_cast<std::uint64_t>(std::max<std::int64_t>(rate, 0)), false));
  }
  const Cell& cell = row[static_cast<std::size_t>(index.column())];
  const ColumnKind kind = statistics::Columns(list_)[static_cast<std::size_t>(index.column())].kind;
  if (role == kSortRole) {
    if (index.column() == 0) return QString::fromStdString(cell.order);
    if (kind != ColumnKind::Text) return QVariant::fromValue<qint64>(cell.number);
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
  if (section == RateColumn()) return QString::fromUtf8(Tr(Text::StatsColumnRate, language_));
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
