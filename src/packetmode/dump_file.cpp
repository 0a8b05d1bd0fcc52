// Packet dump files. Saving renders through the one packet renderer, so a saved packet has the
// same bytes as the window and the logs. Loading walks the file byte by byte exactly as the
// renderer laid it out; it trusts the declared form, checks every character it turns into a
// byte, and stops at the first record it cannot read without losing the ones before it.
#include "packetmode/dump_file.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <memory>
#include <vector>

#include "common/clock.hpp"
#include "common/file_write.hpp"
#include "common/unique_fd.hpp"

namespace vormelt {
namespace {

constexpr std::string_view kLineBreak = "\r\n";
// Packets rendered per turn of the store's lock while saving: long enough to amortise the
// lock, short enough that capture never waits noticeably.
constexpr std::size_t kSaveBatch = 512;
constexpr std::size_t kReadChunk = 1 << 16;
constexpr std::size_t kDecPerLine = 10;
constexpr std::size_t kHexPerLine = 16;
constexpr std::size_t kMacTextLength = 17;  // "XX:XX:XX:XX:XX:XX"
// What follows the hex of a full Hex + Text line: "| ", 16 characters, CR LF.
constexpr std::size_t kHexTextLineTail = 2 + kHexPerLine + 2;

// ---- saving ------------------------------------------------------------------------------

// Where a save goes. A new dump is written beside the final name and renamed over it only when
// whole, so a full disk or a stop leaves the old file as it was. Appending, and a name that is
// no regular file (a FIFO, /dev/stdout), write to the file itself; a link is followed to its
// file, which is then replaced, not the link.
class DumpOutput {
 public:
  // 0 or the errno that kept the file from opening.
  int Open(const std::string& path, bool append) {
    std::filesystem::path target(path);
    std::error_code ignored;
    if (std::filesystem::is_symlink(target, ignored)) {
      const auto resolved = std::filesystem::canonical(target, ignored);
      if (!ignored) target = resolved;
    }
    const auto type = std::filesystem::status(target, ignored).type();
    const bool inPlace = append || (type != std::filesystem::file_type::not_found &&
                                    type != std::filesystem::file_type::regular);
    if (!inPlace) {
      int error = 0;
      beside_ = FileBeside::Create(target, error);
      return error;
    }
    const int flags = O_WRONLY | O_CREAT | O_CLOEXEC | (append ? O_APPEND : O_TRUNC);
    direct_ = UniqueFd(::open(target.c_str(), flags, 0644));
    return direct_ ? 0 : errno;
  }

  // False from the first failure on; error() then says why.
  bool Write(std::string_view bytes) {
    if (error_ != 0) return false;
    error_ = beside_ ? beside_.Write(bytes).error : WriteAll(direct_.get(), bytes).error;
    return error_ == 0;
  }

  // Flushes and closes (renames a new dump into place); 0 or the errno that stopped it. On
  // failure a new dump's part file is removed and the old dump is left alone.
  int Finish() {
    if (beside_) return error_ = beside_.Commit(true);
    if (error_ == 0 && ::fsync(direct_.get()) != 0 && errno != EINVAL && errno != EROFS) {
      error_ = errno;  // FIFOs and terminals cannot be synced, and need not be
    }
    if (!direct_.Close() && error_ == 0) error_ = errno;
    return error_;
  }

  int error() const { return error_; }

