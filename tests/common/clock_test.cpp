// Clock readings: wall fields agree with the C library, and elapsed time counts while asleep.
#include "common/clock.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <ctime>
#include <thread>

namespace vormelt {
namespace {

// Seconds since the epoch for the broken-down UTC fields (timegm is the inverse of gmtime_r).
std::time_t AsUtcSeconds(const LocalTime& time) {
  std::tm fields{};
  fields.tm_year = time.year - 1900;
  fields.tm_mon = time.month - 1;
  fields.tm_mday = time.day;
  fields.tm_hour = time.hour;
  fields.tm_min = time.minute;
  fields.tm_sec = time.second;
  return timegm(&fields);
}

TEST(Clock, UtcAndLocalAgreeWithTheCLibrary) {
  const std::time_t before = std::time(nullptr);
  const LocalTime utc = NowUtc();
  const LocalTime local = NowLocal();
  const std::time_t after = std::time(nullptr);

  EXPECT_GE(AsUtcSeconds(utc), before);
  EXPECT_LE(AsUtcSeconds(utc), after);

  std::tm expected{};
  localtime_r(&after, &expected);
  EXPECT_EQ(local.day, expected.tm_mday);
  EXPECT_EQ(local.hour, expected.tm_hour);
}

TEST(Clock, ElapsedMillisecondsAdvanceWhileSleeping) {
  // CPU-time clocks stand still here; elapsed time must not.
  const std::int64_t start = MillisecondsSinceStart();
  std::this_thread::sleep_for(std::chrono::milliseconds(60));
  const std::int64_t elapsed = MillisecondsSinceStart() - start;
  EXPECT_GE(elapsed, 55);
}

}  // namespace
}  // namespace vormelt
