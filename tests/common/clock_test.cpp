// The elapsed-time clock counts while the program sleeps: std::clock, CPU time on Linux, would
// stand still and every interval measured by it would read as zero.
#include "common/clock.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

namespace vormelt {
namespace {

TEST(Clock, ElapsedMillisecondsAdvanceWhileSleeping) {
  const std::int64_t start = MillisecondsSinceStart();
  std::this_thread::sleep_for(std::chrono::milliseconds(60));
  EXPECT_GE(MillisecondsSinceStart() - start, 55);
}

}  // namespace
}  // namespace vormelt
