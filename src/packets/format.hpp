// Display formatting of byte sizes, transfer rates and date/time templates.
// Pure functions of their arguments: they never read the clock or any settings themselves.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "common/clock.hpp"

namespace vormelt::format {

// Replaces %Y %MY %D %AP %H12 %H24 %MN %S %MS in the template with fields of `time`; every other
// character is kept. 12-hour clock: 13..23 → 1..11 PM, 0 and 12 → 12 AM.
std::string ExpandDateTime(std::string_view dateTimeTemplate, const LocalTime& time);
// The same into a caller buffer, without allocating (for the per-packet path). Returns the
// length written, truncated at `capacity`; the text is not NUL-terminated.
std::size_t ExpandDateTime(std::string_view dateTimeTemplate, const LocalTime& time, char* out,
                           std::size_t capacity);

// "1023 Bytes", "1.00 KB", "10.0 KB", "100 KB" ... up to PB; empty from 2^60 bytes on.
std::string ByteSize(std::int64_t bytes);
// "5.00 Bps", "7.81 Kbps" ...: `bits` multiplies by eight and writes "b" instead of "B".
std::string Rate(std::uint64_t perSecond, bool bits);

}  // namespace vormelt::format
