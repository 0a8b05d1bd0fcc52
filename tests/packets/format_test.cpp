// Byte sizes, rates and date/time templates: unit steps, precision steps and token handling.
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

LocalTime At(int hour, int minute) { return LocalTime{2024, 3, 7, hour, minute, 9, 45}; }

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

TEST(Rate, BytesAndBitsPerSecond) {
  EXPECT_EQ(Rate(5, false), "5.00 Bps");
  EXPECT_EQ(Rate(5, true), "40.0 bps");
  EXPECT_EQ(Rate(1000, true), "7.81 Kbps");
  EXPECT_EQ(Rate(static_cast<std::uint64_t>(kPiB) * 1023, false), "1023 PBps");
}

TEST(ExpandDateTime, TwelveHourClockKeepsNoonAsAm) {
  const std::string form = "%H12:%MN %AP";
  EXPECT_EQ(ExpandDateTime(form, At(12, 5)), "12:05 AM");
  EXPECT_EQ(ExpandDateTime(form, At(13, 5)), "01:05 PM");
  EXPECT_EQ(ExpandDateTime(form, At(0, 5)), "12:05 AM");
}

TEST(ExpandDateTime, TokensApplyOneAfterAnotherInFixedOrder) {
  EXPECT_EQ(ExpandDateTime("%%Y%", At(8, 0)), "%2024%");
  // The day becomes "12", which completes an hour token that is replaced later.
  LocalTime time = At(15, 30);
  time.day = 12;
  EXPECT_EQ(ExpandDateTime("%H%D", time), "03");
  // Month 12 likewise; "%H" followed by a year does not form a token.
  time.month = 12;
  EXPECT_EQ(ExpandDateTime("%H%MY|%H%Y", time), "03|%H2024");
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
  EXPECT_EQ(ExpandDateTime(form, time, nullptr, 0), 0u);
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
