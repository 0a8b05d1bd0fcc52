// What every headless run shares (vormelt-cli commands and the service): stopping on
// SIGINT/SIGTERM without a signal handler, messages as one line for stderr or the journal, and
// the two small interfaces a mode implements to run without a window (HeadlessMode) and reports
// through (HeadlessHost). Nothing here knows systemd or any one mode.
#pragma once

#include "app/metrics_endpoint.hpp"

#include <signal.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "common/message.hpp"
#include "packetmode/dump_file.hpp"

namespace vormelt {

// The message in `language` as one line: its CR LF breaks become blanks.
std::string OneLineMessage(const CaptureMessage& message, UiLanguage language = UiLanguage::English);

// SIGINT and SIGTERM are blocked while this lives, in the thread that made it and in every
// thread started from it (the capture threads), and taken synchronously by Wait, so no handler
// ever runs inside libpcap.
class StopSignals {
 public:
  StopSignals();
  ~StopSignals();
  StopSignals(const StopSignals&) = delete;
  StopSignals& operator=(const StopSignals&) = delete;
  // Waits up to `timeout` for one of them; true when one came.
  bool Wait(std::chrono::milliseconds timeout);

 private:
  sigset_t set_{};
  sigset_t previous_{};
};

// Whoever runs a headless mode and hears how it goes: the service tells the service manager
// (sd_notify) and the journal. Called from the thread that runs the mode only.
class HeadlessHost {
 public:
  virtual ~HeadlessHost() = default;
  // Every capture of the mode is open and listening.
  virtual void Ready() = 0;
  // The current one-line status: packets, drops, files or lists written.
  virtual void Status(std::string_view line) = 0;
  // The receive loops turned since the last call (the watchdog's food).
  virtual void Alive() = 0;
  // The mode is about to stop (a stop was asked for, or the capture ended).
  virtual void Stopping() = 0;
  // A message a window would show in a box; one line.
  virtual void Tell(std::string_view line) = 0;
};

// A mode running without a window: its engine and capture, driven by RunHeadless. All calls come
// from the one thread that runs RunHeadless.
class HeadlessMode {
 public:
  virtual ~HeadlessMode() = default;
  // Opens every capture the mode needs and starts them; returns at once. False when nothing
  // could be started (the reason is among TakeMessages()).
  virtual bool Start() = 0;
  // Every capture is open and its receive loop runs.
  virtual bool Listening() const = 0;
  // False once the mode has ended by itself (capture failed or gave up); RunHeadless then stops.
  virtual bool Running() const = 0;
  // Grows while the receive loops make progress (CaptureSession::LoopTurns summed).
  virtual std::uint64_t Progress() const = 0;
  // Every receive loop waits for frames (CaptureSession::WaitingForFrames): idle, not stuck.
  virtual bool WaitingForFrames() const = 0;
  // The status line in `language`.
  virtual std::string StatusLine(UiLanguage language) const = 0;
  // Called every poll (about 100 ms) with the time since Start, for upkeep and periodic work
  // (saving lists every minute, renewing a full store).
  virtual void Tick(std::chrono::steady_clock::duration sinceStart) {}
  // Ends every capture, waits for its threads and writes what is still held back.
  virtual void Stop() = 0;
  // Messages the mode wants shown since the last call, as one-line texts in `language`.
  virtual std::vector<std::string> TakeMessages(UiLanguage language) = 0;
  // What the mode counts, for a scrape of the metrics endpoint. Called on the endpoint's
  // thread while the mode runs: reads only atomics and copies taken under the engine's lock.
  virtual void CollectMetrics(std::vector<metrics::Family>& out) const { (void)out; }
};

// Exit statuses of a headless run. 78 (EX_CONFIG) is final for the service unit
// (RestartPreventExitStatus): the same settings would fail the same way again.
inline constexpr int kHeadlessOk = 0;
inline constexpr int kHeadlessFailed = 1;
inline constexpr int kHeadlessConfigError = 78;

// Runs `mode` until `signals` sees SIGINT/SIGTERM or the mode ends by itself, reporting to
// `host`. Returns kHeadlessOk after a stop on request, kHeadlessFailed when the mode could not
// start or ended by itself. `signals` must exist before any capture thread starts. With
// `metricsListen` the mode's counts are served for Prometheus while it runs; an endpoint that
// cannot listen is told to the host and the mode runs on without it.
int RunHeadless(HeadlessMode& mode, HeadlessHost& host, StopSignals& signals,
                UiLanguage language, std::string_view metricsListen = {});

}  // namespace vormelt
