// The automatic logging and Find options of `vormelt-cli packets`: their parsing and their
// effect, kept apart from the capture loop that drives them.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "common/settings.hpp"
#include "packets/record.hpp"

namespace vormelt {
class PacketModeEngine;
}

namespace vormelt::cli {

struct LogFindOptions {
  std::optional<LoggingSettings> logging;  // set by --log-folder
  bool methodGiven = false;
  bool loggingOptionSeen = false;          // any --log-* option
  std::optional<std::string> find;         // --find TEXT
};

// Takes `option` and its value when it is one of these options. nullopt: not one of them;
// else 0 (taken) or the usage status after printing the problem.
std::optional<int> ParseLogFindOption(const std::string& option, const std::string& value,
                                      LogFindOptions& options, std::ostream& err);
// The checks that need every option seen: 0 or the usage status.
int CheckLogFindOptions(LogFindOptions& options, std::ostream& err);

// Ends automatic logging after the capture (the last packets are written, the file closed;
// a stop signal meanwhile waits until that is done) and prints the summary: packets logged,
// files, what was not logged, and the failure with its file and reason. Returns `status`, or
// the failure status when anything could not be logged.
int FinishLogging(PacketModeEngine& engine, int status, std::ostream& err);

// The --find text as Find searches for it (folded unless `matchCase`); empty without --find.
std::string FindNeedle(const LogFindOptions& options, bool matchCase);
// Whether `needle` is in the packet by the Find rules; an empty needle passes everything.
bool PassesFind(std::string_view needle, PacketRef packet, bool matchCase);

}  // namespace vormelt::cli
