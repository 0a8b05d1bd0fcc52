// The filter setup window's logic without the window: the lists being edited, the rules for
// adding and removing items, and how the window's text fields become ports and sizes.
// No Qt and no message boxes here: outcomes are returned and the window shows the texts.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "filters/filter_profile.hpp"
#include "filters/filter_settings.hpp"

namespace vormelt {

// "%u.%u.%u.%u - %u.%u.%u.%u": how a range shows in the window's list.
std::string FormatRangeItem(const IpRange& range);

// A port field: every maximal run of decimal digits is one port, taken modulo 65536; anything
// else separates. A zero port means "no filter", so zeros are left out of the list.
std::vector<std::uint16_t> ParsePortField(std::string_view text);
// The port list as the field shows it again: "53, 80".
std::string FormatPortField(std::span<const std::uint16_t> ports);

// A size field: its digits as a number (other characters are ignored), capped at the largest
// 32-bit value; blank gives 0, which means no bound.
std::uint32_t ParseSizeField(std::string_view text);

// The four editable text lists of the window.
enum class TextList { MustContain, MustNotContain, ExtensionsAllowed, ExtensionsDenied };

enum class RangeEdit {
  Done,            // added or removed
  Duplicate,       // the same range is listed already: silently nothing
  NullAddress,     // "The IP address range must not contain a NULL IP."
  NoKindSelected,  // "There does not seem to be a filter type selected."
  NoItemSelected   // "No item selected."
};

class FilterWindowModel {
 public:
  FilterWindowModel() = default;
  explicit FilterWindowModel(FilterValues values, int selectedRangeKind = 0);

  // -1 when no radio button is chosen, else a RangeKind value.
  int selectedRangeKind() const { return selectedKind_; }
  void SelectRangeKind(int kind);

  // Adds from..to to the selected kind's list. Blank or unreadable text counts as the null
  // address; a reversed range is stored low end first.
  RangeEdit AddRange(std::string_view fromText, std::string_view toText);
  // Removes row `row` (-1: none selected) of the selected kind's list.
  RangeEdit RemoveRange(int row);
  std::vector<std::string> RangeItems(RangeKind kind) const;
  long RangeCount(RangeKind kind) const;

  // "+": appends `text` exactly as typed; an empty text or one already listed is not added.
  bool AddText(TextList list, std::string_view text);
  // "X": removes row `row`; false when no row is selected.
  bool RemoveText(TextList list, int row);
  const std::vector<std::string>& Texts(TextList list) const;

  // "Clear all fields": every list empty, every scalar back to its default.
  void ClearAll();

  // The lists as edited; ports, sizes and protocol flags are whatever the model was given.
  const FilterValues& values() const { return values_; }
  FilterValues& values() { return values_; }

 private:
  std::vector<std::string>& TextsOf(TextList list);

  FilterValues values_;
  int selectedKind_ = 0;
};

// Host name look-ups for the resolver. Both block; the window runs them off its own thread.
// The first IPv4 address of `host` as "%ld.%ld.%ld.%ld".
std::optional<std::string> ResolveHostName(const std::string& host);
// The name of the dotted IPv4 address in `address`.
std::optional<std::string> ReverseResolveAddress(const std::string& address);

}  // namespace vormelt
