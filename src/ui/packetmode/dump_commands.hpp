// The Packet Mode window's file commands beyond opening a capture: Saving options, Save to
// text file, Save as capture file and Load dump file. Asks for names, runs the engine's save
// or load off the window thread with a wait cursor, and reports failures in message boxes.
// Never touches widgets from a worker; never lets a worker outlive the engine it uses.
#pragma once

#include <QString>
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>

class QWidget;

namespace vormelt {
struct ProgramSettings;
class PacketModeEngine;
}  // namespace vormelt

namespace vormelt::ui {

class DumpFileCommands {
 public:
  // `window` owns this object (it parents the dialogs and receives the answers); `engine` and
  // `settings` outlive it.
  DumpFileCommands(QWidget& window, PacketModeEngine& engine, ProgramSettings& settings);
  // Asks a running load to stop and waits for any running job.
  ~DumpFileCommands();
  DumpFileCommands(const DumpFileCommands&) = delete;
  DumpFileCommands& operator=(const DumpFileCommands&) = delete;

  void EditSavingOptions();
  // The dialog forms ask for a name (and for a load, the file's form) first.
  void SaveDumpFileDialog();
  void SaveCaptureFileDialog();
  void LoadDumpFileDialog();
  // Start the job in the background; false (nothing started) while another job runs or, for
  // a load, while a capture is running.
  bool SaveDumpFile(const QString& path);
  bool SaveCaptureFile(const QString& path);
  bool LoadDumpFile(const QString& path);  // with the form and filter box kept in the settings

  bool Busy() const { return running_->load() > 0; }
  // Share of the running job done, 0..1; negative when nothing measurable runs.
  double Progress() const;
  // Called on the window thread when a job starts and when it has ended (after its message).
  std::function<void()> onBusyChanged;
  // Empties the list (and what shows its packets) before a dump file is loaded into it.
  std::function<void()> clearList;

 private:
  struct Job {
    std::atomic<std::uint64_t> done{0};
    std::atomic<std::size_t> packets{0};
    std::uint64_t total = 0;
    bool countsPackets = false;
    std::atomic<bool> cancel{false};
  };
  std::shared_ptr<Job> Begin(std::uint64_t total, bool countsPackets);
  void End();
  QString AskSaveName(const QString& filter, const QString& suffix, bool confirmOverwrite);

  QWidget& window_;
  PacketModeEngine& engine_;
  ProgramSettings& settings_;
  std::shared_ptr<std::atomic<int>> running_ = std::make_shared<std::atomic<int>>(0);
  std::shared_ptr<Job> job_;
};

}  // namespace vormelt::ui
