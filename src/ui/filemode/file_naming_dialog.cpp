// The level lists hold the stored choice as item data (0 None .. 3 extension), so a settings
// file with -1 for None shows None and is written back as 0.
#include "ui/filemode/file_naming_dialog.hpp"

#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QIntValidator>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QRegularExpressionValidator>
#include <QVBoxLayout>

#include "common/settings.hpp"
#include "filemode/naming.hpp"
#include "ui/shell/qt_text.hpp"

namespace vormelt::ui {
namespace {

constexpr std::array<Text, 3> kLevelLabels = {Text::NamingFirstLevel, Text::NamingSecondLevel,
                                              Text::NamingThirdLevel};
constexpr std::array<Text, 4> kChoices = {Text::NamingNone, Text::NamingSourceIp,
                                          Text::NamingDestinationIp, Text::NamingExtension};

}  // namespace

FileNamingDialog::FileNamingDialog(FileModeSettings& settings, QWidget* parent)
    : QDialog(parent), settings_(settings) {
  setWindowTitle(T(Text::NamingCaption));
  BuildWidgets();
  UpdatePreview();
}

void FileNamingDialog::BuildWidgets() {
  auto* layout = new QVBoxLayout(this);
  auto* form = new QFormLayout;
  auto* templateRow = new QHBoxLayout;
  nameTemplate_ = new QLineEdit(QString::fromStdString(settings_.nameTemplate), this);
  auto* defaults = new QPushButton(T(Text::NamingDefault), this);
  connect(defaults, &QPushButton::clicked, this, &FileNamingDialog::restoreDefaultTemplate);
  templateRow->addWidget(nameTemplate_, 1);
  templateRow->addWidget(defaults);
  form->addRow(T(Text::NamingTemplateLabel), templateRow);
  auto* help = new QLabel(FromCrLf(Tr(Text::NamingParametersHelp, Language())), this);
  help->setTextInteractionFlags(Qt::TextSelectableByMouse);
  form->addRow(T(Text::NamingParameters), help);
  dateTemplate_ = new QLineEdit(QString::fromStdString(settings_.dateTimeTemplate), this);
  form->addRow(T(Text::NamingDateTemplate), dateTemplate_);
  layout->addLayout(form);

  auto* placement = new QGroupBox(this);
  auto* levels = new QFormLayout(placement);
  subfolders_ = new QCheckBox(T(Text::NamingSubfolders), placement);
  subfolders_->setChecked(settings_.createSubfolders);
  levels->addRow(subfolders_);
  for (std::size_t i = 0; i < levels_.size(); ++i) {
    levels_[i] = new QComboBox(placement);
    for (std::size_t c = 0; c < kChoices.size(); ++c) {
      levels_[i]->addItem(T(kChoices[c]), static_cast<int>(c));
    }
    const int stored = i < settings_.subfolderLevels.size() ? settings_.subfolderLevels[i] : 0;
    levels_[i]->setCurrentIndex(static_cast<int>(filemode::ToSubfolderChoice(stored)));
    connect(levels_[i], &QComboBox::currentIndexChanged, this, [this] { UpdatePreview(); });
    levels->addRow(T(kLevelLabels[i]), levels_[i]);
  }
  preview_ = new QLabel(placement);
  levels->addRow(preview_);
  layout->addWidget(placement);

  auto* countRow = new QFormLayout;
  shownCount_ = QString::number(settings_.countCustom);
  customCount_ = new QLineEdit(shownCount_, this);
  customCount_->setValidator(
      new QRegularExpressionValidator(QRegularExpression(QStringLiteral("[0-9]{1,19}")), this));
  countRow->addRow(T(Text::NamingFccValue), customCount_);
  layout->addLayout(countRow);

  auto* buttons = new QDialogButtonBox(this);
  auto* okay = buttons->addButton(T(Text::NamingOkay), QDialogButtonBox::AcceptRole);
  auto* applyButton = buttons->addButton(T(Text::FilterApply), QDialogButtonBox::ApplyRole);
  buttons->addButton(T(Text::FilterCancel), QDialogButtonBox::RejectRole);
  connect(okay, &QPushButton::clicked, this, [this] {
    apply();
    accept();
  });
  connect(applyButton, &QPushButton::clicked, this, &FileNamingDialog::apply);
  connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
  layout->addWidget(buttons);
}

void FileNamingDialog::restoreDefaultTemplate() {
  nameTemplate_->setText(QString::fromUtf8(filemode::kDefaultNameTemplate.data(),
                                           static_cast<int>(filemode::kDefaultNameTemplate.size())));
}

void FileNamingDialog::apply() {
  settings_.nameTemplate = nameTemplate_->text().toStdString();
  settings_.dateTimeTemplate = dateTemplate_->text().toStdString();
  settings_.createSubfolders = subfolders_->isChecked();
  settings_.subfolderLevels.assign(levels_.size(), 0);
  for (std::size_t i = 0; i < levels_.size(); ++i) {
    settings_.subfolderLevels[i] = levels_[i]->currentData().toInt();
  }
  bool ok = false;
  const qulonglong count = customCount_->text().toULongLong(&ok);
  const bool countSet = ok && customCount_->text() != shownCount_;
  if (countSet) {
    settings_.countCustom = count;
    shownCount_ = customCount_->text();
  }
  emit applied(countSet);
}

void FileNamingDialog::setLevel(int level, int choice) {
  levels_.at(static_cast<std::size_t>(level))->setCurrentIndex(choice);
}

QString FileNamingDialog::previewText() const { return preview_->text(); }

void FileNamingDialog::UpdatePreview() {
  std::array<std::string, 3> parts;
  for (std::size_t i = 0; i < levels_.size(); ++i) {
    parts[i] = filemode::SubfolderSample(
        filemode::ToSubfolderChoice(levels_[i]->currentData().toInt()));
  }
  preview_->setText(TF(Text::NamingExample, parts[0].c_str(), parts[1].c_str(), parts[2].c_str()));
}

}  // namespace vormelt::ui
