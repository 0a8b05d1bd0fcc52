// Start-up decisions: keyword matching, precedence, when the mode choice shows and what Exit
// and Tools leave behind, relaunch lines, and text filling that must not overrun.
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "app/startup.hpp"

namespace vormelt {
namespace {

ProgramSettings WithRemembered(std::int32_t mode, bool showChoice) {
  ProgramSettings s;
  s.rememberedMode = mode;
  s.showModeChoiceAtStartup = showChoice;
  return s;
}

TEST(CommandLine, KeywordsAreSubstringsInAnyCaseAndSpelling) {
  const ProgramSettings settings;
  for (const char* line : {"/NoInstall /Packet_Mode", "-noinstall -packet_mode",
                           "NOINSTALLxPACKET_MODE", "--no_please_noinstall=packet_mode"}) {
    SCOPED_TRACE(line);
    const StartupDecision d = DecideStartup(line, settings);
    EXPECT_EQ(d.action, StartupAction::Continue);
    EXPECT_TRUE(d.noInstall && d.packetMode);
    EXPECT_FALSE(d.uninstall);  // "noinstall" does not hold "uninstall"
  }
  // The capture file keeps its own case; "--read" at the very end names nothing.
  const StartupDecision read = DecideStartup("-noinstall -GP_MODE auto_listen --READ /tmp/Talk.pcap -english", settings);
  EXPECT_TRUE(read.graphicalPacketsMode && read.autoListen);
  EXPECT_EQ(read.captureFile, "/tmp/Talk.pcap");
  EXPECT_EQ(DecideStartup("-gp_mode --read", settings).captureFile, "");
}

// Help beats everything, a line with no keyword is unknown, any word holding "uninstall" runs
// the deinstaller, and several mode keywords follow a fixed precedence.
TEST(CommandLine, ActionsAndModeKeywordsFollowTheirPrecedence) {
  const ProgramSettings settings = WithRemembered(1, /*showChoice=*/true);
  struct Case {
    const char* line;
    StartupAction action;
    std::optional<ProgramMode> window = std::nullopt;  // checked only for Continue
  };
  constexpr StartupAction kGo = StartupAction::Continue;
  for (const Case& c : {Case{"-help", StartupAction::ShowHelp}, Case{"/?", StartupAction::ShowHelp},
                        Case{"-uninstall ?", StartupAction::ShowHelp},
                        Case{"-listen", StartupAction::ShowUnknownCommandLine},
                        Case{"/Packet-Mode", StartupAction::ShowUnknownCommandLine},
                        Case{"-uninstalled", StartupAction::RunDeinstaller},
                        Case{"/UnInstall /Packet_Mode", StartupAction::RunDeinstaller},
                        Case{"/File_Mode /Packet_Mode", kGo, ProgramMode::Packet},
                        Case{"hb_decoder statistical_mode gp_mode file_mode", kGo, ProgramMode::File},
                        Case{"hb_decoder statistical_mode gp_mode", kGo, ProgramMode::GraphicalPackets},
                        Case{"hb_decoder statistical_mode", kGo, ProgramMode::Statistical}}) {
    SCOPED_TRACE(c.line);
    const StartupDecision d = DecideStartup(c.line, settings);
    EXPECT_EQ(d.action, c.action);
    if (c.action != StartupAction::Continue) continue;
    EXPECT_FALSE(ShouldShowModeChoice(d, settings));
    EXPECT_EQ(ChooseWindow(d, settings), c.window);
  }
  // German wins when both languages are given.
  EXPECT_EQ(DecideStartup("-english -deutsch", settings).language, UiLanguage::German);
  EXPECT_EQ(DecideStartup("-deutsch -english", settings).language, UiLanguage::German);
}

TEST(ModeChoice, ShownOnlyWhenEnabledWithoutModeKeywordAndNotAsService) {
  const ProgramSettings enabled = WithRemembered(0, true);
  EXPECT_TRUE(ShouldShowModeChoice(DecideStartup("", enabled), enabled));
  EXPECT_TRUE(ShouldShowModeChoice(DecideStartup("-noinstall -deutsch", enabled), enabled));
  EXPECT_FALSE(ShouldShowModeChoice(DecideStartup("-service", enabled), enabled));
  const ProgramSettings disabled = WithRemembered(4, false);
  EXPECT_FALSE(ShouldShowModeChoice(DecideStartup("", disabled), disabled));
  EXPECT_EQ(ChooseWindow(DecideStartup("", disabled), disabled), std::nullopt);  // outside the four
}

TEST(ModeChoice, ExitAndToolsLeaveTheRememberedModeAlone) {
  ProgramSettings settings = WithRemembered(2, true);
  const ProgramSettings before = settings;
  StartupDecision d = DecideStartup("", settings);
  ASSERT_TRUE(ShouldShowModeChoice(d, settings));
  EXPECT_EQ(ApplyModeChoice(ModeChoiceButton::Exit, true, true, settings, d), ModeChoiceResult::Exit);
  EXPECT_TRUE(settings == before);
  EXPECT_FALSE(d.AnyModeSwitch());

  EXPECT_EQ(ApplyModeChoice(ModeChoiceButton::ToolsDecoder, true, false, settings, d), ModeChoiceResult::Close);
  EXPECT_TRUE(settings == before);
  EXPECT_EQ(ChooseWindow(d, settings), ProgramMode::Decoder);
}

TEST(StartupTexts, FormatTextCopiesArgumentsAsTheyStandAtAnyLength) {
  const std::string longName = "%s%%" + std::string(5000, 'x');
  EXPECT_EQ(FormatText(Text::ModeNotAvailable, UiLanguage::English, longName.c_str()),
            longName + " is not available yet in this version.");
}

}  // namespace
}  // namespace vormelt
