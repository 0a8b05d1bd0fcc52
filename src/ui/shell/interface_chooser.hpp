// The "Choose a network interface" window: one row per host address (Sockets) and per capture
// adapter, and the choice written back into the interface settings on OK. It only chooses; it
// never starts, stops or restarts a capture.
#pragma once

#include <QDialog>
#include <memory>

class QTreeWidget;

namespace vormelt {
// Declared, not included: moc cannot parse the text catalogue's enum that settings.hpp pulls in.
struct ProgramSettings;
struct InterfaceList;
struct CaptureMessage;
}  // namespace vormelt

namespace vormelt::ui {

// Shows a message queued by a capture (or the interface list) in the run's language.
void ShowCaptureMessage(QWidget* parent, const CaptureMessage& message);

class InterfaceChooser : public QDialog {
  Q_OBJECT

 public:
  // The list's columns: the three shown ones, then the hidden device name and kind marker.
  enum Column { TypeColumn = 0, NameColumn, AddressColumn, DeviceColumn, MarkerColumn };

  // Shows `interfaces` (a list without a failure); OK writes the chosen row into `settings`.
  InterfaceChooser(ProgramSettings& settings, const InterfaceList& interfaces,
                   QWidget* parent = nullptr);
  ~InterfaceChooser() override;

  // Lists the host's interfaces and runs the chooser modally. When the host's addresses cannot
  // be read the problem is shown and nothing is chosen. True when OK wrote a choice.
  static bool Choose(ProgramSettings& settings, QWidget* parent);

  QTreeWidget& list() const;
  // OK: with no row selected asks for one and stays open; otherwise stores the row and closes.
  void accept() override;

 private:
  void BuildWidgets();
  void Fill(const InterfaceList& interfaces);
  void SelectCurrentChoice();

  ProgramSettings& settings_;
  QTreeWidget* list_ = nullptr;
};

}  // namespace vormelt::ui
