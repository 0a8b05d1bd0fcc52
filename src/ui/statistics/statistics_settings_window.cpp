// The settings window of Statistical Mode. The field is read the way a C program reads a
// signed number (leading digits, anything else 0), so text that is no number asks the
// lower-bound question rather than being dropped silently.
#include "ui/statistics/statistics_settings_window.hpp"

#include <QDialogButtonBox>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QVBoxLayout>
#include <cstdlib>

#include "ui/shell/dialogs.hpp"
#include "ui/shell/qt_text.hpp"

namespace vormelt::ui {

using statistics::VictimPolicy;

StatisticsSettingsWindow::StatisticsSettingsWindow(statistics::StatisticsLimits limits,
                                                   QWidget* parent)
    : QDialog(parent), limits_(limits) {
  setWindowTitle(T(Text::StatsSettingsTitle));
  auto* layout = new QVBoxLayout(this);
  layout->addWidget(new QLabel(T(Text::StatsMaxItemsLabel), this));
  maxItems_ = new QLineEdit(QString::number(limits.maxItems), this);
  layout->addWidget(maxItems_);
  layout->addWidget(new QLabel(FromCrLf(Tr(Text::StatsMaxItemsHint, Language())), this));

  auto* group = new QGroupBox(T(Text::StatsPolicyQuestion), this);
  auto* groupLayout = new QVBoxLayout(group);
  longestAgo_ = new QRadioButton(T(Text::StatsPolicyLongestAgo), group);
  lowest_ = new QRadioButton(T(Text::StatsPolicyLowest), group);
  highest_ = new QRadioButton(T(Text::StatsPolicyHighest), group);
  for (QRadioButton* button : {longestAgo_, lowest_, highest_}) groupLayout->addWidget(button);
  policyButton(limits.policy).setChecked(true);
  layout->addWidget(group);

  auto* buttons = new QDialogButtonBox(this);
  buttons->addButton(T(Text::ChooserOk), QDialogButtonBox::AcceptRole);
  buttons->addButton(T(Text::ChooserCancel), QDialogButtonBox::RejectRole);
  connect(buttons, &QDialogButtonBox::accepted, this, &StatisticsSettingsWindow::accept);
  connect(buttons, &QDialogButtonBox::rejected, this, &StatisticsSettingsWindow::reject);
  layout->addWidget(buttons);
}

QRadioButton& StatisticsSettingsWindow::policyButton(VictimPolicy policy) const {
  switch (policy) {
    case VictimPolicy::Lowest: return *lowest_;
    case VictimPolicy::Highest: return *highest_;
    case VictimPolicy::LongestAgo: break;
  }
  return *longestAgo_;
}

void StatisticsSettingsWindow::accept() {
  const long long value = std::atoll(maxItems_->text().trimmed().toLatin1().constData());
  if (value < 1 || value > statistics::kTableCapacity) {
    const bool low = value < 1;
    MessageRequest question;
    question.caption = T(Text::StatsInvalidValueCaption);
    question.text = FromCrLf(Tr(low ? Text::StatsMaxItemsTooLow : Text::StatsMaxItemsTooHigh,
                                Language()));
    question.icon = MessageIcon::Question;
    question.buttons = MessageButtons::YesNo;
    question.onDismiss = MessageAnswer::No;
    if (ShowMessage(this, question) != MessageAnswer::Yes) {
      maxItems_->selectAll();
      maxItems_->setFocus();
      return;
    }
    maxItems_->setText(QString::number(low ? 1 : statistics::kTableCapacity));
  }
  limits_.maxItems = maxItems_->text().toInt();
  // The highest flag is tested first, then the lowest; anything else is longest ago.
  limits_.policy = highest_->isChecked()  ? VictimPolicy::Highest
                   : lowest_->isChecked() ? VictimPolicy::Lowest
                                          : VictimPolicy::LongestAgo;
  QDialog::accept();
}

}  // namespace vormelt::ui
