// The "Statistical Mode specific Settings" window: the maximum number of list items, checked
// against its bounds when applied, and what a full list gives up. It only edits a copy of the
// limits; the mode window hands them to the engine.
#pragma once

#include <QDialog>

#include "statistics/engine.hpp"

class QLineEdit;
class QRadioButton;

namespace vormelt::ui {

class StatisticsSettingsWindow : public QDialog {
 public:
  explicit StatisticsSettingsWindow(statistics::StatisticsLimits limits, QWidget* parent = nullptr);

  // The limits as applied by OK.
  statistics::StatisticsLimits limits() const { return limits_; }
  QLineEdit& maxItemsField() const { return *maxItems_; }
  QRadioButton& policyButton(statistics::VictimPolicy policy) const;

  // OK: a value outside 1..8192 asks whether to use the bound. Yes puts it in the field and
  // applies; No selects the field's text, gives it the focus and applies nothing.
  void accept() override;

 private:
  statistics::StatisticsLimits limits_;
  QLineEdit* maxItems_ = nullptr;
  QRadioButton* longestAgo_ = nullptr;
  QRadioButton* lowest_ = nullptr;
  QRadioButton* highest_ = nullptr;
};

}  // namespace vormelt::ui
