// vormelt-cli stats: counts a capture file or a live capture into the statistics tables, then
// prints one table with the window's columns (raw integers). --local stands in for the host's
// own addresses, for files captured on another machine. SIGINT/SIGTERM end a live count early.
// A packet dump file (--load-dump FILE --form FORM) is counted by its own time texts.

#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "app/cli.hpp"
#include "app/headless.hpp"
#include "app/mode_metrics.hpp"
#include "app/mode_engines.hpp"
#include "common/ip_address.hpp"
#include "packetmode/dump_file.hpp"
#include "statistics/lists.hpp"

namespace vormelt::cli {
namespace {

namespace stats = vormelt::statistics;

constexpr std::string_view kCommand = "stats";

struct StatsOptions {
  SourceOptions source;
  stats::StatisticsList list = stats::StatisticsList::IpAddresses;
  stats::StatisticsLimits limits{stats::kTableCapacity, stats::VictimPolicy::LongestAgo};
  std::optional<std::vector<IpAddress>> locals;  // set: replaces the host's addresses
  stats::SaveFormat format = stats::SaveFormat::Text;
};

std::optional<stats::VictimPolicy> ParsePolicy(const std::string& word) {
  if (word == "longest-ago") return stats::VictimPolicy::LongestAgo;
  if (word == "lowest") return stats::VictimPolicy::Lowest;
  if (word == "highest") return stats::VictimPolicy::Highest;
  return std::nullopt;
}

bool ParseLocals(const std::string& text, std::vector<IpAddress>& addresses) {
  std::size_t begin = 0, ipv6 = 0;
  while (begin <= text.size()) {
    const std::size_t comma = std::min(text.find(',', begin), text.size());
    const auto address = IpAddress::Parse(std::string_view(text).substr(begin, comma - begin));
    if (!address) return false;
    ipv6 += address->isV6() ? 1 : 0;
    addresses.push_back(*address);
    begin = comma + 1;
  }
  return addresses.size() - ipv6 <= stats::LocalAddressList::kCapacity &&
         ipv6 <= stats::LocalAddressList::kIpv6Capacity;
}

// The command's own options; nullopt for anything else.
std::optional<int> ParseOwnOption(const std::string& option, const std::string& value,
                                  StatsOptions& options, std::ostream& err) {
  const auto usage = [&](std::string_view problem) { return Usage(err, kCommand, problem); };
  if (option == "--table") {
    const auto list = stats::ParseList(value);
    if (!list) return usage("--table takes ip, pairs or ports");
    options.list = *list;
  } else if (option == "--max-items") {
    long items = 0;
    if (!ParseNumber(value, 1, stats::kTableCapacity, items)) {
      return usage("--max-items takes a number from 1 to 8192");
    }
    options.limits.maxItems = static_cast<std::int32_t>(items);
  } else if (option == "--policy") {
    const auto policy = ParsePolicy(value);
    if (!policy) return usage("--policy takes longest-ago, lowest or highest");
    options.limits.policy = *policy;
  } else if (option == "--local") {
    options.locals.emplace();
    if (!ParseLocals(value, *options.locals)) {
      return usage("--local takes IPv4 or IPv6 addresses separated by commas");
    }
  } else if (option == "--format") {
    const auto format = stats::ParseSaveFormat(value);
    if (!format || value == "text") return usage("--format takes tsv, csv or json");
    options.format = *format;
  } else {
    return std::nullopt;
  }
  return kExitOk;
}

int ParseOptions(std::span<const std::string> args, StatsOptions& options, std::ostream& err) {
  const CommandOptions command{
      .command = kCommand, .seconds = true,
      .takeSwitch = {},
      .takeValue = [&](const std::string& option, const std::string& value) {
        return ParseOwnOption(option, value, options, err);
      }};
  if (const int status = ParseCaptureCommand(args, command, options.source, err); status != kExitOk) {
    return status;
  }
  if (options.source.form && options.source.loadDump.empty()) {
    return Usage(err, kCommand, "--load-dump and --form go together");
  }
  return kExitOk;
}

// `dropped`: what the kernel dropped of a live capture, as `packets` reports it.
void PrintTable(stats::StatisticsEngine& engine, const StatsOptions& options, std::ostream& out,
                std::ostream& err, std::uint64_t dropped = 0) {
  std::string text;
  engine.WithTables([&](const stats::StatisticsTables& tables) {
    stats::WriteList(tables, options.list, options.format, UiLanguage::English, text);
  });
  out.write(text.data(), static_cast<std::streamsize>(text.size()));
  out.flush();
  err << engine.PacketSequence() << " packets, " << dropped << " dropped\n";
}

}  // namespace

int RunStats(std::span<const std::string> args, std::ostream& out, std::ostream& err) {
  StatsOptions options;
  if (const int status = ParseOptions(args, options, err); status != kExitOk) return status;

  // Before the address refresher's thread starts, so that it inherits the blocked SIGINT and
  // SIGTERM: a stop signal handed to it would end the process without the table.
  StopRequest stop;
  StatisticalRun run(options.limits, options.locals);
  stats::StatisticsEngine& engine = run.Engine();

  int status = kExitOk;
  if (!options.source.loadDump.empty()) {
    DumpLoadOptions load;
    load.form = *options.source.form;
    const std::string& file = options.source.loadDump;
    const std::string problem = DescribeDumpLoad(LoadDumpFile(file, engine, load), file);
    engine.Finish();
    if (!problem.empty()) {
      err << "vormelt-cli: " << problem << "\n";
      status = kExitFailed;
    }
    PrintTable(engine, options, out, err);
    return status;
  }

  ModeCapture& capture = run.Capture();
  std::unique_ptr<metrics::Endpoint> endpoint;
  const auto collect = [&] {
    std::vector<metrics::Family> families;
    metrics::AddCapture(families, options.source.Name(), capture);
    metrics::AddStatistics(families, engine);
    return families;
  };
  if (!ServeMetrics(options.source.metricsListen, collect, endpoint, err)) return kExitFailed;
  CaptureUntilStopped(capture, *options.source.target, stop, options.source.seconds);

  if (TellCaptureMessages(capture, err)) status = kExitFailed;
  if (capture.Status().status == CaptureStatus::Idle) return status;

  PrintTable(engine, options, out, err, capture.Dropped());
  return status;
}

}  // namespace vormelt::cli
