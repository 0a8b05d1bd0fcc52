// The decision to write runs in a fixed order: an HTTP file whose type the filter
// refuses is dropped, a stream that is not HTTP is dropped when only HTTP counts (else written
// whole as "txt"), then the size test. Compressed bodies are written as served, with ".gz"
// added to the extension: they open with the usual tools and nothing is inflated from the net.
#include "filemode/engine.hpp"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <utility>

#include "common/file_write.hpp"
#include "common/owned_counter.hpp"
#include "filemode/http_response.hpp"
#include "filemode/mime_table.hpp"
#include "filemode/reassembly.hpp"
#include "filters/filter_settings.hpp"
#include "packets/headers.hpp"

namespace vormelt::filemode {
namespace {

std::int64_t Milliseconds(CaptureTime time) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count();
}

LocalTime LocalTimeOf(std::int64_t ms) {
  return ToLocalTime(CaptureTime(std::chrono::milliseconds(ms)));
}

std::string Folded(std::string_view text) {
  std::string out(text);
  std::transform(out.begin(), out.end(), out.begin(),
                 [](char c) { return static_cast<char>(std::tolower(static_cast<unsigned char>(c))); });
  if (!out.empty() && out.front() == '.') out.erase(0, 1);
  return out;
}

// A list entry names a file type by its extension or by its whole content type.
bool ListNames(const std::vector<std::string>& list, std::string_view contentType,
               std::string_view extension) {
  return std::any_of(list.begin(), list.end(), [&](const std::string& entry) {
    const std::string folded = Folded(entry);
    return !folded.empty() && (folded == extension || folded == contentType);
  });
}

CaptureMessage ErrorMessage(Text text) {
  CaptureMessage message;
  message.caption = Text::FileErrorCaption;
  message.text = text;
  return message;
}

// What the streams waiting for the writing thread may hold before reading waits for it: enough
// to keep both busy, little beside what the open streams hold.
constexpr std::int64_t kMaxQueuedBytes = 16 << 20;
// A pass hands its streams over in batches of about this much.
constexpr std::size_t kHandBatchBytes = 2 << 20;

}  // namespace

FileModeEngine::FileModeEngine(const FilterSettings* filter) : filter_(filter) {}

FileModeEngine::~FileModeEngine() { Finish(); }

void FileModeEngine::Start(const FileModeOptions& options, StreamClock clock,
                           const FileCounts& counts) {
  Finish();
  {
    std::lock_guard lock(namingMutex_);
    options_ = options;
  }
  clock_ = clock;
  table_.Reset({options.dirty, options.pshOnly, options.onlyHttp, options.acceptPartial});
  for (auto* counter : {&bytesReceived_, &filesProcessing_, &filesWritten_, &filesFailed_,
                        &filesIncomplete_, &bytesWritten_, &packetsStored_, &packetsDropped_}) {
    counter->store(0);
  }
  busyStep_.store(0);
  failureRun_ = 0;
  {
    std::lock_guard lock(countsMutex_);
    counts_ = counts;
    counts_.sinceStart = 0;
  }
  nextPassMs_ = 0;
  fileNowMs_ = 0;
  finished_.store(false);
  if (clock == StreamClock::Live) {
    passThread_ = std::jthread([this](std::stop_token stop) { RunPasses(stop); });
  } else {
    queueClosed_ = false;
    writeThread_ = std::thread([this] { RunWrites(); });
  }
}

