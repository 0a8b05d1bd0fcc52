// vormelt-cli files: rebuilds the HTTP response bodies of a capture file, a packet dump or a
// live capture into a folder, printing one line per file (path, size, content type) as it is
// written and a summary on stderr. --manifest adds a JSON Lines record per file with its MD5,
// and one for each body that could not be written (with "complete": false and the reason).
// Any such failure makes the exit status 1. SIGINT/SIGTERM end a live capture; streams still
// filling then are dropped, as in the window.

#include <atomic>
#include <charconv>
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <optional>
#include <ostream>
#include <string>

#include <nlohmann/json.hpp>

#include "app/cli.hpp"
#include "app/file_mode.hpp"
#include "app/headless.hpp"
#include "app/mode_engines.hpp"
#include "app/mode_metrics.hpp"
#include "common/file_write.hpp"
#include "tools/md5.hpp"

namespace vormelt::cli {
namespace {

namespace fm = vormelt::filemode;

constexpr std::string_view kCommand = "files";
constexpr std::size_t kReadChunk = 1 << 16;

struct FilesOptions {
  SourceOptions source;
  fm::FileModeOptions engine;
  std::string filterProfile;
  std::string manifest;
};

bool ParseSubdirs(const std::string& text, fm::NamingOptions& naming) {
  naming.createSubfolders = true;
  std::size_t level = 0, begin = 0;
  while (begin <= text.size()) {
    const std::size_t comma = std::min(text.find(',', begin), text.size());
    const std::string word = text.substr(begin, comma - begin);
    if (level >= naming.levels.size()) return false;
    if (word == "sip") {
      naming.levels[level++] = fm::SubfolderChoice::Source;
    } else if (word == "dip") {
      naming.levels[level++] = fm::SubfolderChoice::Destination;
    } else if (word == "ext") {
      naming.levels[level++] = fm::SubfolderChoice::Extension;
    } else {
      return false;
    }
    begin = comma + 1;
  }
  return true;
}

// Options that are switches; returns false when `option` is none of them.
bool ParseSwitch(const std::string& option, fm::FileModeOptions& o) {
  if (option == "--dirty") return o.dirty = true;
  if (option == "--overwrite") return o.naming.overwrite = true;
  if (option == "--all-streams") return !(o.onlyHttp = false);
  if (option == "--partial") return o.acceptPartial = true;
  if (option == "--psh-only") return o.pshOnly = true;
  if (option == "--latest-duplicates") return o.latestDuplicates = true;
  if (option == "--short-ext") return o.shortExtensions = true;
  return false;
}

// The command's own options with a value; nullopt for anything else.
std::optional<int> ParseValue(const std::string& option, const std::string& value,
                              FilesOptions& options, std::ostream& err) {
  long number = 0;
  if (option == "--out") {
    options.engine.naming.folder = value;
  } else if (option == "--template") {
    options.engine.naming.nameTemplate = value;
  } else if (option == "--ack-timeout-ms") {
    if (!ParseNumber(value, 0, INT32_MAX, number)) return Usage(err, kCommand, "--ack-timeout-ms needs a number");
    options.engine.ackTimeoutMs = static_cast<std::int32_t>(number);
  } else if (option == "--subdirs") {
    if (!ParseSubdirs(value, options.engine.naming)) {
      return Usage(err, kCommand, "--subdirs takes up to three of sip, dip and ext, separated by commas");
    }
  } else if (option == "--filter-profile") {
    options.filterProfile = value;
  } else if (option == "--manifest") {
    options.manifest = value;
  } else {
    return std::nullopt;
  }
  return kExitOk;
}

int ParseOptions(std::span<const std::string> args, FilesOptions& options, std::ostream& err) {
  const CommandOptions command{
      .command = kCommand, .seconds = true,
      .takeSwitch = [&](const std::string& option) { return ParseSwitch(option, options.engine); },
      .takeValue = [&](const std::string& option, const std::string& value) {
        return ParseValue(option, value, options, err);
      }};
  if (const int status = ParseCaptureCommand(args, command, options.source, err); status != kExitOk) {
    return status;
  }
  if (options.engine.naming.folder.empty()) return Usage(err, kCommand, "give --out DIR");
  return kExitOk;
}

std::string Md5OfFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  tools::Md5 md5;
  std::string buffer(kReadChunk, '\0');
  while (in) {
    in.read(buffer.data(), static_cast<std::streamsize>(buffer.size()));
    const auto got = static_cast<std::size_t>(in.gcount());
    md5.Update({reinterpret_cast<const std::uint8_t*>(buffer.data()), got});
  }
  return tools::DigestToHex(md5.Final());
}

std::string UtcText(std::int64_t ms) {
  const LocalTime t = ToUtcTime(CaptureTime(std::chrono::milliseconds(ms)));
  char text[32];
  std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", t.year, t.month, t.day,
                t.hour, t.minute, t.second, t.millisecond);
  return text;
}

