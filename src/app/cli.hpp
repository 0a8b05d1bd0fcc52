// The headless commands of vormelt-cli. Each takes the words after its command name and
// returns the process exit status: kExitOk, kExitFailed (while working) or kExitUsage (bad
// command line). Errors are one clear line on `err`; results go to `out` byte for byte. The
// capture commands share their source options and their option loop.
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
#include "capture/source.hpp"
#include "packets/render.hpp"

namespace vormelt {
class FilterSettings;
class ModeCapture;
}  // namespace vormelt

namespace vormelt::cli {

inline constexpr int kExitOk = 0, kExitFailed = 1, kExitUsage = 2;

// What follows a complaint about the command line unless the command says otherwise.
inline constexpr std::string_view kSeeHelp = " (see vormelt-cli --help)\n";
// The one complaint about a command line: "vormelt-cli COMMAND: PROBLEM" and `after`.
// Returns kExitUsage.
int Usage(std::ostream& err, std::string_view command, std::string_view problem,
          std::string_view after = kSeeHelp);

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

// Where a capture command's packets come from, and the options every capture command takes.
struct SourceOptions {
  std::optional<CaptureTarget> target;    // --read FILE | --live ADDRESS | --adapter NAME
  std::string loadDump;                   // --load-dump FILE: a packet dump file instead
  std::optional<DataForm> form;           // --form FORM: the dump file's form
  std::optional<std::int32_t> bufferMiB;  // --buffer-mib N: the live capture's kernel buffer
  long seconds = 0;                       // --seconds N (0: until the source ends or a signal)
  std::string metricsListen;              // --metrics-listen: serve the counts for Prometheus

  bool Live() const { return target && target->type != CaptureTarget::Type::File; }
  // The name the source goes by in metrics: the interface, or the file.
  std::string Name() const { return target ? target->displayName : loadDump; }
};

// One capture command's options beside the source options. Each hook returns nullopt when the
// option is not the command's own, else kExitOk or the usage status after saying why.
struct CommandOptions {
  std::string_view command;           // "files"
  std::string_view after = kSeeHelp;  // what follows a complaint
  bool seconds = false;               // takes --seconds (live captures only)
  std::function<bool(const std::string& option)> takeSwitch;
  std::function<std::optional<int>(const std::string& option, const std::string& value)> takeValue;
  int Usage(std::ostream& err, std::string_view problem) const {
    return cli::Usage(err, command, problem, after);
  }
};

// Reads switches and OPTION VALUE pairs, the source options among them, then checks the source:
// exactly one given, --load-dump with --form, --seconds and --buffer-mib with a live one only.
// Returns kExitOk, or kExitUsage after one line on `err`.
int ParseCaptureCommand(std::span<const std::string> args, const CommandOptions& command,
                        SourceOptions& source, std::ostream& err);
// --metrics-listen: serves `collector` at /metrics for as long as `endpoint` lives. An empty
// `listen` serves nothing. False, with one line on `err`, when it cannot listen there.
bool ServeMetrics(const std::string& listen, metrics::Collector collector,
                  std::unique_ptr<metrics::Endpoint>& endpoint, std::ostream& err);

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

// Captures from `target` until the source ends, SIGINT or SIGTERM comes, or `seconds` (0: no
// limit) have passed. `afterWait(busy)` runs after every look and returns whether it found work;
// the next look comes at once after work, within 1 ms of its end or while a file is read, else
// within 10 ms (a file's reading ends when its last work is done, and a longer wait then would be
// time added to every read, a tenth of reading 100 MB). Returns once the capture threads have ended, and whether a stop ended it.
bool CaptureUntilStopped(ModeCapture& capture, const CaptureTarget& target, StopRequest& stop,
                         long seconds, const std::function<bool()>& afterWait = {});
// Each of the capture's messages as one line on `err`; true when there were any.
bool TellCaptureMessages(ModeCapture& capture, std::ostream& err);

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
