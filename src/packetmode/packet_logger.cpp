// The logging thread. The store lock is held only to render a batch of packets into the form's
// buffer (and to clear the store after the last batch); files are opened, written and pruned
// without it, so capture never waits for the disk.
#include "packetmode/packet_logger.hpp"

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <utility>

#include "packetmode/log_index.hpp"
#include "packets/format.hpp"

namespace vormelt {
namespace {

// Bytes rendered per lock hold: a few hundred packets, a fraction of a millisecond of capture.
constexpr std::size_t kBatchBytes = 256 * 1024;
// Names tried for one new file before giving up.
constexpr int kMaxNameTries = 999;

std::optional<DataForm> TextFormOf(std::int32_t form) {
  switch (form) {
    case 0: return DataForm::None;
    case 1: return DataForm::Text;
    case 2: return DataForm::Dec;
    case 3: return DataForm::Hex;
    case 4: return DataForm::HexText;
    default: return std::nullopt;
  }
}

std::unique_ptr<LogForm> MakeDefaultForm(const LoggingSettings& settings) {
  if (settings.form == kLogFormPcapng) return MakePcapngLogForm();
  const std::optional<DataForm> form = TextFormOf(settings.form);
  if (!form) return nullptr;
  const auto level = static_cast<DataLevel>(std::clamp(settings.dataLevel, 0, kDataLevelCount - 1));
  return MakeTextLogForm(
      RenderOptions{*form, settings.wideIpGap ? IpGap::Wide : IpGap::Narrow, level});
}

std::string JoinFolder(std::string_view folder, std::string_view name) {
  std::string index = LogIndexPath(folder);
  return index.substr(0, index.size() - kLogIndexFileName.size()) + std::string(name);
}

}  // namespace

std::string ExpandLogName(std::string_view nameTemplate, std::string_view dateTimeTemplate,
                          const LocalTime& now, std::string_view interfaceText, long pid) {
  std::string name;
  for (std::size_t i = 0; i < nameTemplate.size();) {
    const std::string_view rest = nameTemplate.substr(i);
    if (rest.starts_with("%DAT")) {
      name += format::ExpandDateTime(dateTimeTemplate, now);
      i += 4;
    } else if (rest.starts_with("%LI")) {
      name += interfaceText;
      i += 3;
    } else if (rest.starts_with("%PID")) {
      name += std::to_string(pid);
      i += 4;
    } else {
      name += nameTemplate[i++];
    }
  }
  std::replace(name.begin(), name.end(), '/', '_');
  std::replace(name.begin(), name.end(), '\0', '_');
  return name;
}

std::optional<Text> LoggingProblem(const LoggingSettings& s) {
  const auto method = static_cast<LogMethod>(s.method);
  if (method == LogMethod::SingleFile) {
    if (s.singleFilePath.empty()) return Text::LogNeedSingleFile;
  } else {
    if (s.folder.empty()) return Text::LogNeedFolder;
    if (s.nameTemplate.empty() || s.nameTemplate.find('/') != std::string::npos) {
      return Text::LogNeedNameTemplate;
    }
  }
  if ((method == LogMethod::BySize || method == LogMethod::BySizeOrSpan) && s.maxFileKilobytes < 1) {
    return Text::LogNeedSize;
  }
  if ((method == LogMethod::BySpan || method == LogMethod::BySizeOrSpan) && s.maxSpanSeconds < 1) {
    return Text::LogNeedSpan;
  }
  if (s.deleteOld && (s.folder.empty() || s.ageCheckSeconds < 1)) {
    return s.folder.empty() ? Text::LogNeedFolder : Text::LogNeedAgeCheck;
  }
  return std::nullopt;
}

std::string NumberedLogName(std::string_view name, int n) {
  const std::size_t dot = name.rfind('.');
  const std::size_t cut = dot == std::string_view::npos || dot == 0 ? name.size() : dot;
  std::string numbered(name.substr(0, cut));
  numbered += " (" + std::to_string(n) + ")";
  numbered += name.substr(cut);
  return numbered;
}

PacketLogger::PacketLogger(PacketStore& store) : store_(store) {}

PacketLogger::~PacketLogger() { Stop(); }

void PacketLogger::Configure(LogConfig config) {
  std::lock_guard pass(passMutex_);
  EndFile();
  config_ = std::move(config);
  clearWanted_.store(false);
  carriedBytes_ = 0;
  carriedCount_ = 0;
  form_ = config_.makeForm ? config_.makeForm(config_.settings) : MakeDefaultForm(config_.settings);
  auto lock = store_.Lock();
  next_ = store_.ItemCount();
  seenClears_ = store_.ClearCount();
  nextShown_.store(next_);
}

bool PacketLogger::Start(LogConfig config) {
  Stop();
  Configure(std::move(config));
  if (!form_) return false;
  writeFailed_.store(false);
  running_.store(true);
  thread_ = std::jthread([this](std::stop_token stop) { Run(stop); });
  return true;
}

void PacketLogger::Stop() {
  if (!thread_.joinable()) return;
  thread_.request_stop();
  thread_.join();
  Pass(CaptureNow());
  std::lock_guard pass(passMutex_);
  EndFile();
  running_.store(false);
}

void PacketLogger::Run(std::stop_token stop) {
  const LoggingSettings& s = config_.settings;
  const auto interval = std::chrono::seconds(std::max(s.intervalSeconds, 1));
  const auto ageCheck = std::chrono::seconds(std::max<std::int64_t>(s.ageCheckSeconds, 1));
  auto nextPrune = std::chrono::steady_clock::now();
  while (!stop.stop_requested()) {
    if (s.deleteOld && std::chrono::steady_clock::now() >= nextPrune) {
      Prune(CaptureNow());
      nextPrune = std::chrono::steady_clock::now() + ageCheck;
    }
    {
      std::unique_lock lock(wakeMutex_);
      wake_.wait_for(lock, stop, interval, [] { return false; });
    }
    if (stop.stop_requested()) break;
    Pass(CaptureNow());
  }
}

void PacketLogger::Prune(CaptureTime now) {
  PruneLogFiles(config_.settings.folder, config_.settings.maxAgeSeconds, now);
}

bool PacketLogger::SizeBounded() const {
  const auto method = static_cast<LogMethod>(config_.settings.method);
  return method == LogMethod::BySize || method == LogMethod::BySizeOrSpan;
}

bool PacketLogger::SpanBounded() const {
  const auto method = static_cast<LogMethod>(config_.settings.method);
  return method == LogMethod::BySpan || method == LogMethod::BySizeOrSpan;
}

void PacketLogger::Pass(CaptureTime now) {
  std::lock_guard pass(passMutex_);
  if (!form_) return;
  // A span starts when its file is begun; a file whose span is over takes nothing more.
  if (fileOpen_ && SpanBounded() &&
      now - fileBegun_ >= std::chrono::seconds(config_.settings.maxSpanSeconds)) {
    EndFile();
  }
  const std::uint64_t maxBytes =
      static_cast<std::uint64_t>(std::max<std::int64_t>(config_.settings.maxFileKilobytes, 1)) * 1024;
  for (;;) {
    std::size_t batch = std::exchange(carriedBytes_, 0);
    std::int64_t count = std::exchange(carriedCount_, 0);
    bool cut = false;
    bool more = false;
    {
      auto lock = store_.Lock();
      if (store_.ClearCount() != seenClears_) {
        seenClears_ = store_.ClearCount();
        next_ = 0;
      }
      const std::int32_t end = store_.ItemCount();
      const std::uint64_t fileSize = fileOpen_ ? form_->FileSize() : 0;
      while (next_ < end && batch < kBatchBytes) {
        const PacketRef packet = store_.Get(next_++);
        if (!packet.frame) continue;  // its row was deleted
        batch += form_->Add(packet);
        ++count;
        // A file ends with the packet that brings it to the bound.
        if (SizeBounded() && fileSize + batch >= maxBytes) {
          cut = true;
          break;
        }
      }
      more = next_ < end;
      if (!more && config_.settings.clearAfterLog && end > 0) {
        if (config_.clearOnOwnerThread) {
          clearWanted_.store(true);
        } else {
          store_.Clear(lock);
          seenClears_ = store_.ClearCount();
          next_ = 0;
        }
      }
      nextShown_.store(next_);
    }
    if (batch > 0) {
      const bool written = EnsureFile(now) && form_->Flush();
      if (!written) {
        form_->Flush();  // drops what could not be written
        writeFailed_.store(true);
      } else {
        packetsLogged_.fetch_add(count);
      }
    }
    if (cut) EndFile();
    if (!more) break;
  }
}

void PacketLogger::ClearOnOwnerThread() {
  if (!clearWanted_.load()) return;
  std::unique_lock pass(passMutex_, std::try_to_lock);
  if (!pass.owns_lock() || !form_) return;
  auto lock = store_.Lock();
  if (store_.ClearCount() != seenClears_) {
    seenClears_ = store_.ClearCount();
    next_ = 0;
  }
  for (const std::int32_t end = store_.ItemCount(); next_ < end;) {
    const PacketRef packet = store_.Get(next_++);
    if (!packet.frame) continue;
    carriedBytes_ += form_->Add(packet);
    ++carriedCount_;
  }
  store_.Clear(lock);
  seenClears_ = store_.ClearCount();
  next_ = 0;
  nextShown_.store(0);
  clearWanted_.store(false);
}

bool PacketLogger::EnsureFile(CaptureTime now) {
  if (fileOpen_) return true;
  const LoggingSettings& s = config_.settings;
  if (static_cast<LogMethod>(s.method) != LogMethod::SingleFile) return BeginNewFile(now);
  std::error_code ignored;
  const std::filesystem::path single(s.singleFilePath);
  if (single.has_parent_path()) std::filesystem::create_directories(single.parent_path(), ignored);
  const bool existed = std::filesystem::exists(single, ignored);
  if (form_->Open(s.singleFilePath, false) != LogOpen::Opened) return false;
  fileOpen_ = true;
  fileBegun_ = now;
  if (!existed) {
    if (!s.folder.empty()) AppendLogIndexEntry(s.folder, s.singleFilePath, now);
    filesBegun_.fetch_add(1);
  }
  std::lock_guard status(statusMutex_);
  currentFile_ = s.singleFilePath;
  return true;
}

bool PacketLogger::BeginNewFile(CaptureTime now) {
  const LoggingSettings& s = config_.settings;
  std::error_code ignored;
  std::filesystem::create_directories(s.folder, ignored);
  std::string name = ExpandLogName(s.nameTemplate, config_.dateTimeTemplate, ToLocalTime(now),
                                   config_.interfaceText, ::getpid());
  // The default template names text files; a capture-file log is named for what it holds.
  if (s.form == kLogFormPcapng && name.ends_with(".txt")) name.replace(name.size() - 4, 4, ".pcapng");
  // Many files can begin in one second (small size bounds, a capture file read at full speed):
  // numbering goes on from the last number given to the same name instead of from 1.
  const int firstTry = name == lastName_ ? lastNumber_ + 1 : 1;
  for (int n = firstTry; n < firstTry + kMaxNameTries; ++n) {
    const std::string path = JoinFolder(s.folder, n == 1 ? name : NumberedLogName(name, n));
    const LogOpen opened = form_->Open(path, true);
    if (opened == LogOpen::Exists) continue;
    if (opened == LogOpen::Failed) return false;
    lastName_ = name;
    lastNumber_ = n;
    fileOpen_ = true;
    fileBegun_ = now;
    AppendLogIndexEntry(s.folder, path, now);
    filesBegun_.fetch_add(1);
    std::lock_guard status(statusMutex_);
    currentFile_ = path;
    return true;
  }
  return false;
}

void PacketLogger::EndFile() {
  if (form_) form_->Close();
  fileOpen_ = false;
}

LogStatus PacketLogger::Status() const {
  LogStatus status;
  status.packetsLogged = packetsLogged_.load();
  status.filesBegun = filesBegun_.load();
  status.behind = std::max(0, store_.ItemCount() - nextShown_.load());
  status.writeFailed = writeFailed_.load();
  std::lock_guard lock(statusMutex_);
  status.currentFile = currentFile_;
  return status;
}

}  // namespace vormelt