SinkVerdict FileModeEngine::Take(const FrameRecord& frame) {
  if (frame.length() < kEthernetHeaderLength) return SinkVerdict::Skipped;
  const auto ip = frame.bytes.subspan(kEthernetHeaderLength);
  AddOwned(bytesReceived_, ip.size());
  const std::uint16_t etherType = FrameView(frame.bytes.data(), frame.length()).etherType();
  if (etherType != kEtherTypeIpv4 && etherType != kEtherTypeIpv6) return SinkVerdict::Skipped;
  const std::uint32_t tooLong = etherType == kEtherTypeIpv4 ? kMaxPacketLength : kMaxIpv6Length;
  if (ip.size() < kMinPacketLength || ip.size() >= tooLong) return SinkVerdict::Skipped;
  if (options_.applyFilters && filter_ &&
      !filter_->PassesFilters(frame.bytes.data(), frame.length(), false, true)) {
    return SinkVerdict::Skipped;
  }
  const std::int64_t nowMs = Milliseconds(frame.time);
  if (clock_ == StreamClock::File) {
    // The file's clock moves only forwards; a pass runs whenever it crosses the next 100 ms.
    fileNowMs_ = std::max(fileNowMs_, nowMs);
    if (fileNowMs_ >= nextPassMs_) {
      Pass(fileNowMs_, false);
      nextPassMs_ = fileNowMs_ + kPassIntervalMs;
    }
  }
  // Live, a segment is stamped when it is taken here, by the clock the passes read: with the
  // kernel's stamp, a reader that fell behind (a loaded machine) would make a stream look quiet
  // while its next segments still waited in the capture buffer, and it would be cut in two.
  const std::int64_t arrivalMs =
      clock_ == StreamClock::File ? fileNowMs_ : Milliseconds(CaptureNow());
  const AppendResult result =
      etherType == kEtherTypeIpv4 ? table_.Append(ip, arrivalMs) : table_.AppendIpv6(ip, arrivalMs);
  switch (result) {
    case AppendResult::Stored:
      AddOwned(packetsStored_, 1);
      return SinkVerdict::Stored;
    case AppendResult::Clash:
    case AppendResult::TableFull:
      AddOwned(packetsDropped_, 1);
      break;
    case AppendResult::NoMemoryAppend:
    case AppendResult::NoMemoryNew:
      PushFatal(result);
      break;
    case AppendResult::NotTcpData:
      break;
  }
  return SinkVerdict::Skipped;
}

void FileModeEngine::Finish() {
  if (finished_.exchange(true)) return;
  if (passThread_.joinable()) {
    passThread_.request_stop();
    wake_.notify_all();
    passThread_.join();
  }
  if (clock_ == StreamClock::File) {
    Pass(fileNowMs_, true);
    EndWrites();
  } else {
    table_.DiscardAll();
  }
  StreamBytes::ReleasePool();
  EndFailureRun();
}

void FileModeEngine::RunPasses(std::stop_token stop) {
  std::unique_lock lock(wakeMutex_);
  while (!stop.stop_requested()) {
    wake_.wait_for(lock, stop, std::chrono::milliseconds(kPassIntervalMs), [] { return false; });
    if (stop.stop_requested()) break;
    lock.unlock();
    Pass(Milliseconds(CaptureNow()), false);
    lock.lock();
  }
}

void FileModeEngine::Pass(std::int64_t nowMs, bool everything) {
  busyStep_.fetch_add(1, std::memory_order_relaxed);
  const std::int64_t cutoff = nowMs - options_.ackTimeoutMs;
  std::uint32_t from = 0;
  // The file clock hands a pass's streams over together: one wake-up of the writing thread per
  // pass, not one per stream.
  std::vector<Taken> batch;
  std::size_t batchBytes = 0;
  while (auto stream = table_.TakeRipe(from, cutoff, everything)) {
    const std::uint32_t slot = stream->slot;
    from = slot + 1;
    if (clock_ == StreamClock::File) {
      // Released at once, as if written: the slots later packets get do not depend on how far
      // the writing thread has come.
      const std::size_t bytes = stream->bytes.size() + stream->segments.size() * sizeof(Segment);
      batch.push_back({std::move(*stream), nowMs, bytes});
      batchBytes += bytes;
      // Counted as queued from now on, so the memory display never misses it.
      queuedBytes_.fetch_add(static_cast<std::int64_t>(bytes), std::memory_order_relaxed);
      if (batchBytes >= kHandBatchBytes) {
        Hand(batch);
        batchBytes = 0;
      }
    } else {
      Process(*stream, nowMs);
    }
    table_.Release(slot);
  }
  if (!batch.empty()) Hand(batch);
}

void FileModeEngine::Hand(std::vector<Taken>& batch) {
  std::unique_lock lock(queueMutex_);
  // The batch is counted in queuedBytes_ already.
  queueChanged_.wait(lock, [&] {
    return queue_.empty() || queuedBytes_.load(std::memory_order_relaxed) < kMaxQueuedBytes;
  });
  for (Taken& taken : batch) queue_.push_back(std::move(taken));
  batch.clear();
  lock.unlock();
  queueChanged_.notify_all();
}

