// The two dialogs of Packet Mode's dump files: "Saving options" (what Save writes) and the
// load dialog that asks what form a file to load holds. They only edit the
// saving settings; saving and loading themselves belong to the engine.
#pragma once

#include <QDialog>

class QButtonGroup;
class QCheckBox;
class QComboBox;

namespace vormelt {
struct SavingSettings;
}

namespace vormelt::ui {

class SavingOptionsDialog final : public QDialog {
 public:
  SavingOptionsDialog(const SavingSettings& saving, QWidget* parent = nullptr);
  // `saving` with this dialog's choices put in.
  void ApplyTo(SavingSettings& saving) const;
  // Shows the dialog; on OK writes the choices into `saving` and returns true.
  static bool Edit(SavingSettings& saving, QWidget* parent);

 private:
  void UpdateEnabled();

  QCheckBox* saveData_ = nullptr;
  QButtonGroup* forms_ = nullptr;
  QComboBox* level_ = nullptr;
  QCheckBox* onlyListed_ = nullptr;
  QCheckBox* append_ = nullptr;
};

class DumpFormatDialog final : public QDialog {
 public:
  DumpFormatDialog(const SavingSettings& saving, QWidget* parent = nullptr);
  // The declared form (the renderer's DataForm value) and the filter box, into `saving`.
  void ApplyTo(SavingSettings& saving) const;
  // Shows the dialog; on OK keeps the answers in `saving` (loadForm, loadThroughFilters).
  static bool Ask(SavingSettings& saving, QWidget* parent);

 private:
  QButtonGroup* forms_ = nullptr;
  QCheckBox* throughFilters_ = nullptr;
};

}  // namespace vormelt::ui
