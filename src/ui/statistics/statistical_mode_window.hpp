// The Statistical Mode window: the three lists over the statistics engine (one shown at a
// time), Start/Stop/Clear/Choose Interface, capture files, saving a list, the settings window
// and mode switching. It drives the engine and the capture; it never counts by itself.
#pragma once

#include <QMainWindow>
#include <QString>
#include <filesystem>
#include <memory>

#include "common/types.hpp"

class QCloseEvent;
class QTableView;

namespace vormelt {
// Declared, not included: moc cannot parse the text catalogue's enum that settings.hpp pulls in.
struct ProgramSettings;
namespace statistics {
class StatisticsEngine;
struct StatisticsLimits;
enum class StatisticsList : std::uint8_t;
enum class SaveFormat : std::uint8_t;
}  // namespace statistics
}  // namespace vormelt

namespace vormelt::ui {

class StatisticsListModel;
struct ModeWindowStart;
class ModeShell;

class StatisticalModeWindow : public QMainWindow {
  Q_OBJECT

 public:
  // `settings` outlives the window; the window writes it back (and to its file) on close.
  // `limits` are the list size and replacement policy to start with.
  StatisticalModeWindow(ProgramSettings& settings, const statistics::StatisticsLimits& limits,
                        bool startMinimized, bool autoListen,
                        std::filesystem::path settingsFile = {}, QWidget* parent = nullptr);
  ~StatisticalModeWindow() override;

  // Asks "Clear all statistical data?" first; Yes empties the tables and the lists.
  void clearAll();
  // Counts a pcap/pcapng file on the capture thread; refused while a capture runs.
  bool openCaptureFile(const QString& path);
  void saveListDialog(statistics::SaveFormat format);
  // Writes the visible list; false (after telling the user) when the file cannot be written.
  bool saveList(const QString& path, statistics::SaveFormat format);
  void showList(statistics::StatisticsList list);
  void openSettings();

  // One updater pass: the visible list's new and changed rows, the status line, messages.
  void refresh();
  bool isCapturing() const;
  // Start, Stop, Choose Interface, the capture-file dialog, switching, Help and the tray.
  ModeShell& shell() const;
  // Blocks until the running capture has ended, then refreshes (tests, the close path).
  void waitForCapture();

  QString statusText() const;
  statistics::StatisticsList visibleList() const;
  statistics::StatisticsLimits limits() const;
  statistics::StatisticsEngine& engine() const;
  StatisticsListModel& model(statistics::StatisticsList list) const;
  QTableView& view(statistics::StatisticsList list) const;

 protected:
  void closeEvent(QCloseEvent* event) override;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

// Runs the window until it is closed; the mode registry's windowed entry for Statistical Mode.
int RunStatisticalModeWindow(ProgramSettings& settings, const ModeWindowStart& start);

}  // namespace vormelt::ui
