#include "support/ui/widgets.hpp"

#include "ui/shell/mode_switch.hpp"

namespace vormelt::test {

MessageLog::MessageLog() {
  ui::SetMessageHandler([this](const ui::MessageRequest& request) {
    asked.push_back(request);
    if (answers.empty()) return answer.value_or(request.onDismiss);
    const MessageAnswer next = answers.front();
    answers.pop_front();
    return next;
  });
  ui::SetProgramLauncher([this](const QString& program, const QStringList& arguments) {
    launches.push_back(QStringList{program} + arguments);
    return true;
  });
}

MessageLog::~MessageLog() {
  ui::SetMessageHandler({});
  ui::SetProgramLauncher({});
}

}  // namespace vormelt::test
