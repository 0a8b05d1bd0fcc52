#include "common/paths.hpp"

#include <cstdlib>
#include <system_error>

namespace vormelt {

std::filesystem::path ConfigDirectory() {
  std::filesystem::path base;
  if (const char* xdg = std::getenv("XDG_CONFIG_HOME"); xdg && *xdg == '/') {
    base = xdg;
  } else if (const char* home = std::getenv("HOME"); home && *home) {
    base = std::filesystem::path(home) / ".config";
  } else {
    base = std::filesystem::temp_directory_path();
  }
  std::filesystem::path dir = base / "hollowbright" / "vormelt";
  std::error_code ignored;
  std::filesystem::create_directories(dir, ignored);
  return dir;
}

}  // namespace vormelt
