// Switching a running mode window to another mode: the three-way question (after the blinking
// warning where needed) and the relaunch of this program in the target mode. A mode never
// changes inside a process; this file never closes windows or stops captures itself.
#pragma once

#include <QStringList>
#include <functional>

#include "app/startup.hpp"
#include "common/settings.hpp"
#include "common/types.hpp"
#include "ui/shell/dialogs.hpp"

class QWidget;

namespace vormelt::ui {

// What the asking window must do after the question.
enum class SwitchDecision {
  Cancel,                  // nothing
  RelaunchAndKeepRunning,  // Relaunch(target) now; this window goes on
  CloseThenRelaunch,       // stop capture, remember the target as pending, run the close path
                           // (save, write settings, Relaunch(target), quit)
};

// Asks "Switch modes?" for going from `from` to `to`. Going to Graphical Packets Mode asks the
// blinking warning first unless `settings` records it as acknowledged; declining it cancels.
// The warning is marked acknowledged in `settings` only when the switch then goes ahead.
SwitchDecision AskSwitchModes(QWidget* parent, ProgramSettings& settings, ProgramMode from,
                              ProgramMode to);

// A mode window's "Switch modes" menu: a notice when `to` has no window in this program (a
// switch would leave the user with none), else AskSwitchModes. A relaunch alongside is done
// here; the caller acts on CloseThenRelaunch (stop, remember the target, close) and on nothing
// else.
SwitchDecision SwitchModesFrom(QWidget* window, ProgramSettings& settings, ProgramMode from,
                               ProgramMode to);

// Asks the blinking-warning question alone (mode choice and switch share it); true = go on.
bool AskGraphicalWarning(QWidget* parent);

// Starts this program file again in `target` (a mode 0..3) as a separate process. False when
// the target has no relaunch words or the program could not be started.
bool Relaunch(ProgramMode target);

// Starts a program; tests replace it so no process is spawned. An empty launcher restores
// QProcess::startDetached.
using ProgramLauncher = std::function<bool(const QString& program, const QStringList& arguments)>;
void SetProgramLauncher(ProgramLauncher launcher);
// Starts `program` with `arguments` through the current launcher.
bool LaunchProgram(const QString& program, const QStringList& arguments);

}  // namespace vormelt::ui
