// The encoder tool's "ASCII text (vs. ANSI)" conversion: the system code set (UTF-8 on Linux)
// to the DOS OEM code page (CP437) and back, through glibc iconv. Never fails and never drops a
// byte silently; no Qt.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace vormelt::tools {

// UTF-8 text to CP437 bytes, one byte per character. Characters CP437 lacks become '?'.
// Bytes that are not valid UTF-8 are read as Latin-1 characters (the same reading the windows
// use to show such bytes), so each still yields one CP437 byte instead of vanishing.
std::string SystemToOem(std::string_view utf8);

// For text that arrives in pieces: how many bytes at the end of `text` (0 to 3) begin a UTF-8
// character whose remaining bytes have not arrived yet. Holding them back until the next
// piece makes SystemToOem of the pieces equal SystemToOem of the whole.
std::size_t IncompleteUtf8Tail(std::string_view text);

// CP437 bytes to UTF-8 text. Every CP437 byte has a character, so nothing is lost.
std::string OemToSystem(std::string_view oem);

}  // namespace vormelt::tools
