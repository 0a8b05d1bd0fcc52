// Where a reconstructed file goes: the name template with its tokens, the sub-folders by source,
// destination or extension, and the one safe way to create the file beneath the chosen folder.
// Everything taken from the network is checked here before it becomes part of a path; nothing
// is ever created, followed or overwritten outside the folder.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "common/clock.hpp"
#include "common/file_write.hpp"
#include "common/ip_address.hpp"

namespace vormelt::filemode {

inline constexpr std::string_view kDefaultNameTemplate = "%SIP to %DIP - [%DAT]";
inline constexpr std::string_view kDefaultExtension = "txt";
// Numbered names tried when a name is taken and files are not over-written: _2 .. _1024.
inline constexpr long kLastNumberedSuffix = 1024;
inline constexpr std::size_t kFolderTextLimit = 4096;
inline constexpr int kSubfolderLevels = 3;

enum class SubfolderChoice : std::int32_t { None = 0, Source = 1, Destination = 2, Extension = 3 };

// The four file counts a name can show, as they stand before the file is counted.
struct FileCounts {
  std::uint64_t sinceStart = 0;    // %FCS, reset by Start
  std::uint64_t sinceLaunch = 0;   // %FCL, reset when the program starts
  std::uint64_t installed = 0;     // %FCI, never reset
  std::uint64_t custom = 0;        // %FCC, set by the user
};

struct NamingOptions {
  std::string folder;
  std::string nameTemplate{kDefaultNameTemplate};
  std::string dateTimeTemplate = "%Y.%MY.%D - %H24:%MN:%S.%MS";
  bool createSubfolders = false;
  std::array<SubfolderChoice, kSubfolderLevels> levels{};
  bool overwrite = false;
};

// What a name is made from.
struct NameFields {
  IpAddress source;       // of the first stored segment
  IpAddress destination;
  LocalTime completed{};
  FileCounts counts;
};

// -1 and anything unknown read as None, as stored settings may hold them.
SubfolderChoice ToSubfolderChoice(std::int32_t stored);

// The template with every token replaced: upper-case tokens first, then the lower-case ones;
// mixed case is not a token. %DAT has ":" turned into "." and "\" into "/".
std::string ExpandName(std::string_view nameTemplate, std::string_view dateTimeTemplate,
                       const NameFields& fields);

// True when `name` may be one path component: not empty, not "." or "..", and free of "/",
// "\", NUL and control characters.
bool IsSafeComponent(std::string_view name);
// An extension from a header, or the default when it could lead anywhere else.
std::string SafeExtension(std::string_view extension);

// One level of the naming dialog's preview: a "\" and a sample value, nothing for None.
std::string_view SubfolderSample(SubfolderChoice level);

enum class PlaceOutcome : std::uint8_t {
  Written,      // whole, flushed and under its final name
  InvalidName,  // skipped without a word: the name cannot be a file name here
  AllTaken,     // _2 .. _1024 exist as well: skipped without a word
  Failed,       // the user is told: nothing was kept (folder missing, no room, a link in the way)
};

struct PlacedFile {
  PlaceOutcome outcome = PlaceOutcome::Failed;
  std::string path;        // as written, or the name that was tried
  int error = 0;           // the errno that stopped a Failed one
  bool created = false;    // a Failed one got as far as writing (the disk, not the folder, failed)
  std::uint64_t written = 0;
};

// Writes the content `fill` puts into a FileBeside as `name`.`extension` beneath the folder of
// `options`, with the sub-folders it asks for. The file is written under a part name beside its
// final one and renamed when whole, so no other program ever sees half a file, and a failed
// one leaves nothing behind. Folders are opened relative to the chosen one and no symbolic link
// is followed. Without over-writing the rename never replaces a file that appeared meanwhile:
// the next numbered name is taken instead and `fill` is asked again.
using FileFiller = std::function<void(FileBeside&)>;
PlacedFile PlaceFile(const NamingOptions& options, std::string_view name,
                     std::string_view extension, const IpAddress& source,
                     const IpAddress& destination,
                     const FileFiller& fill);

// The folder text as used: at most kFolderTextLimit characters, trailing "/" and "\" removed.
std::string TrimFolder(std::string_view folder);

}  // namespace vormelt::filemode
