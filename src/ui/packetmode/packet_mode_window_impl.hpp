// The inside of the Packet Mode window, shared by the files that build it, refresh it and run
// its commands. Nothing outside the window includes this.
#pragma once

#include "ui/packetmode/packet_mode_window.hpp"

#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QCloseEvent>
#include <QContextMenuEvent>
#include <QFile>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QMenu>
#include <QMenuBar>
#include <QProgressBar>
#include <QScreen>
#include <QScrollBar>
#include <QKeyEvent>
#include <QSplitter>
#include <QStatusBar>
#include <QStyle>
#include <QTableView>
#include <QTimer>
#include <QToolBar>
#include <algorithm>
#include <numeric>

#include "capture/mode_capture.hpp"
#include "capture/session.hpp"
#include "common/settings.hpp"
#include "filters/filter_profile.hpp"
#include "packetmode/packet_mode_engine.hpp"
#include "packets/format.hpp"
#include "packets/list_row.hpp"
#include "packets/store.hpp"
#include "ui/shell/dialogs.hpp"
#include "ui/packetmode/dump_commands.hpp"
#include "ui/shell/filter_setup_window.hpp"
#include "ui/packetmode/find_controller.hpp"
#include "ui/packetmode/logging_window.hpp"
#include "ui/packetmode/tcp_commands.hpp"
#include "ui/shell/mode_window.hpp"
#include "ui/packetmode/packet_context_menu.hpp"
#include "ui/packetmode/packet_details_pane.hpp"
#include "ui/packetmode/packet_list_model.hpp"
#include "ui/shell/qt_text.hpp"

namespace vormelt::ui::packetwindow {


inline constexpr int kRefreshIntervalMs = 10;
// The store fill gauge counts indices, like the item limit.
inline constexpr int kGaugeMaximum = 1'000'000;
inline constexpr int kFileProgressMaximum = 1000;
inline constexpr int kGaugeWidth = 160;
inline constexpr int kFindBoxWidth = 320;
inline constexpr QSize kPreferredSize{1280, 800};
// Share of the height the list gets over the detail pane when nothing was saved.
inline constexpr int kListStretch = 3;
inline constexpr int kDetailsStretch = 2;
// Keyboard-opened row menus appear just inside the list's top-left corner.
inline constexpr QPoint kKeyboardMenuOffset{5, 20};
// Column widths before the user has set any, in list column order.
inline constexpr std::array<int, kListColumnCount> kDefaultColumnWidths = {70,  60,  125, 125, 90, 110,
                                                                    190, 110, 120, 135, 135};

}  // namespace vormelt::ui::packetwindow

namespace vormelt::ui {

using namespace packetwindow;

struct PacketModeWindow::Impl : CaptureHooks {
  Impl(PacketModeWindow& owner, ProgramSettings& programSettings)
      : window(owner), settings(programSettings) {}

  PacketModeWindow& window;
  ProgramSettings& settings;
  bool autoListen = false;
  bool shownOnce = false;
  bool showingMessages = false;
  // New rows scroll into view until the user scrolls away from the end of the list.
  bool followNewRows = true;

  PacketModeEngine engine;
  PacketStore& store = engine.Store();
  ModeCapture& capture = engine.Capture();
  // After the engine: its jobs end before the engine they use goes.
  DumpFileCommands dumps{window, engine, settings};

  PacketListModel* model = nullptr;
  QTableView* list = nullptr;
  QWidget* listViewport = nullptr;  // compared by address only in the event filter
  PacketDetailsPane* details = nullptr;
  QSplitter* splitter = nullptr;
  QTimer refreshTimer;

  ModeShell* shell = nullptr;
  QAction* clearAction = nullptr;
  QAction* loadDumpAction = nullptr;
  QAction* saveDumpAction = nullptr;
  QAction* saveCaptureAction = nullptr;
  QAction* filterAction = nullptr;
  QAction* hexAction = nullptr;
  QCheckBox* applyFilters = nullptr;
  QCheckBox* matchCase = nullptr;
  QLineEdit* findText = nullptr;
  QPushButton* findButton = nullptr;
  QPushButton* cancelFindButton = nullptr;
  QProgressBar* findProgress = nullptr;
  FindController* finder = nullptr;
  std::int64_t logFailuresShown = 0;  // failure episodes of this logging run already shown

  QLabel* statusText = nullptr;
  QLabel* memoryText = nullptr;
  QProgressBar* gauge = nullptr;
  QProgressBar* fileProgress = nullptr;

  QAction* AddCommand(QMenu& menu, Text menuText, Text buttonText, QStyle::StandardPixmap icon,
                      void (PacketModeWindow::*command)()) {
    QAction* action = menu.addAction(QApplication::style()->standardIcon(icon), T(menuText));
    action->setIconText(T(buttonText));
    QObject::connect(action, &QAction::triggered, &window,
                     [this, command] { (window.*command)(); });
    return action;
  }

  QAction* AddOption(QMenu& menu, Text text, bool checked, bool* setting) {
    QAction* action = menu.addAction(T(text));
    action->setCheckable(true);
    action->setChecked(checked);
    QObject::connect(action, &QAction::toggled, &window, [setting](bool on) { *setting = on; });
    return action;
  }

  void BuildMenus();
  void BuildToolBar();
  void BuildList();
  void BuildCentralArea();
  void BuildStatusBar();
  void BuildFind(QToolBar& bar);
  void SelectStoreIndex(std::int32_t index);
  void StartLogging();
  void ApplyFilterProfile();
  void RestoreColumns();
  void SaveColumns();
  void UpdateControls();
  void UpdateCounters();
  void ShowPendingMessages();
  void ShowSelectedPacket();
  void ShowRowMenu(const QPoint& globalPos);
  void DeleteSelectedPacket();
  void DeletePacket(std::int32_t index);
  void BeginRefreshing();
  std::int32_t SelectedStoreIndex() const;

  bool StartOn(const CaptureTarget& target) override;
  void RestartOn(const CaptureTarget& target) override;
  void StopCapture() override;
  void QuitCapture() override;
  // Counts a restart still waiting for the old capture to end.
  bool Capturing() const override { return capture.Capturing(); }
  CaptureStatusSnapshot StatusSnapshot() const override { return capture.Status(); }
  std::vector<CaptureMessage> TakeMessages() override;
  std::uint64_t Drops() const override { return capture.Dropped(); }
  bool ReadingFile() const override { return capture.ReadingFile(); }
  bool Busy() const override { return dumps.Busy(); }
};

}  // namespace vormelt::ui
