// The starter and receive loop of a capture, and the status they publish. Flags are atomics
// with one writer per direction; the only locks guard the status text, the source pointer Stop
// needs, and the thread object itself.
#include "capture/session.hpp"

#include <chrono>
#include <cstdio>

#include "common/owned_counter.hpp"

namespace vormelt {
namespace {

constexpr auto kPollStep = std::chrono::milliseconds(10);
// How often a busy receive loop asks the kernel for its drop count (one system call).
constexpr unsigned kFramesPerDropSample = 4096;

Text ListeningText(const CaptureStatusSnapshot& snapshot) {
  if (snapshot.file) return Text::StatusReadingFile;
  return snapshot.kind == InterfaceKind::RawSockets ? Text::StatusListeningRawSockets
                                                    : Text::StatusListeningAdapter;
}

}  // namespace

std::string StatusText(const CaptureStatusSnapshot& snapshot, UiLanguage language) {
  std::string text;
  switch (snapshot.status) {
    case CaptureStatus::Idle: return {};
    case CaptureStatus::Listening:
      text = FormatText(ListeningText(snapshot), language, snapshot.interfaceText.c_str());
      break;
    case CaptureStatus::Stopped: text = Tr(Text::StatusStopped, language); break;
    case CaptureStatus::ItemLimitReached: text = Tr(Text::StatusItemLimitReached, language); break;
    case CaptureStatus::MaxListItems: text = Tr(Text::StatusMaxListItems, language); break;
    case CaptureStatus::MemoryError: text = Tr(Text::StatusMemoryError, language); break;
  }
  if (snapshot.dropped > 0) {
    text += FormatText(Text::StatusDropped, language,
                       static_cast<unsigned long long>(snapshot.dropped));
  }
  return text;
}

CaptureSession::~CaptureSession() { Quit(); }

bool CaptureSession::Start(const CaptureTarget& target, FrameSink& sink, bool force) {
  return Launch(target, sink, force ? kWaitForever : kDropWhenListening);
}

// maxPolls: kDropWhenListening, kWaitForever, or how many 10 ms polls a forced start makes.
bool CaptureSession::Launch(const CaptureTarget& target, FrameSink& sink, int maxPolls) {
  std::lock_guard lock(threadMutex_);
  bool expected = false;
  const bool acquired = listening.compare_exchange_strong(expected, true);
  if (!acquired && maxPolls == kDropWhenListening) return false;
  // Cleared here, not in the thread, so a Stop right after Start is not lost.
  if (acquired) stopRequested.store(false);
  const std::uint64_t stopSerial = stopSerial_.load();
  if (!acquired) waitingStarts_.fetch_add(1);
  std::jthread previous = std::move(thread_);
  thread_ = std::jthread([this, target, &sink, acquired, stopSerial, maxPolls,
                          previous = std::move(previous)](std::stop_token stop) mutable {
    RunStarter(stop, std::move(target), sink, acquired, stopSerial, maxPolls);
    // The previous loop has cleared listening (or never ran): joining it is immediate.
    if (previous.joinable()) previous.join();
  });
  return true;
}

// A forced start: waits in 10 ms steps for the previous receive loop to clear listening, then
// takes it over. False when it must not start: quit, a Stop since the request (the user
// stopped this start as well), or no end after maxPolls polls (then the user is told).
bool CaptureSession::AwaitPreviousLoop(const std::stop_token& stop, std::uint64_t stopSerial,
                                       int maxPolls) {
  for (int poll = 1;; ++poll) {
    if (stop.stop_requested() || quitRequested.load()) return false;
    if (stopSerial_.load() != stopSerial) return false;
    bool expected = false;
    if (listening.compare_exchange_strong(expected, true)) {
      stopRequested.store(false);
      // A Stop after this check sets stop requested again, and the new loop ends at once.
      if (stopSerial_.load() == stopSerial) return true;
      listening.store(false);
      return false;
    }
    if (maxPolls != kWaitForever && poll >= maxPolls) {
      messages_.Push(CaptureMessage{Text::ProgramTitle, Text::ProblemStoppingListening,
                                    MessageIcon::Stop, std::nullopt, std::nullopt});
      return false;
    }
    std::this_thread::sleep_for(kPollStep);
  }
}

void CaptureSession::RunStarter(std::stop_token stop, CaptureTarget target, FrameSink& sink,
                                bool acquired, std::uint64_t stopSerial, int maxPolls) {
  if (!acquired) {
    // Counted down only once listening is taken (or the start given up), so Active() never
    // reads false in between.
    const bool took = AwaitPreviousLoop(stop, stopSerial, maxPolls);
    waitingStarts_.fetch_sub(1);
    if (!took) return;
  }
  OpenResult opened = OpenSource(target);
  if (auto* message = std::get_if<CaptureMessage>(&opened)) {
    messages_.Push(std::move(*message));
    listening.store(false);
    return;
  }
  auto& source = *std::get<std::unique_ptr<CaptureSource>>(opened);
  kindInUse.store(source.Kind());
  bytesTotal_.store(source.BytesTotal());
  bytesRead_.store(0);
  dropped_.store(0);
  {
    std::lock_guard lock(statusMutex_);
    skipped_ = {};
    notTaken_.reset();
  }
  {
    std::lock_guard lock(sourceMutex_);
    activeSource_ = &source;
  }
  // Stop may have come while the source was opening, before it could be interrupted.
  if (stopRequested.load()) source.Interrupt();
  RunReceiveLoop(source, sink, target);
  SampleDrops(source);
  {
    std::lock_guard lock(statusMutex_);
    skipped_ = source.Skipped();
  }
  sink.Finish();
  {
    std::lock_guard lock(sourceMutex_);
    activeSource_ = nullptr;
  }
  listening.store(false);
}

void CaptureSession::RunReceiveLoop(CaptureSource& source, FrameSink& sink,
                                    const CaptureTarget& target) {
  const InterfaceKind kind = source.Kind();
  const bool file = target.type == CaptureTarget::Type::File;
  if (sink.IsFull()) {
    SetStatus(CaptureStatus::ItemLimitReached);
    return;
  }
  SetStatus(CaptureStatus::Listening, kind, target.displayName, file);
  FrameRecord frame;
  unsigned framesSinceDropSample = 0;
  for (;; AddOwned(loopTurns_, 1)) {
    if (quitRequested.load(std::memory_order_relaxed) ||
        stopRequested.load(std::memory_order_relaxed)) {
      break;
    }
    waitingForFrames_.store(true, std::memory_order_relaxed);
    const ReadResult result = source.Next(frame);
    waitingForFrames_.store(false, std::memory_order_relaxed);
    if (result == ReadResult::Nothing) {
      SampleDrops(source);
      continue;
    }
    if (result == ReadResult::End) {
      if (file) bytesRead_.store(source.BytesTotal());
      break;
    }
    if (result == ReadResult::Failed) {
      messages_.Push(source.Failure());
      break;
    }
    bytesRead_.store(source.BytesRead(), std::memory_order_relaxed);
    // A flood never lets the source time out, so drops are also sampled as frames go by.
    if (++framesSinceDropSample >= kFramesPerDropSample) {
      framesSinceDropSample = 0;
      SampleDrops(source);
    }
    const SinkVerdict verdict = sink.Take(frame);
    if (verdict == SinkVerdict::Stored || verdict == SinkVerdict::ItemLimitReached) {
      newData.store(true, std::memory_order_relaxed);
    }
    switch (verdict) {
      case SinkVerdict::Stored:
      case SinkVerdict::Skipped: continue;
      case SinkVerdict::OutOfMemory: SetStatus(CaptureStatus::MemoryError); break;
      case SinkVerdict::ListFull: SetStatus(CaptureStatus::MaxListItems); break;
      case SinkVerdict::ItemLimitReached:
        SetStatus(CaptureStatus::ItemLimitReached);
        // A sink that ends a capture early by choice (a packet count) is not full.
        if (file && sink.IsFull()) CountNotTaken(source);
        break;
    }
    return;
  }
  SetStatus(CaptureStatus::Stopped);
}

// The rest of a file the sink had no room for, counted so the user learns what was cut off.
// A stop leaves the count unknown rather than short.
void CaptureSession::CountNotTaken(CaptureSource& source) {
  FrameRecord frame;
  std::uint64_t rest = 0;
  for (;;) {
    if (quitRequested.load(std::memory_order_relaxed) ||
        stopRequested.load(std::memory_order_relaxed)) {
      return;
    }
    const ReadResult result = source.Next(frame);
    bytesRead_.store(source.BytesRead(), std::memory_order_relaxed);
    if (result == ReadResult::Frame) ++rest;
    if (result == ReadResult::End || result == ReadResult::Failed) break;
  }
  std::lock_guard lock(statusMutex_);
  notTaken_ = rest;
}

SkippedPackets CaptureSession::Skipped() const {
  std::lock_guard lock(statusMutex_);
  return skipped_;
}

std::optional<std::uint64_t> CaptureSession::NotTaken() const {
  std::lock_guard lock(statusMutex_);
  return notTaken_;
}

void CaptureSession::Stop() {
  stopSerial_.fetch_add(1);
  stopRequested.store(true);
  InterruptSource();
}

void CaptureSession::Restart(const CaptureTarget& target, FrameSink& sink) {
  Stop();
  Launch(target, sink, kRestartPolls);
}

void CaptureSession::Quit() {
  quitRequested.store(true);
  InterruptSource();
  std::lock_guard lock(threadMutex_);
  thread_.request_stop();
  if (thread_.joinable()) thread_.join();
}

void CaptureSession::Wait() {
  std::lock_guard lock(threadMutex_);
  if (thread_.joinable()) thread_.join();
}

void CaptureSession::InterruptSource() {
  std::lock_guard lock(sourceMutex_);
  if (activeSource_) activeSource_->Interrupt();
}

CaptureStatusSnapshot CaptureSession::Status() const {
  std::lock_guard lock(statusMutex_);
  CaptureStatusSnapshot snapshot = status_;
  snapshot.dropped = Dropped();
  return snapshot;
}

// Receive thread only: the source's counters are not for other threads.
void CaptureSession::SampleDrops(const CaptureSource& source) {
  dropped_.store(source.Dropped(), std::memory_order_relaxed);
}

void CaptureSession::SetStatus(CaptureStatus status, InterfaceKind kind,
                               std::string interfaceText, bool file) {
  std::lock_guard lock(statusMutex_);
  status_ = CaptureStatusSnapshot{status, kind, std::move(interfaceText), file};
}

void CaptureSession::SetStatus(CaptureStatus status) {
  std::lock_guard lock(statusMutex_);
  status_.status = status;
}

}  // namespace vormelt
