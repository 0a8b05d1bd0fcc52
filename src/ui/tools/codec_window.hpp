// The Base Encoder/Decoder window: input and output types, the four options, the input box and
// the two output boxes (wrapping and sideways-scrolling). It converts through tools/codec and
// keeps its choices in ProgramSettings::codec; it never writes the settings file itself.
#pragma once

#include <QDialog>

#include "tools/codec.hpp"

class QButtonGroup;
class QCheckBox;
class QComboBox;
class QPlainTextEdit;
class QTimer;

namespace vormelt {
// Declared, not included: moc cannot parse the text catalogue's enum that settings.hpp pulls in.
struct ProgramSettings;
}  // namespace vormelt

namespace vormelt::ui {

class CodecWindow : public QDialog {
  Q_OBJECT

 public:
  // `standalone`: the window is the process's only window (started with "hb_decoder"), so it
  // gets the minimize and maximize buttons of a main window. The caller saves `settings`.
  CodecWindow(ProgramSettings& settings, bool standalone, QWidget* parent = nullptr);

  // Converts the input now with the chosen types and options.
  void Convert();
  // Stores the options and geometry in the settings whichever way the window is closed.
  void done(int result) override;

 private:
  void BuildWidgets();
  void LoadSettings();
  void StoreSettings();
  void ScheduleConversion();
  void ApplyFont();
  void ApplyWordWrap();
  QPlainTextEdit* VisibleOutput() const;
  tools::InputType ChosenInput() const;
  tools::OutputType ChosenOutput() const;
  tools::CodecOptions ChosenOptions() const;

  ProgramSettings& settings_;
  QButtonGroup* inputTypes_ = nullptr;
  QButtonGroup* outputTypes_ = nullptr;
  QCheckBox* asciiText_ = nullptr;
  QCheckBox* cleanOutput_ = nullptr;
  QCheckBox* nullToSpace_ = nullptr;
  QCheckBox* wordWrap_ = nullptr;
  QComboBox* font_ = nullptr;
  QPlainTextEdit* input_ = nullptr;
  QPlainTextEdit* wrappedOutput_ = nullptr;
  QPlainTextEdit* scrollingOutput_ = nullptr;
  QTimer* conversionTimer_ = nullptr;
};

}  // namespace vormelt::ui
