// The headless commands of vormelt-cli. Each takes the words after its command name and
// returns the process exit status: 0 success, 1 failure while working, 2 bad command line.
// Errors are one clear line on `err`; results go to `out` byte for byte.
#pragma once

#include <atomic>
#include <charconv>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <type_traits>

#include "app/metrics_endpoint.hpp"

#include "app/headless.hpp"

namespace vormelt {
class CaptureSession;
class FilterSettings;
class FrameSink;
struct CaptureTarget;
}  // namespace vormelt

namespace vormelt::cli {

// `text` read whole as a decimal number within [low, high] into `value`, which is left alone
// when the text is anything else. The one number reader of the commands' options.
template <typename Number>
bool ParseNumber(std::string_view text, std::type_identity_t<Number> low,
                 std::type_identity_t<Number> high, Number& value) {
  Number parsed{};
  const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), parsed);
  if (error != std::errc() || stop != text.data() + text.size() || parsed < low || parsed > high) {
    return false;
  }
  value = parsed;
  return true;
}

// --buffer-mib N, which every capture command takes: the live capture's kernel buffer in MiB.
// ParseBufferMiB reads N into `mib`; ApplyBufferMiB gives it to the chosen source once all
// options are read. Each returns the problem for the command's usage line, or "" when fine.
std::string ParseBufferMiB(const std::string& text, std::optional<std::int32_t>& mib);
std::string ApplyBufferMiB(const std::optional<std::int32_t>& mib,
                           std::optional<CaptureTarget>& target);
// --metrics-listen: serves `collector` at /metrics for as long as `endpoint` lives. An empty
// `listen` serves nothing. False, with one line on `err`, when it cannot listen there.
bool ServeMetrics(const std::string& listen, metrics::Collector collector,
                  std::unique_ptr<metrics::Endpoint>& endpoint, std::ostream& err);
// Checks a --metrics-listen value while the options are read; false with `problem` set.
bool MetricsListenUsable(const std::string& listen, std::string& problem);

// Loads the filter profile at `path` into `filter`; false, with one line on `err`, when it
// cannot be loaded.
bool LoadProfileInto(const std::string& path, FilterSettings& filter, std::ostream& err);

// SIGINT and SIGTERM as a request to stop, for as long as this lives: StopSignals blocks them
// in the thread that made it and in every thread started after it, and a watcher thread takes
// them, so a signal never ends the process halfway through a record or a file and
// never runs a handler inside libpcap. Make it before any other thread starts. Each signal
// raises the request; the work in hand polls Requested() (or hands Flag() to an engine as its
// cancel flag), finishes its record, closes its file and says how far it got.
class StopRequest {
 public:
  StopRequest();
  ~StopRequest();
  StopRequest(const StopRequest&) = delete;
  StopRequest& operator=(const StopRequest&) = delete;

  bool Requested() const { return requested_.load(); }
  const std::atomic<bool>& Flag() const { return requested_; }
  // Waits up to `timeout` for the request; true when it is raised.
  bool Wait(std::chrono::milliseconds timeout);
  // Lowers the request: the stop that ended one piece of work (a capture, which has no other
  // end) does not also cut short the next one (saving what was captured).
  void Lower() { requested_.store(false); }

 private:
  void Watch();

  StopSignals signals_;  // first: blocked before the watcher starts, unblocked after it ends
  std::atomic<bool> requested_{false};
  std::atomic<bool> ending_{false};
  std::mutex mutex_;
  std::condition_variable raised_;
  std::thread watcher_;
};

// Captures from `target` into `sink` until the source ends, SIGINT or SIGTERM comes, or
// `seconds` (0: no limit) have passed; `afterWait` runs after every look, which comes at least
// every 10 ms. Returns once the capture threads have ended.
void CaptureUntilStopped(CaptureSession& session, const CaptureTarget& target, FrameSink& sink,
                         long seconds, const std::function<void()>& afterWait = {});

// vormelt-cli names proto|ethertype|tcp|udp|vendor VALUE
int RunNames(std::span<const std::string> args, std::ostream& out, std::ostream& err);
// vormelt-cli packets --read FILE | --live ADDRESS | --adapter NAME  [options]
int RunPackets(std::span<const std::string> args, std::ostream& out, std::ostream& err);
// vormelt-cli stats --read FILE | --live ADDRESS | --adapter NAME  [options]
int RunStats(std::span<const std::string> args, std::ostream& out, std::ostream& err);
// vormelt-cli files (--read FILE | --load-dump FILE --form F | --live ADDRESS | --adapter NAME)
//                   --out DIR [options]
int RunFiles(std::span<const std::string> args, std::ostream& out, std::ostream& err);
// vormelt-cli codec --in ... --out ... [options]   (reads `in` to its end)
int RunCodec(std::span<const std::string> args, std::istream& in, std::ostream& out,
             std::ostream& err);

// vormelt-cli service install|uninstall|status|unit [--unit-dir DIR] [--program PATH]
//                    [--config DIR]
int RunServiceCommand(std::span<const std::string> args, std::ostream& out, std::ostream& err);
// vormelt-cli settings list | get KEY | set KEY VALUE  [--config DIR]
int RunSettings(std::span<const std::string> args, std::ostream& out, std::ostream& err);

}  // namespace vormelt::cli
