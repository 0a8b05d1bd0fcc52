// The switch-modes question and the relaunch. A switch always starts a new process: the
// windows of one process never change mode, so nothing here touches the asking window.
#include "ui/shell/mode_switch.hpp"

#include <QCoreApplication>
#include <QProcess>

#include "app/startup.hpp"
#include "ui/shell/dialogs.hpp"
#include "ui/shell/qt_text.hpp"

namespace vormelt::ui {
namespace {

ProgramLauncher& Launcher() {
  static ProgramLauncher launcher;
  return launcher;
}

SwitchDecision ToDecision(SwitchStep step) {
  switch (step) {
    case SwitchStep::RelaunchAlongside: return SwitchDecision::RelaunchAndKeepRunning;
    case SwitchStep::CloseAndRelaunch: return SwitchDecision::CloseThenRelaunch;
    case SwitchStep::Nothing: break;
  }
  return SwitchDecision::Cancel;
}

}  // namespace

bool AskGraphicalWarning(QWidget* parent) {
  MessageRequest request;
  request.caption = T(Text::ProgramTitle);
  request.text = FromCrLf(Tr(Text::GraphicalWarning, Language()));
  request.icon = MessageIcon::Question;
  request.buttons = MessageButtons::YesNo;
  request.onDismiss = MessageAnswer::No;
  return ShowMessage(parent, request) == MessageAnswer::Yes;
}

SwitchDecision AskSwitchModes(QWidget* parent, ProgramSettings& settings, ProgramMode from,
                              ProgramMode to) {
  const bool warningAsked = NeedsGraphicalWarning(to, settings);
  if (warningAsked && !AskGraphicalWarning(parent)) return SwitchDecision::Cancel;
  MessageRequest request;
  request.caption = T(Text::SwitchModesCaption);
  request.text = FromCrLf(SwitchModesMessage(to, from, Language()));
  request.icon = MessageIcon::Question;
  request.buttons = MessageButtons::YesNoCancel;
  request.onDismiss = MessageAnswer::Cancel;
  const SwitchDecision decision = ToDecision(AfterSwitchQuestion(ShowMessage(parent, request)));
  // Only a switch that goes ahead counts as having heeded the warning; cancelled, it is asked
  // again next time.
  if (warningAsked && decision != SwitchDecision::Cancel) {
    settings.graphicalWarningAcknowledged = true;
  }
  return decision;
}

SwitchDecision SwitchModesFrom(QWidget* window, ProgramSettings& settings, ProgramMode from,
                               ProgramMode to) {
  if (!HasModeWindow(to)) {
    ShowNotice(window, Text::ProgramTitle, FromCrLf(ModeNotAvailableMessage(to, Language())),
               MessageIcon::Information);
    return SwitchDecision::Cancel;
  }
  const SwitchDecision decision = AskSwitchModes(window, settings, from, to);
  if (decision == SwitchDecision::RelaunchAndKeepRunning) Relaunch(to);
  return decision;
}

bool Relaunch(ProgramMode target) {
  QStringList arguments;
  for (const std::string& word : RelaunchArguments(target)) {
    arguments << QString::fromStdString(word);
  }
  if (arguments.isEmpty()) return false;
  return LaunchProgram(QCoreApplication::applicationFilePath(), arguments);
}

void SetProgramLauncher(ProgramLauncher launcher) { Launcher() = std::move(launcher); }

bool LaunchProgram(const QString& program, const QStringList& arguments) {
  if (Launcher()) return Launcher()(program, arguments);
  return QProcess::startDetached(program, arguments);
}

}  // namespace vormelt::ui
