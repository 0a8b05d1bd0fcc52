// Putting a taken stream's payloads together in sequence order. Pure: works on the stream's
// own buffers and never reads outside them, whatever the sequence numbers say.
#pragma once

#include "filemode/stream_bytes.hpp"
#include "filemode/stream_table.hpp"

namespace vormelt::filemode {

struct Assembled {
  StreamBytes data;
  bool gapFree = true;  // every stored segment's bytes lie within the data
};

// "Use latest of duplicate packets.": of neighbours in arrival order with the same sequence
// number the earlier is dropped, so the later copy wins.
void DropEarlierDuplicates(Stream& stream);

// Starts at the lowest sequence number (the first of equals in arrival order) and follows sequence + payload length from segment to segment, preferring the next in arrival
// order, otherwise the first in arrival order that starts there, otherwise a retransmission
// that covers the next byte and carries new ones after it; a gap, or the 2^32 wrap, ends the
// data.
// The stream's bytes and segments are handed over to the result or freed: only its addresses,
// ports and times are left to use afterwards.
Assembled Assemble(Stream& stream);

}  // namespace vormelt::filemode
