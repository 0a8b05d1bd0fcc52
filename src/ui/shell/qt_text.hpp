// Bridges the text catalogue to Qt: the language of this run, catalogue texts as QStrings,
// and the one conversion from CR LF character positions to positions in Qt text boxes.
#pragma once

#include <QString>
#include <string_view>

#include "common/texts.hpp"

namespace vormelt::ui {

void SetLanguage(UiLanguage language);
UiLanguage Language();

// The catalogue text in the run's language.
QString T(Text key);
// The catalogue text with printf arguments applied (FormatText), as a QString.
template <typename... Args>
QString TF(Text key, Args... args) {
  return QString::fromStdString(FormatText(key, Language(), args...));
}

// Qt text boxes store a line break as one character; engine texts use CR LF. A position
// computed over CR LF text maps to the Qt position = position - number of CR LF pairs before it.
int QtPositionFromCrLf(std::string_view crlfText, int crlfPosition);
// Converts CR LF text to the form a Qt text box holds ("\n" breaks). Bytes are read as UTF-8
// when they form valid UTF-8, else as Latin-1, so packet bytes never vanish.
QString FromCrLf(std::string_view crlfText);

}  // namespace vormelt::ui
