// The eleven columns of a Packet Mode list row, computed on demand from the stored record.
// Rows keep no texts of their own (only the time text is kept, in the store), so a million
// rows cost nothing until they are shown. Never writes past the caller's buffer.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "common/texts.hpp"
#include "packets/filter_seam.hpp"
#include "packets/record.hpp"

namespace vormelt {

enum class ListColumn : std::uint8_t {
  Type = 0,
  Size,
  SourceIp,
  DestinationIp,
  SourcePort,
  DestinationPort,
  Time,
  MustContain,
  MustNotContain,
  SourceMac,
  DestinationMac,
};
inline constexpr int kListColumnCount = 11;

// Room for the longest computed text ("FF:FF:FF:FF:FF:FF", an IPv6 address, protocol names).
using ListTextBuffer = std::array<char, 48>;

// The text of one column. The view points into `buffer`, into the packet's time text or into
// `filterTexts`, so it lives as long as the shortest of those. `filterTexts` is the store's
// FilterTexts(index): null when no active filter kept the packet.
std::string_view ListColumnText(const PacketRef& packet, const FilterColumnTexts* filterTexts,
                                ListColumn column, ListTextBuffer& buffer);

// Every column of one row, the headers read once: for printers of whole rows. Each text lives
// in its own buffer (or the record) until the buffers are reused.
using ListRowBuffers = std::array<ListTextBuffer, kListColumnCount>;
using ListRowTextViews = std::array<std::string_view, kListColumnCount>;
ListRowTextViews ListRowTexts(const PacketRef& packet, const FilterColumnTexts* filterTexts,
                              ListRowBuffers& buffers);

// The column heading's catalogue key.
Text ListColumnHeading(ListColumn column);

}  // namespace vormelt
