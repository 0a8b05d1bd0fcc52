// Start-up decisions: what a command line asks for, whether the mode choice shows, which window
// runs, how a mode relaunches, and the texts of those steps. Pure functions of their arguments:
// no Qt, no files, no processes; the windows and main() carry the decisions out.
#pragma once

#include <initializer_list>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "app/modes.hpp"
#include "common/install_record.hpp"
#include "common/message.hpp"
#include "common/settings.hpp"
#include "common/settings_store.hpp"
#include "common/texts.hpp"
#include "common/types.hpp"

namespace vormelt {

// The command line of a run: the words after the program name joined by single blanks.
std::string CommandLineText(std::span<const char* const> argumentsAfterProgram);
std::string CommandLineText(std::span<const std::string> argumentsAfterProgram);

enum class StartupAction {
  Continue,                // installation check, mode choice, window
  ShowHelp,                // show `message` titled `title` with the information icon, finish
  ShowUnknownCommandLine,  // likewise
  RunDeinstaller,          // run the deinstaller, then finish
};

struct StartupDecision {
  StartupAction action = StartupAction::Continue;
  Text message = Text::CommandLineHelp;  // for ShowHelp and ShowUnknownCommandLine
  Text title = Text::ProgramTitle;

  bool keywordRecognised = false;
  bool noInstall = false;  // skip the installation check
  bool uninstall = false;
  bool packetMode = false;
  bool fileMode = false;
  bool graphicalPacketsMode = false;
  bool statisticalMode = false;
  bool decoder = false;  // also set by the mode choice's Tools menu
  bool startMinimized = false;
  bool autoListen = false;
  bool runAsService = false;  // "-service": started by the service manager
  // "--read FILE": the mode reads this capture file instead of listening. One word: a path
  // with blanks cannot be told apart on the joined command line.
  std::string captureFile;

  // "english" / "deutsch" on the command line; "deutsch" wins when both are there. The caller
  // writes it into the settings record, so like any other setting it is saved with them.
  std::optional<UiLanguage> languageKeyword;
  UiLanguage language = UiLanguage::English;  // the language of this run

  // One of the modes' words (the decoder's too) was given.
  bool AnyModeSwitch() const;
};

// Keywords are found as plain substrings of the lower-cased line, so "/NoInstall /Packet_Mode",
// "-packet_mode" and "PACKET_MODE" ask the same. An empty line asks nothing and continues.
StartupDecision DecideStartup(std::string_view commandLine, const ProgramSettings& settings);

// Shown when enabled and no mode was asked for. Never for a service: it has no display.
bool ShouldShowModeChoice(const StartupDecision& decision, const ProgramSettings& settings);

// The window to run, first match wins: Packet, File, Graphical Packets, Statistical, decoder.
// Without a mode keyword the remembered mode decides; a remembered mode outside 0..3 runs
// nothing (nullopt) and the process finishes.
std::optional<ProgramMode> ChooseWindow(const StartupDecision& decision,
                                        const ProgramSettings& settings);

// ---- the mode-choice window -----------------------------------------------------------------

enum class ModeChoiceButton { Packet, File, GraphicalPackets, Statistical, ToolsDecoder, Exit };
enum class ModeChoiceResult {
  StayOpen,  // the blinking warning was declined
  Close,     // a mode (or the decoder) was chosen; ChooseWindow decides with the new values
  Exit,      // "X Exit X" or closed from outside: finish without a window
};

// Whether going to `target` must first ask the blinking warning.
bool NeedsGraphicalWarning(ProgramMode target, const ProgramSettings& settings);

// What a button does to the settings and the decision. `rememberChoice` is the check box;
// `warningAccepted` is the answer to the blinking warning, read only when it was needed.
ModeChoiceResult ApplyModeChoice(ModeChoiceButton button, bool rememberChoice,
                                 bool warningAccepted, ProgramSettings& settings,
                                 StartupDecision& decision);
// A mode button (one per rememberable mode of ModeList()): remembers `chosen`, unless the
// blinking warning it needs was declined.
ModeChoiceResult ChooseMode(ProgramMode chosen, bool rememberChoice, bool warningAccepted,
                            ProgramSettings& settings);

// ---- answers to the Yes/No/Cancel questions -------------------------------------------------

enum class InstallStep {
  EndProcess,           // Cancel
  RunInstaller,         // Yes: install this copy, then finish
  LaunchInstalledCopy,  // No: start the installed copy with InstalledCopyArguments(); when that
                        // fails show InstalledProgramNotExecutable and go on with this copy
};
InstallStep AfterInstallQuestion(MessageAnswer answer);
// The installed copy is started with the installation check off.
std::vector<std::string> InstalledCopyArguments();

enum class SwitchStep {
  Nothing,            // Cancel
  RelaunchAlongside,  // No: start the target now, this window keeps running
  CloseAndRelaunch,   // Yes: stop, save, relaunch from the close path, end this process
};
SwitchStep AfterSwitchQuestion(MessageAnswer answer);

// ---- texts ----------------------------------------------------------------------------------

std::string SwitchModesMessage(ProgramMode target, ProgramMode current, UiLanguage language);
std::string ModeNotAvailableMessage(ProgramMode mode, UiLanguage language);
std::string InstallQuestionMessage(const InstallDecision& decision, UiLanguage language);
// A settings or install-record load problem as the message box shows it; empty when none.
std::string LoadProblemMessage(const LoadProblem& load, UiLanguage language);

}  // namespace vormelt
