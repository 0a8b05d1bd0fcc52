// Where the program keeps its files: $XDG_CONFIG_HOME/hollowbright/vormelt/ (fallback
// ~/.config/hollowbright/vormelt/). The program folder is read-only on Linux, so settings,
// the install record and the current filter profiles all live here. Under systemd the folders
// the service manager hands over ($CONFIGURATION_DIRECTORY, $STATE_DIRECTORY) come first.
#pragma once

#include <filesystem>

namespace vormelt {

// The configuration folder; created on first use. Never throws: when it cannot be created the
// path is still returned and the first write there reports the failure.
std::filesystem::path ConfigDirectory();

// The folder for what a headless run produces by itself (saved statistics lists):
// $STATE_DIRECTORY, else $XDG_STATE_HOME/hollowbright/vormelt (fallback
// ~/.local/state/hollowbright/vormelt). Created like ConfigDirectory.
std::filesystem::path StateDirectory();

}  // namespace vormelt
