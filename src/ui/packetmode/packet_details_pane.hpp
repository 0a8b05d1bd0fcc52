// The decoded view of the selected packet under the Packet Mode list: header fields, the byte
// dump at the chosen data level, field-to-bytes selection, and the Hex viewer it feeds.
// It only shows what the decoder computes; it never changes a record.
#pragma once

#include <QWidget>
#include <cstdint>
#include <memory>

class QShowEvent;

namespace vormelt {
class PacketStore;
struct ProgramSettings;
}  // namespace vormelt

namespace vormelt::ui {

class HexViewerWindow;

class PacketDetailsPane : public QWidget {
  Q_OBJECT

 public:
  PacketDetailsPane(const PacketStore& store, ProgramSettings& settings,
                    QWidget* parent = nullptr);
  ~PacketDetailsPane() override;

  // Decodes the record at this store index and fills the pane (and the Hex viewer when open).
  void showPacket(std::uint32_t storeIndex);
  // Selects in the shown dump the characters of `length` frame bytes from `frameOffset` (a
  // Find match); nothing happens when they lie outside the dump's level.
  void selectFrameBytes(std::int32_t frameOffset, std::int32_t length);
  // Empties every field and the dumps (after Clear or when the selection goes away).
  void clearDetails();
  // Opens (or raises) the Hex viewer for the shown packet.
  void openHexViewer();
  // Saves pane and Hex viewer state into the settings (called by the window's close path).
  void saveState();

  // The Hex viewer, once it has been opened (null before).
  HexViewerWindow* hexViewer() const;

 signals:
  // The user agreed to delete an unreadable record from the list.
  void deleteRowRequested(std::uint32_t storeIndex);

 protected:
  // Reopens the Hex viewer the first time the pane is shown when it was open last time.
  void showEvent(QShowEvent* event) override;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace vormelt::ui
