// The row menu's rule, read through the header views like every other header field.
#include "packets/row_actions.hpp"

#include "packets/headers.hpp"

namespace vormelt {

RowActions RowActionsFor(const PacketRef& packet) {
  if (!packet.frame) return {};
  const PacketHeaders headers = HeadersOf(FrameView(packet));
  RowActions actions;
  actions.reverseResolve = headers.ipv4.has_value() || headers.arp.has_value();
  actions.tcpOptions = headers.ipv4 && headers.ipv4->protocol() == kProtocolTcp;
  return actions;
}

}  // namespace vormelt
