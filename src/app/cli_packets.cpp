// vormelt-cli packets: capture live, read a capture file or load a packet dump file with the
// Packet Mode engine and print one line per stored packet (or its text rendering, --render)
// while it arrives; afterwards save the store as a dump file (--save) or capture file (--write).
// Errors are one line on `err`, then the count of packets listed and dropped by the kernel;
// rows go to `out`. SIGINT/SIGTERM end a capture cleanly: the rows and the count still print.

#include <climits>
#include <cstdint>
#include <filesystem>
#include <ostream>
#include <string>

#include "app/cli.hpp"
#include "app/mode_metrics.hpp"
#include "app/cli_packets_log.hpp"
#include "app/headless.hpp"
#include "common/file_write.hpp"
#include "capture/mode_capture.hpp"
#include "packetmode/dump_file.hpp"
#include "packets/list_row.hpp"
#include "packets/render.hpp"
#include "packetmode/packet_mode_engine.hpp"
#include "packets/store.hpp"

namespace vormelt::cli {
namespace {

constexpr std::string_view kCommand = "packets";
constexpr std::size_t kFlushBytes = 1 << 16;

struct PacketsOptions {
  SourceOptions source;
  long count = 0;  // 0: no limit
  std::string filterProfile;  // empty: no filtering
  bool matchCase = false;
  std::optional<DataForm> render;  // set: print each packet's rendering instead of its row
  DataLevel level = DataLevel::Datalink;
  IpGap gap = IpGap::Narrow;
  std::string save;                    // dump file out, in the --form of the source options
  bool append = false;
  std::string write;                   // capture file out
  LogFindOptions logFind;
};

constexpr std::string_view kUsageAfter =
    "\n"
    "usage: vormelt-cli packets (--read FILE | --live ADDRESS | --adapter NAME |\n"
    "                            --load-dump FILE --form FORM) [--count N]\n"
    "                           [--filter-profile FILE.HBFP [--match-case]]\n"
    "                           [--render none|text|dec|hex|hex+text [--level LEVEL] [--wide]]\n"
    "                           [--save FILE --form FORM [--level LEVEL] [--append]]\n"
    "                           [--write FILE.pcapng|FILE.pcap] [--buffer-mib N]\n"
    "                           [--metrics-listen [ADDRESS:]PORT]\n"
    "                           [--log-folder DIR --log-method single|size|time|size+time\n"
    "                            [--log-max-kb N] [--log-span-s N] [--log-interval-s N]\n"
    "                            [--log-form heading|text|dec|hex|hex+text|pcapng] [--log-prune-age-s N]]\n"
    "                           [--find TEXT [--match-case]]\n"
    "       FORM: text, dec, hex or hex+text\n";

int Usage(std::ostream& err, std::string_view problem) {
  return cli::Usage(err, kCommand, problem, kUsageAfter);
}

bool ParseSwitch(const std::string& option, PacketsOptions& options) {
  if (option == "--match-case") return options.matchCase = true;
  if (option == "--wide") {
    options.gap = IpGap::Wide;
    return true;
  }
  if (option == "--append") return options.append = true;
  return false;
}

// The command's own options with a value; nullopt for anything else.
std::optional<int> ParseValue(const std::string& option, const std::string& value,
                              PacketsOptions& options, std::ostream& err) {
  if (const auto taken = ParseLogFindOption(option, value, options.logFind, err)) return taken;
  if (option == "--count") {
    if (!ParseNumber(value, 1, LONG_MAX, options.count)) return Usage(err, "--count needs a number above 0");
  } else if (option == "--filter-profile") {
    options.filterProfile = value;
  } else if (option == "--render") {
    options.render = ParseDataForm(value);
    if (!options.render) return Usage(err, "--render takes none, text, dec, hex or hex+text");
  } else if (option == "--level") {
    const std::optional<DataLevel> level = ParseDataLevel(value);
    if (!level) return Usage(err, "--level takes datalink, network, transport or presentation");
    options.level = *level;
  } else if (option == "--save") {
    options.save = value;
  } else if (option == "--write") {
    options.write = value;
    if (!CaptureFormatFromPath(options.write)) {
      return Usage(err, "--write needs a file name ending in .pcapng or .pcap");
    }
  } else {
    return std::nullopt;
  }
  return kExitOk;
}

// Returns kExitOk, or the usage status after printing the problem.
int ParseOptions(std::span<const std::string> args, PacketsOptions& options, std::ostream& err) {
  const CommandOptions command{
      .command = kCommand, .after = kUsageAfter,
      .takeSwitch = [&](const std::string& option) { return ParseSwitch(option, options); },
      .takeValue = [&](const std::string& option, const std::string& value) {
        return ParseValue(option, value, options, err);
      }};
  if (const int status = ParseCaptureCommand(args, command, options.source, err); status != kExitOk) {
    return status;
  }
  if (!options.save.empty() && !options.source.form) {
    return Usage(err, "--load-dump and --save need --form text|dec|hex|hex+text");
  }
  if (options.source.form && options.source.loadDump.empty() && options.save.empty()) {
    return Usage(err, "--form applies to --load-dump and --save only");
  }
  if (options.append && options.save.empty()) return Usage(err, "--append needs --save");
  if (options.matchCase && options.filterProfile.empty() && !options.logFind.find) {
    return Usage(err, "--match-case needs --filter-profile or --find");
  }
  return CheckLogFindOptions(options.logFind, err);
}

// Prints the rows stored since the last call: the eleven list columns, TAB-separated.
class RowPrinter {
 public:
  RowPrinter(const PacketStore& store, std::ostream& out, std::optional<RenderOptions> render,
             std::string findNeedle, bool matchCase)
      : store_(store), out_(out), findNeedle_(std::move(findNeedle)), matchCase_(matchCase) {
    if (render) renderer_.emplace(*render);
  }
  ~RowPrinter() { Flush(); }

