// ModeCapture: the one shape every capture mode runs in — its engine's FrameSink behind a
// counting sink and a CaptureSession, with Start/Restart/Stop/Quit and everything a window, the
// service or a command reads about the capture (status, messages, drops, progress, what a file
// held that was not taken). Knows no mode: the engine says what a start prepares.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "capture/session.hpp"
#include "common/frame_sink.hpp"

namespace vormelt {

class ModeCapture {
 public:
  // Runs on the caller's thread just before a capture starts on the target (never for a start
  // that is dropped because one runs, nor for Restart, which goes on with the same run).
  using Prepare = std::function<void(const CaptureTarget& target)>;

  // `engine` must outlive this; so must whatever `prepare` touches.
  explicit ModeCapture(FrameSink& engine, Prepare prepare = {});
  // Ends the capture and waits for its thread, before the engine it feeds goes.
  ~ModeCapture() { session_.Quit(); }
  ModeCapture(const ModeCapture&) = delete;
  ModeCapture& operator=(const ModeCapture&) = delete;

  // Starts on a live interface or a capture file; returns at once. False, with nothing started,
  // while a capture runs. Failures to open come as Messages().
  bool Start(const CaptureTarget& target);
  // The chosen interface changed while listening: stop, then start on `target` as soon as the
  // old capture has ended (on the capture's thread, never the caller's).
  void Restart(const CaptureTarget& target);
  // Ends the running capture; returns at once.
  void Stop();
  // Closing: ends the capture and waits for its thread. Final.
  void Quit() { session_.Quit(); }
  // Waits until the current capture (if any) has ended.
  void Wait() { session_.Wait(); }

  // A receive loop runs (or is about to end), or a Restart waits to start the next one.
  bool Capturing() const { return session_.Active(); }
  // The capture is open and listening: a capture that failed to open never got there, and one
  // that ended keeps its last status.
  bool Listening() const;
  // The running (or last) capture reads a file rather than an interface.
  bool ReadingFile() const { return readingFile_.load(); }
  CaptureStatusSnapshot Status() const { return session_.Status(); }
  std::string StatusLine(UiLanguage language) const { return StatusText(Status(), language); }
  MessageQueue& Messages() { return session_.Messages(); }
  std::uint64_t Dropped() const { return session_.Dropped(); }
  // Frames handed to the engine since this was made, and their bytes on the wire.
  std::uint64_t Frames() const { return counting_.frames(); }
  std::uint64_t Bytes() const { return counting_.bytes(); }
  // For a watchdog: grows while the receive loop turns; or it idles waiting for frames.
  std::uint64_t Progress() const { return session_.LoopTurns(); }
  bool WaitingForFrames() const { return session_.WaitingForFrames(); }
  // File captures: packets no frame was made of, and what a full engine did not take.
  SkippedPackets Skipped() const { return session_.Skipped(); }
  std::optional<std::uint64_t> NotTaken() const { return session_.NotTaken(); }
  // A stop ended a file before its end: how far it got (0/0 when live).
  bool FileCutShort() const;
  std::uint64_t BytesRead() const { return session_.BytesRead(); }
  std::uint64_t BytesTotal() const { return session_.BytesTotal(); }

  CaptureSession& Session() { return session_; }
  const CaptureSession& Session() const { return session_; }

 private:
  CountingSink counting_;
  Prepare prepare_;
  std::atomic<bool> readingFile_{false};
  CaptureSession session_;  // last: its thread ends before the rest goes
};

}  // namespace vormelt
