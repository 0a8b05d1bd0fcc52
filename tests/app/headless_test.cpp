// RunHeadless, the one loop every headless mode runs in, against a scripted mode: READY only
// once listening, STOPPING before the mode is stopped, the exit status, and a watchdog that a
// stuck receive loop starves. And the mode registry, walked mode by mode.
#include <pthread.h>
#include <signal.h>

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "app/cli.hpp"
#include "app/headless.hpp"
#include "app/startup.hpp"

namespace vormelt {
namespace {

// Records what the run told the host, in order.
struct RecordingHost final : HeadlessHost {
  void Ready() override { events.push_back("ready"); }
  void Status(std::string_view) override {}
  void Alive() override { ++alive; }
  void Stopping() override { events.push_back("stopping"); }
  void Tell(std::string_view line) override { events.push_back("tell " + std::string(line)); }
  std::vector<std::string> events;
  int alive = 0;
};

// Listens from its `listenAt`-th tick on; asks for SIGTERM at `stopAt` (0: never) and ends by
// itself at `endAt` (0: never). Its receive loop turns only when `turning`.
struct ScriptedMode final : HeadlessMode {
  int listenAt = 2, stopAt = 0, endAt = 0;
  bool turning = true, waiting = false;
  int ticks = 0;
  std::uint64_t turns = 0;
  RecordingHost* host = nullptr;

  bool Start() override { return true; }
  bool Listening() const override { return ticks >= listenAt; }
  bool Running() const override { return endAt == 0 || ticks < endAt; }
  std::uint64_t Progress() const override { return turns; }
  bool WaitingForFrames() const override { return waiting; }
  std::string StatusLine(UiLanguage) const override { return {}; }
  void Tick(std::chrono::steady_clock::duration) override {
    ++ticks;
    if (turning) ++turns;
    // Aimed at this thread, where StopSignals holds SIGTERM for its Wait.
    if (ticks == stopAt) pthread_kill(pthread_self(), SIGTERM);
  }
  void Stop() override { host->events.push_back("stop"); }
  std::vector<std::string> TakeMessages(UiLanguage) override { return {}; }
};

int RunScripted(ScriptedMode& mode, RecordingHost& host) {
  StopSignals signals;
  mode.host = &host;
  return RunHeadless(mode, host, signals, UiLanguage::English);
}

TEST(RunHeadless, ReadyOnlyOnceListeningAndStoppingBeforeTheModeStops) {
  ScriptedMode mode;
  mode.listenAt = 3;
  mode.stopAt = 5;
  RecordingHost host;
  EXPECT_EQ(RunScripted(mode, host), kHeadlessOk);
  EXPECT_EQ(host.events, (std::vector<std::string>{"ready", "stopping", "stop"}));
  EXPECT_GT(host.alive, 0);
}

TEST(RunHeadless, AModeThatEndsByItselfFailsWithoutEverBeingReady) {
  ScriptedMode mode;
  mode.listenAt = 100;  // the capture never opened
  mode.endAt = 2;
  RecordingHost host;
  EXPECT_EQ(RunScripted(mode, host), kHeadlessFailed);
  EXPECT_EQ(host.events, (std::vector<std::string>{"stopping", "stop"}));
}

TEST(RunHeadless, AStuckReceiveLoopStarvesTheWatchdogAndAnIdleOneFeedsIt) {
  ScriptedMode stuck;
  stuck.listenAt = 0;
  stuck.stopAt = 5;
  stuck.turning = false;
  RecordingHost starved;
  RunScripted(stuck, starved);
  EXPECT_EQ(starved.alive, 0);

  ScriptedMode idle = stuck;
  idle.ticks = 0;
  idle.waiting = true;  // blocked in the source for frames that do not come
  RecordingHost fed;
  RunScripted(idle, fed);
  EXPECT_GT(fed.alive, 2);
}

// Every mode of the registry is reached the ways it claims: its relaunch line (the decoder,
// never switched to, its word) opens it without installation check or mode choice; but for the
// decoder, the remembered mode picks it; its headless runner, without an interface to listen
// on, refuses as a configuration error the service must not retry, saying why; and a mode that
// runs headless is a vormelt-cli command too, which without a source says so as a usage error.
TEST(ModeRegistry, EveryModeIsReachedByItsWordHeadlessAndFromVormeltCli) {
  for (const ModeEntry& entry : ModeList()) {
    SCOPED_TRACE(entry.keyword);
    ProgramSettings settings;
    settings.rememberedMode = static_cast<std::int32_t>(entry.mode);
    settings.showModeChoiceAtStartup = true;
    const std::string line = entry.relaunchWord.empty() ? "-" + std::string(entry.keyword)
                                                        : CommandLineText(RelaunchArguments(entry.mode));
    const StartupDecision byWord = DecideStartup(line, settings);
    EXPECT_EQ(byWord.noInstall, !entry.relaunchWord.empty());
    EXPECT_FALSE(ShouldShowModeChoice(byWord, settings));
    EXPECT_EQ(ChooseWindow(byWord, settings), entry.mode);
    EXPECT_EQ(ChooseWindow(DecideStartup("", settings), settings),
              entry.rememberable ? std::optional(entry.mode) : std::nullopt);
    ASSERT_EQ(entry.headless != nullptr, entry.cli != nullptr);
    if (!entry.headless) continue;
    RecordingHost host;
    StopSignals signals;
    EXPECT_EQ(entry.headless(ModeStart{byWord, settings, {}, &host, &signals}), kHeadlessConfigError);
    EXPECT_EQ(host.events.size(), 1u);
    std::ostringstream out, err;
    EXPECT_EQ(entry.cli({}, out, err), cli::kExitUsage);
    EXPECT_EQ(err.str().rfind("vormelt-cli " + std::string(entry.cliCommand) + ": give --read", 0), 0u)
        << err.str();
  }
  // The installed copy is started the same way: no installation check, remembered mode.
  EXPECT_TRUE(DecideStartup(CommandLineText(InstalledCopyArguments()), {}).noInstall);
}

}  // namespace
}  // namespace vormelt
