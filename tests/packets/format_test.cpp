// Byte sizes, rates and date/time templates: unit steps, precision steps and token handling.
#include "packets/format.hpp"

#include <gtest/gtest.h>

#include <array>
#include <string>

namespace vormelt::format {
namespace {

constexpr std::int64_t kKiB = 1024;
constexpr std::int64_t kMiB = kKiB * kKiB;
constexpr std::int64_t kGiB = kMiB * kKiB;
constexpr std::int64_t kPiB = kGiB * kMiB;

LocalTime At(int hour, int minute) { return LocalTime{2024, 3, 7, hour, minute, 9, 45}; }

TEST(ByteSize, BytesThenPrecisionByScaledValue) {
  EXPECT_EQ(ByteSize(0), "0 Bytes");
  EXPECT_EQ(ByteSize(1023), "1023 Bytes");
  EXPECT_EQ(ByteSize(1024), "1.00 KB");
  EXPECT_EQ(ByteSize(10 * kKiB), "10.0 KB");
  EXPECT_EQ(ByteSize(100 * kKiB), "100 KB");
  EXPECT_EQ(ByteSize(1536), "1.50 KB");
  EXPECT_EQ(ByteSize(1'048'575), "1024 KB");  // rounds up but stays below the MB step
}

TEST(ByteSize, LargerUnitsAndTheEndOfTheScale) {
  EXPECT_EQ(ByteSize(kMiB), "1.00 MB");
  EXPECT_EQ(ByteSize(55 * kMiB + kMiB / 2), "55.5 MB");
  EXPECT_EQ(ByteSize(512 * kGiB), "512 GB");
  EXPECT_EQ(ByteSize(kGiB * kKiB), "1.00 TB");
  EXPECT_EQ(ByteSize(kPiB), "1.00 PB");
  EXPECT_EQ(ByteSize(kPiB * kKiB - 1), "1024 PB");
  EXPECT_EQ(ByteSize(kPiB * kKiB), "");
  EXPECT_EQ(ByteSize(INT64_MAX), "");
}

TEST(Rate, BytesAndBitsPerSecond) {
  EXPECT_EQ(Rate(5, false), "5.00 Bps");
  EXPECT_EQ(Rate(5, true), "40.0 bps");
  EXPECT_EQ(Rate(1000, false), "1000 Bps");
  EXPECT_EQ(Rate(1000, true), "7.81 Kbps");
  EXPECT_EQ(Rate(0, false), "0.00 Bps");
  EXPECT_EQ(Rate(3 * static_cast<std::uint64_t>(kMiB), false), "3.00 MBps");
  EXPECT_EQ(Rate(static_cast<std::uint64_t>(kGiB) * 100, true), "800 Gbps");
  EXPECT_EQ(Rate(static_cast<std::uint64_t>(kPiB) * 1023, false), "1023 PBps");
}

TEST(ExpandDateTime, DefaultPacketModeTemplate) {
  EXPECT_EQ(ExpandDateTime("%Y.%MY.%D - %H24:%MN:%S.%MS", LocalTime{2006, 1, 2, 3, 4, 5, 6}),
            "2006.01.02 - 03:04:05.006");
}

TEST(ExpandDateTime, TwelveHourClockKeepsNoonAsAm) {
  const std::string form = "%H12:%MN %AP";
  EXPECT_EQ(ExpandDateTime(form, At(12, 5)), "12:05 AM");
  EXPECT_EQ(ExpandDateTime(form, At(13, 5)), "01:05 PM");
  EXPECT_EQ(ExpandDateTime(form, At(0, 5)), "12:05 AM");
  EXPECT_EQ(ExpandDateTime(form, At(11, 59)), "11:59 AM");
  EXPECT_EQ(ExpandDateTime(form, At(23, 0)), "11:00 PM");
}

TEST(ExpandDateTime, TextWithoutTokensAndRepeatedTokens) {
  EXPECT_EQ(ExpandDateTime("no tokens here: 100% sure", At(8, 0)), "no tokens here: 100% sure");
  EXPECT_EQ(ExpandDateTime("", At(8, 0)), "");
  EXPECT_EQ(ExpandDateTime("%S%S-%MS%MS", At(8, 0)), "0909-045045");
  EXPECT_EQ(ExpandDateTime("%%Y%", At(8, 0)), "%2024%");
}

TEST(ExpandDateTime, TokensApplyOneAfterAnotherInFixedOrder) {
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