std::string ManifestLine(const fm::WrittenFile& file) {
  nlohmann::json line{{"path", file.path},
                      {"size", file.size},
                      {"contentType", file.contentType},
                      {"source", file.source.ToString()},
                      {"destination", file.destination.ToString()},
                      {"sourcePort", file.sourcePort},
                      {"destinationPort", file.destinationPort},
                      {"first", UtcText(file.firstMs)},
                      {"last", UtcText(file.lastMs)},
                      {"complete", file.complete}};
  if (file.written()) {
    line["md5"] = Md5OfFile(file.path);
  } else {
    line["error"] = file.error;
  }
  return line.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

// Prints what the engine has written and said since the last call.
class Reporter {
 public:
  Reporter(std::ostream& out, std::ostream& err, std::ofstream* manifest)
      : out_(out), err_(err), manifest_(manifest) {}

  void Report(fm::FileModeEngine& engine, MessageQueue* capture) {
    for (const fm::WrittenFile& file : engine.DrainWritten()) {
      if (file.written()) out_ << file.path << '\t' << file.size << '\t' << file.contentType << '\n';
      if (manifest_) *manifest_ << ManifestLine(file) << '\n';
    }
    // Whole lines, as they come: a script may follow the manifest while the run goes on.
    out_.flush();
    if (manifest_) manifest_->flush();
    for (const CaptureMessage& message : engine.Messages().Drain()) Say(message);
    if (capture) {
      for (const CaptureMessage& message : capture->Drain()) Say(message);
    }
  }
  bool failed() const { return failed_; }

 private:
  void Say(const CaptureMessage& message) {
    err_ << "vormelt-cli: " << OneLineMessage(message) << "\n";
    failed_ = true;
  }
  std::ostream& out_;
  std::ostream& err_;
  std::ofstream* manifest_;
  bool failed_ = false;
};

struct Received {
  std::uint64_t packets = 0;
  std::uint64_t dropped = 0;  // by the kernel, live captures only
  bool served = true;         // false: --metrics-listen could not listen, nothing was captured
};

Received Capture(const FilesOptions& options, FileModeRun& run, Reporter& reporter,
                 StopRequest& stop, std::ostream& err) {
  ModeCapture& capture = run.Capture();
  std::unique_ptr<metrics::Endpoint> endpoint;
  const auto collect = [&] {
    std::vector<metrics::Family> families;
    metrics::AddCapture(families, options.source.Name(), capture);
    metrics::AddFileMode(families, run.Engine().Counters());
    return families;
  };
  if (!ServeMetrics(options.source.metricsListen, collect, endpoint, err)) return {0, 0, false};
  CaptureUntilStopped(capture, *options.source.target, stop, options.source.seconds, [&] {
    reporter.Report(run.Engine(), &capture.Messages());
    return false;
  });
  run.Engine().Finish();
  reporter.Report(run.Engine(), &capture.Messages());
  return {capture.Frames(), capture.Dropped()};
}

}  // namespace

int RunFiles(std::span<const std::string> args, std::ostream& out, std::ostream& err) {
  FilesOptions options;
  if (const int status = ParseOptions(args, options, err); status != kExitOk) return status;

  // Before File Mode's pass thread and the metrics threads start, so that they inherit the
  // blocked SIGINT and SIGTERM: a stop signal handed to one of them would end the process
  // without its summary.
  StopRequest stop;

  FileModeRun run;
  if (!options.filterProfile.empty()) {
    if (!LoadProfileInto(options.filterProfile, run.Filter(), err)) return kExitFailed;
    options.engine.applyFilters = true;
  }
  // The folder is made here once; a folder that cannot be made would fail every file.
  std::error_code made;
  std::filesystem::create_directories(options.engine.naming.folder, made);
  if (made) {
    err << "vormelt-cli: cannot create the folder " << options.engine.naming.folder << ": "
        << ErrnoText(made.value()) << "\n";
    return kExitFailed;
  }
  std::ofstream manifest;
  if (!options.manifest.empty()) {
    manifest.open(options.manifest, std::ios::binary | std::ios::trunc);
    if (!manifest) {
      err << "vormelt-cli: cannot write the manifest " << options.manifest << "\n";
      return kExitFailed;
    }
  }
  Reporter reporter(out, err, manifest.is_open() ? &manifest : nullptr);

  fm::FileModeEngine& engine = run.Engine();
  run.SetOptions(options.engine, {});
  int status = kExitOk;
  Received received;
  if (options.source.target) {
    received = Capture(options, run, reporter, stop, err);
    if (!received.served) return kExitFailed;
  } else {
    // A dump file is read by its own times, as a capture file is.
    engine.Start(options.engine, fm::StreamClock::File, {});
    CountingSink counting(engine);
    const std::string& file = options.source.loadDump;
    const DumpLoadResult loaded = FeedDumpFile(file, *options.source.form, counting);
    if (const std::string problem = DescribeDumpLoad(loaded, file); !problem.empty()) {
      err << "vormelt-cli: " << problem << "\n";
      status = kExitFailed;
    }
    engine.Finish();
    reporter.Report(engine, nullptr);
    received.packets = counting.frames();
  }
  if (reporter.failed()) status = kExitFailed;
  if (manifest.is_open() && !manifest.flush()) {
    err << "vormelt-cli: the manifest " << options.manifest << " could not be written whole\n";
    status = kExitFailed;
  }
  const fm::FileModeCounters c = engine.Counters();
  if (c.filesFailed) status = kExitFailed;
  err << c.filesWritten << " files written, " << c.filesFailed << " failed (" << c.bytesWritten
      << " bytes) from " << c.filesProcessing << " streams, " << c.packetsStored
      << " segments stored";
  if (c.packetsDropped) err << ", " << c.packetsDropped << " dropped (table full or clash)";
  err << "\n" << received.packets << " packets, " << received.dropped << " dropped\n";
  return status;
}

}  // namespace vormelt::cli
