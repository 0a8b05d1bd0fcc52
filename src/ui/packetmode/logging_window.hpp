// The configuration window for automatic packet logging: every setting of LoggingSettings,
// durations as days, hours, minutes and seconds, the folder chooser and the name template's
// Default button. It edits a copy; OK checks it (LoggingProblem) before handing it back.
#pragma once

#include <QDialog>
#include <array>
#include <cstdint>

#include "common/settings.hpp"

class QButtonGroup;
class QCheckBox;
class QComboBox;
class QLineEdit;
class QSpinBox;

namespace vormelt::ui {

// Four spin boxes that together hold one count of seconds.
class DurationBox : public QWidget {
 public:
  explicit DurationBox(QWidget* parent = nullptr);
  void setSeconds(std::int64_t seconds);
  std::int64_t seconds() const;

 private:
  std::array<QSpinBox*, 4> parts_{};  // days, hours, minutes, seconds
};

class LoggingWindow : public QDialog {
 public:
  explicit LoggingWindow(const LoggingSettings& settings, QWidget* parent = nullptr);

  // The settings as OK applied them.
  const LoggingSettings& settings() const { return settings_; }
  // OK: a problem is shown and the window stays open.
  void accept() override;

 private:
  void Load(const LoggingSettings& s);
  LoggingSettings Collect() const;
  void ChooseFolder();
  void UpdateEnabled();

  LoggingSettings settings_;
  QCheckBox* enabled_ = nullptr;
  QSpinBox* interval_ = nullptr;
  QCheckBox* clearAfter_ = nullptr;
  QButtonGroup* forms_ = nullptr;
  QComboBox* level_ = nullptr;
  QLineEdit* nameTemplate_ = nullptr;
  QLineEdit* folder_ = nullptr;
  QButtonGroup* methods_ = nullptr;
  QSpinBox* maxKilobytes_ = nullptr;
  DurationBox* maxSpan_ = nullptr;
  QLineEdit* singleFile_ = nullptr;
  QCheckBox* deleteOld_ = nullptr;
  DurationBox* maxAge_ = nullptr;
  DurationBox* ageCheck_ = nullptr;
};

}  // namespace vormelt::ui
