// Start-up decisions: keyword matching, precedence, when the mode choice shows and what Exit
// and Tools leave behind, relaunch lines, and text filling that must not overrun.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "app/startup.hpp"

namespace vormelt {
namespace {

constexpr ProgramMode kModes[] = {ProgramMode::Packet, ProgramMode::File,
                                  ProgramMode::GraphicalPackets, ProgramMode::Statistical};

ProgramSettings WithRemembered(std::int32_t mode, bool showChoice = false) {
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
    EXPECT_TRUE(d.noInstall);
    EXPECT_TRUE(d.packetMode);
    EXPECT_FALSE(d.uninstall);  // "noinstall" does not hold "uninstall"
  }
  const StartupDecision d = DecideStartup("-start_minimized auto_listen -Service", settings);
  EXPECT_TRUE(d.startMinimized);
  EXPECT_TRUE(d.autoListen);
  EXPECT_TRUE(d.runAsService);
  EXPECT_EQ(d.action, StartupAction::Continue);
}

TEST(CommandLine, EveryRelaunchLineOpensItsOwnModeWithoutInstallCheckOrChoice) {
  const ProgramSettings settings = WithRemembered(3, /*showChoice=*/true);
  for (ProgramMode mode : kModes) {
    const std::vector<std::string> args = RelaunchArguments(mode);
    ASSERT_EQ(args.size(), 2u);
    EXPECT_EQ(args[0], "/NoInstall");
    const StartupDecision d = DecideStartup(CommandLineText(args), settings);
    SCOPED_TRACE(args[1]);
    EXPECT_EQ(d.action, StartupAction::Continue);
    EXPECT_TRUE(d.noInstall);
    EXPECT_FALSE(ShouldShowModeChoice(d, settings));
    EXPECT_EQ(ChooseWindow(d, settings), mode);
  }
  EXPECT_EQ(RelaunchArguments(ProgramMode::GraphicalPackets)[1], "/GP_Mode");
  EXPECT_TRUE(RelaunchArguments(ProgramMode::Decoder).empty());
  // The installed copy is started the same way: no installation check, remembered mode.
  EXPECT_TRUE(DecideStartup(CommandLineText(InstalledCopyArguments()), settings).noInstall);
}

TEST(CommandLine, SeveralModeKeywordsFollowTheFixedPrecedence) {
  const ProgramSettings settings = WithRemembered(1, /*showChoice=*/true);
  struct Case {
    const char* line;
    ProgramMode expected;
  };
  for (const Case& c : {Case{"/File_Mode /Packet_Mode", ProgramMode::Packet},
                        Case{"hb_decoder statistical_mode gp_mode file_mode", ProgramMode::File},
                        Case{"hb_decoder statistical_mode gp_mode", ProgramMode::GraphicalPackets},
                        Case{"hb_decoder statistical_mode", ProgramMode::Statistical},
                        Case{"hb_decoder", ProgramMode::Decoder}}) {
    SCOPED_TRACE(c.line);
    const StartupDecision d = DecideStartup(c.line, settings);
    EXPECT_FALSE(ShouldShowModeChoice(d, settings));
    EXPECT_EQ(ChooseWindow(d, settings), c.expected);
  }
}

TEST(CommandLine, GermanWinsWhenBothLanguagesAreGiven) {
  ProgramSettings settings;
  settings.language = UiLanguage::English;
  EXPECT_EQ(DecideStartup("-english -deutsch", settings).language, UiLanguage::German);
  EXPECT_EQ(DecideStartup("-deutsch -english", settings).language, UiLanguage::German);
  settings.language = UiLanguage::German;
  const StartupDecision english = DecideStartup("-english", settings);
  EXPECT_EQ(english.language, UiLanguage::English);
  EXPECT_EQ(english.languageKeyword, UiLanguage::English);
  EXPECT_EQ(english.action, StartupAction::Continue);  // a language alone is a known keyword
}

// Help beats everything, a line with no keyword is unknown, and any word holding "uninstall"
// runs the deinstaller.
TEST(CommandLine, ActionsFollowHelpThenUnknownThenUninstall) {
  struct Case {
    const char* line;
    StartupAction action;
  };
  for (const Case& c : {Case{"-help", StartupAction::ShowHelp}, Case{"/?", StartupAction::ShowHelp},
                        Case{"-packet_mode -HELP", StartupAction::ShowHelp},
                        Case{"-uninstall ?", StartupAction::ShowHelp},
                        Case{"what?", StartupAction::ShowHelp},
                        Case{"-listen", StartupAction::ShowUnknownCommandLine},
                        Case{" ", StartupAction::ShowUnknownCommandLine},
                        Case{"/Packet-Mode", StartupAction::ShowUnknownCommandLine},
                        Case{"-uninstalled", StartupAction::RunDeinstaller},
                        Case{"/UnInstall /Packet_Mode", StartupAction::RunDeinstaller}}) {
    SCOPED_TRACE(c.line);
    const StartupDecision d = DecideStartup(c.line, ProgramSettings{});
    EXPECT_EQ(d.action, c.action);
    EXPECT_EQ(d.title, Text::ProgramTitle);
    if (c.action == StartupAction::ShowHelp) {
      EXPECT_EQ(d.message, Text::CommandLineHelp);
    }
    if (c.action == StartupAction::ShowUnknownCommandLine) {
      EXPECT_EQ(d.message, Text::CommandLineUnknown);
    }
  }
}

TEST(ModeChoice, ShownOnlyWhenEnabledWithoutModeKeywordAndNotAsService) {
  const ProgramSettings enabled = WithRemembered(0, true);
  EXPECT_TRUE(ShouldShowModeChoice(DecideStartup("", enabled), enabled));
  EXPECT_TRUE(ShouldShowModeChoice(DecideStartup("-noinstall -deutsch", enabled), enabled));
  EXPECT_FALSE(ShouldShowModeChoice(DecideStartup("-service", enabled), enabled));
  const ProgramSettings disabled = WithRemembered(0, false);
  EXPECT_FALSE(ShouldShowModeChoice(DecideStartup("", disabled), disabled));
}

TEST(ChooseWindow, RememberedModeOutsideTheFourRunsNoWindow) {
  for (std::int32_t remembered : {4, -1, 100}) {
    SCOPED_TRACE(remembered);
    const ProgramSettings settings = WithRemembered(remembered);
    const StartupDecision d = DecideStartup("", settings);
    EXPECT_FALSE(ShouldShowModeChoice(d, settings));
    EXPECT_EQ(ChooseWindow(d, settings), std::nullopt);
  }
}

TEST(ModeChoice, ExitAndToolsLeaveTheRememberedModeAlone) {
  ProgramSettings settings = WithRemembered(2, true);
  const ProgramSettings before = settings;
  StartupDecision d = DecideStartup("", settings);
  ASSERT_TRUE(ShouldShowModeChoice(d, settings));
  EXPECT_EQ(ApplyModeChoice(ModeChoiceButton::Exit, true, true, settings, d),
            ModeChoiceResult::Exit);
  EXPECT_TRUE(settings == before);
  EXPECT_FALSE(d.AnyModeSwitch());

  EXPECT_EQ(ApplyModeChoice(ModeChoiceButton::ToolsDecoder, true, false, settings, d),
            ModeChoiceResult::Close);
  EXPECT_TRUE(settings == before);
  EXPECT_EQ(ChooseWindow(d, settings), ProgramMode::Decoder);
}

TEST(StartupTexts, FormatTextCopiesArgumentsAsTheyStandAtAnyLength) {
  EXPECT_EQ(FormatText(Text::ModeNotAvailable, UiLanguage::English, "%s%%"),
            "%s%% is not available yet in this version.");
  const std::string longName(5000, 'x');
  EXPECT_EQ(FormatText(Text::ModeNotAvailable, UiLanguage::English, longName.c_str()),
            longName + " is not available yet in this version.");
}

}  // namespace
}  // namespace vormelt
