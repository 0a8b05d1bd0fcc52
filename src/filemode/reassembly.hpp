// Putting a taken stream's payloads together in sequence order. Pure: works on the stream's
// own buffers and never reads outside them, whatever the sequence numbers say.
#pragma once

#include <cstdint>
#include <vector>

#include "filemode/stream_table.hpp"

namespace vormelt::filemode {

inline constexpr std::uint64_t kSequenceWrap = 4'294'967'295;  // not 2^32: see Assemble

struct Assembled {
  std::vector<std::uint8_t> data;
  bool gapFree = true;  // every stored segment was used or was a copy of one that was
};

// "Use latest of duplicate packets.": of neighbours in arrival order with the same sequence
// number the earlier is dropped, so the later copy wins.
void DropEarlierDuplicates(Stream& stream);

// Starts at the lowest sequence number (the first of equals in arrival order) and follows
// sequence + payload length from segment to segment, preferring the next in arrival order and
// otherwise the first in arrival order that fits; a gap ends the data. A stream whose numbers
// wrap is cut there: past 4,294,967,295 the next number is taken one short.
// The stream's buffer may be handed over to the result; the stream is not used afterwards.
Assembled Assemble(Stream& stream);

}  // namespace vormelt::filemode
