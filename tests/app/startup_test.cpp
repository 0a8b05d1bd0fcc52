// Start-up decisions: keyword matching, precedence, the mode choice's effects, relaunch lines,
// and the texts whose arguments or layout are easy to get wrong.
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

TEST(CommandLine, EmptyLineAsksNothingAndKeepsTheStoredLanguage) {
  const char* const words[] = {"/NoInstall", "/Packet_Mode"};
  EXPECT_EQ(CommandLineText(std::span<const char* const>(words)), "/NoInstall /Packet_Mode");
  ProgramSettings settings;
  settings.language = UiLanguage::German;
  const StartupDecision d = DecideStartup(CommandLineText(std::span<const std::string>()), settings);
  EXPECT_EQ(d.action, StartupAction::Continue);
  EXPECT_FALSE(d.keywordRecognised || d.AnyModeSwitch() || d.noInstall || d.languageKeyword);
  EXPECT_EQ(d.language, UiLanguage::German);
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

TEST(ChooseWindow, RememberedModeDecidesOnlyWithoutAKeyword) {
  for (ProgramMode mode : kModes) {
    const ProgramSettings settings = WithRemembered(static_cast<std::int32_t>(mode));
    EXPECT_EQ(ChooseWindow(DecideStartup("", settings), settings), mode);
    EXPECT_EQ(ChooseWindow(DecideStartup("-auto_listen", settings), settings), mode);
  }
  const ProgramSettings statistical = WithRemembered(3);
  EXPECT_EQ(ChooseWindow(DecideStartup("file_mode", statistical), statistical), ProgramMode::File);
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

TEST(ModeChoice, ModeButtonsRememberTheModeAndTheCheckBox) {
  ProgramSettings settings = WithRemembered(0, true);
  StartupDecision d = DecideStartup("", settings);
  EXPECT_EQ(ApplyModeChoice(ModeChoiceButton::Statistical, /*remember=*/true, false, settings, d),
            ModeChoiceResult::Close);
  EXPECT_EQ(settings.rememberedMode, 3);
  EXPECT_FALSE(settings.showModeChoiceAtStartup);
  EXPECT_EQ(ChooseWindow(d, settings), ProgramMode::Statistical);

  EXPECT_EQ(ApplyModeChoice(ModeChoiceButton::File, /*remember=*/false, false, settings, d),
            ModeChoiceResult::Close);
  EXPECT_EQ(settings.rememberedMode, 1);
  EXPECT_TRUE(settings.showModeChoiceAtStartup);
}

TEST(ModeChoice, GraphicalModeNeedsTheWarningAcceptedOnce) {
  ProgramSettings settings = WithRemembered(0, true);
  StartupDecision d = DecideStartup("", settings);
  EXPECT_TRUE(NeedsGraphicalWarning(ProgramMode::GraphicalPackets, settings));
  EXPECT_FALSE(NeedsGraphicalWarning(ProgramMode::Packet, settings));

  // Declined: the window stays and nothing changes, not even the check box's setting.
  EXPECT_EQ(ApplyModeChoice(ModeChoiceButton::GraphicalPackets, true, false, settings, d),
            ModeChoiceResult::StayOpen);
  EXPECT_TRUE(settings == WithRemembered(0, true));

  EXPECT_EQ(ApplyModeChoice(ModeChoiceButton::GraphicalPackets, false, true, settings, d),
            ModeChoiceResult::Close);
  EXPECT_TRUE(settings.graphicalWarningAcknowledged);
  EXPECT_EQ(settings.rememberedMode, 2);

  // Acknowledged once, never asked again: the answer argument no longer matters.
  EXPECT_FALSE(NeedsGraphicalWarning(ProgramMode::GraphicalPackets, settings));
  settings.rememberedMode = 0;
  EXPECT_EQ(ApplyModeChoice(ModeChoiceButton::GraphicalPackets, false, false, settings, d),
            ModeChoiceResult::Close);
  EXPECT_EQ(settings.rememberedMode, 2);
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

// The help text's layout: CR LF only, a blank second line, two blanks after every option, and
// no break after the last line; the same in both languages.
TEST(StartupTexts, HelpTextLayoutHoldsInBothLanguages) {
  for (UiLanguage language : {UiLanguage::English, UiLanguage::German}) {
    const std::string text = Tr(Text::CommandLineHelp, language);
    std::vector<std::string> lines;
    std::size_t start = 0;
    for (std::size_t at; (at = text.find("\r\n", start)) != std::string::npos; start = at + 2) {
      lines.push_back(text.substr(start, at - start));
    }
    lines.push_back(text.substr(start));
    ASSERT_EQ(lines.size(), 14u);
    EXPECT_TRUE(lines[1].empty());
    for (std::size_t i = 2; i < lines.size(); ++i) {
      SCOPED_TRACE(lines[i]);
      EXPECT_EQ(lines[i].find('\n'), std::string::npos);
      EXPECT_EQ(lines[i].find('\r'), std::string::npos);
      const std::size_t gap = lines[i].find("  ");
      ASSERT_NE(gap, std::string::npos);
      if (!lines[i].starts_with("-help / -?")) {
        EXPECT_EQ(lines[i].find(' '), gap);
      }
    }
    EXPECT_TRUE(lines.back().starts_with("auto_listen  "));
  }
  EXPECT_TRUE(English(Text::CommandLineHelp).starts_with("Current available command line options:\r\n"));
}

TEST(StartupTexts, ArgumentsLandInTheirPlaces) {
  EXPECT_EQ(InstallQuestionMessage({InstallAction::Ask, Text::AskReinstall}, UiLanguage::English),
            "Would you like to re-install Hollowbright VORMELT 2.2?");
  EXPECT_EQ(InstallQuestionMessage({InstallAction::Ask, Text::AskInstallVersion}, UiLanguage::English),
            "Would you like to install version 2.2 of Hollowbright VORMELT?");

  const std::string question =
      SwitchModesMessage(ProgramMode::Packet, ProgramMode::File, UiLanguage::English);
  EXPECT_TRUE(question.starts_with("Would you like to to switch modes?\r\n\r\n"
                                   "Switching to Packet Mode will cancel the current operation "
                                   "(File Mode).\r\n\r\n"));
  EXPECT_TRUE(question.ends_with("\r\n\r\nCancel - Obvious."));
  EXPECT_EQ(ModeNotAvailableMessage(ProgramMode::Statistical, UiLanguage::German),
            "Statistikmodus ist in dieser Version noch nicht verfügbar.");
}

TEST(StartupTexts, FillTextNeverReadsPastItsArguments) {
  // Two conversions, one argument: the second stays empty instead of reading garbage.
  EXPECT_EQ(FillText(Text::AskReinstall, UiLanguage::English, {"X"}),
            "Would you like to re-install X ?");
  // An argument holding a conversion is copied, not expanded.
  EXPECT_EQ(FillText(Text::ModeNotAvailable, UiLanguage::English, {"%s%%"}),
            "%s%% is not available yet in this version.");
}

TEST(StartupTexts, LoadProblemsNameTheFileAndWhereItWasKept) {
  SettingsLoad fine;
  EXPECT_EQ(LoadProblemMessage(fine, UiLanguage::English), "");

  SettingsLoad damaged;
  damaged.problem = Text::SettingsFileDamaged;
  damaged.file = "/cfg/settings.json";
  damaged.keptAs = "/cfg/settings.json.bad";
  damaged.detail = "syntax error";
  EXPECT_EQ(LoadProblemMessage(damaged, UiLanguage::English),
            "The settings file \"/cfg/settings.json\" could not be read (syntax error).\r\n"
            "It has been kept as \"/cfg/settings.json.bad\" and the default settings are used.");
}

}  // namespace
}  // namespace vormelt
