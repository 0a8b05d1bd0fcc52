// What every headless run shares (vormelt-cli commands now, the service later): stopping on
// SIGINT/SIGTERM without a signal handler, and messages as one line for stderr or the journal.
#pragma once

#include <signal.h>

#include <chrono>
#include <string>

#include "common/message.hpp"
#include "packetmode/dump_file.hpp"

namespace vormelt {

// The message in `language` as one line: its CR LF breaks become blanks.
std::string OneLineMessage(const CaptureMessage& message, UiLanguage language = UiLanguage::English);

// Why loading `path` ended early, as one line; empty when it ended at the footer or the file's
// end. A cut-short or foreign record is named with its byte offset.
std::string DescribeDumpLoad(const DumpLoadResult& result, const std::string& path);

// SIGINT and SIGTERM are blocked while this lives, in the thread that made it and in every
// thread started from it (the capture threads), and taken synchronously by Wait, so no handler
// ever runs inside libpcap.
class StopSignals {
 public:
  StopSignals();
  ~StopSignals();
  StopSignals(const StopSignals&) = delete;
  StopSignals& operator=(const StopSignals&) = delete;
  // Waits up to `timeout` for one of them; true when one came.
  bool Wait(std::chrono::milliseconds timeout);

 private:
  sigset_t set_{};
  sigset_t previous_{};
};

}  // namespace vormelt
