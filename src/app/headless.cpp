// Signals and one-line messages for headless runs.
#include "app/headless.hpp"

#include <pthread.h>

namespace vormelt {

std::string OneLineMessage(const CaptureMessage& message, UiLanguage language) {
  std::string line;
  for (const char c : FormatMessage(message, language)) {
    if (c != '\r') line += c == '\n' ? ' ' : c;
  }
  return line;
}

std::string DescribeDumpLoad(const DumpLoadResult& result, const std::string& path) {
  if (const std::optional<Text> message = DumpLoadMessage(result.end)) {
    std::string line(English(*message));
    if (result.end == DumpLoadEnd::OpenFailed) line += " (" + path + ")";
    return line;
  }
  switch (result.end) {
    case DumpLoadEnd::Unreadable:
      return path + ": loading stopped at an unreadable record at byte " +
             std::to_string(result.offset);
    case DumpLoadEnd::Cancelled: return path + ": loading cancelled";
    default: return {};
  }
}

StopSignals::StopSignals() {
  sigemptyset(&set_);
  sigaddset(&set_, SIGINT);
  sigaddset(&set_, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &set_, &previous_);
}

StopSignals::~StopSignals() { pthread_sigmask(SIG_SETMASK, &previous_, nullptr); }

bool StopSignals::Wait(std::chrono::milliseconds timeout) {
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(timeout);
  const timespec wait{static_cast<time_t>(seconds.count()),
                      static_cast<long>((timeout - seconds).count()) * 1'000'000L};
  return sigtimedwait(&set_, nullptr, &wait) > 0;
}

}  // namespace vormelt
