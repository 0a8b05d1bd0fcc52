// Name tables: protocol names saved files depend on byte for byte, and OUI parsing.
#include "packets/names.hpp"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace vormelt::names {
namespace {

using namespace std::string_literals;

TEST(ProtocolNames, KeywordsFillerAndReservedAreExactBytes) {
  EXPECT_STREQ(ProtocolName(35), "IDPR ");  // the trailing blank is part of saved lines
  EXPECT_STREQ(ProtocolName(255), "Reserved");
  EXPECT_EQ(std::string(ProtocolName(55)), "\xC2\xBF?"s);  // UTF-8, like every table text
}

TEST(ParseOui, SpellingsAcceptedAndRejected) {
  const std::pair<std::string_view, std::optional<std::uint32_t>> cases[] = {
      {"00:0C:29:12:34:56", 0x000C29u}, {"00-0C-29", 0x000C29u}, {"00:0c:29", 0x000C29u},
      // Separators are dropped wherever they stand; only the first six digits count.
      {"000C:2-9", 0x000C29u}, {"000C29FFFFFFFFFF", 0x000C29u},
      {"", std::nullopt}, {"00:0C:2", std::nullopt}, {"00:0C:2G", std::nullopt},
      {"0:C:29:1", std::nullopt},  // five digits: groups are not padded
      {"00.0C.29", std::nullopt}, {" 00:0C:29", std::nullopt}, {"0x000C29", std::nullopt},
  };
  for (const auto& [text, expected] : cases) EXPECT_EQ(ParseOui(text), expected) << text;
}

}  // namespace
}  // namespace vormelt::names
