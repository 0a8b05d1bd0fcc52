// Wall-clock and elapsed-time readings with millisecond resolution.
// Elapsed time is steady_clock since process start, never std::clock (CPU time on Linux).
#pragma once

#include <cstdint>

#include "common/frame_sink.hpp"

namespace vormelt {

struct LocalTime {
  int year;
  int month;   // 1..12
  int day;     // 1..31
  int hour;    // 0..23
  int minute;
  int second;
  int millisecond;
};

// A capture time in local time / UTC fields.
LocalTime ToLocalTime(CaptureTime time);
LocalTime ToUtcTime(CaptureTime time);
// The current time as a capture time.
CaptureTime CaptureNow();

// Milliseconds of steady time since the process started; never goes backwards.
std::int64_t MillisecondsSinceStart();

}  // namespace vormelt
