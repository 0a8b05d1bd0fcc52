// The interfaces a capture can use: a "Sockets" row for every IPv4 and IPv6 address of every interface
// that is up (loopback included), and an adapter row for every libpcap device. Read-only
// queries of the system; nothing here opens a capture.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "common/message.hpp"
#include "common/types.hpp"

namespace vormelt {

struct InterfaceRow {
  InterfaceKind kind = InterfaceKind::RawSockets;
  std::string name;     // "Name" column: interface name (Sockets) or the adapter's description
  std::string address;  // "Address" column: IPv4 or IPv6 text (an adapter's first IPv4, else
                        // its first IPv6, or empty)
  std::string device;   // hidden column: the libpcap device name (also set for Sockets rows)
};

struct InterfaceList {
  std::vector<InterfaceRow> rows;  // Sockets rows first, in the system's order, then adapters
  // Set when the host's addresses could not be read ("Error getting interface information");
  // the chooser shows it and closes.
  std::optional<CaptureMessage> failure;
};

InterfaceList ListInterfaces();

// The "Type" column text of a row (catalogue key).
Text InterfaceTypeText(const InterfaceRow& row);

// The name of the interface that is up and holds `address` (dotted IPv4 or IPv6 text); nullopt
// when no interface does (or the text is no address).
std::optional<std::string> InterfaceHoldingAddress(std::string_view address);

}  // namespace vormelt
