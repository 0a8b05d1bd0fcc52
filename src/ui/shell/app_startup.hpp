// Carries out the start-up decision with windows: settings and install-record problems, help,
// the deinstaller and installer, the mode choice, the dialog colours and the chosen mode window.
// Decisions come from app/startup; nothing here decides on its own what a command line means.
#pragma once

#include <QColor>
#include <QIcon>
#include <QPalette>
#include <QString>
#include <filesystem>
#include <functional>
#include <optional>
#include <string_view>

class QTranslator;

#include "app/startup.hpp"
#include "common/settings.hpp"
#include "common/types.hpp"
#include "ui/shell/mode_window.hpp"

namespace vormelt::ui {

// Dialog colours of the start-up steps.
inline constexpr QRgb kModeChoiceBackground = 0x005000;  // dark green
inline constexpr QRgb kModeChoiceText = 0xFFFFFF;
inline constexpr QRgb kModeWindowBackground = 0xC8C8C8;  // light grey
inline constexpr QRgb kModeWindowText = 0x000000;
inline constexpr QRgb kGraphicalBackground = 0x000000;
inline constexpr QRgb kGraphicalText = 0xFFFF00;

// Where start-up reads and writes, and which program file is running. Tests use a temporary
// folder and a made-up program path.
struct StartupPaths {
  std::filesystem::path configDirectory;  // holds settings.json and install.json
  QString programPath;                    // the running program file

  std::filesystem::path SettingsFile() const;
  std::filesystem::path InstallRecordFile() const;
  // The configuration folder and QCoreApplication::applicationFilePath().
  static StartupPaths Defaults();
};

// Runs the mode-choice window for the given settings and decision; tests replace it.
using ModeChoiceRunner = std::function<ModeChoiceResult(ProgramSettings&, StartupDecision&)>;
// The real window, run modally.
ModeChoiceResult RunModeChoiceWindow(ProgramSettings& settings, StartupDecision& decision);

struct StartupOutcome {
  std::optional<ProgramMode> window;  // the mode window to run; none = the process finishes
  int exitCode = 0;                   // when there is no window
  StartupDecision decision;           // start minimized, auto listen, the language, ...
};

// Everything before the mode window, in order: take the settings as `load` read them (telling
// the user once about a damaged file), read the command line, help / unknown command line, deinstaller, installation
// check (unless "noinstall"), write the settings once, the mode choice, the dialog colours and
// the choice of window. `settings` receives the record the mode window will use.
// When `toolkitTexts` is given, Qt's own texts are loaded into it for the run's language.
StartupOutcome PrepareStartup(std::string_view commandLine, const StartupPaths& paths,
                              const SettingsLoad& load, ProgramSettings& settings,
                              const ModeChoiceRunner& runModeChoice = RunModeChoiceWindow,
                              QTranslator* toolkitTexts = nullptr);

// Enters every mode window of this program into the mode registry (app/modes).
void RegisterModeWindows();
// Runs the chosen window until it is closed and returns the process's exit status. Modes with
// no window registered answer with a notice instead.
int RunModeWindow(ProgramMode mode, const StartupDecision& decision, ProgramSettings& settings,
                  const StartupPaths& paths);

// The whole program: PrepareStartup, then RunModeWindow. Needs a QApplication. `load` is the
// one reading of the settings file of this run (main() read it to look for "-service").
int RunDesktopProgram(std::string_view commandLine, const SettingsLoad& load);

// A palette whose window, buttons and texts use the given background and text colours.
QPalette DialogPalette(QColor background, QColor text);
// The colours a mode window runs with: light grey (black on black/yellow for Graphical Packets
// Mode), or the desktop's own when the settings ask for system colours.
void ApplyModeWindowColours(ProgramMode mode, const ProgramSettings& settings);


}  // namespace vormelt::ui
