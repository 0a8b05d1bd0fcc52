// The "Graphical Packets Mode - Settings" dialog: every option of the picture that is not a
// key of its own. It edits a copy; the caller takes options() when it is accepted.
#pragma once

#include <QDialog>
#include <memory>

namespace vormelt {
// Declared, not included: moc cannot parse the text catalogue's enum that settings.hpp pulls in.
struct GraphicalSettings;
}  // namespace vormelt

namespace vormelt::ui {

class GraphicalSettingsWindow : public QDialog {
  Q_OBJECT

 public:
  GraphicalSettingsWindow(const GraphicalSettings& options, QWidget* parent = nullptr);
  ~GraphicalSettingsWindow() override;

  GraphicalSettings options() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace vormelt::ui
