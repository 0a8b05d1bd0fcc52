// FileModeEngine: File Mode as a FrameSink. The capture side sorts TCP segments into the
// StreamTable; every 100 ms a pass takes the streams that have been quiet for longer than the
// ACK timeout, rebuilds them, recognises HTTP responses and writes their bodies beneath the
// chosen folder. Live captures run the passes on the engine's own thread by the wall clock;
// capture files take the streams on the reading thread by the packets' own times, so a file
// gives the same files every time, and hand them in that order to a writing thread, so that
// reading the next packets and writing the last bodies share the machine's cores. Counters are
// atomics for the window's timer; no Qt here.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "common/frame_sink.hpp"
#include "common/message.hpp"
#include "filemode/naming.hpp"
#include "filemode/stream_table.hpp"

namespace vormelt {
class FilterSettings;
}

namespace vormelt::filemode {

inline constexpr std::int64_t kPassIntervalMs = 100;
inline constexpr std::int32_t kDefaultAckTimeoutMs = 1000;

struct FileModeOptions {
  bool onlyHttp = true;          // "Only store HTTP based file streams as files"
  bool acceptPartial = false;    // "Accept partial content"
  bool dirty = false;            // "Dirty Mode (may be faster)"
  bool pshOnly = false;          // "Only watch PSH packets."
  bool latestDuplicates = false; // "Use latest of duplicate packets."
  bool applyFilters = false;     // "Apply filters to packets and files."
  bool shortExtensions = false;  // "Use short file extensions (when available)."
  std::int32_t ackTimeoutMs = kDefaultAckTimeoutMs;
  NamingOptions naming;          // folder, templates, sub-folders, over-writing
};

// Which clock times the streams.
enum class StreamClock : std::uint8_t {
  Live,  // arrival times; a thread makes the passes by the wall clock; Stop drops the unfinished
  File,  // the file's times; passes as those times advance; the end of the file takes them all
};

struct FileModeCounters {
  std::uint64_t bytesReceived = 0;
  std::uint64_t filesProcessing = 0;  // streams taken so far
  std::uint64_t filesWritten = 0;
  std::uint64_t filesFailed = 0;      // bodies that could not be written whole; none was kept
  std::uint64_t filesIncomplete = 0;  // written, but a part of the body never came
  std::uint64_t bytesWritten = 0;
  std::int64_t memoryInUse = 0;
  std::uint32_t activeStreams = 0;    // streams filling now
  std::uint64_t packetsStored = 0;
  std::uint64_t packetsDropped = 0;   // dirty-mode clashes and a full table
};

// One file written, or one that could not be, for the window's list, the command line and its
// manifest.
struct WrittenFile {
  std::string path;         // as written, or the name that was tried
  std::uint64_t size = 0;   // 0 when not written: nothing of it was kept
  std::string contentType;  // empty for a stream that was not HTTP
  IpAddress source, destination;
  std::uint16_t sourcePort = 0, destinationPort = 0;
  std::int64_t firstMs = 0, lastMs = 0;
  bool complete = false;    // no gap, and as long as its length or chunks said
  std::string error;        // why it could not be written ("No space left on device"); empty
                            // when it was
  bool written() const { return error.empty(); }
};

class FileModeEngine final : public FrameSink {
 public:
  // `filter` (may be null) is asked when filtering applies; it must outlive the engine.
  explicit FileModeEngine(const FilterSettings* filter = nullptr);
  ~FileModeEngine() override;
  FileModeEngine(const FileModeEngine&) = delete;
  FileModeEngine& operator=(const FileModeEngine&) = delete;

  // The Start button: empties the table and the counters (%FCS too), adopts the options and,
  // for a live clock, starts the pass thread. `counts` carries %FCL, %FCI and %FCC on.
  void Start(const FileModeOptions& options, StreamClock clock, const FileCounts& counts);

