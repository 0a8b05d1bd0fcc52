// The mode table. Runners are filled in at start-up by whoever can run the mode (the desktop
// program registers windows, the service headless runs); the rest of the row never changes.
#include "app/modes.hpp"

#include <array>

namespace vormelt {
namespace {

constexpr std::string_view kNoInstallWord = "/NoInstall";

std::array<ModeEntry, 5> gModes = {{
    {ProgramMode::Packet, Text::ModePacket, "/Packet_Mode", false},
    {ProgramMode::File, Text::ModeFile, "/File_Mode", false},
    {ProgramMode::GraphicalPackets, Text::ModeGraphicalPackets, "/GP_Mode", true},
    {ProgramMode::Statistical, Text::ModeStatistical, "/Statistical_Mode", false},
    {ProgramMode::Decoder, Text::ModeDecoder, {}, false},
}};

ModeEntry& Entry(ProgramMode mode) {
  for (ModeEntry& entry : gModes) {
    if (entry.mode == mode) return entry;
  }
  return gModes.back();  // not reachable: every ProgramMode has a row
}

}  // namespace

std::span<const ModeEntry> ModeList() { return gModes; }

const ModeEntry& FindMode(ProgramMode mode) { return Entry(mode); }

void RegisterModeWindow(ProgramMode mode, ModeRunner window) { Entry(mode).window = window; }

void RegisterModeHeadless(ProgramMode mode, ModeRunner headless) {
  Entry(mode).headless = headless;
}

bool HasModeWindow(ProgramMode mode) { return FindMode(mode).window != nullptr; }

Text ModeName(ProgramMode mode) { return FindMode(mode).name; }

std::vector<std::string> RelaunchArguments(ProgramMode mode) {
  const std::string_view word = FindMode(mode).relaunchWord;
  if (word.empty()) return {};
  return {std::string(kNoInstallWord), std::string(word)};
}

}  // namespace vormelt
