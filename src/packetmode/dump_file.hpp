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
  // Raised: the save ends after the batch in hand, with a whole footer (see `stopped`).
  const std::atomic<bool>* cancel = nullptr;
};

// The saving options kept in settings, as the renderer and SaveDumpFile want them.
DumpSaveOptions DumpSaveOptionsFrom(const SavingSettings& saving, UiLanguage language);

// Header (title, empty line, column heading, rule) and footer, CR LF line ends.
std::string DumpHeader(UiLanguage language);
std::string DumpFooter(UiLanguage language, long packets, long milliseconds);

struct DumpSaveResult {
  bool ok = false;          // false: "unable to save the file", for the reason in `error`
  int error = 0;            // the errno that stopped it
  bool stopped = false;     // the cancel flag ended it early: `packets` are in the file
  std::size_t packets = 0;  // packets written
  long milliseconds = 0;
};

// Writes header, packets and footer to `path`. Takes the store's lock a batch of packets at a
// time, so a long save never holds up capture for long. `progress` (optional) counts packets.
// A new dump is renamed over an old one only once it is whole: a failed save keeps the old.
DumpSaveResult SaveDumpFile(const std::string& path, const PacketStore& store,
                            const DumpSaveOptions& options,
                            std::atomic<std::size_t>* progress = nullptr);

// The packets (every one the store holds, or the listed rows) as a capture file with their
// capture times. `error` says what went wrong when `ok` is false.
// `cancel` raised ends it after the batch in hand, with the file closed whole.
struct CaptureExportResult {
  bool ok = false;
  std::size_t packets = 0;
  std::string error;
  bool stopped = false;       // `cancel` ended it early
  std::uint64_t leftOut = 0;  // packets the file's link type has no room for (pcap)
};
CaptureExportResult WriteCaptureFile(const std::string& path, const PacketStore& store,
                                     bool onlyListed,
                                     std::optional<CaptureFileFormat> format = std::nullopt,
                                     std::atomic<std::size_t>* progress = nullptr,
                                     const std::atomic<bool>* cancel = nullptr);

// ---- loading -----------------------------------------------------------------------------

// Why loading ended.
enum class DumpLoadEnd : std::uint8_t {
  Footer,        // the footer rule or an empty summary line: the normal end
  EndOfFile,     // the file ended between records, or before any rule line
  Unreadable,    // a record that is cut short, too long, or not in the declared form
  OpenFailed,    // "unable to open the file", for the reason in `error`
  OutOfMemory,   // the sink's three stop verdicts, each with its message
  ListFull,
  ItemLimitReached,  // the sink filled up: `notTaken` records of the file were left out
  Cancelled,
  NotRegularFile,  // a folder, a device or a FIFO: nothing is read from it
};

struct DumpLoadResult {
  DumpLoadEnd end = DumpLoadEnd::EndOfFile;
  std::size_t stored = 0;     // frames the sink kept
  std::size_t skipped = 0;    // frames the sink declined (a filter said no)
  std::uint64_t offset = 0;   // bytes consumed; for Unreadable, where the bad record is
  std::uint64_t notTaken = 0;  // ItemLimitReached: whole records after the last one kept
  int error = 0;               // OpenFailed: the errno
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

// The message box text for an end that has one (the file cannot be read, the three sink stops).
std::optional<Text> DumpLoadMessage(DumpLoadEnd end);
// Why loading `path` ended early, as one line for the command line or the window; empty when
// it ended at the footer or the file's end. A cut-short or foreign record is named with its
// byte offset.
std::string DescribeDumpLoad(const DumpLoadResult& result, const std::string& path,
                             UiLanguage language = UiLanguage::English);

}  // namespace vormelt
