// The one catalogue of user-visible texts, English and German side by side.
// Every text shown to a user is looked up here by key; nothing else holds user texts.
// Texts keep their CR LF line breaks and printf conversions exactly; both twins take the same
// arguments in the same order.
#pragma once

#include <cstddef>
#include <cstdint>
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

}  // namespace vormelt
