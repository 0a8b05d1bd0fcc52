// What the three lists show of each record: their columns, headings and cell values, and the
// saving of a whole list as text, CSV or JSON with raw integers. The window, the command line
// and saving all read columns from here, so they can never disagree on them.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "common/texts.hpp"
#include "statistics/tables.hpp"

namespace vormelt::statistics {

enum class StatisticsList : std::uint8_t { IpAddresses, IpAddressPairs, LocalPorts };
inline constexpr int kStatisticsListCount = 3;

enum class ColumnKind : std::uint8_t { Text, Bytes, Packets };

struct ColumnInfo {
  Text heading;
  std::string_view key;  // the JSON member name
  ColumnKind kind;
};

std::span<const ColumnInfo> Columns(StatisticsList list);
Text ListTitle(StatisticsList list);
// "ip", "pairs", "ports" (the command line's --table words).
std::optional<StatisticsList> ParseList(std::string_view word);

// One cell: `number` for byte and packet columns, `text` for the others. The address column
// also carries `order`, its addresses (and port) as fixed-width hex led by the family, so that
// lists sort 10.0.0.9 before 10.0.0.10 and every IPv4 address before every IPv6 one.
struct Cell {
  std::int64_t number = 0;
  std::string text;
  std::string order;
};

Cell CellOf(const IpRecord& record, int column, UiLanguage language);
Cell CellOf(const IpPairRecord& record, int column, UiLanguage language);
Cell CellOf(const LocalPortRecord& record, int column, UiLanguage language);

enum class SaveFormat : std::uint8_t { Text, Csv, Json };
std::optional<SaveFormat> ParseSaveFormat(std::string_view word);  // "tsv"/"text", "csv", "json"

// A list as a window shows it: its rows (their slots) in the order on screen, and each
// slot's bytes per second (indexed by slot).
struct ShownList {
  std::span<const std::int32_t> order;
  std::span<const std::int64_t> rates;
};

// Appends every used record of `list` to `out` in slot order (or, given `shown`, its rows in
// their order with the rate after the other columns): text is a heading line and one
// TAB-separated line per record, CSV the same with commas and quoting, JSON an array of objects.
// Byte and packet cells are raw integers in every form.
void WriteList(const StatisticsTables& tables, StatisticsList list, SaveFormat format,
               UiLanguage language, std::string& out, const ShownList* shown = nullptr);

}  // namespace vormelt::statistics
