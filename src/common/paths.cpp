#include "common/paths.hpp"

#include <cstdlib>
#include <string_view>
#include <system_error>

namespace vormelt {
namespace {

// systemd sets these for a unit with ConfigurationDirectory=/StateDirectory=; they may list
// several folders separated by ':', the first is ours. Only absolute paths are trusted.
std::filesystem::path FromServiceManager(const char* variable) {
  const char* value = std::getenv(variable);
  if (!value || *value != '/') return {};
  const std::string_view text(value);
  return std::filesystem::path(text.substr(0, text.find(':')));
}

// $xdgVariable when absolute, else ~/<homeFallback>, else the temporary folder.
std::filesystem::path XdgBase(const char* xdgVariable, const char* homeFallback) {
  if (const char* xdg = std::getenv(xdgVariable); xdg && *xdg == '/') return xdg;
  if (const char* home = std::getenv("HOME"); home && *home) {
    return std::filesystem::path(home) / homeFallback;
  }
  return std::filesystem::temp_directory_path();
}

std::filesystem::path Created(std::filesystem::path dir) {
  std::error_code ignored;
  std::filesystem::create_directories(dir, ignored);
  return dir;
}

}  // namespace

std::filesystem::path ConfigDirectory() {
  if (auto dir = FromServiceManager("CONFIGURATION_DIRECTORY"); !dir.empty()) return Created(dir);
  return Created(XdgBase("XDG_CONFIG_HOME", ".config") / "hollowbright" / "vormelt");
}

std::filesystem::path StateDirectory() {
  if (auto dir = FromServiceManager("STATE_DIRECTORY"); !dir.empty()) return Created(dir);
  return Created(XdgBase("XDG_STATE_HOME", ".local/state") / "hollowbright" / "vormelt");
}

}  // namespace vormelt
