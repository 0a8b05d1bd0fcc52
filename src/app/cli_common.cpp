// What the vormelt-cli commands do alike: complain about a command line, read the capture
// commands' source options and their option loop, load a filter profile, take SIGINT/SIGTERM as
// a stop request, and capture until told to stop.
#include <pthread.h>

#include <chrono>
#include <ostream>
#include <string>

#include "app/cli.hpp"
#include "app/headless.hpp"
#include "capture/mode_capture.hpp"
#include "filters/filter_profile.hpp"
#include "filters/filter_settings.hpp"

namespace vormelt::cli {

int Usage(std::ostream& err, std::string_view command, std::string_view problem,
          std::string_view after) {
  err << "vormelt-cli " << command << ": " << problem << after;
  return kExitUsage;
}

namespace {

constexpr std::string_view kOneSource = "give only one of --read, --live, --adapter and --load-dump";

// The source options; nullopt when `option` is none of them, else the problem ("" when fine).
std::optional<std::string> ParseSourceOption(const std::string& option, const std::string& value,
                                             bool seconds, SourceOptions& source) {
  const auto setTarget = [&](CaptureTarget target) -> std::string {
    if (source.target || !source.loadDump.empty()) return std::string(kOneSource);
    source.target = std::move(target);
    return {};
  };
  if (option == "--read") return setTarget(CaptureTarget::File(value));
  if (option == "--live") return setTarget(CaptureTarget::Address(value));
  if (option == "--adapter") return setTarget(CaptureTarget::Adapter(value));
  if (option == "--load-dump") {
    if (source.target || !source.loadDump.empty()) return std::string(kOneSource);
    source.loadDump = value;
  } else if (option == "--form") {
    source.form = ParseDataForm(value);
    if (!source.form || *source.form == DataForm::None) return "--form takes text, dec, hex or hex+text";
  } else if (option == "--buffer-mib") {
    std::int32_t mib = 0;
    if (!ParseNumber(value, kMinCaptureBufferMiB, kMaxCaptureBufferMiB, mib)) {
      return "--buffer-mib takes a number of MiB from " + std::to_string(kMinCaptureBufferMiB) +
             " to " + std::to_string(kMaxCaptureBufferMiB);
    }
    source.bufferMiB = mib;
  } else if (option == "--metrics-listen") {
    std::string problem;
    if (!metrics::BindAddress(value, problem)) return "--metrics-listen: " + problem;
    source.metricsListen = value;
  } else if (option == "--seconds" && seconds) {
    if (!ParseNumber(value, 1, 31'536'000, source.seconds)) return "--seconds needs a number above 0";
  } else {
    return std::nullopt;
  }
  return std::string();
}

std::string CheckSource(SourceOptions& source) {
  if (!source.target && source.loadDump.empty()) {
    return "give --read FILE, --live ADDRESS, --adapter NAME or --load-dump FILE --form FORM";
  }
  if (!source.loadDump.empty() && !source.form) return "--load-dump needs --form text|dec|hex|hex+text";
  if (source.seconds && !source.Live()) return "--seconds applies to live captures only";
  if (source.bufferMiB) {
    if (!source.Live()) return "--buffer-mib applies to live captures only";
    source.target->bufferMiB = *source.bufferMiB;
  }
  return {};
}

}  // namespace

int ParseCaptureCommand(std::span<const std::string> args, const CommandOptions& command,
                        SourceOptions& source, std::ostream& err) {
  for (std::size_t i = 0; i < args.size(); ++i) {
    const std::string& option = args[i];
    if (command.takeSwitch && command.takeSwitch(option)) continue;
    if (option.rfind("--", 0) != 0) return command.Usage(err, "unexpected word '" + option + "'");
    if (i + 1 >= args.size()) return command.Usage(err, option + " needs a value");
    const std::string& value = args[++i];
    if (const auto problem = ParseSourceOption(option, value, command.seconds, source)) {
      if (!problem->empty()) return command.Usage(err, *problem);
      continue;
    }
    const std::optional<int> taken = command.takeValue(option, value);
    if (!taken) return command.Usage(err, "unknown option '" + option + "'");
    if (*taken != kExitOk) return *taken;
  }
  if (const std::string problem = CheckSource(source); !problem.empty()) {
    return command.Usage(err, problem);
  }
  return kExitOk;
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

bool CaptureUntilStopped(ModeCapture& capture, const CaptureTarget& target, StopRequest& stop,
                         long seconds, const std::function<bool()>& afterWait) {
  using std::chrono::milliseconds;
  capture.Start(target);
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
  bool wasBusy = false;
  bool stopping = false;  // asked once; the request stays raised, so Wait no longer waits
  while (capture.Capturing()) {
    const bool busy = afterWait && afterWait();
    const milliseconds wait(busy ? 0 : wasBusy || capture.ReadingFile() ? 1 : 10);
    if (stopping) {
      std::this_thread::sleep_for(wait);
    } else if (stop.Wait(wait) || (seconds && std::chrono::steady_clock::now() >= deadline)) {
      capture.Stop();
      stopping = true;
    }
    wasBusy = busy;
  }
  capture.Wait();
  return stopping;
}

bool TellCaptureMessages(ModeCapture& capture, std::ostream& err) {
  bool any = false;
  for (const CaptureMessage& message : capture.Messages().Drain()) {
    err << "vormelt-cli: " << OneLineMessage(message) << "\n";
    any = true;
  }
  return any;
}

bool ServeMetrics(const std::string& listen, metrics::Collector collector,
                  std::unique_ptr<metrics::Endpoint>& endpoint, std::ostream& err) {
  if (listen.empty()) return true;
  std::string problem;
  endpoint = metrics::Endpoint::Start(listen, std::move(collector), problem);
  if (!endpoint) err << "vormelt-cli: metrics: " << problem << "\n";
  return endpoint != nullptr;
}

}  // namespace vormelt::cli
