// PacketModeEngine: the store is fed through the engine, so a count limit (and later the
// logging hooks) sit between the receive loop and the store without the window knowing.
#include "packetmode/packet_mode_engine.hpp"

#include "filters/filter_profile.hpp"

namespace vormelt {

PacketModeEngine::PacketModeEngine(std::int32_t capacity) : store_(capacity) {
  store_.SetFilter(&gate_);
}

PacketModeEngine::~PacketModeEngine() { session_.Quit(); }

std::string PacketModeEngine::LoadCurrentProfile(UiLanguage language) {
  return LoadCurrentProfileInto(FilterMode::Packet, filter_, language);
}

void PacketModeEngine::SetDateTimeTemplate(std::string dateTimeTemplate) {
  store_.SetDateTimeTemplate(std::move(dateTimeTemplate));
}

bool PacketModeEngine::StartLive(const CaptureTarget& target) {
  if (Capturing()) return false;
  storedSinceStart_.store(0);
  if (!session_.Start(target, *this)) return false;
  readingFile_.store(false);
  return true;
}

bool PacketModeEngine::StartFile(const std::string& path) {
  if (Capturing()) return false;
  store_.Clear();
  storedSinceStart_.store(0);
  if (!session_.Start(CaptureTarget::File(path), *this)) return false;
  readingFile_.store(true);
  return true;
}

void PacketModeEngine::Stop() {
  if (Capturing()) session_.Stop();
}

void PacketModeEngine::Restart(const CaptureTarget& target) {
  readingFile_.store(false);
  session_.Restart(target, *this);
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

void PacketModeEngine::Quit() { session_.Quit(); }

SinkVerdict PacketModeEngine::Take(const FrameRecord& frame) {
  const SinkVerdict verdict = store_.Take(frame);
  const long limit = stopAfter_.load(std::memory_order_relaxed);
  if (verdict == SinkVerdict::Stored && limit > 0 &&
      storedSinceStart_.fetch_add(1, std::memory_order_relaxed) + 1 >= limit) {
    return SinkVerdict::ItemLimitReached;
  }
  return verdict;
}

}  // namespace vormelt
