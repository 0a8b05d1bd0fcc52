// vormelt: the desktop program. Reads its command line, then hands over to the start-up steps
// and the chosen mode window; it never decides anything about modes itself.
#include <QApplication>
#include <cstdio>
#include <span>
#include <string>

#include "app/startup.hpp"
#include "common/settings_store.hpp"
#include "ui/app_startup.hpp"

namespace {

// A service has no display, and the headless service run does not exist yet: say so plainly on
// stderr before any window system is touched.
bool RefuseServiceRun(const std::string& commandLine) {
  const vormelt::SettingsLoad load = vormelt::LoadSettings(vormelt::DefaultSettingsFile());
  const vormelt::StartupDecision decision = vormelt::DecideStartup(commandLine, load.settings);
  if (!decision.runAsService) return false;
  std::fprintf(stderr, "vormelt: %s\n", vormelt::Tr(vormelt::Text::ServiceNotAvailable, decision.language));
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  const std::span<const char* const> words(argv + 1, argc > 1 ? argc - 1 : 0);
  const std::string commandLine = vormelt::CommandLineText(words);
  if (RefuseServiceRun(commandLine)) return 1;

  QApplication app(argc, argv);
  QApplication::setApplicationName(QStringLiteral("vormelt"));
  QApplication::setOrganizationName(QStringLiteral("Hollowbright"));
  return vormelt::ui::RunDesktopProgram(commandLine);
}
