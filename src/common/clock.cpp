// Wall-clock and elapsed-time readings. The only place that turns system time into fields;
// never uses std::clock, which counts CPU time rather than elapsed time on Linux.
#include "common/clock.hpp"

#include <chrono>
#include <ctime>

namespace vormelt {
namespace {

using SteadyClock = std::chrono::steady_clock;

// Initialised before main runs, so it stands for the process start closely enough.
const SteadyClock::time_point kProcessStart = SteadyClock::now();

constexpr int kTmYearBase = 1900;

LocalTime FromFields(const std::tm& fields, int millisecond) {
  return LocalTime{fields.tm_year + kTmYearBase, fields.tm_mon + 1, fields.tm_mday,
                   fields.tm_hour,               fields.tm_min,     fields.tm_sec,
                   millisecond};
}

template <typename Breakdown>
LocalTime Fields(CaptureTime time, Breakdown breakdown) {
  const auto sinceEpoch =
      std::chrono::floor<std::chrono::milliseconds>(time.time_since_epoch());
  const auto seconds = std::chrono::floor<std::chrono::seconds>(sinceEpoch);
  const std::time_t wholeSeconds = static_cast<std::time_t>(seconds.count());
  const int millisecond = static_cast<int>((sinceEpoch - seconds).count());
  std::tm fields{};
  breakdown(&wholeSeconds, &fields);
  return FromFields(fields, millisecond);
}

}  // namespace

CaptureTime CaptureNow() {
  return std::chrono::time_point_cast<std::chrono::nanoseconds>(std::chrono::system_clock::now());
}

LocalTime ToLocalTime(CaptureTime time) { return Fields(time, localtime_r); }
LocalTime ToUtcTime(CaptureTime time) { return Fields(time, gmtime_r); }

std::int64_t MillisecondsSinceStart() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(SteadyClock::now() - kProcessStart)
      .count();
}

}  // namespace vormelt
