// The mode registry: the one list of the program's modes — their names, the command-line word
// that asks for each, the words a switch relaunches with, and how each runs headless, from
// vormelt-cli and (registered by the desktop program, which this layer cannot know) with a
// window. Start-up, the service, vormelt-cli, the mode choice and every window's Switch modes
// menu read this list; a new mode is one more entry here and its window's registration.
#pragma once

#include <filesystem>
#include <iosfwd>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "common/settings.hpp"
#include "common/texts.hpp"
#include "common/types.hpp"

namespace vormelt {

struct StartupDecision;
class HeadlessHost;
class StopSignals;

// What a mode is started with: the start-up decision of the run (minimized, auto listen,
// language, ...), the settings record it reads, and the file it writes them back to.
// A headless runner also gets whoever hears how the run goes and the signals that stop it;
// both are null for a window. A headless runner builds its HeadlessMode and hands it to
// RunHeadless (app/headless.hpp) with these two.
struct ModeStart {
  const StartupDecision& decision;
  ProgramSettings& settings;
  std::filesystem::path settingsFile;
  HeadlessHost* host = nullptr;
  StopSignals* stopSignals = nullptr;  // not "signals": Qt defines that word
};
// Runs a mode until it ends; returns the process's exit status.
using ModeRunner = int (*)(const ModeStart& start);
// A vormelt-cli command: the words after its name; returns the exit status.
using CliRunner = int (*)(std::span<const std::string> args, std::ostream& out, std::ostream& err);

struct ModeEntry {
  ProgramMode mode;
  Text name;                      // "Packet Mode", ...
  Text choiceButton;              // its button in the mode choice
  std::string_view keyword;       // "packet_mode": the command-line word that asks for it
  bool StartupDecision::*flag;    // the start-up flag that word sets
  bool rememberable;              // may be the remembered mode (the decoder is a tool)
  std::string_view relaunchWord;  // "/Packet_Mode"; empty for the decoder, never switched to
  bool blinkingWarning;           // going there asks the blinking warning first
  ModeRunner headless;            // null: it cannot run without a display
  std::string_view cliCommand;    // "packets": its vormelt-cli command; empty: none
  CliRunner cli;
  ModeRunner window = nullptr;    // null: no window for it in this build
};

// Every mode, the four capture modes in the order their keywords are tried, then the decoder.
std::span<const ModeEntry> ModeList();
const ModeEntry& FindMode(ProgramMode mode);

// Registration by the desktop program, once at start-up before any window runs.
void RegisterModeWindow(ProgramMode mode, ModeRunner window);

bool HasModeWindow(ProgramMode mode);
Text ModeName(ProgramMode mode);
// The words a mode window relaunches the program with, e.g. {"/NoInstall", "/Packet_Mode"};
// empty for the decoder.
std::vector<std::string> RelaunchArguments(ProgramMode mode);

}  // namespace vormelt