void FileModeEngine::RunWrites() {
  std::unique_lock lock(queueMutex_);
  for (;;) {
    queueChanged_.wait(lock, [&] { return queueClosed_ || !queue_.empty(); });
    if (queue_.empty()) return;
    Taken taken = std::move(queue_.front());
    queue_.pop_front();
    lock.unlock();
    Process(taken.stream, taken.nowMs);
    taken.stream = {};
    lock.lock();
    queuedBytes_.fetch_sub(static_cast<std::int64_t>(taken.bytes), std::memory_order_relaxed);
    queueChanged_.notify_all();
  }
}

// Every stream handed over is written before this returns.
void FileModeEngine::EndWrites() {
  if (!writeThread_.joinable()) return;
  {
    std::lock_guard lock(queueMutex_);
    queueClosed_ = true;
  }
  queueChanged_.notify_all();
  writeThread_.join();
}

void FileModeEngine::Process(Stream& stream, std::int64_t nowMs) {
  filesProcessing_.fetch_add(1, std::memory_order_relaxed);
  if (options_.latestDuplicates) DropEarlierDuplicates(stream);
  Assembled assembled;
  try {
    assembled = Assemble(stream);
  } catch (const std::bad_alloc&) {
    CaptureMessage message = ErrorMessage(Text::FileAllocationError);
    message.numberArgument = static_cast<long>(stream.bytes.size());
    messages_.Push(std::move(message));
    return;
  }
  const std::span<const std::uint8_t> data = assembled.data;
  const auto http = RecognizeHttp(data, options_.acceptPartial);
  if (!http) {
    if (options_.onlyHttp) return;
    if (options_.applyFilters && !PassesFileTests({}, kDefaultExtension, data.size())) return;
    Write(stream, data, 0, false, kDefaultExtension, {}, assembled.gapFree, nowMs);
    return;
  }
  std::string extension = SafeExtension(
      ExtensionForType(http->contentType, http->extension, options_.shortExtensions));
  if (http->compressed) extension += ".gz";
  const std::uint64_t bodyLength = data.size() - std::min(data.size(), http->bodyOffset);
  if (options_.applyFilters && !PassesFileTests(http->contentType, extension, bodyLength)) return;
  // A body that says how long it is (a length, or chunks up to the last one, judged as they
  // are written) is whole when it is that long: a retransmitted copy of bytes already taken
  // that starts inside another segment is no lost part. Only a body that ends with its
  // connection has nothing but the segments to go by.
  bool complete = assembled.gapFree;
  if (http->chunked) {
    complete = true;
  } else if (http->contentLength) {
    complete = *http->contentLength == bodyLength;
  }
  Write(stream, data, http->bodyOffset, http->chunked, extension, http->contentType, complete,
        nowMs);
}

bool FileModeEngine::PassesFileTests(std::string_view contentType, std::string_view extension,
                                     std::uint64_t bodyLength) const {
  if (!filter_) return true;
  const FilterValues values = filter_->Values();
  const std::string type = Folded(contentType);
  const std::string ext = Folded(extension);
  if (!values.extensionsAllowed.empty() && !ListNames(values.extensionsAllowed, type, ext)) {
    return false;
  }
  if (ListNames(values.extensionsDenied, type, ext)) return false;
  if (values.maxFileSize != 0 && bodyLength > values.maxFileSize) return false;
  return bodyLength >= values.minFileSize;
}

