// The setup window's editing rules without the window: ranges (swap, null, duplicates, no kind
// chosen), text lists, and how port and size fields are read.
#include <gtest/gtest.h>

#include "packetmode/filter_window_model.hpp"

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
  EXPECT_EQ(model.AddRange("200.1.2.3", "200.1.2.3"), RangeEdit::Done);
  EXPECT_EQ(model.RangeCount(RangeKind::DestIn), 2);
  EXPECT_EQ(model.RangeCount(RangeKind::SourceIn), 0);

  // Blank or unreadable text is the null address, as an empty address control is.
  for (auto [from, to] : {std::pair{"0.0.0.0", "10.0.0.1"}, std::pair{"10.0.0.1", "0.0.0.0"},
                          std::pair{"", "10.0.0.1"}, std::pair{"10.0.0.1", "10.0.0"}}) {
    EXPECT_EQ(model.AddRange(from, to), RangeEdit::NullAddress) << from << " " << to;
  }
  EXPECT_EQ(model.RangeCount(RangeKind::DestIn), 2);

  EXPECT_EQ(model.RemoveRange(-1), RangeEdit::NoItemSelected);
  EXPECT_EQ(model.RemoveRange(2), RangeEdit::NoItemSelected);
  EXPECT_EQ(model.RemoveRange(0), RangeEdit::Done);
  EXPECT_EQ(model.RangeItems(RangeKind::DestIn),
            std::vector<std::string>{"200.1.2.3 - 200.1.2.3"});

  model.SelectRangeKind(-1);
  EXPECT_EQ(model.AddRange("10.0.0.1", "10.0.0.2"), RangeEdit::NoKindSelected);
  EXPECT_EQ(model.RemoveRange(0), RangeEdit::NoKindSelected);
  model.SelectRangeKind(9);
  EXPECT_EQ(model.selectedRangeKind(), -1);
}

TEST(FilterWindowModel, TextListsKeepTextsExactlyAndOnce) {
  FilterWindowModel model;
  EXPECT_TRUE(model.AddText(TextList::MustContain, " GET "));
  EXPECT_FALSE(model.AddText(TextList::MustContain, " GET "));
  EXPECT_TRUE(model.AddText(TextList::MustContain, "get"));  // case-sensitive comparison
  EXPECT_FALSE(model.AddText(TextList::MustContain, ""));
  EXPECT_EQ(model.Texts(TextList::MustContain), (std::vector<std::string>{" GET ", "get"}));
  EXPECT_FALSE(model.RemoveText(TextList::MustContain, 2));
}

TEST(FilterWindowModel, PortAndSizeFieldsTakeDigitRunsDropZerosAndWrapOrCap) {
  EXPECT_EQ(ParsePortField("  0, 000 "), Ports{});
  EXPECT_EQ(ParsePortField("80,443 8080;x22-0"), (Ports{80, 443, 8080, 22}));
  EXPECT_EQ(ParsePortField("65535,65536,70000"), (Ports{65535, 4464}));  // modulo 65536
  EXPECT_EQ(ParsePortField("18446744073709551617"), Ports{1});  // 2^64 + 1
  EXPECT_EQ(ParsePortField(FormatPortField(Ports{1, 2, 65535})), (Ports{1, 2, 65535}));
  EXPECT_EQ(ParseSizeField(""), 0u);
  EXPECT_EQ(ParseSizeField("4294967295"), 4294967295u);
  EXPECT_EQ(ParseSizeField("99999999999999999999999"), 4294967295u);
}

}  // namespace
}  // namespace vormelt
