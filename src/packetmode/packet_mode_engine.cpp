// PacketModeEngine: the store is fed through the engine, so a count limit (and later the
// logging hooks) sit between the receive loop and the store without the window knowing.
#include "packetmode/packet_mode_engine.hpp"

#include <thread>

#include "filters/filter_profile.hpp"

namespace vormelt {

PacketModeEngine::PacketModeEngine(std::int32_t capacity) : store_(capacity) {
  store_.SetFilter(&gate_);
}

PacketModeEngine::~PacketModeEngine() { capture_.Quit(); }

std::string PacketModeEngine::LoadCurrentProfile(UiLanguage language) {
  return LoadCurrentProfileInto(FilterMode::Packet, filter_, language);
}

void PacketModeEngine::SetDateTimeTemplate(std::string dateTimeTemplate) {
  store_.SetDateTimeTemplate(std::move(dateTimeTemplate));
}

void PacketModeEngine::Clear() { store_.Clear(); }

std::optional<DumpLoadResult> PacketModeEngine::LoadDump(const std::string& path,
                                                        const DumpLoadOptions& options,
                                                        bool throughFilters) {
  if (Capturing()) return std::nullopt;
  gate_.bypass.store(!throughFilters);
  DumpLoadResult result = LoadDumpFile(path, store_, options);
  gate_.bypass.store(false);
  return result;
}

bool PacketModeEngine::StartLogging(LogConfig config) {
  if (renewWhenFull_.load()) config.clearWhenHolding = store_.Capacity() / 2;
  return logger_.Start(std::move(config));
}

// Receive thread, store full. The logger was woken at half full and should have emptied the
// store by now; when it has not, the capture waits for it (the socket buffer holds what comes
// meanwhile) rather than drop what is not logged yet.
bool PacketModeEngine::RenewFullStore() {
  while (logger_.Running() && store_.IsFull()) {
    const LogStatus status = logger_.Status();
    if (status.failing) break;  // the logs cannot take them: they are dropped and counted below
    const CaptureSession& session = capture_.Session();
    if (session.stopRequested.load() || session.quitRequested.load()) return false;
    logger_.Wake();
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  if (store_.IsFull()) {
    const std::int64_t unlogged = logger_.Running() ? logger_.Status().behind : store_.ItemCount();
    store_.Clear();
    droppedUnlogged_.fetch_add(unlogged);
  }
  wakeLoggerAt_ = 0;
  return true;
}

SinkVerdict PacketModeEngine::Take(const FrameRecord& frame) {
  if (renewWhenFull_.load(std::memory_order_relaxed)) {
    if (store_.IsFull() && !RenewFullStore()) return SinkVerdict::ItemLimitReached;
    // Past half full, the logger is woken every few thousand packets until it has caught up
    // and emptied the store.
    const std::int32_t count = store_.ItemCount();
    if (logger_.Running() && count >= store_.Capacity() / 2 && count >= wakeLoggerAt_) {
      logger_.Wake();
      wakeLoggerAt_ = count + 4096;
    } else if (count < wakeLoggerAt_ - 4096) {
      wakeLoggerAt_ = 0;  // emptied meanwhile
    }
  }
  SinkVerdict verdict = store_.Take(frame);
  // Stored at the last index: the next packet renews the store instead of the capture ending.
  if (verdict == SinkVerdict::ItemLimitReached && renewWhenFull_.load()) verdict = SinkVerdict::Stored;
  const long limit = stopAfter_.load(std::memory_order_relaxed);
  if (verdict == SinkVerdict::Stored && limit > 0 &&
      storedSinceStart_.fetch_add(1, std::memory_order_relaxed) + 1 >= limit) {
    return SinkVerdict::ItemLimitReached;
  }
  return verdict;
}

}  // namespace vormelt
