#include "ui/shell/qt_text.hpp"

#include <QStringDecoder>
#include <atomic>

namespace vormelt::ui {
namespace {
std::atomic<UiLanguage> g_language{UiLanguage::English};
}

void SetLanguage(UiLanguage language) { g_language = language; }
UiLanguage Language() { return g_language; }

QString T(Text key) { return QString::fromUtf8(Tr(key, Language())); }

int QtPositionFromCrLf(std::string_view text, int position) {
  if (position <= 0) return 0;
  int breaks = 0;
  const int size = static_cast<int>(text.size());
  // A position between CR and LF stands for the line break itself, so that pair counts too:
  // a selection ending there does not take the break into the Qt selection.
  for (int i = 0; i < position && i + 1 < size; ++i) {
    if (text[i] == '\r' && text[i + 1] == '\n') ++breaks;
  }
  return position - breaks;
}

QString FromCrLf(std::string_view text) {
  QStringDecoder utf8(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
  QString decoded = utf8.decode(QByteArrayView(text.data(), static_cast<qsizetype>(text.size())));
  if (utf8.hasError()) decoded = QString::fromLatin1(text.data(), static_cast<qsizetype>(text.size()));
  decoded.replace(QStringLiteral("\r\n"), QStringLiteral("\n"));
  return decoded;
}

}  // namespace vormelt::ui
