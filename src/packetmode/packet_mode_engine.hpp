// PacketModeEngine: everything Packet Mode keeps and runs — the packet store, the filter
// settings, the capture session and the current filter profile — without a window. The window,
// `vormelt-cli packets`, the service and the logging thread all drive this one engine.
// It never shows anything: problems come back as texts or queued messages.
#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>

#include "capture/mode_capture.hpp"
#include "common/frame_sink.hpp"
#include "common/texts.hpp"
#include "packetmode/dump_file.hpp"
#include "filters/filter_settings.hpp"
#include "packetmode/packet_logger.hpp"
#include "packets/store.hpp"

namespace vormelt {

class PacketModeEngine final : private FrameSink {
 public:
  // `capacity` is the store's; smaller values are for tests of the limit.
  explicit PacketModeEngine(std::int32_t capacity = kStoreCapacity);
  // Ends any capture before the store and filter it feeds go away.
  ~PacketModeEngine() override;
  PacketModeEngine(const PacketModeEngine&) = delete;
  PacketModeEngine& operator=(const PacketModeEngine&) = delete;

  PacketStore& Store() { return store_; }
  const PacketStore& Store() const { return store_; }
  FilterSettings& Filter() { return filter_; }
  // The capture in the shape every mode shares; Session() is its CaptureSession.
  ModeCapture& Capture() { return capture_; }
  const ModeCapture& Capture() const { return capture_; }
  CaptureSession& Session() { return capture_.Session(); }
  const CaptureSession& Session() const { return capture_.Session(); }

  // Applies the current filter profile of Packet Mode. Returns what to tell the user, once, in
  // `language` (empty when the profile was fine or missing); a damaged profile is kept aside.
  std::string LoadCurrentProfile(UiLanguage language);
  // The date/time template for the time texts of packets stored from now on.
  void SetDateTimeTemplate(std::string dateTimeTemplate);
  // Ends a capture by itself once this many packets were stored (0: no limit), the way a full
  // store would: for scripts that want the first N packets.
  void SetStopAfter(long packets) { stopAfter_ = packets; }

  // Starts capturing live on `target`, or reads a capture file into an emptied store. False
  // (nothing started) while a capture runs.
  bool Start(const CaptureTarget& target) { return capture_.Start(target); }
  bool StartLive(const CaptureTarget& target) { return Start(target); }
  bool StartFile(const std::string& path) { return Start(CaptureTarget::File(path)); }
  // Ends the running capture; returns at once.
  void Stop() { capture_.Stop(); }
  // The chosen interface changed while listening: stop, then start on `target` as soon as the
  // old capture has ended (on the capture's own thread, never the caller's).
  void Restart(const CaptureTarget& target) { capture_.Restart(target); }
  // Empties the store and its rows.
  void Clear();
  // Adds the packets of a dump file to the store, after those it holds, on the calling thread.
  // With `throughFilters` each one meets the filter (when filtering is enabled), as captured
  // packets do; without, every readable packet is kept. Nullopt while a capture runs.
  std::optional<DumpLoadResult> LoadDump(const std::string& path, const DumpLoadOptions& options,
                                         bool throughFilters);

  // A full store is emptied and the capture goes on, rather than ending it (the service, which
  // has no one to press Clear). With logging running, the logger is woken when the store is
  // half full and empties it once everything in it is logged; a capture that finds the store
  // full waits for that. Without logging (or while logs cannot be written) the packets are
  // dropped, and counted for DroppedUnlogged.
  void SetRenewWhenFull(bool renew) { renewWhenFull_.store(renew); }
  // Packets dropped from a full store without being logged, since the last call.
  std::int64_t TakeDroppedUnlogged() { return droppedUnlogged_.exchange(0); }

  // Automatic logging of what the store takes, on the logger's own thread. StartLogging
  // replaces a running logger's settings; false when the settings name no form it can make.
  // StopLogging writes what is still unlogged, then ends the thread.
  bool StartLogging(LogConfig config);
  void StopLogging() { logger_.Stop(); }
  PacketLogger& Logger() { return logger_; }
  LogStatus LoggingStatus() const { return logger_.Status(); }
  // Frames the capture handed over since the engine was made, and their bytes on the wire,
  // whether stored or not (for the metrics); readable from any thread.
  std::uint64_t FramesReceived() const { return capture_.Frames(); }
  std::uint64_t BytesReceived() const { return capture_.Bytes(); }
  // For closing: ends the capture and waits for its thread.
  void Quit() { capture_.Quit(); }

  bool Capturing() const { return capture_.Capturing(); }
  // The running (or last) capture reads a file rather than an interface.
  bool ReadingFile() const { return capture_.ReadingFile(); }

 private:
  SinkVerdict Take(const FrameRecord& frame) override;
  bool IsFull() const override { return !renewWhenFull_.load() && store_.IsFull(); }
  bool RenewFullStore();

  // What the store asks: the filter, unless a dump file is being loaded past it.
  class FilterGate final : public PacketFilterSeam {
   public:
    explicit FilterGate(FilterSettings& filter) : filter_(filter) {}
    bool Enabled() const override { return !bypass.load() && filter_.Enabled(); }
    bool Passes(const std::uint8_t* frame, std::uint32_t length) override {
      return filter_.Passes(frame, length);
    }
    std::shared_ptr<const FilterColumnTexts> ColumnTexts() override {
      return filter_.ColumnTexts();
    }
    std::atomic<bool> bypass{false};

   private:
    FilterSettings& filter_;
  };

  PacketStore store_;
  FilterSettings filter_;
  FilterGate gate_{filter_};
  std::atomic<long> stopAfter_{0};
  std::atomic<long> storedSinceStart_{0};
  std::atomic<bool> renewWhenFull_{false};
  std::atomic<std::int64_t> droppedUnlogged_{0};
  std::int32_t wakeLoggerAt_ = 0;  // receive thread: the item count that wakes the logger next
  // After the store it reads, before the session: ends after capture, before the store goes.
  PacketLogger logger_{store_};
  // Last member: its thread is ended (in ~PacketModeEngine) before the rest goes. A start
  // counts anew towards the stop-after limit; a file is read into an emptied store.
  ModeCapture capture_{*this, [this](const CaptureTarget& target) {
                         storedSinceStart_.store(0);
                         if (target.type == CaptureTarget::Type::File) store_.Clear();
                       }};
};

}  // namespace vormelt
