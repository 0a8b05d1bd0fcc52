// What several vormelt-cli commands do alike: the capture buffer option, load a filter profile,
// take SIGINT/SIGTERM as a stop request, and capture until told to stop.
#include <pthread.h>

#include <chrono>
#include <ostream>
#include <string>

#include "app/cli.hpp"
#include "app/headless.hpp"
#include "capture/session.hpp"
#include "filters/filter_profile.hpp"
#include "filters/filter_settings.hpp"

namespace vormelt::cli {

std::string ParseBufferMiB(const std::string& text, std::optional<std::int32_t>& mib) {
  std::int32_t value = 0;
  if (!ParseNumber(text, kMinCaptureBufferMiB, kMaxCaptureBufferMiB, value)) {
    return "--buffer-mib takes a number of MiB from " + std::to_string(kMinCaptureBufferMiB) +
           " to " + std::to_string(kMaxCaptureBufferMiB);
  }
  mib = value;
  return {};
}

std::string ApplyBufferMiB(const std::optional<std::int32_t>& mib,
                           std::optional<CaptureTarget>& target) {
  if (!mib) return {};
  if (!target || target->type == CaptureTarget::Type::File) {
    return "--buffer-mib applies to live captures only";
  }
  target->bufferMiB = *mib;
  return {};
}

bool LoadProfileInto(const std::string& path, FilterSettings& filter, std::ostream& err) {
  const ProfileResult profile = LoadFilterProfile(path);
  if (!profile.ok()) {
    err << "vormelt-cli: " << DescribeProfileProblem(profile, path, UiLanguage::English) << "\n";
    return false;
  }
  ApplyProfile(*profile.profile, filter);
  return true;
}

StopRequest::StopRequest() : watcher_([this] { Watch(); }) {}

StopRequest::~StopRequest() {
  ending_.store(true);
  pthread_kill(watcher_.native_handle(), SIGTERM);
  watcher_.join();
  // A signal that came while the watcher was ending would end the process once unblocked.
  while (signals_.Wait(std::chrono::milliseconds(0))) {
  }
}

void StopRequest::Watch() {
  while (!ending_.load()) {
    if (!signals_.Wait(std::chrono::hours(1)) || ending_.load()) continue;
    {
      std::lock_guard lock(mutex_);
      requested_.store(true);
    }
    raised_.notify_all();
  }
}

bool StopRequest::Wait(std::chrono::milliseconds timeout) {
  std::unique_lock lock(mutex_);
  return raised_.wait_for(lock, timeout, [this] { return requested_.load(); });
}

void CaptureUntilStopped(CaptureSession& session, const CaptureTarget& target, FrameSink& sink,
                         long seconds, const std::function<void()>& afterWait) {
  constexpr auto kPollInterval = std::chrono::milliseconds(10);
  // Made before the capture threads start, so that they inherit the blocked signals.
  StopRequest stop;
  session.Start(target, sink);
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
  bool stopping = false;  // asked once; the request stays raised, so Wait no longer waits
  while (session.listening.load()) {
    if (stopping) {
      std::this_thread::sleep_for(kPollInterval);
    } else if (stop.Wait(kPollInterval) ||
               (seconds && std::chrono::steady_clock::now() >= deadline)) {
      session.Stop();
      stopping = true;
    }
    if (afterWait) afterWait();
  }
  session.Wait();
}

bool ServeMetrics(const std::string& listen, metrics::Collector collector,
                  std::unique_ptr<metrics::Endpoint>& endpoint, std::ostream& err) {
  if (listen.empty()) return true;
  std::string problem;
  endpoint = metrics::Endpoint::Start(listen, std::move(collector), problem);
  if (!endpoint) err << "vormelt-cli: metrics: " << problem << "\n";
  return endpoint != nullptr;
}

bool MetricsListenUsable(const std::string& listen, std::string& problem) {
  return metrics::BindAddress(listen, problem).has_value();
}

}  // namespace vormelt::cli
