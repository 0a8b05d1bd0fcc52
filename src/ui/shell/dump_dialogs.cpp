// The saving options and dump format dialogs: plain forms over SavingSettings, laid out once,
// with the enabling rule of the saving options kept in one function.
#include "ui/shell/dump_dialogs.hpp"

#include <QButtonGroup>
#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QRadioButton>
#include <QVBoxLayout>

#include "common/settings.hpp"
#include "packets/decoder.hpp"
#include "packets/render.hpp"
#include "ui/shell/qt_text.hpp"

namespace vormelt::ui {
namespace {

constexpr int kNoticeWidth = 460;

struct FormChoice {
  DataForm form;
  Text label;
};
// The order the saving options list them in, and the loader's (same forms, its own words).
constexpr FormChoice kSaveForms[] = {{DataForm::Dec, Text::DumpFormDec},
                                     {DataForm::Hex, Text::DumpFormHex},
                                     {DataForm::Text, Text::DumpFormText},
                                     {DataForm::HexText, Text::SavingFormHexText}};
constexpr FormChoice kLoadForms[] = {{DataForm::Text, Text::DumpFormText},
                                     {DataForm::Dec, Text::DumpFormDec},
                                     {DataForm::Hex, Text::DumpFormHex},
                                     {DataForm::HexText, Text::DumpFormatHexAndText}};
constexpr Text kLevels[] = {Text::LevelDatalink, Text::LevelNetwork, Text::LevelTransport,
                            Text::LevelPresentation};

QString Catalogue(Text key) { return FromCrLf(Tr(key, Language())); }

QLabel* Notice(Text key) {
  auto* label = new QLabel(Catalogue(key));
  label->setWordWrap(true);
  label->setMinimumWidth(kNoticeWidth);
  label->setFrameShape(QFrame::StyledPanel);
  label->setMargin(6);
  return label;
}

// One radio button per form, the button id being the DataForm value.
QButtonGroup* AddFormButtons(QLayout& layout, std::span<const FormChoice> choices, int checked,
                             QWidget* owner) {
  auto* group = new QButtonGroup(owner);
  for (const FormChoice& choice : choices) {
    auto* button = new QRadioButton(Catalogue(choice.label));
    const int id = static_cast<int>(choice.form);
    button->setObjectName(QStringLiteral("form%1").arg(id));
    group->addButton(button, id);
    layout.addWidget(button);
    if (id == checked) button->setChecked(true);
  }
  if (!group->checkedButton()) group->buttons().front()->setChecked(true);
  return group;
}

QDialogButtonBox* OkCancel(QDialog& dialog) {
  auto* buttons = new QDialogButtonBox;
  buttons->addButton(T(Text::ChooserOk), QDialogButtonBox::AcceptRole);
  buttons->addButton(T(Text::ChooserCancel), QDialogButtonBox::RejectRole);
  QObject::connect(buttons, &QDialogButtonBox::accepted, &dialog, &QDialog::accept);
  QObject::connect(buttons, &QDialogButtonBox::rejected, &dialog, &QDialog::reject);
  return buttons;
}

}  // namespace

SavingOptionsDialog::SavingOptionsDialog(const SavingSettings& saving, QWidget* parent)
    : QDialog(parent) {
  setWindowTitle(T(Text::SavingOptionsTitle));
  auto* layout = new QVBoxLayout(this);

  saveData_ = new QCheckBox(Catalogue(Text::SavingSaveData));
  saveData_->setObjectName(QStringLiteral("saveData"));
  saveData_->setChecked(saving.saveData);
  layout->addWidget(saveData_);
  auto* data = new QGroupBox;
  auto* dataLayout = new QVBoxLayout(data);
  auto* formRow = new QHBoxLayout;
  forms_ = AddFormButtons(*formRow, kSaveForms, saving.dataForm, this);
  formRow->addStretch();
  dataLayout->addLayout(formRow);
  auto* levelRow = new QHBoxLayout;
  levelRow->addWidget(new QLabel(Catalogue(Text::SavingLevelLabel)));
  level_ = new QComboBox;
  level_->setObjectName(QStringLiteral("level"));
  for (const Text level : kLevels) level_->addItem(Catalogue(level));
  level_->setCurrentIndex(saving.dataLevel);
  levelRow->addWidget(level_);
  levelRow->addStretch();
  dataLayout->addLayout(levelRow);
  layout->addWidget(data);

  onlyListed_ = new QCheckBox(Catalogue(Text::SavingOnlyListed));
  onlyListed_->setObjectName(QStringLiteral("onlyListed"));
  onlyListed_->setChecked(saving.onlyListed);
  layout->addWidget(onlyListed_);
  append_ = new QCheckBox(Catalogue(Text::SavingAppend));
  append_->setObjectName(QStringLiteral("append"));
  append_->setChecked(saving.append);
  layout->addWidget(append_);
  layout->addWidget(Notice(Text::SavingNotice));
  layout->addWidget(OkCancel(*this));

  connect(saveData_, &QCheckBox::toggled, this, [this] { UpdateEnabled(); });
  UpdateEnabled();
}

// The form buttons and the level only mean something while packet data is saved.
void SavingOptionsDialog::UpdateEnabled() {
  const bool on = saveData_->isChecked();
  for (QAbstractButton* button : forms_->buttons()) button->setEnabled(on);
  level_->setEnabled(on);
}

void SavingOptionsDialog::ApplyTo(SavingSettings& saving) const {
  saving.saveData = saveData_->isChecked();
  saving.dataForm = forms_->checkedId();
  saving.dataLevel = level_->currentIndex();
  saving.onlyListed = onlyListed_->isChecked();
  saving.append = append_->isChecked();
}

bool SavingOptionsDialog::Edit(SavingSettings& saving, QWidget* parent) {
  SavingOptionsDialog dialog(saving, parent);
  if (dialog.exec() != QDialog::Accepted) return false;
  dialog.ApplyTo(saving);
  return true;
}

DumpFormatDialog::DumpFormatDialog(const SavingSettings& saving, QWidget* parent)
    : QDialog(parent) {
  setWindowTitle(T(Text::DumpFormatTitle));
  auto* layout = new QVBoxLayout(this);

  // Kept but never shown: a file is always taken to hold data saved at Datalink level.
  auto* hidden = new QWidget(this);
  auto* hiddenLayout = new QVBoxLayout(hidden);
  hiddenLayout->addWidget(new QLabel(Catalogue(Text::DumpFormatContainsData)));
  hiddenLayout->addWidget(new QLabel(Catalogue(Text::DumpFormatLevel)));
  auto* datalink = new QRadioButton(Catalogue(Text::LevelDatalink));
  datalink->setChecked(true);
  hiddenLayout->addWidget(datalink);
  hiddenLayout->addWidget(new QRadioButton(Catalogue(Text::LevelNetwork)));
  hidden->setObjectName(QStringLiteral("hiddenQuestions"));
  hidden->hide();

  layout->addWidget(new QLabel(Catalogue(Text::DumpFormatDataType)));
  auto* formRow = new QHBoxLayout;
  forms_ = AddFormButtons(*formRow, kLoadForms, saving.loadForm, this);
  formRow->addStretch();
  layout->addLayout(formRow);
  throughFilters_ = new QCheckBox(Catalogue(Text::DumpFormatRunFilters));
  throughFilters_->setObjectName(QStringLiteral("throughFilters"));
  throughFilters_->setChecked(saving.loadThroughFilters);
  layout->addWidget(throughFilters_);
  layout->addWidget(Notice(Text::DumpFormatNotice));
  layout->addWidget(OkCancel(*this));
}

void DumpFormatDialog::ApplyTo(SavingSettings& saving) const {
  saving.loadForm = forms_->checkedId();
  saving.loadThroughFilters = throughFilters_->isChecked();
}

bool DumpFormatDialog::Ask(SavingSettings& saving, QWidget* parent) {
  DumpFormatDialog dialog(saving, parent);
  if (dialog.exec() != QDialog::Accepted) return false;
  dialog.ApplyTo(saving);
  return true;
}

}  // namespace vormelt::ui
