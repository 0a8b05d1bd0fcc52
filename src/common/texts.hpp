// The one catalogue of user-visible texts, English and German side by side.
// Every text shown to a user is looked up here by key; nothing else holds user texts.
// Texts keep their CR LF line breaks and printf conversions exactly; both twins take the same
// arguments in the same order.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

namespace vormelt {

enum class UiLanguage : std::uint16_t { English = 0, German = 1 };

// The keys are declared in the per-area lists under common/texts/, one VORMELT_TEXT line each:
//   VORMELT_TEXT(Key, "English text", "German text")
enum class Text : std::uint16_t {
// moc reads this header through the windows' headers but cannot follow the lists; it needs
// only to know that Text is an enum.
#ifndef Q_MOC_RUN
#define VORMELT_TEXT(key, english, german) key,
#include "common/texts/startup.def"
#include "common/texts/capture.def"
#include "common/texts/packetmode.def"
#include "common/texts/decoder.def"
#include "common/texts/filter.def"
#include "common/texts/codec.def"
#include "common/texts/ui.def"
#include "common/texts/statistics.def"
#include "common/texts/graphical.def"
#include "common/texts/filemode.def"
#undef VORMELT_TEXT
#endif
  Count_
};

inline constexpr std::size_t kTextCount = static_cast<std::size_t>(Text::Count_);

// The text in the given language. Never null; the same storage lives for the whole process.
const char* Tr(Text key, UiLanguage language);
std::string_view English(Text key);
std::string_view German(Text key);
// The enumerator's name, for diagnostics and tests.
std::string_view KeyName(Text key);

// The one way a catalogue text gets its arguments: the printf form in `language` with `args`
// put in (strings as const char*, numbers as the conversion wants them), any length.
template <typename... Args>
std::string FormatText(Text key, UiLanguage language, Args... args) {
  const char* form = Tr(key, language);
  if constexpr (sizeof...(Args) == 0) {
    return form;
  } else {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    const int length = std::snprintf(nullptr, 0, form, args...);
    if (length <= 0) return {};
    std::string text(static_cast<std::size_t>(length), '\0');
    std::snprintf(text.data(), text.size() + 1, form, args...);
#pragma GCC diagnostic pop
    return text;
  }
}

}  // namespace vormelt
