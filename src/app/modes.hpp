// The mode registry: the one list of the program's modes — their names, the words a switch
// relaunches with, whether they exist in this build and how each starts with a window or
// headless. Windows and headless runners register themselves at start-up (this layer cannot
// know the windows); every later mode adds one entry here and one registration.
#pragma once

#include <filesystem>
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

struct ModeEntry {
  ProgramMode mode;
  Text name;                      // "Packet Mode", ...
  std::string_view relaunchWord;  // "/Packet_Mode"; empty for the decoder, never switched to
  bool blinkingWarning;           // going there asks the blinking warning first
  ModeRunner window = nullptr;    // null: no window for it in this build
  ModeRunner headless = nullptr;  // null: it cannot run without a display
};

// Every mode, the four capture modes in the order their keywords are tried, then the decoder.
std::span<const ModeEntry> ModeList();
const ModeEntry& FindMode(ProgramMode mode);

// Registration, once at start-up before any window or service runs.
void RegisterModeWindow(ProgramMode mode, ModeRunner window);
void RegisterModeHeadless(ProgramMode mode, ModeRunner headless);

bool HasModeWindow(ProgramMode mode);
Text ModeName(ProgramMode mode);
// The words a mode window relaunches the program with, e.g. {"/NoInstall", "/Packet_Mode"};
// empty for the decoder.
std::vector<std::string> RelaunchArguments(ProgramMode mode);

}  // namespace vormelt
