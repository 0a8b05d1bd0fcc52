// vormelt-cli stats: counts a capture file or a live capture into the statistics tables, then
// prints one table with the window's columns (raw integers). --local stands in for the host's
// own addresses, for files captured on another machine. SIGINT/SIGTERM end a live count early.
// A packet dump file (--load-dump FILE --form FORM) is counted by its own time texts.

#include <charconv>
#include <chrono>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "app/cli.hpp"
#include "app/headless.hpp"
#include "app/mode_metrics.hpp"
#include "capture/session.hpp"
#include "packetmode/dump_file.hpp"
#include "statistics/engine.hpp"
#include "statistics/lists.hpp"

namespace vormelt::cli {
namespace {

namespace stats = vormelt::statistics;

constexpr int kExitOk = 0, kExitFailed = 1, kExitUsage = 2;

struct StatsOptions {
  std::optional<CaptureTarget> target;
  std::optional<std::int32_t> bufferMiB;  // --buffer-mib
  long seconds = 0;  // 0: until the file ends or a signal comes
  stats::StatisticsList list = stats::StatisticsList::IpAddresses;
  stats::StatisticsLimits limits{stats::kTableCapacity, stats::VictimPolicy::LongestAgo};
  std::optional<std::vector<stats::Ipv4>> locals;  // set: replaces the host's addresses
  stats::SaveFormat format = stats::SaveFormat::Text;
  std::string loadDump;  // a packet dump file as the source
  std::optional<DataForm> form;
  std::string metricsListen;  // --metrics-listen: serve the counts for Prometheus
};

int Usage(std::ostream& err, const std::string& problem) {
  err << "vormelt-cli stats: " << problem << " (see vormelt-cli --help)\n";
  return kExitUsage;
}

std::optional<stats::VictimPolicy> ParsePolicy(const std::string& word) {
  if (word == "longest-ago") return stats::VictimPolicy::LongestAgo;
  if (word == "lowest") return stats::VictimPolicy::Lowest;
  if (word == "highest") return stats::VictimPolicy::Highest;
  return std::nullopt;
}

bool ParseLocals(const std::string& text, std::vector<stats::Ipv4>& addresses) {
  std::size_t begin = 0;
  while (begin <= text.size()) {
    const std::size_t comma = std::min(text.find(',', begin), text.size());
    stats::Ipv4 address = 0;
    if (!stats::ParseIpv4(std::string_view(text).substr(begin, comma - begin), address)) {
      return false;
    }
    addresses.push_back(address);
    begin = comma + 1;
  }
  return addresses.size() <= stats::LocalAddressList::kCapacity;
}

// One option with its value; returns kExitOk or the usage status after printing the problem.
int ParseOption(const std::string& option, const std::string& value, StatsOptions& options,
                std::ostream& err) {
  const auto setTarget = [&](CaptureTarget target) {
    if (options.target) return Usage(err, "give only one of --read, --live and --adapter");
    options.target = std::move(target);
    return kExitOk;
  };
  if (option == "--read") return setTarget(CaptureTarget::File(value));
  if (option == "--live") return setTarget(CaptureTarget::Address(value));
  if (option == "--adapter") return setTarget(CaptureTarget::Adapter(value));
  if (option == "--buffer-mib") {
    if (const std::string problem = ParseBufferMiB(value, options.bufferMiB); !problem.empty()) {
      return Usage(err, problem);
    }
  } else if (option == "--load-dump") {
    options.loadDump = value;
  } else if (option == "--form") {
    options.form = ParseDataForm(value);
    if (!options.form || *options.form == DataForm::None) {
      return Usage(err, "--form takes text, dec, hex or hex+text");
    }
  } else
  if (option == "--seconds") {
    if (!ParseNumber(value, 1, 31'536'000, options.seconds)) {
      return Usage(err, "--seconds needs a number above 0");
    }
  } else if (option == "--table") {
    const auto list = stats::ParseList(value);
    if (!list) return Usage(err, "--table takes ip, pairs or ports");
    options.list = *list;
  } else if (option == "--max-items") {
    long items = 0;
    if (!ParseNumber(value, 1, stats::kTableCapacity, items)) {
      return Usage(err, "--max-items takes a number from 1 to 8192");
    }
    options.limits.maxItems = static_cast<std::int32_t>(items);
  } else if (option == "--policy") {
    const auto policy = ParsePolicy(value);
    if (!policy) return Usage(err, "--policy takes longest-ago, lowest or highest");
    options.limits.policy = *policy;
  } else if (option == "--local") {
    options.locals.emplace();
    if (!ParseLocals(value, *options.locals)) {
      return Usage(err, "--local takes dotted IPv4 addresses separated by commas");
    }
  } else if (option == "--metrics-listen") {
    std::string problem;
    if (!MetricsListenUsable(value, problem)) return Usage(err, "--metrics-listen: " + problem);
    options.metricsListen = value;
  } else if (option == "--format") {
    const auto format = stats::ParseSaveFormat(value);
    if (!format || value == "text") return Usage(err, "--format takes tsv, csv or json");
    options.format = *format;
  } else {
    return Usage(err, "unknown option '" + option + "'");
  }
  return kExitOk;
}

int ParseOptions(std::span<const std::string> args, StatsOptions& options, std::ostream& err) {
  for (std::size_t i = 0; i < args.size(); i += 2) {
    if (args[i].rfind("--", 0) != 0) return Usage(err, "unexpected word '" + args[i] + "'");
    if (i + 1 >= args.size()) return Usage(err, args[i] + " needs a value");
    if (const int status = ParseOption(args[i], args[i + 1], options, err); status != kExitOk) {
      return status;
    }
  }
  const bool dump = !options.loadDump.empty();
  if (dump == options.target.has_value()) {
    return Usage(err, "give one of --read FILE, --live ADDRESS, --adapter NAME, --load-dump FILE");
  }
  if (dump != options.form.has_value()) return Usage(err, "--load-dump and --form go together");
  if (options.seconds && (dump || options.target->type == CaptureTarget::Type::File)) {
    return Usage(err, "--seconds applies to live captures only");
  }
  if (const std::string problem = ApplyBufferMiB(options.bufferMiB, options.target);
      !problem.empty()) {
    return Usage(err, problem);
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
  StopSignals signals;
  stats::LocalAddressList locals;
  std::optional<stats::LocalAddressRefresher> refresher;
  if (options.locals) {
    locals.Replace(*options.locals);
  } else {
    refresher.emplace(locals);
  }
  stats::StatisticsEngine engine(locals, options.limits);

  int status = kExitOk;
  if (!options.loadDump.empty()) {
    DumpLoadOptions load;
    load.form = *options.form;
    const std::string problem =
        DescribeDumpLoad(LoadDumpFile(options.loadDump, engine, load), options.loadDump);
    engine.Finish();
    if (!problem.empty()) {
      err << "vormelt-cli: " << problem << "\n";
      status = kExitFailed;
    }
    PrintTable(engine, options, out, err);
    return status;
  }

  CaptureSession session;
  CountingSink counting(engine);
  std::unique_ptr<metrics::Endpoint> endpoint;
  const auto collect = [&] {
    std::vector<metrics::Family> families;
    metrics::AddCapture(families, options.target->displayName, counting, session);
    metrics::AddStatistics(families, engine);
    return families;
  };
  if (!ServeMetrics(options.metricsListen, collect, endpoint, err)) return kExitFailed;
  CaptureUntilStopped(session, *options.target, counting, options.seconds);

  for (const CaptureMessage& message : session.Messages().Drain()) {
    err << "vormelt-cli: " << OneLineMessage(message) << "\n";
    status = kExitFailed;
  }
  if (session.Status().status == CaptureStatus::Idle) return status;

  PrintTable(engine, options, out, err, session.Dropped());
  return status;
}

}  // namespace vormelt::cli
