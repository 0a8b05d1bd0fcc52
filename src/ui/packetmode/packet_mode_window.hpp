// The Packet Mode window: the packet list over the store, the detail pane below it, the capture
// commands (Start, Stop, Clear, Choose Interface, Open capture file), filters, mode switching,
// tray icon and the close path. It drives engines; it never decodes or captures by itself.
#pragma once

#include <QMainWindow>
#include <QString>
#include <cstdint>
#include <filesystem>
#include <memory>

#include "common/types.hpp"

class QCloseEvent;
class QEvent;
class QTableView;

namespace vormelt {
// Declared, not included: moc cannot parse the text catalogue's enum that settings.hpp pulls in.
struct ProgramSettings;
class PacketStore;
class FilterSettings;
class CaptureSession;
}  // namespace vormelt

namespace vormelt::ui {

class PacketListModel;
class DumpFileCommands;
struct ModeWindowStart;
class ModeShell;

class PacketModeWindow : public QMainWindow {
  Q_OBJECT

 public:
  // `settings` outlives the window; the window writes it back (and to its file) on close.
  // `startMinimized` shows the window minimized; `autoListen` presses Start once it is shown.
  PacketModeWindow(ProgramSettings& settings, bool startMinimized, bool autoListen,
                   std::filesystem::path settingsFile = {}, QWidget* parent = nullptr);
  ~PacketModeWindow() override;

  // The commands of the buttons and menus, public so the program and tests can drive them.
  void clearList();
  // Starts reading a pcap/pcapng file into the list on the capture thread. Refused (with a
  // message, returning false) while a capture is listening.
  bool openCaptureFile(const QString& path);
  void openFilterSetup();
  void openHexViewer();
  void setFilteringEnabled(bool enabled);
  void setMatchCase(bool matchCase);
  // The automatic logging configuration window; OK restarts logging with what it holds.
  void openLoggingWindow();
  // "Find / Next" with `text` in the Find box (the button uses what the box holds).
  void findNext(const QString& text);

  // Whether a capture (live or file) is running now.
  bool isCapturing() const;
  // Start, Stop, Choose Interface, the capture-file dialog, switching, Help and the tray.
  ModeShell& shell() const;
  // Blocks until the running capture (if any) has ended, then refreshes once. For tests and
  // the close path; a live capture must have been stopped first or this waits for ever.
  void waitForCapture();
  // One tick of the refresh timer: new rows, counters, caption, gauge, messages.
  void refresh();

  // The "VORMELT - Stopped" / "%ld items - %s" caption for the current state.
  QString captionText() const;
  const PacketStore& store() const;
  PacketListModel& listModel() const;
  QTableView& packetList() const;
  // Saving options, dump files and capture files out.
  DumpFileCommands& dumpFiles() const;

 protected:
  void closeEvent(QCloseEvent* event) override;
  void changeEvent(QEvent* event) override;
  void showEvent(QShowEvent* event) override;
  // The list's row menu (mouse and keyboard) and its Delete key.
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

// Runs the window until it is closed; the mode registry's windowed entry for Packet Mode.
int RunPacketModeWindow(ProgramSettings& settings, const ModeWindowStart& start);

}  // namespace vormelt::ui
