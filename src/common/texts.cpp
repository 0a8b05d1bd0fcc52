// Builds the catalogue table from the per-area text lists.
#include "common/texts.hpp"

namespace vormelt {
namespace {

struct Entry {
  const char* key;
  const char* english;
  const char* german;
};

constexpr Entry kEntries[] = {
#define VORMELT_TEXT(key, english, german) {#key, english, german},
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
};

static_assert(sizeof(kEntries) / sizeof(kEntries[0]) == kTextCount);

const Entry& At(Text key) { return kEntries[static_cast<std::size_t>(key)]; }

}  // namespace

const char* Tr(Text key, UiLanguage language) {
  return language == UiLanguage::German ? At(key).german : At(key).english;
}
std::string_view English(Text key) { return At(key).english; }
std::string_view German(Text key) { return At(key).german; }
std::string_view KeyName(Text key) { return At(key).key; }

}  // namespace vormelt