 private:
  FileBeside beside_;
  UniqueFd direct_;
  int error_ = 0;
};

// Calls `use` for each packet at `indices` under the store's lock: listed ones, or with
// `held` also those whose rows were deleted. Returns how many.
template <typename Use>
std::size_t ForEachPacket(const PacketStore& store, std::span<const std::int32_t> indices,
                          bool held, Use&& use) {
  const auto lock = store.Lock();
  std::size_t used = 0;
  for (const std::int32_t index : indices) {
    const PacketRef packet = held ? store.GetHeld(index) : store.Get(index);
    if (!packet.frame) continue;
    if (!use(packet)) break;
    ++used;
  }
  return used;
}

// The indices to save from `next` on, at most one batch: rows in list order, or every index
// the store has given (cleared ones are skipped when rendered).
bool NextBatch(const PacketStore& store, bool onlyListed, std::size_t& next,
               std::vector<std::int32_t>& batch) {
  batch.clear();
  if (onlyListed) {
    const auto lock = store.Lock();
    const std::size_t rows = store.RowCount();
    for (; next < rows && batch.size() < kSaveBatch; ++next) {
      batch.push_back(store.IndexAtRow(next));
    }
  } else {
    // The last index is filled without the count moving on, so look one further.
    const auto end = static_cast<std::size_t>(
        std::min<std::int64_t>(std::int64_t{store.ItemCount()} + 1, store.Capacity()));
    for (; next < end && batch.size() < kSaveBatch; ++next) {
      batch.push_back(static_cast<std::int32_t>(next));
    }
  }
  return !batch.empty();
}

// ---- loading -----------------------------------------------------------------------------

// The file (or memory) one byte at a time, through a buffer. Never reads past the end.
class ByteReader {
 public:
  explicit ByteReader(std::span<const std::uint8_t> memory)
      : pos_(memory.data()), end_(memory.data() + memory.size()), begin_(pos_) {}
  explicit ByteReader(int fd) : fd_(fd), buffer_(kReadChunk) {}

  // The next byte, or -1 at the end.
  int Get() {
    if (pos_ == end_ && !Refill()) return -1;
    return *pos_++;
  }
  bool Skip(std::size_t n) {
    while (n) {
      if (pos_ == end_ && !Refill()) return false;
      const std::size_t k = std::min<std::size_t>(n, static_cast<std::size_t>(end_ - pos_));
      pos_ += k;
      n -= k;
    }
    return true;
  }
  bool Read(std::uint8_t* out, std::size_t n) {
    while (n) {
      if (pos_ == end_ && !Refill()) return false;
      const std::size_t k = std::min<std::size_t>(n, static_cast<std::size_t>(end_ - pos_));
      std::memcpy(out, pos_, k);
      out += k;
      pos_ += k;
      n -= k;
    }
    return true;
  }
  std::uint64_t Offset() const { return consumedBefore_ + static_cast<std::uint64_t>(pos_ - begin_); }

 private:
  bool Refill() {
    if (fd_ < 0) return false;
    consumedBefore_ += static_cast<std::uint64_t>(end_ - begin_);
    ssize_t got;
    do {
      got = ::read(fd_, buffer_.data(), buffer_.size());
    } while (got < 0 && errno == EINTR);
    if (got <= 0) {
      begin_ = pos_ = end_ = buffer_.data();
      return false;
    }
    begin_ = pos_ = buffer_.data();
    end_ = pos_ + got;
    return true;
  }

