// vormelt: the desktop program, and the service when started with "-service". Reads its command
// line, then hands over to the start-up steps and the chosen mode window, or to the headless
// service run; it never decides anything about modes itself.
#include <QApplication>
#include <span>
#include <string>

#include "app/service.hpp"
#include "app/startup.hpp"
#include "common/settings_store.hpp"
#include "ui/shell/app_startup.hpp"

int main(int argc, char** argv) {
  const std::span<const char* const> words(argv + 1, argc > 1 ? argc - 1 : 0);
  const std::string commandLine = vormelt::CommandLineText(words);
  // Read once: reading moves a damaged file aside, so a second reading would find nothing
  // wrong and the user would never hear of it.
  const vormelt::SettingsLoad load = vormelt::LoadSettings(vormelt::DefaultSettingsFile());
  // A service has no display: it must be decided before any window system is touched.
  if (vormelt::DecideStartup(commandLine, load.settings).runAsService) {
    return vormelt::RunService(commandLine, load);
  }

  QApplication app(argc, argv);
  QApplication::setApplicationName(QStringLiteral("vormelt"));
  QApplication::setOrganizationName(QStringLiteral("Hollowbright"));
  return vormelt::ui::RunDesktopProgram(commandLine, load);
}
