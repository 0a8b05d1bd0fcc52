#include "support/ui/widgets.hpp"

#include <QByteArray>
#include <QTest>

#include "ui/mode_switch.hpp"

namespace vormelt::test {

MessageLog::MessageLog() {
  ui::SetMessageHandler([this](const ui::MessageRequest& request) {
    asked.push_back(request);
    if (answers.empty()) return answer.value_or(request.onDismiss);
    const Answer next = answers.front();
    answers.pop_front();
    return next;
  });
  ui::SetProgramLauncher([this](const QString& program, const QStringList& arguments) {
    launches.push_back(QStringList{program} + arguments);
    return launchSucceeds;
  });
}

MessageLog::~MessageLog() {
  ui::SetMessageHandler({});
  ui::SetProgramLauncher({});
}

int RunWidgetTests(QObject& tests, int argc, char** argv, const SaveScreenshot& save) {
  QString screenshot;
  std::vector<char*> testArgs;
  for (int i = 0; i < argc; ++i) {
    if (QByteArray(argv[i]) == "--screenshot" && i + 1 < argc) {
      screenshot = QString::fromLocal8Bit(argv[++i]);
    } else {
      testArgs.push_back(argv[i]);
    }
  }
  int failures = QTest::qExec(&tests, static_cast<int>(testArgs.size()), testArgs.data());
  if (!screenshot.isEmpty() && save && !save(screenshot)) ++failures;
  return failures;
}

}  // namespace vormelt::test