void FileModeEngine::Write(const Stream& stream, std::span<const std::uint8_t> data,
                           std::size_t bodyOffset, bool chunked, std::string_view extension,
                           std::string contentType, bool complete, std::int64_t nowMs) {
  const NamingOptions naming = Naming();
  NameFields fields{stream.source, stream.destination, LocalTimeOf(nowMs), Counts()};
  const std::string name = ExpandName(naming.nameTemplate, naming.dateTimeTemplate, fields);
  // The body's pieces: the chunks' data of a chunked one, found once however often the file
  // is tried under another name.
  std::vector<std::span<const std::uint8_t>> pieces;
  bool chunksWhole = true;
  if (chunked) {
    chunksWhole = ForEachChunk(data, bodyOffset, [&](std::span<const std::uint8_t> chunk) {
      pieces.push_back(chunk);
    });
  } else {
    pieces.push_back(data.subspan(std::min(bodyOffset, data.size())));
  }
  const PlacedFile placed = PlaceFile(naming, name, extension, stream.source,
                                      stream.destination,
                                      [&](FileBeside& file) { file.Write(pieces); });
  if (placed.outcome == PlaceOutcome::InvalidName || placed.outcome == PlaceOutcome::AllTaken) {
    return;
  }
  WrittenFile record{placed.path, placed.written, std::move(contentType), stream.source,
                     stream.destination, stream.sourcePort, stream.destinationPort,
                     stream.firstMs, stream.lastMs, complete && chunksWhole, {}};
  if (placed.outcome == PlaceOutcome::Failed) {
    record.size = 0;
    record.complete = false;
    record.error = ErrnoText(placed.error);
    ReportFailure(placed);
  } else {
    EndFailureRun();
    {
      std::lock_guard lock(countsMutex_);
      ++counts_.sinceStart;
      ++counts_.sinceLaunch;
      ++counts_.installed;
      ++counts_.custom;
    }
    filesWritten_.fetch_add(1, std::memory_order_relaxed);
    if (!record.complete) filesIncomplete_.fetch_add(1, std::memory_order_relaxed);
    bytesWritten_.fetch_add(placed.written, std::memory_order_relaxed);
  }
  std::lock_guard lock(writtenMutex_);
  written_.push_back(std::move(record));
}

void FileModeEngine::ReportFailure(const PlacedFile& placed) {
  filesFailed_.fetch_add(1, std::memory_order_relaxed);
  if (failureRun_++ != 0) return;
  // A folder that cannot take the file at all keeps the message that asks for another one; a
  // disk that fails while writing, or is full, says the file was not kept.
  const bool diskFailed = placed.created || placed.error == ENOSPC || placed.error == EDQUOT;
  CaptureMessage message = ErrorMessage(diskFailed ? Text::FileNotWritten : Text::FileWriteError);
  message.textArgument = placed.path + " (" + ErrnoText(placed.error) + ")";
  messages_.Push(std::move(message));
}

void FileModeEngine::EndFailureRun() {
  if (failureRun_ > 1) {
    CaptureMessage message = ErrorMessage(Text::FileNotWrittenMore);
    message.numberArgument = static_cast<long>(failureRun_ - 1);
    messages_.Push(std::move(message));
  }
  failureRun_ = 0;
}

void FileModeEngine::PushFatal(AppendResult result) {
  CaptureMessage message = ErrorMessage(Text::FileFatalAllocation);
  message.numberArgument = result == AppendResult::NoMemoryAppend ? 0 : 2;
  messages_.Push(std::move(message));
}

FileModeCounters FileModeEngine::Counters() const {
  FileModeCounters c;
  c.bytesReceived = bytesReceived_.load(std::memory_order_relaxed);
  c.filesProcessing = filesProcessing_.load(std::memory_order_relaxed);
  c.filesWritten = filesWritten_.load(std::memory_order_relaxed);
  c.filesFailed = filesFailed_.load(std::memory_order_relaxed);
  c.filesIncomplete = filesIncomplete_.load(std::memory_order_relaxed);
  c.bytesWritten = bytesWritten_.load(std::memory_order_relaxed);
  c.memoryInUse = table_.MemoryInUse() + queuedBytes_.load(std::memory_order_relaxed);
  c.activeStreams = table_.CountFilling();
  c.packetsStored = packetsStored_.load(std::memory_order_relaxed);
  c.packetsDropped = packetsDropped_.load(std::memory_order_relaxed);
  return c;
}

void FileModeEngine::Rename(const NamingOptions& naming) {
  std::lock_guard lock(namingMutex_);
  options_.naming = naming;
}

NamingOptions FileModeEngine::Naming() const {
  std::lock_guard lock(namingMutex_);
  return options_.naming;
}

void FileModeEngine::SetCustomCount(std::uint64_t custom) {
  std::lock_guard lock(countsMutex_);
  counts_.custom = custom;
}

FileCounts FileModeEngine::Counts() const {
  std::lock_guard lock(countsMutex_);
  return counts_;
}

std::string FileModeEngine::BusyText() const {
  static constexpr const char* kSteps[] = {"----", "/---", "|---", "\\---"};
  return kSteps[busyStep_.load(std::memory_order_relaxed) % 4];
}

std::vector<WrittenFile> FileModeEngine::DrainWritten() {
  std::lock_guard lock(writtenMutex_);
  return std::exchange(written_, {});
}

}  // namespace vormelt::filemode
