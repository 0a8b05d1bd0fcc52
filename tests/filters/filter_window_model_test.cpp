// The setup window's editing rules without the window: ranges (swap, null, duplicates, no kind
// chosen) and how port and size fields are read; their oddities are on purpose.
#include <gtest/gtest.h>

#include "filters/filter_window_model.hpp"

namespace vormelt {
namespace {

using Ports = std::vector<std::uint16_t>;

TEST(FilterWindowModel, RangesAreSwappedRefusedWhenNullAndNotDuplicated) {
  FilterWindowModel model;
  model.SelectRangeKind(static_cast<int>(RangeKind::DestIn));
  EXPECT_EQ(model.AddRange("10.0.0.9", "10.0.0.1"), RangeEdit::Done);
  EXPECT_EQ(model.RangeItems(RangeKind::DestIn),
            std::vector<std::string>{"10.0.0.1 - 10.0.0.9"});
  EXPECT_EQ(model.AddRange("10.0.0.1", "10.0.0.9"), RangeEdit::Duplicate);

  // Blank or unreadable text is the null address, as an empty address control is.
  for (auto [from, to] : {std::pair{"0.0.0.0", "10.0.0.1"}, std::pair{"10.0.0.1", "0.0.0.0"},
                          std::pair{"", "10.0.0.1"}, std::pair{"10.0.0.1", "10.0.0"}}) {
    EXPECT_EQ(model.AddRange(from, to), RangeEdit::NullAddress) << from << " " << to;
  }
  EXPECT_EQ(model.RangeCount(RangeKind::DestIn), 1);

  model.SelectRangeKind(-1);
  EXPECT_EQ(model.AddRange("10.0.0.1", "10.0.0.2"), RangeEdit::NoKindSelected);
}

TEST(FilterWindowModel, PortAndSizeFieldsTakeDigitRunsDropZerosAndWrapOrCap) {
  EXPECT_EQ(ParsePortField("80,443 8080;x22-0"), (Ports{80, 443, 8080, 22}));
  EXPECT_EQ(ParsePortField("65535,65536,70000"), (Ports{65535, 4464}));  // modulo 65536
  EXPECT_EQ(ParsePortField("18446744073709551617"), Ports{1});  // 2^64 + 1
  EXPECT_EQ(ParsePortField(FormatPortField(Ports{1, 2, 65535})), (Ports{1, 2, 65535}));
  EXPECT_EQ(ParseSizeField("99999999999999999999999"), 4294967295u);
}

}  // namespace
}  // namespace vormelt
