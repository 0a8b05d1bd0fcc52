// Signals and one-line messages for headless runs.
#include "app/headless.hpp"

#include <pthread.h>

#include "common/file_write.hpp"

namespace vormelt {

std::string OneLineMessage(const CaptureMessage& message, UiLanguage language) {
  std::string line;
  for (const char c : FormatMessage(message, language)) {
    if (c != '\r') line += c == '\n' ? ' ' : c;
  }
  return line;
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

namespace vormelt {
namespace {

// How often the run looks at its mode: fast enough that READY and a stop are prompt.
constexpr auto kHeadlessPoll = std::chrono::milliseconds(100);
// How often the status line is refreshed for the service manager.
constexpr auto kStatusInterval = std::chrono::seconds(1);

void ForwardMessages(HeadlessMode& mode, HeadlessHost& host, UiLanguage language) {
  for (const std::string& line : mode.TakeMessages(language)) host.Tell(line);
}

}  // namespace

int RunHeadless(HeadlessMode& mode, HeadlessHost& host, StopSignals& signals,
                UiLanguage language, std::string_view metricsListen) {
  const auto started = std::chrono::steady_clock::now();
  const bool launched = mode.Start();
  std::unique_ptr<metrics::Endpoint> endpoint;
  if (launched && !metricsListen.empty()) {
    std::string problem;
    endpoint = metrics::Endpoint::Start(metricsListen, [&mode] {
      std::vector<metrics::Family> families;
      mode.CollectMetrics(families);
      return families;
    }, problem);
    if (!endpoint) host.Tell(FormatText(Text::ServiceMetricsNotServed, language, problem.c_str()));
  }
  bool ready = false;
  bool stopAsked = false;
  std::uint64_t lastProgress = mode.Progress();
  auto nextStatus = started;
  while (launched) {
    stopAsked = signals.Wait(kHeadlessPoll);
    ForwardMessages(mode, host, language);
    if (stopAsked || !mode.Running()) break;
    if (!ready && mode.Listening()) {
      ready = true;
      host.Status(mode.StatusLine(language));
      host.Ready();
    }
    const std::uint64_t progress = mode.Progress();
    if (ready && (progress != lastProgress || mode.WaitingForFrames())) {
      lastProgress = progress;
      host.Alive();
    }
    const auto now = std::chrono::steady_clock::now();
    mode.Tick(now - started);
    if (ready && now >= nextStatus) {
      nextStatus = now + kStatusInterval;
      host.Status(mode.StatusLine(language));
    }
  }
  host.Stopping();
  endpoint.reset();  // no scrape may read the mode while it stops
  mode.Stop();
  ForwardMessages(mode, host, language);
  host.Status(mode.StatusLine(language));
  return launched && stopAsked ? kHeadlessOk : kHeadlessFailed;
}

}  // namespace vormelt