  SinkVerdict Take(const FrameRecord& frame) override;
  // The capture ended: a file's streams are all rebuilt now; a live capture's unfinished ones
  // are dropped. Ends the pass thread. Safe to call more than once.
  void Finish() override;

  // While a run goes on: the next file written is named and placed by `naming`, and %FCC goes
  // on from `custom` as the user set it. Safe from any thread; a file being written keeps the
  // naming it began with.
  void Rename(const NamingOptions& naming);
  void SetCustomCount(std::uint64_t custom);

  FileModeCounters Counters() const;
  FileCounts Counts() const;
  // "----", "/---", "|---", "\---", advancing one step per pass.
  std::string BusyText() const;
  std::vector<WrittenFile> DrainWritten();
  MessageQueue& Messages() { return messages_; }

 private:
  // A stream taken by a pass by the file's clock, on its way to the writing thread.
  struct Taken {
    Stream stream;
    std::int64_t nowMs;
    std::size_t bytes;
  };
  void RunPasses(std::stop_token stop);
  void Pass(std::int64_t nowMs, bool everything);
  // The file clock's hand-over of a batch (emptied): it waits while the streams queued hold
  // more than kMaxQueuedBytes, so memory stays bounded when the disk is slower than the file.
  void Hand(std::vector<Taken>& batch);
  void RunWrites();
  void EndWrites();
  void Process(Stream& stream, std::int64_t nowMs);
  bool PassesFileTests(std::string_view contentType, std::string_view extension,
                       std::uint64_t bodyLength) const;
  void Write(const Stream& stream, std::span<const std::uint8_t> data, std::size_t bodyOffset,
             bool chunked, std::string_view extension, std::string contentType, bool complete,
             std::int64_t nowMs);
  void PushFatal(AppendResult result);
  // A body that could not be written is told once per run of failures: the first with its path
  // and reason, the rest as a count when writing works again or the capture ends.
  void ReportFailure(const PlacedFile& placed);
  void EndFailureRun();

  NamingOptions Naming() const;

  const FilterSettings* filter_;
  StreamTable table_;
  FileModeOptions options_;  // its naming may change under namingMutex_ while a run goes on
  mutable std::mutex namingMutex_;
  StreamClock clock_ = StreamClock::Live;
  MessageQueue messages_;

  // The pass thread and its wake-up; only the live clock has one.
  std::mutex wakeMutex_;
  std::condition_variable_any wake_;
  std::jthread passThread_;
  // Passes by the file's clock, on the reading thread, and the streams they took on their way
  // to the writing thread.
  std::mutex queueMutex_;
  std::condition_variable queueChanged_;
  std::deque<Taken> queue_;
  std::atomic<std::int64_t> queuedBytes_{0};
  bool queueClosed_ = false;
  std::thread writeThread_;
  std::int64_t nextPassMs_ = 0;
  std::int64_t fileNowMs_ = 0;
  std::atomic<bool> finished_{true};

  std::atomic<std::uint64_t> bytesReceived_{0};
  std::atomic<std::uint64_t> filesProcessing_{0};
  std::atomic<std::uint64_t> filesWritten_{0};
  std::atomic<std::uint64_t> filesFailed_{0};
  std::atomic<std::uint64_t> filesIncomplete_{0};
  std::uint64_t failureRun_ = 0;  // failures since the last file written; the writing
                                  // thread's (the pass thread's when live)
  std::atomic<std::uint64_t> bytesWritten_{0};
  std::atomic<std::uint64_t> packetsStored_{0};
  std::atomic<std::uint64_t> packetsDropped_{0};
  std::atomic<std::uint32_t> busyStep_{0};
  // The four counts change only when a file is written (one thread at a time) and are read by
  // the window: one lock keeps them together.
  mutable std::mutex countsMutex_;
  FileCounts counts_;
  std::mutex writtenMutex_;
  std::vector<WrittenFile> written_;
};

}  // namespace vormelt::filemode
