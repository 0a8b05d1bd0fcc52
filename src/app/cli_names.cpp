// vormelt-cli names: prints one name table's text for a number, a MAC or an OUI.
// The tables hold UTF-8 texts, which the terminal shows as they are.
#include <charconv>
#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>

#include "app/cli.hpp"
#include "common/texts.hpp"
#include "packets/names.hpp"

namespace vormelt::cli {
namespace {

constexpr std::uint64_t kLastProtocol = 0xFF;
constexpr std::uint64_t kLastPort = 0xFFFF;
constexpr std::uint64_t kLastEtherType = 0xFFFF;

// Decimal, or hexadecimal after "0x"/"0X"; no sign, no blanks, nothing after the digits.
std::optional<std::uint64_t> ParseNumber(std::string_view text, std::uint64_t last) {
  int base = 10;
  if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
    text.remove_prefix(2);
    base = 16;
  }
  if (text.empty() || text.front() == '+' || text.front() == '-') return std::nullopt;
  std::uint64_t value = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value, base);
  if (error != std::errc{} || stop != end || value > last) return std::nullopt;
  return value;
}

int Usage(std::ostream& err, std::string_view problem) {
  return cli::Usage(err, "names", problem, " (usage: names proto|ethertype|tcp|udp|vendor VALUE)\n");
}

int BadValue(std::ostream& err, std::string_view table, std::string_view value,
             std::string_view expected) {
  return cli::Usage(err, "names", "'" + std::string(value) + "' is not a valid " + std::string(table) +
                                      " value (" + std::string(expected) + ")", "\n");
}

int PrintOr(std::ostream& out, const char* text, Text unknown) {
  out << (text != nullptr ? std::string_view(text) : English(unknown)) << '\n';
  return kExitOk;
}

}  // namespace

int RunNames(std::span<const std::string> args, std::ostream& out, std::ostream& err) {
  if (args.size() != 2) return Usage(err, "expected a table and a value");
  const std::string& table = args[0];
  const std::string& value = args[1];

  if (table == "proto") {
    const auto protocol = ParseNumber(value, kLastProtocol);
    if (!protocol) return BadValue(err, table, value, "0-255, decimal or 0x-hex");
    // IPv6 names the protocols its own headers use; every other number has one name for both.
    out << names::Ipv6ProtocolName(static_cast<std::uint8_t>(*protocol)) << '\n';
    return kExitOk;
  }
  if (table == "ethertype") {
    const auto etherType = ParseNumber(value, kLastEtherType);
    if (!etherType) return BadValue(err, table, value, "0-0xFFFF, decimal or 0x-hex");
    return PrintOr(out, names::EtherTypeName(static_cast<std::uint16_t>(*etherType)),
                   Text::Unknown);
  }
  if (table == "tcp" || table == "udp") {
    const auto port = ParseNumber(value, kLastPort);
    if (!port) return BadValue(err, table, value, "0-65535, decimal or 0x-hex");
    const auto protocol = table == "tcp" ? names::PortProtocol::Tcp : names::PortProtocol::Udp;
    return PrintOr(out, names::PortName(protocol, static_cast<std::uint16_t>(*port)),
                   Text::Unknown);
  }
  if (table == "vendor") {
    const auto oui = names::ParseOui(value);
    if (!oui) return BadValue(err, table, value, "a MAC address or OUI such as 00:0C:29");
    return PrintOr(out, names::VendorName(*oui), Text::UnknownVendorCode);
  }
  return Usage(err, "unknown table '" + table + "'");
}

}  // namespace vormelt::cli
