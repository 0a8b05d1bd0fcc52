// What every mode window shares, built once: the Start, Stop, Choose Interface and Open capture
// file commands and when each may be used, the interface-first question, the capture-file
// dialog and its folder, the tray, the "Switch modes" menu from the mode registry, the Help and
// About entries, and the close path (stop, write the settings to the file the run was started
// with, relaunch into a chosen mode, quit). A mode window keeps only what is its own and lets
// the shell reach its capture through CaptureHooks.
#pragma once

#include <QIcon>
#include <QObject>
#include <QPixmap>
#include <QString>
#include <QTimer>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "capture/session.hpp"
#include "capture/source.hpp"
#include "common/message.hpp"
#include "common/settings.hpp"
#include "common/texts.hpp"
#include "common/types.hpp"

class QAction;
class QCloseEvent;
class QMenu;
class QMenuBar;
class QPushButton;
class QSystemTrayIcon;
class QWidget;

namespace vormelt::ui {

// The program icon of every window and tray. Loading it also makes sure the picture resources
// of this library are registered.
QIcon ProgramIcon();
// The maker's logo of the mode choice.
QPixmap MakerLogo();

// How the shell drives a mode's capture. Each mode window answers with its own engine.
class CaptureHooks {
 public:
  virtual ~CaptureHooks() = default;
  // Starts on a live interface or a capture file; false when it could not begin.
  virtual bool StartOn(const CaptureTarget& target) = 0;
  // Choose Interface while listening: the running capture ends, one on `target` follows.
  virtual void RestartOn(const CaptureTarget& target) = 0;
  virtual void StopCapture() = 0;
  // The window is closing: ends the capture for good and waits for it.
  virtual void QuitCapture() = 0;
  // Listening, reading a file, or between the two halves of a restart.
  virtual bool Capturing() const = 0;
  virtual CaptureStatusSnapshot StatusSnapshot() const = 0;
  // What the capture threads want shown, taken once.
  virtual std::vector<CaptureMessage> TakeMessages() = 0;
  // Frames the kernel dropped in the current (or last) live capture.
  virtual std::uint64_t Drops() const = 0;

  // A file, not an interface, is being read: Choose Interface then waits for the next Start.
  virtual bool ReadingFile() const { return StatusSnapshot().file; }
  // Other work that owns the data (a dump file loading): Start and Open wait for it.
  virtual bool Busy() const { return false; }
  // Whether Start needs a chosen interface first (a mode may listen on every address).
  virtual bool StartsOnChosenInterface() const { return true; }
  // A command changed the capture: show it now rather than at the next tick.
  virtual void CaptureChanged() {}
  // The mode's own refresh, for a mode content with the shell's tick.
  virtual void Ticked() {}
};

// What a mode window is started with.
struct ModeWindowStart {
  bool startMinimized = false;
  bool autoListen = false;
  // The settings file of this run; empty means the default one.
  std::filesystem::path settingsFile;
  // "--read FILE": the window reads this capture file as it shows, instead of listening.
  std::string captureFile;
};


class ModeShell;
// Opens `start.captureFile`, when there is one, once the event loop runs, as Open capture file
// would.
void OpenCaptureFileWhenShown(ModeShell& shell, const ModeWindowStart& start);

class ModeShell : public QObject {
 public:
  // How often the commands follow the capture's state and its messages are shown.
  static constexpr int kTickMilliseconds = 100;

  // `window`, `capture` and `settings` outlive the shell. `title` names the window and its
  // tray icon; `help` is the mode's list of keys and commands.
  ModeShell(QWidget& window, CaptureHooks& capture, ProgramSettings& settings, ProgramMode mode,
            Text title, Text help, std::filesystem::path settingsFile);
  ~ModeShell() override;

  // The commands; menus, tool bars and buttons show these actions.
  QAction& startAction() const { return *start_; }
  QAction& stopAction() const { return *stop_; }
  QAction& chooseAction() const { return *choose_; }
  QAction& openAction() const { return *open_; }
  // A push button that runs `action` and is enabled with it.
  static QPushButton* Button(QAction& action, QWidget* parent);

  // Back where the mode's window was last closed (its size from before this call when it has
  // no place kept yet), minimized and pressing Start once the event loop runs, as the start-up
  // asked.
  void StartAsAsked(bool startMinimized, bool autoListen);
  void Start();
  void Stop();
  void ChooseInterface();
  void OpenCaptureFileDialog();
  // Refused, with a notice, while a capture runs.
  bool OpenCaptureFile(const QString& path);
  // Asks the switch question; a switch that closes this window stops, closes and relaunches.
  void SwitchTo(ProgramMode target);
  // Exit from a menu or the tray: closes even when closing would hide to the tray.
  void Exit();

  // "Switch modes" entries for every other mode of the registry, and the Help entries.
  void AddSwitchEntries(QMenu& menu);
  void AddHelpEntries(QMenu& menu);
  void AddSwitchAndHelpMenus(QMenuBar& bar);
  void ShowHelp();
  void ShowAbout();

  // Commands enabled as the capture stands now, and its messages shown. Runs on the tick.
  void Tick();
  void SetTrayTip(const QString& tip);

  // The window's closeEvent starts with this: false when the window stays (hidden to the tray,
  // or already closing). After it the capture has quit, and the window keeps what it wants
  // kept in the settings before EndClose writes them, relaunches and quits.
  bool BeginClose(QCloseEvent& event);
  void EndClose(QCloseEvent& event);

  const std::filesystem::path& settingsFile() const { return settingsFile_; }

 private:
  std::string& CaptureFolder();
  // Where this mode keeps its window's place between runs.
  WindowState& Place();
  void RestorePlace();
  void SavePlace();

  QWidget& window_;
  CaptureHooks& capture_;
  ProgramSettings& settings_;
  ProgramMode mode_;
  Text help_;
  std::filesystem::path settingsFile_;
  QAction* start_;
  QAction* stop_;
  QAction* choose_;
  QAction* open_;
  QSystemTrayIcon* tray_ = nullptr;
  QTimer tick_;
  std::int32_t pendingSwitch_ = kNoPendingSwitch;
  bool exitRequested_ = false;
  bool closing_ = false;
  bool showingMessages_ = false;
};

}  // namespace vormelt::ui
