// The catalogue: every entry has both twins, and both take the same printf arguments.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "common/texts.hpp"

namespace vormelt {
namespace {

// The printf conversions of a text, in order, e.g. {"%s", "%ld"}; "%%" is not a conversion.
std::vector<std::string> Conversions(std::string_view text) {
  std::vector<std::string> out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') continue;
    if (i + 1 < text.size() && text[i + 1] == '%') {
      ++i;
      continue;
    }
    std::size_t j = i + 1;
    while (j < text.size() && std::string_view("-+ #0123456789.lhzjt").find(text[j]) != std::string_view::npos) ++j;
    if (j < text.size()) out.emplace_back(text.substr(i, j - i + 1));
    i = j;
  }
  return out;
}

TEST(Texts, EveryEntryHasBothLanguagesWithTheSameConversions) {
  for (std::size_t i = 0; i < kTextCount; ++i) {
    const auto key = static_cast<Text>(i);
    SCOPED_TRACE(std::string(KeyName(key)));
    EXPECT_FALSE(English(key).empty());
    EXPECT_FALSE(German(key).empty());
    EXPECT_EQ(Conversions(English(key)), Conversions(German(key)));
    constexpr auto kNone = std::string_view::npos;  // listening has one German word
    if (English(key).find("isten") != kNone) EXPECT_NE(German(key).find("ausch"), kNone);
  }
}

}  // namespace
}  // namespace vormelt
