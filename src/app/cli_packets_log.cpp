// Logging and Find options of `vormelt-cli packets`. Bad values exit 2 with one line naming
// the option; a settings problem the logging window would refuse is refused here the same way.
#include "app/cli_packets_log.hpp"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <ostream>

#include "app/cli.hpp"
#include "app/headless.hpp"
#include "packetmode/packet_find.hpp"
#include "packetmode/packet_logger.hpp"
#include "packetmode/packet_mode_engine.hpp"

namespace vormelt::cli {
namespace {

constexpr std::int64_t kMaxSeconds = 0x7FFFFFFF;
constexpr std::int64_t kMaxKilobytes = 1LL << 30;
constexpr std::string_view kSingleLogName = "VORMELT_LOG";

int Bad(std::ostream& err, const std::string& problem) { return Usage(err, "packets", problem, "\n"); }

std::optional<std::int32_t> MethodOf(const std::string& word) {
  if (word == "single") return 0;
  if (word == "size") return 1;
  if (word == "time") return 2;
  if (word == "size+time") return 3;
  return std::nullopt;
}

std::optional<std::int32_t> FormOf(const std::string& word) {
  if (word == "heading") return 0;
  if (word == "text") return 1;
  if (word == "dec") return 2;
  if (word == "hex") return 3;
  if (word == "hex+text") return 4;
  if (word == "pcapng") return kLogFormPcapng;
  return std::nullopt;
}

}  // namespace

std::optional<int> ParseLogFindOption(const std::string& option, const std::string& value,
                                      LogFindOptions& options, std::ostream& err) {
  constexpr std::string_view kOptions[] = {"--find", "--log-folder", "--log-method",
                                           "--log-max-kb", "--log-span-s", "--log-form",
                                           "--log-interval-s", "--log-prune-age-s"};
  if (std::ranges::find(kOptions, option) == std::end(kOptions)) return std::nullopt;
  if (option == "--find") {
    if (value.empty()) return Bad(err, "--find needs a text that is not empty");
    options.find = value.substr(0, kMaxFindText);
    return 0;
  }
  options.loggingOptionSeen = true;
  if (!options.logging) options.logging.emplace();
  LoggingSettings& s = *options.logging;
  s.enabled = true;
  std::int64_t number = 0;
  if (option == "--log-folder") {
    s.folder = value;
  } else if (option == "--log-method") {
    const auto method = MethodOf(value);
    if (!method) return Bad(err, "--log-method takes single, size, time or size+time");
    s.method = *method;
    options.methodGiven = true;
  } else if (option == "--log-form") {
    const auto form = FormOf(value);
    if (!form) return Bad(err, "--log-form takes heading, text, dec, hex, hex+text or pcapng");
    s.form = *form;
  } else if (option == "--log-max-kb") {
    if (!ParseNumber(value, 1, kMaxKilobytes, number)) return Bad(err, "--log-max-kb needs a number above 0");
    s.maxFileKilobytes = number;
  } else if (option == "--log-span-s") {
    if (!ParseNumber(value, 1, kMaxSeconds, number)) return Bad(err, "--log-span-s needs a number above 0");
    s.maxSpanSeconds = number;
  } else if (option == "--log-interval-s") {
    if (!ParseNumber(value, 1, kMaxSeconds, number)) return Bad(err, "--log-interval-s needs a number above 0");
    s.intervalSeconds = static_cast<std::int32_t>(number);
  } else if (option == "--log-prune-age-s") {
    if (!ParseNumber(value, 0, kMaxSeconds, number)) return Bad(err, "--log-prune-age-s needs a number of seconds");
    s.deleteOld = true;
    s.maxAgeSeconds = number;
    s.ageCheckSeconds = std::max<std::int64_t>(1, std::min<std::int64_t>(number, 60));
  }
  return 0;
}

int CheckLogFindOptions(LogFindOptions& options, std::ostream& err) {
  if (!options.loggingOptionSeen) return 0;
  LoggingSettings& s = *options.logging;
  if (s.folder.empty()) return Bad(err, "the --log-* options need --log-folder DIR");
  if (!options.methodGiven) return Bad(err, "--log-folder needs --log-method single|size|time|size+time");
  // The single-file method appends to one fixed file in the folder.
  if (s.method == 0) {
    s.singleFilePath = s.folder + "/" + std::string(kSingleLogName) +
                       (s.form == kLogFormPcapng ? ".pcapng" : ".txt");
  }
  if (const auto problem = LoggingProblem(s)) {
    return Bad(err, Tr(*problem, UiLanguage::English));
  }
  return 0;
}

int FinishLogging(PacketModeEngine& engine, int status, std::ostream& err) {
  {
    // A SIGINT or SIGTERM now must not cut the last pass short; the run is ending anyway, so
    // those that came meanwhile are taken here rather than left to end the process later.
    StopSignals holdSignals;
    engine.StopLogging();
    while (holdSignals.Wait(std::chrono::milliseconds(0))) {}
  }
  const LogStatus logged = engine.LoggingStatus();
  err << logged.packetsLogged << " packets logged in " << logged.filesBegun << " files";
  if (logged.notLogged() > 0) err << ", " << logged.notLogged() << " not logged";
  err << "\n";
  if (logged.writeFailed()) {
    std::string line = FormatText(Text::LogWriteFailed, UiLanguage::English,
                                  (logged.failedFile + ": " + logged.failureReason).c_str());
    std::erase(line, '\r');
    line.erase(std::unique(line.begin(), line.end(), [](char a, char b) { return a == '\n' && b == '\n'; }),
               line.end());
    std::ranges::replace(line, '\n', ' ');
    err << "vormelt-cli: " << line << "\n";
  }
  return logged.writeFailed() || logged.notLogged() > 0 ? kExitFailed : status;
}

std::string FindNeedle(const LogFindOptions& options, bool matchCase) {
  std::string needle = options.find.value_or("");
  if (!matchCase) {
    for (char& c : needle) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  }
  return needle;
}

bool PassesFind(std::string_view needle, PacketRef packet, bool matchCase) {
  return needle.empty() || FindInPacket(packet, needle, matchCase).has_value();
}

}  // namespace vormelt::cli
