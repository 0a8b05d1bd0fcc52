// vormelt-cli packets: capture live, read a capture file or load a packet dump file with the
// Packet Mode engine and print one line per stored packet (or its text rendering, --render)
// while it arrives; afterwards save the store as a dump file (--save) or capture file (--write).
// Errors are one line on `err`, then the count of packets listed and dropped by the kernel;
// rows go to `out`. SIGINT/SIGTERM end a capture cleanly: the rows and the count still print.

#include <charconv>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <ostream>
#include <string>
#include <thread>

#include "app/cli.hpp"
#include "app/mode_metrics.hpp"
#include "app/cli_packets_log.hpp"
#include "app/headless.hpp"
#include "common/file_write.hpp"
#include "capture/session.hpp"
#include "packetmode/dump_file.hpp"
#include "packets/list_row.hpp"
#include "packets/render.hpp"
#include "packetmode/packet_mode_engine.hpp"
#include "packets/store.hpp"

namespace vormelt::cli {
namespace {

constexpr int kExitOk = 0, kExitFailed = 1, kExitUsage = 2;
constexpr auto kPollInterval = std::chrono::milliseconds(10);
constexpr auto kShortPoll = std::chrono::milliseconds(1);
constexpr std::size_t kFlushBytes = 1 << 16;

struct PacketsOptions {
  std::optional<CaptureTarget> target;
  std::optional<std::int32_t> bufferMiB;  // --buffer-mib
  long count = 0;  // 0: no limit
  std::string filterProfile;  // empty: no filtering
  bool matchCase = false;
  std::optional<DataForm> render;  // set: print each packet's rendering instead of its row
  DataLevel level = DataLevel::Datalink;
  IpGap gap = IpGap::Narrow;
  std::string loadDump;                // a dump file as the source
  std::optional<DataForm> form;        // the dump file's form, loading and saving
  std::string save;                    // dump file out
  bool append = false;
  std::string write;                   // capture file out
  LogFindOptions logFind;
  std::string metricsListen;           // --metrics-listen: serve the counts for Prometheus
};

int Usage(std::ostream& err, const std::string& problem) {
  err << "vormelt-cli packets: " << problem << "\n"
      << "usage: vormelt-cli packets (--read FILE | --live ADDRESS | --adapter NAME |\n"
      << "                            --load-dump FILE --form FORM) [--count N]\n"
      << "                           [--filter-profile FILE.HBFP [--match-case]]\n"
      << "                           [--render none|text|dec|hex|hex+text [--level LEVEL] [--wide]]\n"
      << "                           [--save FILE --form FORM [--level LEVEL] [--append]]\n"
      << "                           [--write FILE.pcapng|FILE.pcap] [--buffer-mib N]\n"
      << "                           [--metrics-listen [ADDRESS:]PORT]\n"
      << "                           [--log-folder DIR --log-method single|size|time|size+time\n"
      << "                            [--log-max-kb N] [--log-span-s N] [--log-interval-s N]\n"
      << "                            [--log-form heading|text|dec|hex|hex+text|pcapng] [--log-prune-age-s N]]\n"
      << "                           [--find TEXT [--match-case]]\n"
      << "       FORM: text, dec, hex or hex+text\n";
  return kExitUsage;
}

bool ParseCount(const std::string& text, long& count) {
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, count);
  return error == std::errc() && stop == end && count > 0;
}

// Returns kExitOk, or the usage status after printing the problem.
int ParseOptions(std::span<const std::string> args, PacketsOptions& options, std::ostream& err) {
  for (std::size_t i = 0; i < args.size(); ++i) {
    const std::string& option = args[i];
    const bool hasValue = i + 1 < args.size();
    const auto setTarget = [&](CaptureTarget target) {
      if (options.target) return Usage(err, "give only one of --read, --live and --adapter");
      options.target = std::move(target);
      return kExitOk;
    };
    if (const auto taken = ParseLogFindOption(args, i, options.logFind, err)) {
      if (*taken != kExitOk) return *taken;
      continue;
    }
    int status = kExitOk;
    if (!hasValue && (option == "--read" || option == "--live" || option == "--adapter" ||
                      option == "--count" || option == "--filter-profile" ||
                      option == "--render" || option == "--level" || option == "--load-dump" ||
                      option == "--form" || option == "--save" || option == "--write" ||
                      option == "--buffer-mib" || option == "--metrics-listen")) {
      return Usage(err, option + " needs a value");
    }
    if (option == "--read") {
      status = setTarget(CaptureTarget::File(args[++i]));
    } else if (option == "--live") {
      status = setTarget(CaptureTarget::Address(args[++i]));
    } else if (option == "--adapter") {
      status = setTarget(CaptureTarget::Adapter(args[++i]));
    } else if (option == "--count") {
      if (!ParseCount(args[++i], options.count)) return Usage(err, "--count needs a number above 0");
    } else if (option == "--filter-profile") {
      options.filterProfile = args[++i];
    } else if (option == "--match-case") {
      options.matchCase = true;
    } else if (option == "--render") {
      options.render = ParseDataForm(args[++i]);
      if (!options.render) return Usage(err, "--render takes none, text, dec, hex or hex+text");
    } else if (option == "--level") {
      const std::optional<DataLevel> level = ParseDataLevel(args[++i]);
      if (!level) return Usage(err, "--level takes datalink, network, transport or presentation");
      options.level = *level;
    } else if (option == "--wide") {
      options.gap = IpGap::Wide;
    } else if (option == "--load-dump") {
      if (options.target || !options.loadDump.empty()) {
        return Usage(err, "give only one of --read, --live, --adapter and --load-dump");
      }
      options.loadDump = args[++i];
    } else if (option == "--form") {
      options.form = ParseDataForm(args[++i]);
      if (!options.form || *options.form == DataForm::None) {
        return Usage(err, "--form takes text, dec, hex or hex+text");
      }
    } else if (option == "--save") {
      options.save = args[++i];
    } else if (option == "--append") {
      options.append = true;
    } else if (option == "--buffer-mib") {
      if (const std::string problem = ParseBufferMiB(args[++i], options.bufferMiB); !problem.empty()) {
        return Usage(err, problem);
      }
    } else if (option == "--metrics-listen") {
      std::string problem;
      if (!MetricsListenUsable(args[++i], problem)) return Usage(err, "--metrics-listen: " + problem);
      options.metricsListen = args[i];
    } else if (option == "--write") {
      options.write = args[++i];
      if (!CaptureFormatFromPath(options.write)) {
        return Usage(err, "--write needs a file name ending in .pcapng or .pcap");
      }
    } else {
      return Usage(err, "unknown option '" + option + "'");
    }
    if (status != kExitOk) return status;
  }
  if (options.target && !options.loadDump.empty()) {
    return Usage(err, "give only one of --read, --live, --adapter and --load-dump");
  }
  if (!options.target && options.loadDump.empty()) {
    return Usage(err, "give --read FILE, --live ADDRESS, --adapter NAME or --load-dump FILE");
  }
  if ((!options.loadDump.empty() || !options.save.empty()) && !options.form) {
    return Usage(err, "--load-dump and --save need --form text|dec|hex|hex+text");
  }
  if (options.form && options.loadDump.empty() && options.save.empty()) {
    return Usage(err, "--form applies to --load-dump and --save only");
  }
  if (options.append && options.save.empty()) return Usage(err, "--append needs --save");
  if (options.matchCase && options.filterProfile.empty() && !options.logFind.find) {
    return Usage(err, "--match-case needs --filter-profile or --find");
  }
  if (const int status = CheckLogFindOptions(options.logFind, err); status != kExitOk) {
    return status;
  }
  if (const std::string problem = ApplyBufferMiB(options.bufferMiB, options.target);
      !problem.empty()) {
    return Usage(err, problem);
  }
  return kExitOk;
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
  CaptureSession& session = engine.Session();
  if (target.type == CaptureTarget::Type::File) {
    engine.StartFile(target.name);
  } else {
    engine.StartLive(target);
  }
  // Rows are printed as fast as they come; only a loop that found none waits, and then shows
  // what it holds, so a quiet live capture's rows appear at once. Right after rows came the
  // wait is short: a file's rows stop coming when its reading ends, and a long wait then would
  // be time added to every read.
  bool wasBusy = false;
  bool stopping = false;  // asked once; the request stays raised, so Wait no longer waits
  while (session.listening.load()) {
    const bool busy = printer.PrintNewRows();
    if (!busy) printer.Flush();
    const auto wait = busy ? std::chrono::milliseconds(0) : wasBusy ? kShortPoll : kPollInterval;
    if (stopping) {
      std::this_thread::sleep_for(wait);
    } else if (stop.Wait(wait)) {
      session.Stop();
      stopping = true;
    }
    wasBusy = busy;
  }
  session.Wait();
  printer.PrintNewRows();
  printer.Flush();

  int status = kExitOk;
  for (const CaptureMessage& message : session.Messages().Drain()) {
    err << "vormelt-cli: " << OneLineMessage(message) << "\n";
    status = kExitFailed;
  }
  ReportSkipped(session.Skipped(), err);
  // A stop is a live capture's end; a file it cuts short is said to be cut short.
  if (stopping && target.type == CaptureTarget::Type::File &&
      session.Status().status == CaptureStatus::Stopped &&
      session.BytesRead() < session.BytesTotal()) {
    err << "vormelt-cli: " << target.name << ": reading was stopped at byte " << session.BytesRead()
        << " of " << session.BytesTotal() << "\n";
    status = kExitFailed;
  }
  if (session.Status().status == CaptureStatus::ItemLimitReached) {
    status = std::max(status, ReportStoreLimit(engine.Store(), session.NotTaken(), err));
  }
  // A capture that never opened has no count to report; its error line says it all.
  if (session.Status().status != CaptureStatus::Idle) {
    err << printer.Printed() << " packets, " << session.Dropped() << " dropped\n";
  }
  return status;
}

// Loads a dump file into the store (through the filter when a profile was given), prints its
// rows, then says why loading ended when that was anything but the file's end.
int LoadDump(PacketModeEngine& engine, const PacketsOptions& options, RowPrinter& printer,
             const StopRequest& stop, std::ostream& err) {
  DumpLoadOptions load;
  load.form = *options.form;
  load.cancel = &stop.Flag();
  const DumpLoadResult result =
      *engine.LoadDump(options.loadDump, load, !options.filterProfile.empty());
  printer.PrintNewRows();
  printer.Flush();
  int status = kExitOk;
  if (result.end == DumpLoadEnd::ItemLimitReached) {
    status = ReportStoreLimit(engine.Store(), result.notTaken, err);
  } else if (const std::string problem = DescribeDumpLoad(result, options.loadDump); !problem.empty()) {
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
    save.render = RenderOptions{*options.form, IpGap::Narrow, options.level};
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
    const bool fromFile = !options.loadDump.empty() || options.target->type == CaptureTarget::Type::File;
    const std::string& source = options.loadDump.empty() ? options.target->name : options.loadDump;
    config.interfaceText = fromFile ? std::filesystem::path(source).filename().string() : source;
    if (!engine.StartLogging(std::move(config))) {
      err << "vormelt-cli: the logging form cannot be made\n";
      return kExitFailed;
    }
  }
  std::unique_ptr<metrics::Endpoint> endpoint;
  const auto collect = [&] {
    std::vector<metrics::Family> families;
    metrics::AddCapture(families, options.target ? options.target->displayName : options.loadDump,
                        engine.FramesReceived(), engine.BytesReceived(), engine.Session().Dropped());
    metrics::AddStore(families, static_cast<std::uint64_t>(engine.Store().ItemCount()),
                      static_cast<std::uint64_t>(engine.Store().Capacity()));
    if (options.logFind.logging) {
      const LogStatus logged = engine.LoggingStatus();
      metrics::AddLogging(families, static_cast<std::uint64_t>(logged.filesBegun),
                          static_cast<std::uint64_t>(logged.failureEpisodes));
    }
    return families;
  };
  if (!ServeMetrics(options.metricsListen, collect, endpoint, err)) return kExitFailed;
  int status = options.loadDump.empty() ? RunCapture(engine, *options.target, printer, stop, err)
                                        : LoadDump(engine, options, printer, stop, err);
  // A stop is how a live capture ends; it does not also cut short writing what was captured.
  // Another one does.
  stop.Lower();
  // What a full store holds is written out as well: the limit line has said what it lacks. A
  // failed log is no reason to keep back the files asked for.
  const bool write = status == kExitOk || !options.loadDump.empty() || engine.Store().LimitReached();
  if (options.logFind.logging) status = FinishLogging(engine, status, err);
  if (write) {
    status = std::max(status, WriteOutputs(engine.Store(), options, stop, err));
  }
  return status;
}

}  // namespace vormelt::cli
