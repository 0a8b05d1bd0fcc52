// Where the program keeps its files: $XDG_CONFIG_HOME/hollowbright/vormelt/ (fallback
// ~/.config/hollowbright/vormelt/). The program folder is read-only on Linux, so settings,
// the install record and the current filter profiles all live here.
#pragma once

#include <filesystem>

namespace vormelt {

// The configuration folder; created on first use. Never throws: when it cannot be created the
// path is still returned and the first write there reports the failure.
std::filesystem::path ConfigDirectory();

}  // namespace vormelt
