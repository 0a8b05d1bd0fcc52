// The row menu's rule, read through the header views like every other header field.
#include "packets/row_actions.hpp"

#include "packets/headers.hpp"

namespace vormelt {

RowActions RowActionsFor(const PacketRef& packet) {
  if (!packet.frame) return {};
  const FrameView frame(packet);
  const PacketHeaders headers = HeadersOf(frame);
  RowActions actions;
  actions.reverseResolve = headers.ipv4 || headers.arp || headers.ipv6;
  actions.tcpOptions = headers.ipv4 ? headers.ipv4->protocol() == kProtocolTcp
                                    : headers.ipv6 && NetworkOf(*headers.ipv6, frame).carriesPorts() &&
                                          NetworkOf(*headers.ipv6, frame).protocol == kProtocolTcp;
  return actions;
}

}  // namespace vormelt
