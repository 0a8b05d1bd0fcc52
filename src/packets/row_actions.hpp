// Which commands of the packet list's row menu a packet allows. A rule about packets, not
// about menus: the window asks it and only greys items, so it is tested without a display.
#pragma once

#include "packets/record.hpp"

namespace vormelt {

struct RowActions {
  bool reverseResolve = false;  // IPv4 or ARP: the row has addresses to look up
  bool tcpOptions = false;      // IPv4 carrying TCP: the acknowledgement commands apply
  bool operator==(const RowActions&) const = default;
};

// Nothing is allowed for a record the store no longer holds (null frame).
RowActions RowActionsFor(const PacketRef& packet);

}  // namespace vormelt
