// The File Mode window: the options, the ACK timeout and the folder, Start/Stop/Choose
// Interface, capture and dump files as sources, the filter and naming dialogs, the counters and
// busy indicator on a timer, and the files written this run, each of which opens or shows in its
// folder. It drives the engine and the capture; it never touches a stream itself.
#pragma once

#include <QMainWindow>
#include <QString>
#include <filesystem>
#include <memory>

#include "common/types.hpp"

class QCloseEvent;
class QTableWidget;

namespace vormelt {
// Declared, not included: moc cannot parse the text catalogue's enum that settings.hpp pulls in.
struct ProgramSettings;
namespace filemode {
class FileModeEngine;
}
}  // namespace vormelt

namespace vormelt::ui {

struct ModeWindowStart;
class ModeShell;

class FileModeWindow : public QMainWindow {
  Q_OBJECT

 public:
  // `settings` outlives the window; the window writes it back (and to its file) on close.
  FileModeWindow(ProgramSettings& settings, bool startMinimized, bool autoListen,
                 std::filesystem::path settingsFile = {}, QWidget* parent = nullptr);
  ~FileModeWindow() override;

  void chooseFolder();
  // Rebuilds the files of a pcap/pcapng file by its own clock; refused while listening.
  bool openCaptureFile(const QString& path);
  void processDumpFileDialog();
  void openFilterSetup();
  void openNamingDialog();
  void openSelectedFile();
  void showSelectedInFolder();

  // One tick of the shell: counters, busy indicator, status line, new files, messages.
  void refresh();
  bool isCapturing() const;
  // Start, Stop, Choose Interface, the capture-file dialog, switching, Help and the tray.
  ModeShell& shell() const;
  // Blocks until the running capture has ended, then refreshes (tests, the close path).
  void waitForCapture();

  QString statusText() const;
  // The message line under the list: why the last files could not be written, if any were not.
  QString messageText() const;
  filemode::FileModeEngine& engine() const;
  QTableWidget& fileList() const;

 protected:
  void closeEvent(QCloseEvent* event) override;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

// Runs the window until it is closed; the mode registry's windowed entry for File Mode.
int RunFileModeWindow(ProgramSettings& settings, const ModeWindowStart& start);

}  // namespace vormelt::ui
