// Widgets, settings and conversion triggers of the Base Encoder/Decoder window. The conversion
// itself lives in tools/codec; this file only gathers the choices and shows the result.
#include "ui/tools/codec_window.hpp"

#include <QButtonGroup>
#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QFontDatabase>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QTimer>
#include <QVBoxLayout>
#include <array>
#include <utility>

#include "common/settings.hpp"
#include "ui/shell/qt_text.hpp"

namespace vormelt::ui {
namespace {

// Font families offered for the boxes; they are names of fonts, the same in every language.
constexpr std::array<const char*, 3> kFontChoices = {"Courier New", "Lucida Console", "Terminal"};
constexpr int kFontPointSize = 10;
constexpr int kDefaultWidth = 680;
constexpr int kDefaultHeight = 520;
// Inputs this long convert only after typing pauses, so each key press stays instant.
constexpr int kLargeInputChars = 64 * 1024;
constexpr int kLargeInputPauseMs = 300;

QPlainTextEdit* MakeOutputBox(const char* name, QPlainTextEdit::LineWrapMode wrap) {
  auto* box = new QPlainTextEdit;
  box->setObjectName(QString::fromLatin1(name));
  box->setReadOnly(true);
  box->setLineWrapMode(wrap);
  return box;
}

// A box of radio buttons whose ids are the type numbers kept in the settings.
QGroupBox* MakeTypeBox(Text title, std::initializer_list<std::pair<Text, const char*>> types,
                       QButtonGroup* group) {
  auto* box = new QGroupBox(T(title));
  auto* row = new QHBoxLayout(box);
  int id = 0;
  for (const auto& [label, name] : types) {
    auto* button = new QRadioButton(T(label));
    button->setObjectName(QString::fromLatin1(name));
    group->addButton(button, id++);
    row->addWidget(button);
  }
  row->addStretch();
  return box;
}

QCheckBox* MakeOption(Text label, const char* name) {
  auto* box = new QCheckBox(T(label));
  box->setObjectName(QString::fromLatin1(name));
  return box;
}

// The input box holds "\n" line breaks; the engine, like every text this program writes,
// works with CR LF.
QByteArray InputBytes(const QPlainTextEdit& box) {
  QString text = box.toPlainText();
  text.replace(QLatin1Char('\n'), QStringLiteral("\r\n"));
  return text.toUtf8();
}

}  // namespace

CodecWindow::CodecWindow(ProgramSettings& settings, bool standalone, QWidget* parent)
    : QDialog(parent), settings_(settings) {
  setWindowTitle(T(Text::CodecWindowTitle));
  setSizeGripEnabled(true);
  if (standalone) setWindowFlags(windowFlags() | Qt::WindowMinMaxButtonsHint);
  BuildWidgets();
  LoadSettings();
  ApplyFont();
  ApplyWordWrap();
}

void CodecWindow::BuildWidgets() {
  inputTypes_ = new QButtonGroup(this);
  outputTypes_ = new QButtonGroup(this);
  auto* inputBox = MakeTypeBox(Text::CodecInputType,
                               {{Text::CodecTypeText, "inputText"}, {Text::CodecTypeHex, "inputHex"},
                                {Text::CodecTypeBase64, "inputBase64"}},
                               inputTypes_);
  auto* outputBox = MakeTypeBox(Text::CodecOutputType,
                                {{Text::CodecTypeText, "outputText"}, {Text::CodecTypeHex, "outputHex"},
                                 {Text::CodecTypeBase64, "outputBase64"}, {Text::CodecTypeMd5, "outputMd5"}},
                                outputTypes_);
  asciiText_ = MakeOption(Text::CodecAsciiText, "asciiText");
  cleanOutput_ = MakeOption(Text::CodecCleanOutput, "cleanOutput");
  nullToSpace_ = MakeOption(Text::CodecNullToSpace, "nullToSpace");
  wordWrap_ = MakeOption(Text::CodecWordWrap, "wordWrap");

  font_ = new QComboBox;
  font_->setObjectName(QStringLiteral("font"));
  for (const char* family : kFontChoices) font_->addItem(QString::fromLatin1(family));
  auto* convert = new QPushButton(T(Text::CodecConvert));
  convert->setObjectName(QStringLiteral("convert"));
  convert->setAutoDefault(false);

  input_ = new QPlainTextEdit;
  input_->setObjectName(QStringLiteral("input"));
  wrappedOutput_ = MakeOutputBox("wrappedOutput", QPlainTextEdit::WidgetWidth);
  scrollingOutput_ = MakeOutputBox("scrollingOutput", QPlainTextEdit::NoWrap);

  auto* types = new QHBoxLayout;
  types->addWidget(inputBox);
  types->addWidget(outputBox, 1);
  auto* options = new QGridLayout;
  options->addWidget(asciiText_, 0, 0);
  options->addWidget(cleanOutput_, 0, 1);
  options->addWidget(nullToSpace_, 1, 0);
  options->addWidget(wordWrap_, 1, 1);
  auto* tools = new QHBoxLayout;
  tools->addWidget(new QLabel(T(Text::CodecFont)));
  tools->addWidget(font_);
  tools->addStretch();
  tools->addWidget(convert);
  auto* buttons = new QDialogButtonBox;
  auto* close = buttons->addButton(T(Text::CodecClose), QDialogButtonBox::RejectRole);
  close->setAutoDefault(false);

  auto* layout = new QVBoxLayout(this);
  layout->addLayout(types);
  layout->addLayout(options);
  layout->addLayout(tools);
  layout->addWidget(new QLabel(T(Text::CodecInput)));
  layout->addWidget(input_, 1);
  layout->addWidget(new QLabel(T(Text::CodecOutput)));
  layout->addWidget(wrappedOutput_, 2);
  layout->addWidget(scrollingOutput_, 2);
  layout->addWidget(buttons);

  conversionTimer_ = new QTimer(this);
  conversionTimer_->setSingleShot(true);
  connect(conversionTimer_, &QTimer::timeout, this, &CodecWindow::Convert);
  connect(convert, &QPushButton::clicked, this, &CodecWindow::Convert);
  connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
  connect(input_, &QPlainTextEdit::textChanged, this, &CodecWindow::ScheduleConversion);
  connect(inputTypes_, &QButtonGroup::idClicked, this, &CodecWindow::ScheduleConversion);
  connect(outputTypes_, &QButtonGroup::idClicked, this, &CodecWindow::ScheduleConversion);
  for (QCheckBox* option : {asciiText_, cleanOutput_, nullToSpace_}) {
    connect(option, &QCheckBox::toggled, this, &CodecWindow::ScheduleConversion);
  }
  connect(wordWrap_, &QCheckBox::toggled, this, &CodecWindow::ApplyWordWrap);
  connect(font_, &QComboBox::currentIndexChanged, this, &CodecWindow::ApplyFont);
}

void CodecWindow::LoadSettings() {
  const CodecSettings& codec = settings_.codec;
  QAbstractButton* input = inputTypes_->button(codec.inputType);
  (input ? input : inputTypes_->button(0))->setChecked(true);
  QAbstractButton* output = outputTypes_->button(codec.outputType);
  (output ? output : outputTypes_->button(0))->setChecked(true);
  asciiText_->setChecked(codec.asciiText);
  cleanOutput_->setChecked(codec.cleanOutput);
  nullToSpace_->setChecked(codec.nullToSpace);
  wordWrap_->setChecked(codec.wordWrap);
  const int font = font_->findText(QString::fromStdString(codec.font));
  font_->setCurrentIndex(font < 0 ? 0 : font);

  const WindowState& place = codec.window;
  if (!place.valid || place.width <= 0 || place.height <= 0) {
    resize(kDefaultWidth, kDefaultHeight);
    return;
  }
  setGeometry(place.x, place.y, place.width, place.height);
  if (place.maximized) setWindowState(windowState() | Qt::WindowMaximized);
}

void CodecWindow::StoreSettings() {
  CodecSettings& codec = settings_.codec;
  codec.inputType = inputTypes_->checkedId();
  codec.outputType = outputTypes_->checkedId();
  codec.asciiText = asciiText_->isChecked();
  codec.cleanOutput = cleanOutput_->isChecked();
  codec.nullToSpace = nullToSpace_->isChecked();
  codec.wordWrap = wordWrap_->isChecked();
  codec.font = font_->currentText().toStdString();
  const QRect place = isMaximized() || isMinimized() ? normalGeometry() : geometry();
  codec.window = {true, place.x(), place.y(), place.width(), place.height(), isMaximized(), isMinimized()};
}

void CodecWindow::done(int result) {
  conversionTimer_->stop();
  StoreSettings();
  QDialog::done(result);
}

void CodecWindow::ScheduleConversion() {
  const bool large = input_->document()->characterCount() > kLargeInputChars;
  conversionTimer_->start(large ? kLargeInputPauseMs : 0);
}

void CodecWindow::Convert() {
  conversionTimer_->stop();
  const QByteArray input = InputBytes(*input_);
  const tools::ConversionResult result =
      tools::Convert(std::string_view(input.constData(), static_cast<std::size_t>(input.size())),
                     ChosenInput(), ChosenOutput(), ChosenOptions());
  switch (result.status) {
    case tools::ConversionStatus::OutOfMemory:
      QMessageBox::critical(this, T(Text::CodecMemoryErrorTitle), T(Text::CodecMemoryError));
      return;
    case tools::ConversionStatus::Empty:
      wrappedOutput_->clear();
      scrollingOutput_->clear();
      return;
    case tools::ConversionStatus::Converted:
      VisibleOutput()->setPlainText(FromCrLf(result.output));
      return;
  }
}

void CodecWindow::ApplyFont() {
  const QString family = font_->currentText();
  QFont font = QFontDatabase::hasFamily(family) ? QFont(family, kFontPointSize)
                                                : QFontDatabase::systemFont(QFontDatabase::FixedFont);
  for (QPlainTextEdit* box : {input_, wrappedOutput_, scrollingOutput_}) box->setFont(font);
}

void CodecWindow::ApplyWordWrap() {
  const bool wrap = wordWrap_->isChecked();
  wrappedOutput_->setVisible(wrap);
  scrollingOutput_->setVisible(!wrap);
  // Only the shown box holds the result; the other is emptied and the result recomputed.
  (wrap ? scrollingOutput_ : wrappedOutput_)->clear();
  ScheduleConversion();
}

QPlainTextEdit* CodecWindow::VisibleOutput() const {
  return wordWrap_->isChecked() ? wrappedOutput_ : scrollingOutput_;
}

tools::InputType CodecWindow::ChosenInput() const {
  return static_cast<tools::InputType>(inputTypes_->checkedId());
}

tools::OutputType CodecWindow::ChosenOutput() const {
  return static_cast<tools::OutputType>(outputTypes_->checkedId());
}

tools::CodecOptions CodecWindow::ChosenOptions() const {
  tools::CodecOptions options;
  options.asciiText = asciiText_->isChecked();
  options.cleanOutput = cleanOutput_->isChecked();
  options.nullToSpace = nullToSpace_->isChecked();
  return options;
}

}  // namespace vormelt::ui
