// The filter setup window of Packet Mode and File Mode: edits address ranges, ports, protocols,
// sizes and text lists, hands them to FilterSettings on OK/Apply and keeps the mode's profile.
// The editing rules live in packetmode/filter_window_model; this file only wires controls.
#pragma once

#include <QDialog>
#include <QString>
#include <memory>

namespace vormelt {
// Declared, not included: the headers behind these pull in the text catalogue, which moc
// does not read.
class FilterSettings;
enum class FilterMode;
enum class TextList;
struct WindowState;
}  // namespace vormelt

namespace vormelt::ui {

class FilterSetupWindow : public QDialog {
  Q_OBJECT

 public:
  // Fills itself from the mode's current profile (silently falling back to what `settings`
  // holds). `filteringEnabled` is the state of "Apply filters to incoming packets": when it is
  // off and changes were applied, closing asks whether to switch it on. `place` (may be null)
  // is where the mode keeps this window's place among its settings: it opens there and is
  // given the place it had when it closes.
  FilterSetupWindow(FilterSettings& settings, FilterMode mode, bool filteringEnabled,
                    QWidget* parent = nullptr, WindowState* place = nullptr);
  ~FilterSetupWindow() override;

  // After the window has closed: whether OK or Apply handed new settings over, and whether the
  // user answered Yes to "Enable filtering?" (the caller then switches filtering on).
  bool changesApplied() const;
  bool enableFilteringRequested() const;

  // The commands behind the buttons, public so tests drive them without clicking.
  void addRange();
  void removeSelectedRange();
  void addText(TextList list);
  void removeText(TextList list);
  void clearAllFields();
  // Builds every list from the controls, hands it to FilterSettings and saves the current
  // profile. Returns false when the profile could not be written (the settings still apply).
  bool apply();
  bool loadProfileFile(const QString& path);
  bool saveProfileFile(const QString& path);
  void resolve();
  void reverseResolve();
  void copyToFilters();
  // True while a host name look-up runs on its worker thread.
  bool lookupInProgress() const;

  void done(int result) override;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace vormelt::ui
