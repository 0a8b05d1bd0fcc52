// Byte sizes and date/time templates: unit and precision steps, truncation, hostile fields.
#include "packets/format.hpp"

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <utility>

namespace vormelt::format {
namespace {

constexpr std::int64_t kKiB = 1024;
constexpr std::int64_t kMiB = kKiB * kKiB;
constexpr std::int64_t kGiB = kMiB * kKiB;
constexpr std::int64_t kPiB = kGiB * kMiB;

TEST(ByteSize, UnitAndPrecisionStepsAndTheEndOfTheScale) {
  const std::pair<std::int64_t, const char*> cases[] = {
      {1023, "1023 Bytes"},       {1024, "1.00 KB"},          {10 * kKiB, "10.0 KB"},
      {100 * kKiB, "100 KB"},
      {1'048'575, "1024 KB"},  // rounds up but stays below the MB step
      {55 * kMiB + kMiB / 2, "55.5 MB"}, {kPiB * kKiB - 1, "1024 PB"},
      {kPiB * kKiB, ""},          {INT64_MAX, ""},
  };
  for (const auto& [bytes, text] : cases) EXPECT_EQ(ByteSize(bytes), text) << bytes;
}

TEST(ExpandDateTime, BufferFormMatchesAndTruncatesAtCapacity) {
  const std::string form = "%Y-%MY-%D %H24:%MN:%S.%MS %AP";
  const LocalTime time{1999, 12, 31, 23, 59, 58, 999};
  const std::string expected = ExpandDateTime(form, time);
  EXPECT_EQ(expected, "1999-12-31 23:59:58.999 PM");

  std::array<char, 64> buffer{};
  const std::size_t length = ExpandDateTime(form, time, buffer.data(), buffer.size());
  EXPECT_EQ(std::string(buffer.data(), length), expected);

  std::array<char, 8> small{};
  small.fill('#');
  EXPECT_EQ(ExpandDateTime(form, time, small.data(), 7), 7u);
  EXPECT_EQ(std::string(small.data(), 8), "1999-12#");  // nothing past the capacity
}

TEST(ExpandDateTime, GarbageTimeFieldsStayInsideTheBuffer) {
  const LocalTime garbage{-1, -1, -1, -1, -1, -1, -1};
  std::array<char, 32> buffer{};
  const std::size_t length =
      ExpandDateTime("%Y%MY%D%AP%H12%H24%MN%S%MS", garbage, buffer.data(), buffer.size());
  EXPECT_EQ(length, buffer.size());
  EXPECT_EQ(std::string(buffer.data(), 10), "4294967295");
  const std::string longForm(5000, 'Y');
  EXPECT_EQ(ExpandDateTime(longForm, garbage), longForm);
}

}  // namespace
}  // namespace vormelt::format
