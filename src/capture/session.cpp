// The starter and receive loop of a capture, and the status they publish. Flags are atomics
// with one writer per direction; the only locks guard the status text, the source pointer Stop
// needs, and the thread object itself.
#include "capture/session.hpp"

#include <chrono>
#include <cstdio>

namespace vormelt {
namespace {

constexpr auto kPollStep = std::chrono::milliseconds(10);

Text ListeningText(const CaptureStatusSnapshot& snapshot) {
  if (snapshot.file) return Text::StatusReadingFile;
  return snapshot.kind == InterfaceKind::RawSockets ? Text::StatusListeningRawSockets
                                                    : Text::StatusListeningAdapter;
}

}  // namespace

std::string StatusText(const CaptureStatusSnapshot& snapshot, UiLanguage language) {
  switch (snapshot.status) {
    case CaptureStatus::Idle: return {};
    case CaptureStatus::Listening:
      return FormatText(ListeningText(snapshot), language, snapshot.interfaceText.c_str());
    case CaptureStatus::Stopped: return Tr(Text::StatusStopped, language);
    case CaptureStatus::ItemLimitReached: return Tr(Text::StatusItemLimitReached, language);
    case CaptureStatus::MaxListItems: return Tr(Text::StatusMaxListItems, language);
    case CaptureStatus::MemoryError: return Tr(Text::StatusMemoryError, language);
  }
  return {};
}

CaptureSession::~CaptureSession() { Quit(); }

bool CaptureSession::Start(const CaptureTarget& target, FrameSink& sink, bool force) {
  std::lock_guard lock(threadMutex_);
  bool expected = false;
  const bool acquired = listening.compare_exchange_strong(expected, true);
  if (!acquired && !force) return false;
  // Cleared here, not in the thread, so a Stop right after Start is not lost.
  if (acquired) stopRequested.store(false);
  std::jthread previous = std::move(thread_);
  thread_ = std::jthread([this, target, &sink, acquired, previous = std::move(previous)](
                             std::stop_token stop) mutable {
    RunStarter(stop, std::move(target), sink, acquired);
    // The previous loop has cleared listening (or never ran): joining it is immediate.
    if (previous.joinable()) previous.join();
  });
  return true;
}

void CaptureSession::RunStarter(std::stop_token stop, CaptureTarget target, FrameSink& sink,
                                bool acquired) {
  // A forced start waits for the previous receive loop to clear listening, in 10 ms steps.
  while (!acquired) {
    if (stop.stop_requested() || quitRequested.load()) return;
    bool expected = false;
    acquired = listening.compare_exchange_strong(expected, true);
    if (acquired) {
      stopRequested.store(false);
      break;
    }
    std::this_thread::sleep_for(kPollStep);
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
  {
    std::lock_guard lock(sourceMutex_);
    activeSource_ = &source;
  }
  // Stop may have come while the source was opening, before it could be interrupted.
  if (stopRequested.load()) source.Interrupt();
  RunReceiveLoop(source, sink, target);
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
  for (;;) {
    if (quitRequested.load(std::memory_order_relaxed) ||
        stopRequested.load(std::memory_order_relaxed)) {
      break;
    }
    const ReadResult result = source.Next(frame);
    if (result == ReadResult::Nothing) continue;
    if (result == ReadResult::End) {
      if (file) bytesRead_.store(source.BytesTotal());
      break;
    }
    if (result == ReadResult::Failed) {
      messages_.Push(source.Failure());
      break;
    }
    bytesRead_.store(source.BytesRead(), std::memory_order_relaxed);
    const SinkVerdict verdict = sink.Take(frame);
    if (verdict == SinkVerdict::Stored || verdict == SinkVerdict::ItemLimitReached) {
      newData.store(true, std::memory_order_relaxed);
    }
    switch (verdict) {
      case SinkVerdict::Stored:
      case SinkVerdict::Skipped: continue;
      case SinkVerdict::OutOfMemory: SetStatus(CaptureStatus::MemoryError); break;
      case SinkVerdict::ListFull: SetStatus(CaptureStatus::MaxListItems); break;
      case SinkVerdict::ItemLimitReached: SetStatus(CaptureStatus::ItemLimitReached); break;
    }
    return;
  }
  SetStatus(CaptureStatus::Stopped);
}

void CaptureSession::Stop() {
  stopRequested.store(true);
  InterruptSource();
}

bool CaptureSession::Restart(const CaptureTarget& target, FrameSink& sink) {
  Stop();
  for (int poll = 0; poll < kRestartPolls; ++poll) {
    if (!listening.load()) return Start(target, sink, true);
    std::this_thread::sleep_for(kPollStep);
  }
  messages_.Push(CaptureMessage{Text::ProgramTitle, Text::ProblemStoppingListening,
                                MessageIcon::Stop, std::nullopt, std::nullopt});
  return false;
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
  return status_;
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
