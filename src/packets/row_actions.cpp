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
  if (headers.ipv4) {
    actions.tcpOptions = headers.ipv4->protocol() == kProtocolTcp;
  } else if (headers.ipv6) {
    // The acknowledgement commands need a TCP header: not in a fragment behind the first.
    const NetworkLayer layer = NetworkOf(*headers.ipv6, frame);
    actions.tcpOptions = layer.protocol == kProtocolTcp && layer.carriesPorts();
  }
  return actions;
}

}  // namespace vormelt
