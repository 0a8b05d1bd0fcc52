// PacketLogger: the logging thread of Packet Mode. Every interval it takes the packets stored
// since its last pass (under the store lock, in batches), writes them outside the lock to the
// current log file, begins new files by size and/or span, records each in the folder's index,
// prunes old files, and empties the store afterwards when asked. No window, no Qt.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <thread>

#include "common/clock.hpp"
#include "common/settings.hpp"
#include "common/texts.hpp"
#include "packetmode/log_form.hpp"
#include "packets/store.hpp"

namespace vormelt {

enum class LogMethod : std::int32_t { SingleFile = 0, BySize = 1, BySpan = 2, BySizeOrSpan = 3 };

// The name template's tokens expanded: "%DAT" with `dateTimeTemplate` at `now`, "%LI" with
// the interface text, "%PID" with the process id. One pass, so a value never makes a token;
// "/" and NUL in the result become "_" (a log name is a name, not a path).
std::string ExpandLogName(std::string_view nameTemplate, std::string_view dateTimeTemplate,
                          const LocalTime& now, std::string_view interfaceText, long pid);

// "name.txt" → "name (n).txt" for the n-th try at a name already taken.
std::string NumberedLogName(std::string_view name, int n);

// What keeps these settings from logging, as the text to show; nullopt when they can run.
// Checks only what the logger needs (folder or single file, name, bounds of the chosen method).
std::optional<Text> LoggingProblem(const LoggingSettings& settings);

// Makes the form for a run; the default makes the text forms from the settings.
using LogFormFactory = std::function<std::unique_ptr<LogForm>(const LoggingSettings&)>;

struct LogConfig {
  LoggingSettings settings;
  std::string dateTimeTemplate = "%Y.%MY.%D - %H24:%MN:%S.%MS";  // for "%DAT"
  std::string interfaceText;                                     // for "%LI"
  LogFormFactory makeForm;  // null: text forms
  // Clear-after-log with readers that hold packets without the store lock (a window): the
  // logger only asks for the clear, and the readers' thread performs it with
  // ClearOnOwnerThread. Headless runs leave it off and the logging thread clears.
  bool clearOnOwnerThread = false;
  // A store that is emptied when full instead of ending the capture (the service): once a pass
  // has logged everything and the store holds at least this many packets, it empties the
  // store, so the store is renewed with nothing unlogged in it. 0: never.
  std::int32_t clearWhenHolding = 0;
};

struct LogStatus {
  std::int64_t packetsLogged = 0;
  std::int64_t filesBegun = 0;
  std::int32_t behind = 0;        // stored but not yet taken into a pass
  std::int64_t notWritten = 0;    // taken into a pass, waiting for a write that succeeds
  // Failures come in episodes: from the first failed open or write to the next success.
  std::int64_t failureEpisodes = 0;
  bool failing = false;           // the last attempt failed
  std::string failedFile;         // the file of the first failure of the last episode
  std::string failureReason;      // and the system's reason
  std::string currentFile;
  bool writeFailed() const { return failureEpisodes > 0; }
  // What a summary names as not logged.
  std::int64_t notLogged() const { return notWritten + behind; }
};

class PacketLogger {
 public:
  explicit PacketLogger(PacketStore& store);
  ~PacketLogger();
  PacketLogger(const PacketLogger&) = delete;
  PacketLogger& operator=(const PacketLogger&) = delete;

  // Starts the thread (after stopping a running one). Logging begins with the packets stored
  // from now on. False when the form cannot be made.
  bool Start(LogConfig config);
  // Ends the thread after one last pass, so nothing stored before the call is left out.
  void Stop();
  // Asks the thread for a pass now rather than at the end of its interval.
  void Wake();
  bool Running() const { return running_.load(); }

  // One logging pass on the caller's thread (the thread runs the same), at wall time `now`.
  void Pass(CaptureTime now);
  // One age check on the caller's thread.
  void Prune(CaptureTime now);
  // With clearOnOwnerThread: when a pass asked for it, takes what is still unlogged into the
  // form (no file I/O) and empties the store, all under the store lock, so nothing is lost.
  // Returns at once, doing nothing, while a pass runs; the next call does it.
  void ClearOnOwnerThread();

  LogStatus Status() const;

 private:
  void Run(std::stop_token stop);
  void Configure(LogConfig config);
  bool EnsureFile(CaptureTime now);
  bool BeginNewFile(CaptureTime now);
  void FileOpened(const std::string& path, CaptureTime now, bool created);
  bool IndexNewFile(const std::string& path, CaptureTime now);
  bool FileGone() const;
  bool WritePending(CaptureTime now);
  void EndFile();
  void Failed(const std::string& path, const std::string& reason);
  bool SizeBounded() const;
  bool SpanBounded() const;

  PacketStore& store_;
  std::mutex passMutex_;  // one pass at a time: the thread's, Stop's last one, a test's
  LogConfig config_;
  std::unique_ptr<LogForm> form_;
  bool fileOpen_ = false;
  bool fileCreated_ = false;    // the open file was made by this run (removed again if empty)
  bool endAfterWrite_ = false;  // the open file reached its size bound with bytes still pending
  std::string filePath_;
  std::uint64_t fileDevice_ = 0, fileInode_ = 0;  // what the open file's name named at opening
  CaptureTime fileBegun_{};
  std::atomic<bool> failing_{false};
  std::int64_t pendingCount_ = 0;  // packets in the form not yet written
  std::int32_t next_ = 0;  // the next store index to log
  std::string lastName_;   // the last file name made from the template, and its number
  int lastNumber_ = 0;
  std::uint64_t seenClears_ = 0;
  // Taken into the form by ClearOnOwnerThread; written by the next pass.
  std::size_t carriedBytes_ = 0;
  std::int64_t carriedCount_ = 0;
  std::atomic<bool> clearWanted_{false};
  std::atomic<bool> running_{false};
  std::atomic<std::int64_t> packetsLogged_{0};
  std::atomic<std::int64_t> filesBegun_{0};
  std::atomic<std::int32_t> nextShown_{0};
  std::atomic<std::int64_t> notWritten_{0};
  std::atomic<std::int64_t> failureEpisodes_{0};
  std::string failedFile_, failureReason_;  // under statusMutex_
  mutable std::mutex statusMutex_;
  std::string currentFile_;
  std::mutex wakeMutex_;
  bool wakeWanted_ = false;  // under wakeMutex_
  std::condition_variable_any wake_;
  std::jthread thread_;
};

}  // namespace vormelt
