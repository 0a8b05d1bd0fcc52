// The mode table, in the order a command line's mode words are tried. Windows are filled in at
// start-up by the desktop program; the rest of the row never changes.
#include "app/modes.hpp"

#include <array>

#include "app/cli.hpp"
#include "app/headless_modes.hpp"
#include "app/startup.hpp"

namespace vormelt {
namespace {

constexpr std::string_view kNoInstallWord = "/NoInstall";

using D = StartupDecision;

// name, mode-choice button; keyword and its flag, rememberable; relaunch word, blinking
// warning; headless runner; vormelt-cli command.
std::array<ModeEntry, 5> gModes = {{
    {ProgramMode::Packet, Text::ModePacket, Text::ModePacket,
     "packet_mode", &D::packetMode, true, "/Packet_Mode", false,
     RunPacketHeadless, "packets", cli::RunPackets},
    {ProgramMode::File, Text::ModeFile, Text::ModeFile,
     "file_mode", &D::fileMode, true, "/File_Mode", false,
     RunFileHeadless, "files", cli::RunFiles},
    {ProgramMode::GraphicalPackets, Text::ModeGraphicalPackets, Text::ModeChoiceGraphicalButton,
     "gp_mode", &D::graphicalPacketsMode, true, "/GP_Mode", true,
     nullptr, {}, nullptr},
    {ProgramMode::Statistical, Text::ModeStatistical, Text::ModeStatistical,
     "statistical_mode", &D::statisticalMode, true, "/Statistical_Mode", false,
     RunStatisticalHeadless, "stats", cli::RunStats},
    {ProgramMode::Decoder, Text::ModeDecoder, Text::ModeDecoder,
     "hb_decoder", &D::decoder, false, {}, false,
     nullptr, {}, nullptr},
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

bool HasModeWindow(ProgramMode mode) { return FindMode(mode).window != nullptr; }

Text ModeName(ProgramMode mode) { return FindMode(mode).name; }

std::vector<std::string> RelaunchArguments(ProgramMode mode) {
  const std::string_view word = FindMode(mode).relaunchWord;
  if (word.empty()) return {};
  return {std::string(kNoInstallWord), std::string(word)};
}

}  // namespace vormelt
