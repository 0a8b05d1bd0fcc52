// Packet dump files: the packet list saved as text (header, every packet as the renderer
// writes it, footer; CR LF throughout) and the loader that reads such a file back, one record
// at a time, into any FrameSink. Neither shows anything nor knows a window; the loader never
// reads past the end of what it was given and keeps every record before the first bad one.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "capture/capture_writer.hpp"
#include "common/frame_sink.hpp"
#include "common/settings.hpp"
#include "common/texts.hpp"
#include "packets/render.hpp"
#include "packets/store.hpp"

namespace vormelt {

// The longest summary line the loader accepts; a longer one is not a record of ours.
inline constexpr std::size_t kDumpMaxSummaryLine = 4095;
// Hyphens in the rule under the column heading (the German heading is wider).
inline constexpr std::size_t kDumpRuleLength = 122;
inline constexpr std::size_t kDumpRuleLengthGerman = 125;

// ---- saving ------------------------------------------------------------------------------

struct DumpSaveOptions {
  RenderOptions render;     // form None: summary lines only
  bool onlyListed = false;  // rows in list order; otherwise every packet the store still holds
  bool append = false;
  UiLanguage language = UiLanguage::English;
};

// The saving options kept in settings, as the renderer and SaveDumpFile want them.
DumpSaveOptions DumpSaveOptionsFrom(const SavingSettings& saving, UiLanguage language);

// Header (title, empty line, column heading, rule) and footer, CR LF line ends.
std::string DumpHeader(UiLanguage language);
std::string DumpFooter(UiLanguage language, long packets, long milliseconds);

struct DumpSaveResult {
  bool ok = false;          // false: "unable to save the file"
  std::size_t packets = 0;  // packets written
  long milliseconds = 0;
};

// Writes header, packets and footer to `path`. Takes the store's lock a batch of packets at a
// time, so a long save never holds up capture for long. `progress` (optional) counts packets.
DumpSaveResult SaveDumpFile(const std::string& path, const PacketStore& store,
                            const DumpSaveOptions& options,
                            std::atomic<std::size_t>* progress = nullptr);

// The packets (every one the store holds, or the listed rows) as a capture file with their
// capture times. `error` says what went wrong when `ok` is false.
struct CaptureExportResult {
  bool ok = false;
  std::size_t packets = 0;
  std::string error;
};
CaptureExportResult WriteCaptureFile(const std::string& path, const PacketStore& store,
                                     bool onlyListed,
                                     std::optional<CaptureFileFormat> format = std::nullopt,
                                     std::atomic<std::size_t>* progress = nullptr);

// ---- loading -----------------------------------------------------------------------------

// Why loading ended.
enum class DumpLoadEnd : std::uint8_t {
  Footer,        // the footer rule or an empty summary line: the normal end
  EndOfFile,     // the file ended between records, or before any rule line
  Unreadable,    // a record that is cut short, too long, or not in the declared form
  OpenFailed,    // "unable to open the file"
  OutOfMemory,   // the sink's three stop verdicts, each with its message
  ListFull,
  ItemLimitReached,
  Cancelled,
};

struct DumpLoadResult {
  DumpLoadEnd end = DumpLoadEnd::EndOfFile;
  std::size_t stored = 0;     // frames the sink kept
  std::size_t skipped = 0;    // frames the sink declined (a filter said no)
  std::uint64_t offset = 0;   // bytes consumed; for Unreadable, where the bad record is
};

struct DumpLoadOptions {
  DataForm form = DataForm::Text;  // the form the user declares; None is read as Text
  const std::atomic<bool>* cancel = nullptr;
  std::atomic<std::uint64_t>* progress = nullptr;  // bytes consumed so far
};

// Reads a dump file and hands each rebuilt frame (with its time text from the file) to `sink`.
DumpLoadResult LoadDumpFile(const std::string& path, FrameSink& sink,
                            const DumpLoadOptions& options);
// The same over bytes in memory.
DumpLoadResult LoadDumpBytes(std::span<const std::uint8_t> bytes, FrameSink& sink,
                             const DumpLoadOptions& options);

// The message box text for an end that has one (open failure and the three sink stops).
std::optional<Text> DumpLoadMessage(DumpLoadEnd end);

}  // namespace vormelt
