// The content-type to file-extension table of File Mode, in its fixed order, and the lookup
// that turns a response's content type into the extension its file is written with.
// Pure data and functions: no files, no settings.
#pragma once

#include <string>
#include <string_view>

namespace vormelt::filemode {

inline constexpr std::size_t kMimeRowCount = 95;

struct MimeRow {
  std::string_view type;       // lower case, compared exactly and whole
  std::string_view extension;  // several customary extensions are kept "_"-joined
  std::string_view shortForm;  // empty when the row has none
};

// The table, in its order.
const MimeRow* MimeRows();

// The extension for `contentType`: the first row whose type equals it gives its extension (its
// short form when `shortForm` and the row has one); otherwise `fallback` (the text after the
// type's first "/", or "txt") stands.
std::string ExtensionForType(std::string_view contentType, std::string_view fallback,
                             bool shortForm);

}  // namespace vormelt::filemode