  // True when there were new rows.
  bool PrintNewRows() {
    const std::size_t rows = store_.RowCount();
    const bool any = printed_ < rows;
    for (; printed_ < rows; ++printed_) {
      const std::int32_t index = store_.IndexAtRow(printed_);
      const PacketRef packet = store_.Get(index);
      if (!PassesFind(findNeedle_, packet, matchCase_)) continue;
      ++listed_;
      AppendRow(packet, store_.FilterTexts(index));
      if (line_.size() >= kFlushBytes) Flush();
    }
    return any;
  }

  void Flush() {
    out_.write(line_.data(), static_cast<std::streamsize>(line_.size()));
    out_.flush();
    line_.clear();
  }

  std::size_t Printed() const { return listed_; }

 private:
  void AppendRow(const PacketRef& packet, const FilterColumnTexts* filterTexts) {
    if (renderer_) {
      renderer_->Append(packet, line_);
      return;
    }
    const ListRowTextViews texts = ListRowTexts(packet, filterTexts, buffers_);
    for (std::size_t column = 0; column < texts.size(); ++column) {
      if (column) line_ += '\t';
      line_ += texts[column];
    }
    line_ += '\n';
  }

  const PacketStore& store_;
  std::ostream& out_;
  std::size_t printed_ = 0;  // rows looked at
  std::size_t listed_ = 0;   // rows printed (those Find kept)
  std::string findNeedle_;
  bool matchCase_ = false;
  std::string line_;
  ListRowBuffers buffers_{};
  std::optional<PacketRenderer> renderer_;
};

// The line saying the store's limit cut the input off, when it did; the Packet Mode window
// shows "Stopped/Item Limit Reached" in the same case. Returns the exit status it calls for:
// failed when packets were left out, or may have been (a live capture stopped).
int ReportStoreLimit(const PacketStore& store, std::optional<std::uint64_t> notTaken,
                     std::ostream& err) {
  if (!store.LimitReached()) return kExitOk;
  err << "vormelt-cli: " << StoreLimitText(store.Capacity(), notTaken, UiLanguage::English) << "\n";
  return notTaken == std::uint64_t{0} ? kExitOk : kExitFailed;
}

void ReportSkipped(const SkippedPackets& skipped, std::ostream& err) {
  const auto report = [&](std::uint64_t count, Text text) {
    if (count) err << "vormelt-cli: " << FormatText(text, UiLanguage::English, static_cast<unsigned long long>(count)) << "\n";
  };
  report(skipped.notIp, Text::PacketsSkippedNotIp);
  report(skipped.cutShort, Text::PacketsSkippedCutShort);
}

// Captures live or from a capture file, printing rows as they come. Returns the exit status.
int RunCapture(PacketModeEngine& engine, const CaptureTarget& target, RowPrinter& printer,
               StopRequest& stop, std::ostream& err) {
  ModeCapture& capture = engine.Capture();
  // Rows are printed as fast as they come; only a look that found none flushes, so a quiet live
  // capture's rows appear at once.
  const bool stopped = CaptureUntilStopped(capture, target, stop, 0, [&] {
    const bool busy = printer.PrintNewRows();
    if (!busy) printer.Flush();
    return busy;
  });
  printer.PrintNewRows();
  printer.Flush();

  int status = TellCaptureMessages(capture, err) ? kExitFailed : kExitOk;
  ReportSkipped(capture.Skipped(), err);
  // A stop is a live capture's end; a file it cuts short is said to be cut short.
  if (stopped && capture.FileCutShort()) {
    err << "vormelt-cli: " << target.name << ": reading was stopped at byte " << capture.BytesRead()
        << " of " << capture.BytesTotal() << "\n";
    status = kExitFailed;
  }
  const CaptureStatus ended = capture.Status().status;
  if (ended == CaptureStatus::ItemLimitReached) {
    status = std::max(status, ReportStoreLimit(engine.Store(), capture.NotTaken(), err));
  }
  // A capture that never opened has no count to report; its error line says it all.
  if (ended != CaptureStatus::Idle) {
    err << printer.Printed() << " packets, " << capture.Dropped() << " dropped\n";
  }
  return status;
}

// Loads a dump file into the store (through the filter when a profile was given), prints its
// rows, then says why loading ended when that was anything but the file's end.
int LoadDump(PacketModeEngine& engine, const PacketsOptions& options, RowPrinter& printer,
             const StopRequest& stop, std::ostream& err) {
  DumpLoadOptions load;
  load.form = *options.source.form;
  load.cancel = &stop.Flag();
  const std::string& file = options.source.loadDump;
  const DumpLoadResult result = *engine.LoadDump(file, load, !options.filterProfile.empty());
  printer.PrintNewRows();
  printer.Flush();
  int status = kExitOk;
  if (result.end == DumpLoadEnd::ItemLimitReached) {
    status = ReportStoreLimit(engine.Store(), result.notTaken, err);
  } else if (const std::string problem = DescribeDumpLoad(result, file); !problem.empty()) {
    err << "vormelt-cli: " << problem << "\n";
    status = kExitFailed;
  }
  err << printer.Printed() << " packets loaded\n";
  return status;
}

// --save and --write, from everything the store holds. A stop ends each after the packet in
// hand, with the file whole and closed, and says how far it got.
int WriteOutputs(const PacketStore& store, const PacketsOptions& options, const StopRequest& stop,
                 std::ostream& err) {
  int status = kExitOk;
  if (!options.save.empty()) {
    DumpSaveOptions save;
    save.render = RenderOptions{*options.source.form, IpGap::Narrow, options.level};
    save.append = options.append;
    save.cancel = &stop.Flag();
    const DumpSaveResult saved = SaveDumpFile(options.save, store, save);
    if (!saved.ok) {
      err << "vormelt-cli: " << English(Text::DumpUnableToSave) << " (" << options.save << ": "
          << ErrnoText(saved.error) << ")\n";
      status = kExitFailed;
    } else if (saved.stopped) {
      err << "vormelt-cli: " << options.save << ": "
          << FormatText(Text::DumpSaveStopped, UiLanguage::English, static_cast<long>(saved.packets))
          << "\n";
      status = kExitFailed;
    }
  }
  if (!options.write.empty()) {
    const CaptureExportResult written =
        WriteCaptureFile(options.write, store, false, std::nullopt, nullptr, &stop.Flag());
    if (!written.ok) {
      err << "vormelt-cli: " << written.error << "\n";
      status = kExitFailed;
    } else if (written.stopped) {
      err << "vormelt-cli: " << options.write << ": writing was stopped after " << written.packets
          << " packets\n";
      status = kExitFailed;
    }
    if (written.leftOut) {
      err << "vormelt-cli: " << FormatText(Text::CaptureFileLeftOut, UiLanguage::English,
                                           options.write.c_str(),
                                           static_cast<unsigned long long>(written.leftOut)) << "\n";
    }
  }
  return status;
}

}  // namespace

int RunPackets(std::span<const std::string> args, std::ostream& out, std::ostream& err) {
  PacketsOptions options;
  if (const int status = ParseOptions(args, options, err); status != kExitOk) return status;

  // First, before the engine starts any thread (logger, capture), so that every one of them
  // leaves SIGINT and SIGTERM to it.
  StopRequest stop;
  PacketModeEngine engine;
  // A filter profile filters every packet, as Packet Mode does with filtering switched on.
  FilterSettings& filter = engine.Filter();
  if (!options.filterProfile.empty()) {
    if (!LoadProfileInto(options.filterProfile, filter, err)) return kExitFailed;
    filter.SetMatchCase(options.matchCase);
    filter.SetFilteringEnabled(true);
  }

  engine.SetStopAfter(options.count);
  std::optional<RenderOptions> render;
  if (options.render) render = RenderOptions{*options.render, options.gap, options.level};
  RowPrinter printer(engine.Store(), out, render, FindNeedle(options.logFind, options.matchCase),
                     options.matchCase);
  if (options.logFind.logging) {
    LogConfig config;
    config.settings = *options.logFind.logging;
    // "%LI" names the interface; a file stands in for one by its own name.
    const SourceOptions& from = options.source;
    const bool fromFile = !from.Live();
    const std::string& source = from.loadDump.empty() ? from.target->name : from.loadDump;
    config.interfaceText = fromFile ? std::filesystem::path(source).filename().string() : source;
    if (!engine.StartLogging(std::move(config))) {
      err << "vormelt-cli: the logging form cannot be made\n";
      return kExitFailed;
    }
  }
  std::unique_ptr<metrics::Endpoint> endpoint;
  const auto collect = [&] {
    std::vector<metrics::Family> families;
    metrics::AddCapture(families, options.source.Name(), engine.Capture());
    metrics::AddPacketMode(families, engine, options.logFind.logging.has_value());
    return families;
  };
  if (!ServeMetrics(options.source.metricsListen, collect, endpoint, err)) return kExitFailed;
  const bool dump = !options.source.loadDump.empty();
  int status = dump ? LoadDump(engine, options, printer, stop, err)
                    : RunCapture(engine, *options.source.target, printer, stop, err);
  // A stop is how a live capture ends; it does not also cut short writing what was captured.
  // Another one does.
  stop.Lower();
  // What a full store holds is written out as well: the limit line has said what it lacks. A
  // failed log is no reason to keep back the files asked for.
  const bool write = status == kExitOk || dump || engine.Store().LimitReached();
  if (options.logFind.logging) status = FinishLogging(engine, status, err);
  if (write) {
    status = std::max(status, WriteOutputs(engine.Store(), options, stop, err));
  }
  return status;
}

}  // namespace vormelt::cli