  int fd_ = -1;
  std::vector<std::uint8_t> buffer_;
  const std::uint8_t* pos_ = nullptr;
  const std::uint8_t* end_ = nullptr;
  const std::uint8_t* begin_ = nullptr;
  std::uint64_t consumedBefore_ = 0;
};

enum class LineEnd : std::uint8_t { Ok, TooLong, EndOfFile };

// A line ends at CR or LF; the byte after the terminator (the LF of CR LF) is consumed too.
// Lines longer than `limit` are not kept whole: the result says so.
LineEnd ReadLine(ByteReader& in, std::string& line, std::size_t limit) {
  line.clear();
  for (;;) {
    const int c = in.Get();
    if (c < 0) return LineEnd::EndOfFile;
    if (c == '\r' || c == '\n') {
      in.Get();
      return LineEnd::Ok;
    }
    if (line.size() >= limit) return LineEnd::TooLong;
    line.push_back(static_cast<char>(c));
  }
}

// The header is a title, an empty line, the column heading and the rule; a file whose first
// lines are neither that short nor that few is no dump file, and is not read to its end.
constexpr int kHeaderMaxLines = 16;
enum class HeaderEnd : std::uint8_t { Rule, EndOfFile, Foreign };

HeaderEnd SkipHeader(ByteReader& in) {
  for (int lines = 0; lines < kHeaderMaxLines; ++lines) {
    std::size_t length = 0;
    bool allHyphens = true;
    int c;
    while ((c = in.Get()) >= 0 && c != '\r' && c != '\n') {
      if (++length > kDumpMaxSummaryLine) return HeaderEnd::Foreign;
      allHyphens = allHyphens && c == '-';
    }
    if (c < 0) return HeaderEnd::EndOfFile;
    in.Get();
    if (length > 0 && allHyphens) return HeaderEnd::Rule;
  }
  return HeaderEnd::Foreign;
}

bool IsBlank(char c) { return c == ' ' || c == '\t'; }

int HexValue(int c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

// Ends at a blank or the line's end, so an address column behind blank MAC columns (IPv6
// text such as "12:34:56:78:90:ab::1") is never taken for a MAC.
bool IsMacText(std::string_view text) {
  if (text.size() < kMacTextLength) return false;
  if (text.size() > kMacTextLength && !IsBlank(text[kMacTextLength])) return false;
  for (std::size_t i = 0; i < kMacTextLength; ++i) {
    const bool ok = i % 3 == 2 ? text[i] == ':' : HexValue(text[i]) >= 0;
    if (!ok) return false;
  }
  return true;
}

// What a summary line tells the loader.
struct Summary {
  std::uint32_t size = 0;
  InterfaceKind kind = InterfaceKind::RawSockets;
  std::string_view timeText;
};

// The type column, right-aligned in four: a packet whose type text is empty (IPv4 protocol 0
// has no name) leaves it blank, and the size is then the first token. A longer type overflows
// the column and ends at the blank before the size.
constexpr std::size_t kTypeColumn = 4;
// From the start of the source MAC column to the start of the destination MAC column.
constexpr std::size_t kMacColumnStep = kMacTextLength + 2;

// Type, size, two MAC columns, the time text between "[" and the last character. MAC text in
// either column means the packet came through an adapter (a frame too short for its source
// address shows only the destination); blank columns mean the Raw Sockets kind, which shows
// none.
bool ParseSummary(std::string_view line, Summary& out) {
  std::size_t i = 0;
  const bool typeBlank = line.size() > kTypeColumn &&
                         std::all_of(line.begin(), line.begin() + kTypeColumn, IsBlank);
  if (typeBlank) {
    i = kTypeColumn;
  } else {
    while (i < line.size() && IsBlank(line[i])) ++i;
    while (i < line.size() && !IsBlank(line[i])) ++i;
  }
  while (i < line.size() && IsBlank(line[i])) ++i;
  const std::size_t digits = i;
  std::uint64_t size = 0;
  for (; i < line.size() && line[i] >= '0' && line[i] <= '9'; ++i) {
    size = size * 10 + static_cast<std::uint64_t>(line[i] - '0');
    if (size > kMaxFrameLength) return false;
  }
  if (i == digits) return false;
  std::size_t j = i;
  while (j < line.size() && IsBlank(line[j])) ++j;
  // Two blanks, then the source MAC column, then the destination MAC column.
  const std::string_view destination = line.substr(std::min(i + 2 + kMacColumnStep, line.size()));
  const bool adapter = IsMacText(line.substr(j)) || IsMacText(destination);
  out.kind = adapter ? InterfaceKind::PacketDriver : InterfaceKind::RawSockets;
  const std::size_t open = line.find('[', i);
  if (open == std::string_view::npos) return false;
  out.size = static_cast<std::uint32_t>(size);
  out.timeText = line.substr(open + 1);
  if (!out.timeText.empty()) out.timeText.remove_suffix(1);
  return true;
}

// Three characters per byte, the first two hexadecimal.
bool ReadHexByte(ByteReader& in, std::uint8_t& out) {
  const int high = HexValue(in.Get());
  const int low = HexValue(in.Get());
  if (high < 0 || low < 0 || in.Get() < 0) return false;
  out = static_cast<std::uint8_t>(high << 4 | low);
  return true;
}

// Four characters per byte: up to three decimal digits (blanks count as no digit) and a
// separator.
bool ReadDecByte(ByteReader& in, std::uint8_t& out) {
  int value = 0;
  for (int k = 0; k < 3; ++k) {
    const int c = in.Get();
    if (c >= '0' && c <= '9') {
      value = value * 10 + (c - '0');
    } else if (c == ' ' || c == '\t') {
      value *= 10;
    } else {
      return false;
    }
  }
  if (value > 255 || in.Get() < 0) return false;
  out = static_cast<std::uint8_t>(value);
  return true;
}

bool ReadData(ByteReader& in, DataForm form, std::uint32_t size, std::uint8_t* out) {
  switch (form) {
    case DataForm::None:
    case DataForm::Text:
      return in.Read(out, size);
    case DataForm::Dec:
      for (std::uint32_t k = 0; k < size; ++k) {
        if (!ReadDecByte(in, out[k])) return false;
        if ((k + 1) % kDecPerLine == 0 && in.Get() < 0) return false;
      }
      return true;
    case DataForm::Hex:
      for (std::uint32_t k = 0; k < size; ++k) {
        if (!ReadHexByte(in, out[k])) return false;
        if ((k + 1) % kHexPerLine == 0 && in.Get() < 0) return false;
      }
      return true;
    case DataForm::HexText:
      for (std::uint32_t k = 0; k < size; ++k) {
        if (!ReadHexByte(in, out[k])) return false;
        // The text column is only a mirror of the hex; a cut-short one costs nothing read.
        if ((k + 1) % kHexPerLine == 0) in.Skip(kHexTextLineTail);
      }
      if (const std::uint32_t last = size % kHexPerLine; last) {
        in.Skip(3 * (kHexPerLine - last) + 2 + last);
      }
      return true;
  }
  return false;
}

// Time texts in the default template ("2024.05.01 - 13:45:07.123", local time) give the
// frame its capture time back; any other template gives it the time of loading.
class TimeTextParser {
  // Nanoseconds since 1970 in 64 bits reach 2262; a year outside this is no capture time.
  static constexpr int kFirstYear = 1970, kLastYear = 2200;

 public:
  CaptureTime Parse(std::string_view text) {
    int y, mo, d, h, mi, s, ms;
    char tail;
    const std::string copy(text.substr(0, 64));
    if (std::sscanf(copy.c_str(), "%4d.%2d.%2d - %2d:%2d:%2d.%3d%c", &y, &mo, &d, &h, &mi, &s,
                    &ms, &tail) != 7 ||
        y < kFirstYear || y > kLastYear) {
      return fallback_;
    }
    const std::int64_t key = ((((std::int64_t{y} * 13 + mo) * 32 + d) * 24 + h) * 60 + mi) * 61 + s;
    if (key != lastKey_) {
      std::tm fields{};
      fields.tm_year = y - 1900;
      fields.tm_mon = mo - 1;
      fields.tm_mday = d;
      fields.tm_hour = h;
      fields.tm_min = mi;
      fields.tm_sec = s;
      fields.tm_isdst = -1;
      const std::time_t seconds = std::mktime(&fields);
      if (seconds == static_cast<std::time_t>(-1)) return fallback_;
      lastKey_ = key;
      lastSecond_ = CaptureTime(std::chrono::seconds(seconds));
    }
    return lastSecond_ + std::chrono::milliseconds(ms);
  }

 private:
  CaptureTime fallback_ = CaptureNow();
  std::int64_t lastKey_ = -1;
  CaptureTime lastSecond_{};
};

DumpLoadResult LoadRecords(ByteReader& in, FrameSink& sink, const DumpLoadOptions& options) {
  DumpLoadResult result;
  // Once the sink is full the rest of the file is read on and counted, not kept, so the user
  // learns how much the limit cut off; whatever ends that count, loading ended at the limit.
  std::optional<std::uint64_t> limitAt;
  const auto finish = [&](DumpLoadEnd end, std::uint64_t offset) {
    result.end = limitAt ? DumpLoadEnd::ItemLimitReached : end;
    result.offset = limitAt ? *limitAt : offset;
    if (options.progress) options.progress->store(in.Offset(), std::memory_order_relaxed);
    return result;
  };
  switch (SkipHeader(in)) {
    case HeaderEnd::Rule: break;
    case HeaderEnd::EndOfFile: return finish(DumpLoadEnd::EndOfFile, in.Offset());
    case HeaderEnd::Foreign: return finish(DumpLoadEnd::Unreadable, 0);
  }

  std::vector<std::uint8_t> bytes(kMaxFrameLength);
  FrameBuffer frame;
  TimeTextParser times;
  std::string line;
  line.reserve(kDumpMaxSummaryLine);
  for (;;) {
    if (options.cancel && options.cancel->load(std::memory_order_relaxed)) {
      return finish(DumpLoadEnd::Cancelled, in.Offset());
    }
    if (options.progress) options.progress->store(in.Offset(), std::memory_order_relaxed);
    const std::uint64_t recordStart = in.Offset();
    if (!in.Skip(2)) return finish(DumpLoadEnd::EndOfFile, recordStart);
    const LineEnd lineEnd = ReadLine(in, line, kDumpMaxSummaryLine);
    if (lineEnd == LineEnd::EndOfFile && line.empty()) {
      return finish(DumpLoadEnd::EndOfFile, recordStart);
    }
    // The footer rule ends loading even when the file was cut short inside it.
    if ((lineEnd == LineEnd::Ok && line.empty()) || (!line.empty() && line.front() == '-')) {
      return finish(DumpLoadEnd::Footer, recordStart);
    }
    Summary summary;
    if (lineEnd != LineEnd::Ok || !ParseSummary(line, summary) || !in.Skip(2) ||
        !ReadData(in, options.form, summary.size, bytes.data())) {
      return finish(DumpLoadEnd::Unreadable, recordStart);
    }
    in.Skip(2);  // the first half of the next record's lead-in
    if (limitAt) {
      ++result.notTaken;
      continue;
    }
    FrameRecord record = frame.Fill({bytes.data(), summary.size}, summary.kind,
                                    times.Parse(summary.timeText));
    record.timeText = summary.timeText;
    switch (sink.Take(record)) {
      case SinkVerdict::Stored: ++result.stored; break;
      case SinkVerdict::Skipped: ++result.skipped; break;
      case SinkVerdict::OutOfMemory: return finish(DumpLoadEnd::OutOfMemory, recordStart);
      case SinkVerdict::ListFull: return finish(DumpLoadEnd::ListFull, recordStart);
      case SinkVerdict::ItemLimitReached:
        ++result.stored;
        limitAt = in.Offset();
        break;
    }
  }
}

}  // namespace

DumpSaveOptions DumpSaveOptionsFrom(const SavingSettings& saving, UiLanguage language) {
  DumpSaveOptions options;
  options.render.form = saving.saveData ? static_cast<DataForm>(saving.dataForm) : DataForm::None;
  options.render.gap = IpGap::Narrow;
  options.render.level = static_cast<DataLevel>(saving.dataLevel);
  options.onlyListed = saving.onlyListed;
  options.append = saving.append;
  options.language = language;
  return options;
}

std::string DumpHeader(UiLanguage language) {
  std::string header = Tr(Text::DumpHeaderTitle, language);
  header += kLineBreak;
  header += kLineBreak;
  header += Tr(Text::DumpColumnHeading, language);
  header += kLineBreak;
  header.append(language == UiLanguage::German ? kDumpRuleLengthGerman : kDumpRuleLength, '-');
  return header;
}

std::string DumpFooter(UiLanguage language, long packets, long milliseconds) {
  std::string footer(kLineBreak);
  footer += kLineBreak;
  footer.append(language == UiLanguage::German ? kDumpRuleLengthGerman : kDumpRuleLength, '-');
  footer += kLineBreak;
  footer += Tr(Text::DumpColumnHeading, language);
  footer += kLineBreak;
  const char* plural = packets == 1 ? "" : Tr(Text::DumpPluralEnding, language);
  footer += FormatText(Text::DumpFooterCount, language, packets, plural, milliseconds);
  return footer;
}

DumpSaveResult SaveDumpFile(const std::string& path, const PacketStore& store,
                            const DumpSaveOptions& options,
                            std::atomic<std::size_t>* progress) {
  DumpSaveResult result;
  const std::int64_t started = MillisecondsSinceStart();
  DumpOutput file;
  if ((result.error = file.Open(path, options.append)) != 0) return result;
  if (!file.Write(DumpHeader(options.language))) {
    result.error = file.error();
    return result;
  }

  PacketRenderer renderer(options.render);
  std::vector<std::int32_t> batch;
  std::string text;
  std::size_t next = 0;
  // A stop ends the save between batches, with a footer that counts what was written.
  while (!(options.cancel && options.cancel->load()) &&
         NextBatch(store, options.onlyListed, next, batch)) {
    text.clear();
    const std::size_t rendered =
        ForEachPacket(store, batch, !options.onlyListed, [&](const PacketRef& packet) {
          renderer.Append(packet, text);
          return true;
        });
    if (!file.Write(text)) {
      result.error = file.error();
      return result;
    }
    result.packets += rendered;
    if (progress) progress->store(result.packets, std::memory_order_relaxed);
  }
  result.stopped = options.cancel && options.cancel->load();
  result.milliseconds = static_cast<long>(MillisecondsSinceStart() - started);
  const std::string footer =
      DumpFooter(options.language, static_cast<long>(result.packets), result.milliseconds);
  file.Write(footer);
  result.error = file.Finish();
  result.ok = result.error == 0;
  return result;
}

CaptureExportResult WriteCaptureFile(const std::string& path, const PacketStore& store,
                                     bool onlyListed, std::optional<CaptureFileFormat> format,
                                     std::atomic<std::size_t>* progress,
                                     const std::atomic<bool>* cancel) {
  CaptureExportResult result;
  CaptureFileWriter writer;
  if (!writer.Open(path, format)) {
    result.error = writer.Error();
    return result;
  }
  std::vector<std::int32_t> batch;
  std::size_t next = 0;
  bool ok = true;
  while (ok && !(cancel && cancel->load()) && NextBatch(store, onlyListed, next, batch)) {
    result.packets += ForEachPacket(store, batch, !onlyListed, [&](const PacketRef& packet) {
      FrameRecord frame{{packet.frame, packet.frameLength}, packet.frameLength, packet.time,
                        packet.kind, packet.timeText};
      return ok = writer.Write(frame);
    });
    if (progress) progress->store(result.packets, std::memory_order_relaxed);
  }
  result.stopped = cancel && cancel->load();
  result.leftOut = writer.FramesLeftOut();
  ok = writer.Close() && ok;
  result.ok = ok;
  if (!ok) result.error = writer.Error();
  return result;
}

DumpLoadResult LoadDumpBytes(std::span<const std::uint8_t> bytes, FrameSink& sink,
                             const DumpLoadOptions& options) {
  ByteReader in(bytes);
  return LoadRecords(in, sink, options);
}

DumpLoadResult LoadDumpFile(const std::string& path, FrameSink& sink,
                            const DumpLoadOptions& options) {
  DumpLoadResult result;
  // Not blocking: a FIFO would otherwise hold the open until someone writes to it.
  UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  struct stat status {};
  if (!fd || ::fstat(fd.get(), &status) != 0) {
    result.end = DumpLoadEnd::OpenFailed;
    result.error = errno;
    return result;
  }
  // A folder reads as empty and a device may never end: only a regular file is a dump file.
  if (!S_ISREG(status.st_mode)) {
    result.end = DumpLoadEnd::NotRegularFile;
    return result;
  }
  ::fcntl(fd.get(), F_SETFL, O_RDONLY);
  ByteReader in(fd.get());
  return LoadRecords(in, sink, options);
}

std::optional<Text> DumpLoadMessage(DumpLoadEnd end) {
  switch (end) {
    case DumpLoadEnd::OpenFailed: return Text::DumpUnableToOpen;
    case DumpLoadEnd::NotRegularFile: return Text::DumpNotRegularFile;
    case DumpLoadEnd::OutOfMemory: return Text::DumpLoadNoMemory;
    case DumpLoadEnd::ListFull: return Text::DumpLoadListFull;
    case DumpLoadEnd::ItemLimitReached: return Text::DumpLoadItemLimit;
    default: return std::nullopt;
  }
}

std::string DescribeDumpLoad(const DumpLoadResult& result, const std::string& path,
                             UiLanguage language) {
  const auto offset = static_cast<unsigned long long>(result.offset);
  if (const std::optional<Text> message = DumpLoadMessage(result.end)) {
    std::string line = Tr(*message, language);
    if (result.end == DumpLoadEnd::OpenFailed) {
      line += " (" + path + ": " + ErrnoText(result.error) + ")";
    } else if (result.end == DumpLoadEnd::NotRegularFile) {
      line += " (" + path + ")";
    }
    return line;
  }
  switch (result.end) {
    case DumpLoadEnd::Unreadable:
      return FormatText(Text::DumpLoadStoppedUnreadable, language, path.c_str(), offset);
    case DumpLoadEnd::Cancelled:
      return FormatText(Text::DumpLoadStoppedAt, language, path.c_str(), offset);
    default: return {};
  }
}

}  // namespace vormelt
