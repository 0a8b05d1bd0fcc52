// The Graphical Packets Mode window: a black surface that shows the scene, the start surface
// with its texts and buttons, the keys, notices, help and About, full-screen states, the
// tray tip and the captures (one per interface, or a capture file replayed at its pace).
// Drawing is driven by a ~60 Hz timer, never by packets.
#pragma once

#include <QRect>
#include <QString>
#include <QWidget>
#include <cstdint>
#include <filesystem>
#include <memory>

class QCloseEvent;
class QKeyEvent;
class QMouseEvent;
class QPaintEvent;
class QResizeEvent;

namespace vormelt {
// Declared, not included: moc cannot parse the text catalogue's enum that settings.hpp pulls in.
struct ProgramSettings;
namespace graphical {
class Scene;
}  // namespace graphical
}  // namespace vormelt

namespace vormelt::ui {

struct ModeWindowStart;

class GraphicalModeWindow : public QWidget {
  Q_OBJECT

 public:
  // The frame timer's period: 60 frames a second.
  static constexpr int kFrameMilliseconds = 16;
  // How often the host's addresses are looked at for new and vanished ones.
  static constexpr int kAddressWatchMilliseconds = 1000;

  GraphicalModeWindow(ProgramSettings& settings, bool startMinimized, bool autoListen,
                      std::filesystem::path settingsFile = {}, QWidget* parent = nullptr);
  ~GraphicalModeWindow() override;

  // Leaves the start surface and listens on every address of the host (Raw Sockets) or on
  // the chosen adapter.
  void startListening();
  void stopListening();
  // Replays a pcap/pcapng file at its recorded pace times the replay speed.
  bool openCaptureFile(const QString& path);
  void openCaptureFileDialog();
  void openSettings();
  void toggleInterfaceKind();
  void switchModes(int targetMode);

  // One frame: take what the captures gathered, advance the scene, repaint.
  void frame();
  bool isCapturing() const;
  // The notice on the surface now, empty when none.
  QString notice() const;
  QString trayTip() const;
  graphical::Scene& scene() const;
  // Where the help shows on the start surface (as last drawn); empty when it does not.
  QRect helpArea() const;
  // Shows `text` on the surface for four seconds.
  void showNotice(const QString& text);

 protected:
  void paintEvent(QPaintEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;
  void mousePressEvent(QMouseEvent* event) override;
  void mouseMoveEvent(QMouseEvent* event) override;
  void resizeEvent(QResizeEvent* event) override;
  void closeEvent(QCloseEvent* event) override;
  void contextMenuEvent(QContextMenuEvent* event) override;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

// Runs the window until it is closed; the mode registry's windowed entry. A capture file
// given on the command line ("--read FILE") is replayed at once.
int RunGraphicalModeWindow(ProgramSettings& settings, const ModeWindowStart& start,
                           const QString& captureFile);

}  // namespace vormelt::ui
