// The "File naming and placement configuration" dialog: the name template with its parameter
// help and Default button, the %DAT format, the sub-folder levels with their preview line, and
// the %FCC counter. It edits File Mode's settings only on Okay or Apply, and %FCC only when
// the user typed a value: a running capture counts on meanwhile, and an untouched field is stale.
#pragma once

#include <QDialog>
#include <array>

class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;

namespace vormelt {
struct FileModeSettings;
}

namespace vormelt::ui {

class FileNamingDialog : public QDialog {
  Q_OBJECT

 public:
  FileNamingDialog(FileModeSettings& settings, QWidget* parent = nullptr);

  // The buttons' commands, public so tests drive them without clicking.
  void restoreDefaultTemplate();
  void apply();
  void setLevel(int level, int choice);
  QString previewText() const;

 signals:
  // Okay or Apply wrote the settings; `customCountSet` when the user typed a new %FCC.
  void applied(bool customCountSet);

 private:
  void BuildWidgets();
  void UpdatePreview();

  FileModeSettings& settings_;
  QLineEdit* nameTemplate_ = nullptr;
  QLineEdit* dateTemplate_ = nullptr;
  QCheckBox* subfolders_ = nullptr;
  std::array<QComboBox*, 3> levels_{};
  QLineEdit* customCount_ = nullptr;
  QString shownCount_;  // %FCC as last shown or applied
  QLabel* preview_ = nullptr;
};

}  // namespace vormelt::ui
