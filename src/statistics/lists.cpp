// Column tables and cell values of the statistics lists, and their writers. Port names come from
// the TCP or UDP name table by the record's protocol flag.
#include "statistics/lists.hpp"

#include <array>
#include <cstdio>
#include <vector>

#include "packets/names.hpp"

namespace vormelt::statistics {
namespace {

constexpr ColumnInfo kIpColumns[] = {
    {Text::StatsColumnIpAddress, "address", ColumnKind::Text},
    {Text::StatsColumnBytesTo, "bytesTo", ColumnKind::Bytes},
    {Text::StatsColumnBytesFrom, "bytesFrom", ColumnKind::Bytes},
    {Text::StatsColumnBytesTotal, "bytesTotal", ColumnKind::Bytes},
    {Text::StatsColumnPacketsTo, "packetsTo", ColumnKind::Packets},
    {Text::StatsColumnPacketsFrom, "packetsFrom", ColumnKind::Packets},
    {Text::StatsColumnPacketsTotal, "packetsTotal", ColumnKind::Packets},
};
constexpr ColumnInfo kPairColumns[] = {
    {Text::StatsColumnIpPair, "pair", ColumnKind::Text},
    {Text::StatsColumnBytesSent, "bytesSent", ColumnKind::Bytes},
    {Text::StatsColumnBytesTotal, "bytesTotal", ColumnKind::Bytes},
    {Text::StatsColumnPacketsSent, "packetsSent", ColumnKind::Packets},
    {Text::StatsColumnPacketsTotal, "packetsTotal", ColumnKind::Packets},
};
constexpr ColumnInfo kPortColumns[] = {
    {Text::StatsColumnLocalIpPort, "localAddressPort", ColumnKind::Text},
    {Text::StatsColumnBytesIn, "bytesIn", ColumnKind::Bytes},
    {Text::StatsColumnBytesOut, "bytesOut", ColumnKind::Bytes},
    {Text::StatsColumnBytesTotal, "bytesTotal", ColumnKind::Bytes},
    {Text::StatsColumnPacketsIn, "packetsIn", ColumnKind::Packets},
    {Text::StatsColumnPacketsOut, "packetsOut", ColumnKind::Packets},
    {Text::StatsColumnPacketsTotal, "packetsTotal", ColumnKind::Packets},
    {Text::StatsColumnPortUse, "portUse", ColumnKind::Text},
    {Text::StatsColumnProtocol, "protocol", ColumnKind::Text},
};

Cell Number(std::int64_t value) { return Cell{value, {}, {}}; }
Cell Words(std::string text) { return Cell{0, std::move(text), {}}; }

void AppendJsonString(std::string_view text, std::string& out) {
  out += '"';
  for (const char c : text) {
    if (c == '"' || c == '\\') {
      out += '\\';
      out += c;
    } else if (static_cast<unsigned char>(c) < 0x20) {
      std::array<char, 8> escaped{};
      std::snprintf(escaped.data(), escaped.size(), "\\u%04x", static_cast<unsigned>(c));
      out += escaped.data();
    } else {
      out += c;
    }
  }
  out += '"';
}

void AppendCsvField(std::string_view text, std::string& out) {
  if (text.find_first_of(",\"\n") == std::string_view::npos) {
    out += text;
    return;
  }
  out += '"';
  for (const char c : text) {
    if (c == '"') out += '"';
    out += c;
  }
  out += '"';
}

// Text and CSV cells: TABs inside a name would split the line, so they become blanks.
void AppendTextField(std::string_view text, std::string& out) {
  for (const char c : text) out += (c == '\t' || c == '\r' || c == '\n') ? ' ' : c;
}

void AppendCell(const Cell& cell, ColumnKind kind, SaveFormat format, std::string& out) {
  if (kind != ColumnKind::Text) {
    out += std::to_string(cell.number);
  } else if (format == SaveFormat::Json) {
    AppendJsonString(cell.text, out);
  } else if (format == SaveFormat::Csv) {
    AppendCsvField(cell.text, out);
  } else {
    AppendTextField(cell.text, out);
  }
}

// The bytes per second a window shows beside the totals, saved with them.
constexpr ColumnInfo kRateColumn{Text::StatsColumnRate, "bytes_per_second", ColumnKind::Bytes};

template <typename Record>
void WriteRecords(const StatTable<Record>& table, std::span<const ColumnInfo> columns,
                  SaveFormat format, UiLanguage language, std::string& out,
                  const ShownList* shown) {
  const char separator = format == SaveFormat::Csv ? ',' : '\t';
  const bool withRate = shown != nullptr;
  std::vector<std::int32_t> slots;
  if (shown) {
    // Only slots the table still uses: the window's rows may lag a clear by one refresh.
    for (const std::int32_t slot : shown->order) {
      if (slot >= 0 && slot < table.Used()) slots.push_back(slot);
    }
  } else {
    for (std::int32_t slot = 0; slot < table.Used(); ++slot) slots.push_back(slot);
  }
  const std::size_t count = columns.size() + (withRate ? 1 : 0);
  const auto column = [&](std::size_t c) -> const ColumnInfo& {
    return c < columns.size() ? columns[c] : kRateColumn;
  };
  if (format == SaveFormat::Json) {
    out += '[';
  } else {
    for (std::size_t c = 0; c < count; ++c) {
      if (c) out += separator;
      const std::string heading = Tr(column(c).heading, language);
      format == SaveFormat::Csv ? AppendCsvField(heading, out) : AppendTextField(heading, out);
    }
    out += "\n";
  }
  for (std::size_t i = 0; i < slots.size(); ++i) {
    const std::int32_t slot = slots[i];
    const Record& record = table.At(slot);
    if (format == SaveFormat::Json) out += i ? ",\n{" : "\n{";
    for (std::size_t c = 0; c < count; ++c) {
      if (format == SaveFormat::Json) {
        if (c) out += ',';
        AppendJsonString(column(c).key, out);
        out += ':';
      } else if (c) {
        out += separator;
      }
      const auto s = static_cast<std::size_t>(slot);
      const Cell cell = c < columns.size()
                            ? CellOf(record, static_cast<int>(c), language)
                            : Cell{s < shown->rates.size() ? shown->rates[s] : 0, {}, {}};
      AppendCell(cell, column(c).kind, format, out);
    }
    out += format == SaveFormat::Json ? "}" : "\n";
  }
  if (format == SaveFormat::Json) out += slots.empty() ? "]\n" : "\n]\n";
}

}  // namespace

std::span<const ColumnInfo> Columns(StatisticsList list) {
  switch (list) {
    case StatisticsList::IpAddressPairs:
      return kPairColumns;
    case StatisticsList::LocalPorts:
      return kPortColumns;
    case StatisticsList::IpAddresses:
      break;
  }
  return kIpColumns;
}

Text ListTitle(StatisticsList list) {
  switch (list) {
    case StatisticsList::IpAddressPairs:
      return Text::StatsListIpPairs;
    case StatisticsList::LocalPorts:
      return Text::StatsListLocalPorts;
    case StatisticsList::IpAddresses:
      break;
  }
  return Text::StatsListIpAddresses;
}

std::optional<StatisticsList> ParseList(std::string_view word) {
  if (word == "ip") return StatisticsList::IpAddresses;
  if (word == "pairs") return StatisticsList::IpAddressPairs;
  if (word == "ports") return StatisticsList::LocalPorts;
  return std::nullopt;
}

std::optional<SaveFormat> ParseSaveFormat(std::string_view word) {
  if (word == "tsv" || word == "text") return SaveFormat::Text;
  if (word == "csv") return SaveFormat::Csv;
  if (word == "json") return SaveFormat::Json;
  return std::nullopt;
}

namespace {

void AppendHex(std::uint64_t value, int digits, std::string& out) {
  static constexpr char kDigits[] = "0123456789abcdef";
  for (int shift = (digits - 1) * 4; shift >= 0; shift -= 4) out += kDigits[(value >> shift) & 0xF];
}

void AppendOrder(const IpAddress& address, std::string& out) {
  out += address.isV4() ? '4' : '6';
  for (std::size_t i = 0; i < address.size(); ++i) AppendHex(address.bytes()[i], 2, out);
}

std::string OrderOf(const IpAddress& address) {
  std::string order;
  AppendOrder(address, order);
  return order;
}

// An IPv6 address goes in brackets before a port, so its colons are not taken for the port's.
std::string EndpointText(const IpAddress& address, std::uint16_t port) {
  const std::string text = address.ToString();
  return (address.isV6() ? "[" + text + "]" : text) + ":" + std::to_string(port);
}

}  // namespace

Cell CellOf(const IpRecord& record, int column, UiLanguage) {
  switch (column) {
    case 0: return Cell{0, record.address.ToString(), OrderOf(record.address)};
    case 1: return Number(record.bytesTo);
    case 2: return Number(record.bytesFrom);
    case 3: return Number(record.ByteTotal());
    case 4: return Number(record.packetsTo);
    case 5: return Number(record.packetsFrom);
    default: return Number(record.PacketTotal());
  }
}

Cell CellOf(const IpPairRecord& record, int column, UiLanguage) {
  switch (column) {
    case 0: {
      std::string order = OrderOf(record.first);
      AppendOrder(record.second, order);
      return Cell{0, record.first.ToString() + " - " + record.second.ToString(), std::move(order)};
    }
    case 1: return Number(record.bytesFirstToSecond);
    case 2: return Number(record.ByteTotal());
    case 3: return Number(record.packetsFirstToSecond);
    default: return Number(record.PacketTotal());
  }
}

Cell CellOf(const LocalPortRecord& record, int column, UiLanguage language) {
  switch (column) {
    case 0: {
      std::string order = OrderOf(record.address);
      AppendHex(record.port, 4, order);
      order += record.tcp ? '1' : '0';
      return Cell{0, EndpointText(record.address, record.port), std::move(order)};
    }
    case 1: return Number(record.bytesIn);
    case 2: return Number(record.bytesOut);
    case 3: return Number(record.ByteTotal());
    case 4: return Number(record.packetsIn);
    case 5: return Number(record.packetsOut);
    case 6: return Number(record.PacketTotal());
    case 7: {
      const auto protocol = record.tcp ? names::PortProtocol::Tcp : names::PortProtocol::Udp;
      const char* name = names::PortName(protocol, record.port);
      return Words(name ? name : Tr(Text::Unknown, language));
    }
    default:
      return Words(Tr(record.tcp ? Text::StatsProtocolTcp : Text::StatsProtocolUdp, language));
  }
}

void WriteList(const StatisticsTables& tables, StatisticsList list, SaveFormat format,
               UiLanguage language, std::string& out, const ShownList* shown) {
  switch (list) {
    case StatisticsList::IpAddresses:
      return WriteRecords(tables.ip, Columns(list), format, language, out, shown);
    case StatisticsList::IpAddressPairs:
      return WriteRecords(tables.pairs, Columns(list), format, language, out, shown);
    case StatisticsList::LocalPorts:
      return WriteRecords(tables.ports, Columns(list), format, language, out, shown);
  }
}

}  // namespace vormelt::statistics
