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

// The unit treats this status as final (RestartPreventExitStatus), so a service that cannot run
// is not restarted in a loop (78 is EX_CONFIG).
constexpr int kServiceUnavailable = 78;

// A service has no display, and the headless service run does not exist yet: say so plainly on
// stderr before any window system is touched.
bool RefuseServiceRun(const std::string& commandLine, const vormelt::SettingsLoad& load) {
  const vormelt::StartupDecision decision = vormelt::DecideStartup(commandLine, load.settings);
  if (!decision.runAsService) return false;
  const std::string problem = vormelt::LoadProblemMessage(load, decision.language);
  if (!problem.empty()) std::fprintf(stderr, "vormelt: %s\n", problem.c_str());
  std::fprintf(stderr, "vormelt: %s\n", vormelt::Tr(vormelt::Text::ServiceNotAvailable, decision.language));
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  const std::span<const char* const> words(argv + 1, argc > 1 ? argc - 1 : 0);
  const std::string commandLine = vormelt::CommandLineText(words);
  // Read once: reading moves a damaged file aside, so a second reading would find nothing
  // wrong and the user would never hear of it.
  const vormelt::SettingsLoad load = vormelt::LoadSettings(vormelt::DefaultSettingsFile());
  if (RefuseServiceRun(commandLine, load)) return kServiceUnavailable;

  QApplication app(argc, argv);
  QApplication::setApplicationName(QStringLiteral("vormelt"));
  QApplication::setOrganizationName(QStringLiteral("Hollowbright"));
  return vormelt::ui::RunDesktopProgram(commandLine, load);
}
