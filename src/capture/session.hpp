// CaptureSession: one mode's running capture — its flags, the starter and the receive thread
// (a std::jthread), the status it publishes and the messages it wants shown. The threads here
// never touch a window: windows read Status(), the flags and the message queue on a timer.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "common/frame_sink.hpp"
#include "common/message.hpp"
#include "capture/source.hpp"
#include "common/texts.hpp"
#include "common/types.hpp"

namespace vormelt {

enum class CaptureStatus : std::uint8_t {
  Idle,              // nothing started yet: no status text
  Listening,         // "Listening on %s (Using Raw Sockets)" or the adapter form
  Stopped,           // "Stopped"
  ItemLimitReached,  // "Stopped/Item Limit Reached"
  MaxListItems,      // "Stopped/Max List Items"
  MemoryError,       // "Stopped/Memory Error"
};

struct CaptureStatusSnapshot {
  CaptureStatus status = CaptureStatus::Idle;
  InterfaceKind kind = InterfaceKind::RawSockets;
  std::string interfaceText;  // the %s of the listening text
  bool file = false;          // reading a capture file: "Reading %s" while it runs
  std::uint64_t dropped = 0;  // frames the kernel dropped so far (live captures)
};

// The status line text in `language`; empty for Idle. Kernel drops, when there are any, follow
// the listening or stopped text.
std::string StatusText(const CaptureStatusSnapshot& snapshot, UiLanguage language);

class CaptureSession {
 public:
  // How long Restart waits for the previous capture to end: 100 polls of 10 ms.
  static constexpr int kRestartPolls = 100;

  CaptureSession() = default;
  // Requests quit, interrupts the source and joins the thread.
  ~CaptureSession();
  CaptureSession(const CaptureSession&) = delete;
  CaptureSession& operator=(const CaptureSession&) = delete;

  // The window's Start. Returns at once; a starter thread opens the target and runs the receive
  // loop into `sink` (which must outlive the capture). Without `force` a request made while
  // listening is dropped (returns false); with it the starter first waits, in 10 ms steps, for
  // the previous receive loop to end, and a Stop or Quit meanwhile cancels it (the user
  // stopped what was about to start). Failures to open are pushed to Messages().
  bool Start(const CaptureTarget& target, FrameSink& sink, bool force = false);
  // The window's Stop: sets stop requested and unblocks a pending receive. Returns at once.
  void Stop();
  // "Choose Interface" while listening: Stop, then a forced start whose starter thread polls
  // listening every 10 ms at most kRestartPolls times; it starts on `target` as soon as the
  // previous loop has ended, else pushes the problem-stopping message to Messages(). Returns
  // at once: the caller (the window thread) never waits. A Stop meanwhile cancels it.
  void Restart(const CaptureTarget& target, FrameSink& sink);
  // The window is closing: quit requested, unblock, and wait for the thread to end. Final:
  // a capture started afterwards ends at once.
  void Quit();
  // Waits until the current capture (if any) has ended.
  void Wait();
  // Listening, or a restart still waiting for the previous loop to end. Between the two,
  // listening is false for a moment; a window that took that for "stopped" would offer Start
  // and grey Stop while the new capture comes up.
  bool Active() const {
    return waitingStarts_.load() > 0 || listening.load();
  }

  CaptureStatusSnapshot Status() const;
  MessageQueue& Messages() { return messages_; }
  // File captures: bytes read and the file's size (0/0 when live).
  std::uint64_t BytesRead() const { return bytesRead_.load(std::memory_order_relaxed); }
  std::uint64_t BytesTotal() const { return bytesTotal_.load(std::memory_order_relaxed); }
  // Frames the kernel dropped in the current (or last) live capture, as tcpdump counts them:
  // no room in the capture buffer plus drops by the interface. 0 for files.
  std::uint64_t Dropped() const { return dropped_.load(std::memory_order_relaxed); }
  // For a watchdog: the receive loop is healthy while its turns grow or while it waits in the
  // source for frames (on a quiet network libpcap may block there well past its timeout); a
  // loop stuck inside a sink does neither.
  // File captures: packets the file held that no frame was made of (see SkippedPackets).
  SkippedPackets Skipped() const;
  // A file capture the sink's limit ended is read on to its end and its packets counted: how
  // many were not taken. Nullopt when nothing was cut, or a stop came before the end.
  std::optional<std::uint64_t> NotTaken() const;
  std::uint64_t LoopTurns() const { return loopTurns_.load(std::memory_order_relaxed); }
  bool WaitingForFrames() const { return waitingForFrames_.load(std::memory_order_relaxed); }

  // Flags, one writer per direction: the window sets stop/quit and clears new data; the
  // capture threads set listening and new data and clear listening when the loop ends.
  std::atomic<bool> listening{false};
  std::atomic<bool> stopRequested{false};
  std::atomic<bool> quitRequested{false};
  std::atomic<bool> newData{false};
  std::atomic<InterfaceKind> kindInUse{InterfaceKind::RawSockets};

 private:
  // How a start that finds a capture listening behaves.
  static constexpr int kDropWhenListening = 0;  // the plain Start: drop the request
  static constexpr int kWaitForever = -1;       // a forced Start: wait for the loop to end

  bool Launch(const CaptureTarget& target, FrameSink& sink, int maxPolls);
  void RunStarter(std::stop_token stop, CaptureTarget target, FrameSink& sink, bool acquired,
                  std::uint64_t stopSerial, int maxPolls);
  bool AwaitPreviousLoop(const std::stop_token& stop, std::uint64_t stopSerial, int maxPolls);
  void RunReceiveLoop(CaptureSource& source, FrameSink& sink, const CaptureTarget& target);
  void SampleDrops(const CaptureSource& source);
  void CountNotTaken(CaptureSource& source);
  void SetStatus(CaptureStatus status, InterfaceKind kind, std::string interfaceText, bool file);
  void SetStatus(CaptureStatus status);
  void InterruptSource();

  MessageQueue messages_;
  mutable std::mutex statusMutex_;
  CaptureStatusSnapshot status_;
  SkippedPackets skipped_;                  // guarded by statusMutex_
  std::optional<std::uint64_t> notTaken_;   // guarded by statusMutex_
  std::mutex sourceMutex_;
  CaptureSource* activeSource_ = nullptr;  // for Stop to interrupt; owned by the thread
  std::mutex threadMutex_;
  std::jthread thread_;
  std::atomic<std::uint64_t> bytesRead_{0};
  std::atomic<std::uint64_t> bytesTotal_{0};
  std::atomic<std::uint64_t> dropped_{0};
  std::atomic<std::uint64_t> loopTurns_{0};
  std::atomic<bool> waitingForFrames_{false};
  // Counts Stop calls: a forced start that sees it move while it waits was stopped too.
  std::atomic<std::uint64_t> stopSerial_{0};
  // Forced starts launched while a loop was listening and not yet past AwaitPreviousLoop.
  std::atomic<int> waitingStarts_{0};
};

}  // namespace vormelt
