// The service host: sd_notify for the service manager, stderr for the journal. READY=1 only
// once every capture is open, WATCHDOG=1 only while the receive loops turn, STOPPING=1 before
// the capture is stopped. sd_notify does nothing without NOTIFY_SOCKET, so the same run works
// by hand.
#include "app/service.hpp"

#include <systemd/sd-daemon.h>

#include <chrono>
#include <cstdio>
#include <string_view>

#include "app/headless.hpp"
#include "app/headless_modes.hpp"
#include "app/modes.hpp"
#include "app/startup.hpp"

namespace vormelt {
namespace {

class SystemdHost final : public HeadlessHost {
 public:
  SystemdHost() {
    std::uint64_t usec = 0;
    // Only when the unit asks for a watchdog (WatchdogSec=) and it is meant for this process.
    if (sd_watchdog_enabled(0, &usec) > 0) watchdogInterval_ = std::chrono::microseconds(usec / 2);
  }

  void Ready() override { sd_notify(0, "READY=1"); }

  void Status(std::string_view line) override {
    if (line == lastStatus_) return;
    lastStatus_ = line;
    sd_notifyf(0, "STATUS=%s", lastStatus_.c_str());
  }

  // Pinged at half the watchdog's interval, never faster.
  void Alive() override {
    if (watchdogInterval_.count() == 0) return;
    const auto now = std::chrono::steady_clock::now();
    if (now - lastPing_ < watchdogInterval_) return;
    lastPing_ = now;
    sd_notify(0, "WATCHDOG=1");
  }

  void Stopping() override { sd_notify(0, "STOPPING=1"); }

  void Tell(std::string_view line) override {
    std::fprintf(stderr, "vormelt: %.*s\n", static_cast<int>(line.size()), line.data());
    std::fflush(stderr);
  }

 private:
  std::string lastStatus_;
  std::chrono::microseconds watchdogInterval_{0};
  std::chrono::steady_clock::time_point lastPing_{};
};

// The help or an unknown command line: said on stderr, nothing runs.
int TellStartupText(const StartupDecision& decision, HeadlessHost& host) {
  std::string text = Tr(decision.message, decision.language);
  for (std::size_t at; (at = text.find("\r\n")) != std::string::npos;) text.replace(at, 2, " ");
  host.Tell(text);
  return decision.action == StartupAction::ShowHelp ? kHeadlessOk : kHeadlessConfigError;
}

}  // namespace

int RunService(const std::string& commandLine, const SettingsLoad& load) {
  // Before any thread exists, so that every capture thread inherits the blocked signals.
  StopSignals signals;
  SystemdHost host;
  const StartupDecision decision = DecideStartup(commandLine, load.settings);
  ProgramSettings settings = load.settings;
  if (decision.languageKeyword) settings.language = *decision.languageKeyword;
  if (const std::string problem = LoadProblemMessage(load, settings.language); !problem.empty()) {
    host.Tell(problem);
  }
  if (decision.action == StartupAction::ShowHelp ||
      decision.action == StartupAction::ShowUnknownCommandLine) {
    return TellStartupText(decision, host);
  }

  const std::optional<ProgramMode> mode = ChooseWindow(decision, settings);
  if (!mode) {
    host.Tell(FormatText(Text::ServiceNoMode, settings.language, settings.rememberedMode));
    return kHeadlessConfigError;
  }
  const ModeEntry& entry = FindMode(*mode);
  if (!entry.headless) {
    host.Tell(FormatText(Text::ServiceNeedsDisplay, settings.language,
                         Tr(entry.name, settings.language)));
    return kHeadlessConfigError;
  }
  return entry.headless(ModeStart{decision, settings, load.file, &host, &signals});
}

}  // namespace vormelt
