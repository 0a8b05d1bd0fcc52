// The model behind one Statistical Mode list: one row per table slot, refreshed from the
// engine's new and changed flags, and the sort proxy that keeps sorting, selection and scroll
// position still while rows are refreshed underneath (equal values keep their slot order).
#pragma once

#include <QAbstractTableModel>
#include <QSortFilterProxyModel>
#include <array>
#include <chrono>
#include <cstdint>
#include <optional>
#include <vector>

#include "statistics/engine.hpp"
#include "statistics/lists.hpp"

namespace vormelt::ui {

class StatisticsListModel : public QAbstractTableModel {
 public:
  // Raw values for sorting: the number of number cells and address columns, else the text.
  static constexpr int kSortRole = Qt::UserRole;
  // Beside the totals, each list shows the bytes per second over the last few seconds: one
  // sample of every row's byte total a second, the rate taken over the oldest one kept.
  static constexpr std::size_t kRateSamples = 4;
  static constexpr auto kRateInterval = std::chrono::seconds(1);
  // The clock the rates go by: the steady clock live; for a capture file the capture times of
  // its frames, so a file read in a moment still shows the rate it recorded. `start` is when
  // the capture began on that clock; a clock at zero has not begun (a file before its first
  // frame) and takes no samples.
  struct RateClock {
    std::chrono::nanoseconds now{}, start{};
  };
  static RateClock SteadyClock(std::chrono::nanoseconds start = {});

  StatisticsListModel(statistics::StatisticsList list, UiLanguage language,
                      QObject* parent = nullptr);

  // One updater pass: under the engine's lock copies the records flagged new or changed and
  // clears those flags; then inserts rows for new slots and refreshes the changed ones. A
  // replaced record refreshes the row of its slot. Returns the rows inserted or refreshed.
  int Refresh(statistics::StatisticsEngine& engine, RateClock clock = SteadyClock());
  // A capture starts, perhaps on another clock: every rate begins anew.
  void RestartRates();
  // After the engine was cleared: no rows.
  void Clear();
  // Each row's (slot's) bytes per second as shown.
  std::vector<std::int64_t> Rates() const;
  // The longest text of the address column so far, for the column's width.
  const QString& widestAddress() const { return widestAddress_; }
  statistics::StatisticsList list() const { return list_; }
  // Records replaced in this list since the last clear, as of the last refresh.
  std::int64_t replaced() const { return replaced_; }

  int rowCount(const QModelIndex& parent = {}) const override;
  int columnCount(const QModelIndex& parent = {}) const override;
  QVariant data(const QModelIndex& index, int role) const override;
  QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

 private:
  using Row = std::vector<statistics::Cell>;
  struct Sample {
    std::chrono::nanoseconds time{};
    std::int64_t bytes = 0;
  };
  // A row's byte samples, oldest first once the ring has wrapped.
  struct RateHistory {
    std::array<Sample, kRateSamples> samples{};
    std::size_t count = 0;
  };
  int RateColumn() const;
  std::int64_t BytesPerSecond(std::size_t row) const;
  void TakeRateSamples(std::chrono::nanoseconds now);
  template <typename Record>
  void Collect(statistics::StatTable<Record>& table, std::vector<std::pair<int, Row>>& changed,
               int& used);

  statistics::StatisticsList list_;
  UiLanguage language_;
  std::vector<Row> rows_;
  std::vector<RateHistory> rates_;
  std::optional<std::chrono::nanoseconds> lastSample_;
  QString widestAddress_;
  std::int64_t replaced_ = 0;
};

// Sorts by the raw values; ties go by row (the slot), so equal rows never swap places.
class StatisticsSortProxy : public QSortFilterProxyModel {
 public:
  using QSortFilterProxyModel::QSortFilterProxyModel;

 protected:
  bool lessThan(const QModelIndex& left, const QModelIndex& right) const override;
};

}  // namespace vormelt::ui
