// The logging configuration window. Layout top to bottom: switch, interval, clear, data form,
// file names, folder, the four methods with their bounds, then deletion of old logs.
#include "ui/packetmode/logging_window.hpp"

#include <QButtonGroup>
#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QSpinBox>
#include <QVBoxLayout>

#include "common/install_record.hpp"
#include "packetmode/packet_logger.hpp"
#include "packets/decoder.hpp"
#include "ui/shell/dialogs.hpp"
#include "ui/shell/qt_text.hpp"

namespace vormelt::ui {
namespace {

constexpr std::int64_t kSecondsPerUnit[4] = {86400, 3600, 60, 1};
constexpr int kMaxDays = 24855;  // what fits a 31-bit count of seconds
constexpr int kMaxInterval = 86400;
constexpr int kMaxKilobytesField = 1 << 30;
constexpr const char* kDefaultNameTemplate = "%DAT.txt";

QLabel* Wrapped(Text text) {
  auto* label = new QLabel(T(text));
  label->setWordWrap(true);
  return label;
}

}  // namespace

DurationBox::DurationBox(QWidget* parent) : QWidget(parent) {
  auto* row = new QHBoxLayout(this);
  row->setContentsMargins(0, 0, 0, 0);
  const Text units[4] = {Text::LogDays, Text::LogHours, Text::LogMinutes, Text::LogSeconds};
  const int maxima[4] = {kMaxDays, 23, 59, 59};
  for (std::size_t i = 0; i < parts_.size(); ++i) {
    parts_[i] = new QSpinBox;
    parts_[i]->setRange(0, maxima[i]);
    row->addWidget(parts_[i]);
    row->addWidget(new QLabel(T(units[i])));
  }
  row->addStretch(1);
}

void DurationBox::setSeconds(std::int64_t seconds) {
  seconds = std::clamp<std::int64_t>(seconds, 0, std::int64_t{kMaxDays} * 86400 - 1);
  for (std::size_t i = 0; i < parts_.size(); ++i) {
    parts_[i]->setValue(static_cast<int>(seconds / kSecondsPerUnit[i]));
    seconds %= kSecondsPerUnit[i];
  }
}

std::int64_t DurationBox::seconds() const {
  std::int64_t total = 0;
  for (std::size_t i = 0; i < parts_.size(); ++i) total += parts_[i]->value() * kSecondsPerUnit[i];
  return total;
}

LoggingWindow::LoggingWindow(const LoggingSettings& settings, QWidget* parent)
    : QDialog(parent), settings_(settings) {
  setObjectName(QStringLiteral("loggingWindow"));
  setWindowTitle(TF(Text::LogWindowTitle, std::string(kProductName).c_str()));
  auto* page = new QVBoxLayout(this);

  enabled_ = new QCheckBox(T(Text::LogEnabled));
  page->addWidget(enabled_);
  auto* intervalRow = new QHBoxLayout;
  interval_ = new QSpinBox;
  interval_->setRange(1, kMaxInterval);
  intervalRow->addWidget(new QLabel(T(Text::LogIntervalBefore)));
  intervalRow->addWidget(interval_);
  intervalRow->addWidget(new QLabel(T(Text::LogIntervalAfter)));
  intervalRow->addStretch(1);
  page->addLayout(intervalRow);
  clearAfter_ = new QCheckBox(T(Text::LogClearAfter));
  page->addWidget(clearAfter_);

  auto* formBox = new QGroupBox;
  auto* formGrid = new QGridLayout(formBox);
  forms_ = new QButtonGroup(this);
  const Text formTexts[6] = {Text::LogFormHeading, Text::LogFormText, Text::LogFormDec,
                             Text::LogFormHex, Text::LogFormHexText, Text::LogFormPcapng};
  for (int i = 0; i < 6; ++i) {
    auto* button = new QRadioButton(T(formTexts[i]));
    forms_->addButton(button, i);
    formGrid->addWidget(button, i % 3, i / 3);
  }
  level_ = new QComboBox;
  for (int i = 0; i < kDataLevelCount; ++i) level_->addItem(DataLevelLabel(static_cast<DataLevel>(i)));
  auto* levelRow = new QHBoxLayout;
  levelRow->addWidget(new QLabel(T(Text::LogDataLevel)));
  levelRow->addWidget(level_);
  formGrid->addLayout(levelRow, 3, 0, 1, 2);
  page->addWidget(formBox);

  auto* nameBox = new QGroupBox(T(Text::LogFileNameFormat));
  auto* nameGrid = new QGridLayout(nameBox);
  nameTemplate_ = new QLineEdit;
  auto* defaultName = new QPushButton(T(Text::LogDefaultButton));
  nameGrid->addWidget(nameTemplate_, 0, 0);
  nameGrid->addWidget(defaultName, 0, 1);
  nameGrid->addWidget(new QLabel(T(Text::LogParameters)), 1, 0, 1, 2);
  nameGrid->addWidget(new QLabel(FromCrLf(Tr(Text::LogParameterHelp, Language()))), 2, 0, 1, 2);
  connect(defaultName, &QPushButton::clicked, this,
          [this] { nameTemplate_->setText(QString::fromLatin1(kDefaultNameTemplate)); });
  page->addWidget(nameBox);

  page->addWidget(Wrapped(Text::LogFolder));
  auto* folderRow = new QHBoxLayout;
  folder_ = new QLineEdit;
  auto* choose = new QPushButton(T(Text::LogChooseButton));
  folderRow->addWidget(folder_, 1);
  folderRow->addWidget(choose);
  connect(choose, &QPushButton::clicked, this, &LoggingWindow::ChooseFolder);
  page->addLayout(folderRow);

  auto* methodBox = new QGroupBox;
  auto* methodGrid = new QGridLayout(methodBox);
  methodGrid->addWidget(Wrapped(Text::LogMethodsIntro), 0, 0, 1, 2);
  methods_ = new QButtonGroup(this);
  const Text methodTexts[4] = {Text::LogMethodSingle, Text::LogMethodSize, Text::LogMethodSpan,
                               Text::LogMethodBoth};
  for (int i = 0; i < 4; ++i) {
    auto* button = new QRadioButton(T(methodTexts[i]));
    methods_->addButton(button, i);
    methodGrid->addWidget(button, 1 + i, 0, 1, 2);
  }
  maxKilobytes_ = new QSpinBox;
  maxKilobytes_->setRange(1, kMaxKilobytesField);
  maxSpan_ = new DurationBox;
  singleFile_ = new QLineEdit;
  methodGrid->addWidget(new QLabel(T(Text::LogMaxFileSize)), 5, 0);
  methodGrid->addWidget(maxKilobytes_, 5, 1);
  methodGrid->addWidget(new QLabel(T(Text::LogMaxSpan)), 6, 0);
  methodGrid->addWidget(maxSpan_, 6, 1);
  methodGrid->addWidget(new QLabel(T(Text::LogSingleFilePath)), 7, 0);
  methodGrid->addWidget(singleFile_, 7, 1);
  methodGrid->setColumnStretch(1, 1);
  page->addWidget(methodBox);

  auto* ageGrid = new QGridLayout;
  deleteOld_ = new QCheckBox(T(Text::LogDeleteOld));
  maxAge_ = new DurationBox;
  ageCheck_ = new DurationBox;
  ageGrid->addWidget(deleteOld_, 0, 0);
  ageGrid->addWidget(maxAge_, 0, 1);
  ageGrid->addWidget(new QLabel(T(Text::LogAgeCheck)), 1, 0);
  ageGrid->addWidget(ageCheck_, 1, 1);
  page->addLayout(ageGrid);

  auto* buttons = new QDialogButtonBox(this);
  buttons->addButton(T(Text::ChooserOk), QDialogButtonBox::AcceptRole);
  buttons->addButton(T(Text::ChooserCancel), QDialogButtonBox::RejectRole);
  connect(buttons, &QDialogButtonBox::accepted, this, &LoggingWindow::accept);
  connect(buttons, &QDialogButtonBox::rejected, this, &LoggingWindow::reject);
  page->addWidget(buttons);

  Load(settings);
  connect(methods_, &QButtonGroup::idToggled, this, [this] { UpdateEnabled(); });
  connect(deleteOld_, &QCheckBox::toggled, this, [this] { UpdateEnabled(); });
  UpdateEnabled();
}

void LoggingWindow::Load(const LoggingSettings& s) {
  enabled_->setChecked(s.enabled);
  interval_->setValue(s.intervalSeconds);
  clearAfter_->setChecked(s.clearAfterLog);
  if (auto* form = forms_->button(s.form)) form->setChecked(true);
  level_->setCurrentIndex(std::clamp(s.dataLevel, 0, kDataLevelCount - 1));
  nameTemplate_->setText(QString::fromStdString(s.nameTemplate));
  folder_->setText(QString::fromStdString(s.folder));
  if (auto* method = methods_->button(s.method)) method->setChecked(true);
  maxKilobytes_->setValue(static_cast<int>(std::clamp<std::int64_t>(s.maxFileKilobytes, 1, kMaxKilobytesField)));
  maxSpan_->setSeconds(s.maxSpanSeconds);
  singleFile_->setText(QString::fromStdString(s.singleFilePath));
  deleteOld_->setChecked(s.deleteOld);
  maxAge_->setSeconds(s.maxAgeSeconds);
  ageCheck_->setSeconds(s.ageCheckSeconds);
}

LoggingSettings LoggingWindow::Collect() const {
  LoggingSettings s = settings_;
  s.enabled = enabled_->isChecked();
  s.intervalSeconds = interval_->value();
  s.clearAfterLog = clearAfter_->isChecked();
  s.form = std::max(forms_->checkedId(), 0);
  s.dataLevel = level_->currentIndex();
  s.nameTemplate = nameTemplate_->text().toStdString();
  s.folder = folder_->text().trimmed().toStdString();
  s.method = std::max(methods_->checkedId(), 0);
  s.maxFileKilobytes = maxKilobytes_->value();
  s.maxSpanSeconds = maxSpan_->seconds();
  s.singleFilePath = singleFile_->text().trimmed().toStdString();
  s.deleteOld = deleteOld_->isChecked();
  s.maxAgeSeconds = maxAge_->seconds();
  s.ageCheckSeconds = ageCheck_->seconds();
  return s;
}

void LoggingWindow::ChooseFolder() {
  const QString folder =
      QFileDialog::getExistingDirectory(this, T(Text::LogChooseFolderCaption), folder_->text());
  if (!folder.isEmpty()) folder_->setText(folder);
}

// Only the bounds of the chosen method can be edited; the rest stay visible for reference.
void LoggingWindow::UpdateEnabled() {
  const int method = methods_->checkedId();
  maxKilobytes_->setEnabled(method == 1 || method == 3);
  maxSpan_->setEnabled(method == 2 || method == 3);
  singleFile_->setEnabled(method == 0);
  maxAge_->setEnabled(deleteOld_->isChecked());
  ageCheck_->setEnabled(deleteOld_->isChecked());
}

void LoggingWindow::accept() {
  const LoggingSettings s = Collect();
  // A switched-off logger may hold half-made settings; they are checked when it is switched on.
  if (s.enabled) {
    if (const auto problem = LoggingProblem(s)) {
      ShowNotice(this, Text::LogInvalidCaption, T(*problem), MessageIcon::Warning);
      return;
    }
  }
  settings_ = s;
  QDialog::accept();
}

}  // namespace vormelt::ui
