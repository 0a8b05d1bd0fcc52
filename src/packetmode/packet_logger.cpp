// The logging thread. The store lock is held only to render a batch of packets into the form's
// buffer (and to clear the store after the last batch); files are opened, written and pruned
// without it, so capture never waits for the disk.
#include "packetmode/packet_logger.hpp"

#include <pthread.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <utility>

#include "common/file_write.hpp"
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

// The index names files by full path, and the pruner deletes only what lies in the folder it
// is given: both must see the same absolute folder, whatever the working folder is later.
void MakeAbsolute(std::string& path) {
  if (path.empty()) return;
  std::error_code error;
  const std::filesystem::path absolute = std::filesystem::absolute(path, error);
  if (!error) path = absolute.lexically_normal().string();
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
  MakeAbsolute(config_.settings.folder);
  MakeAbsolute(config_.settings.singleFilePath);
  clearWanted_.store(false);
  pendingCount_ = 0;
  endAfterWrite_ = false;
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
  failing_.store(false);
  failureEpisodes_.store(0);
  notWritten_.store(0);
  {
    std::lock_guard status(statusMutex_);
    failedFile_.clear();
    failureReason_.clear();
  }
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

void PacketLogger::Wake() {
  std::lock_guard lock(wakeMutex_);
  wakeWanted_ = true;
  wake_.notify_all();
}

void PacketLogger::Run(std::stop_token stop) {
  // SIGINT and SIGTERM are for the thread that waits for them: taken here, their default
  // action would end the process in the middle of a pass, with a record half written.
  sigset_t stopSignals;
  sigemptyset(&stopSignals);
  sigaddset(&stopSignals, SIGINT);
  sigaddset(&stopSignals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);
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
      wake_.wait_for(lock, stop, interval, [this] { return wakeWanted_; });
      wakeWanted_ = false;
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
  // What an earlier pass could not write goes first; while it cannot be written, nothing more
  // is taken: the store keeps it, and memory does not grow with a full disk.
  if (form_->Pending() && !WritePending(now)) return;
  // A span starts when its file is begun; a file whose span is over takes nothing more.
  if (fileOpen_ && SpanBounded() &&
      now - fileBegun_ >= std::chrono::seconds(config_.settings.maxSpanSeconds)) {
    EndFile();
  }
  const std::uint64_t maxBytes =
      static_cast<std::uint64_t>(std::max<std::int64_t>(config_.settings.maxFileKilobytes, 1)) * 1024;
  const std::int32_t clearAt = config_.settings.clearAfterLog ? 1 : config_.clearWhenHolding;
  for (;;) {
    std::size_t batch = std::exchange(carriedBytes_, 0);
    pendingCount_ += std::exchange(carriedCount_, 0);
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
        ++pendingCount_;
        // A file ends with the packet that brings it to the bound.
        if (SizeBounded() && fileSize + batch >= maxBytes) {
          endAfterWrite_ = true;
          break;
        }
      }
      more = next_ < end;
      // Everything read is in the form now, so emptying the store loses nothing: what the
      // write below cannot place stays in the form for the next pass.
      if (!more && clearAt > 0 && end >= clearAt) {
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
    if (batch > 0 && !WritePending(now)) break;
    if (!more) break;
  }
  notWritten_.store(pendingCount_);
}

// Writes what the form holds, into the open file or a new one. The first failure of an episode
// is recorded with its file and reason; the bytes stay in the form.
bool PacketLogger::WritePending(CaptureTime now) {
  // A file pruned or removed underneath would swallow the writes: a new one is begun instead.
  if (fileOpen_ && FileGone()) {
    const bool bounded = endAfterWrite_;  // the pending bytes end the new file instead
    EndFile();
    endAfterWrite_ = bounded;
  }
  if (!EnsureFile(now)) return false;
  if (!form_->Flush()) {
    Failed(filePath_, form_->Failure());
    notWritten_.store(pendingCount_);
    // A form that lost its file to the failure gets a new one at the next attempt.
    if (!form_->IsOpen()) EndFile();
    return false;
  }
  packetsLogged_.fetch_add(std::exchange(pendingCount_, 0));
  notWritten_.store(0);
  failing_.store(false);
  if (endAfterWrite_) EndFile();
  return true;
}

void PacketLogger::Failed(const std::string& path, const std::string& reason) {
  if (failing_.exchange(true)) return;  // once per episode
  std::lock_guard status(statusMutex_);
  failedFile_ = path;
  failureReason_ = reason;
  failureEpisodes_.fetch_add(1);
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
  // A file that is there already got its index entry when it was begun.
  const bool existed = std::filesystem::exists(single, ignored);
  if (form_->Open(s.singleFilePath, false) != LogOpen::Opened) {
    Failed(s.singleFilePath, form_->Failure());
    return false;
  }
  return existed ? (FileOpened(s.singleFilePath, now, false), true)
                 : IndexNewFile(s.singleFilePath, now);
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
  std::string path;
  for (int n = firstTry; n < firstTry + kMaxNameTries; ++n) {
    path = JoinFolder(s.folder, n == 1 ? name : NumberedLogName(name, n));
    const LogOpen opened = form_->Open(path, true);
    if (opened == LogOpen::Exists) continue;
    if (opened == LogOpen::Failed) break;
    lastName_ = name;
    lastNumber_ = n;
    return IndexNewFile(path, now);
  }
  Failed(path, form_->Failure());
  return false;
}

// A new file is named in the index before it takes a byte: a file with data always has its
// entry. When the entry cannot be written (a full disk), the empty file goes again.
bool PacketLogger::IndexNewFile(const std::string& path, CaptureTime now) {
  const std::string& folder = config_.settings.folder;
  if (const int error = folder.empty() ? 0 : AppendLogIndexEntry(folder, path, now); error != 0) {
    form_->Close();
    ::unlink(path.c_str());
    Failed(LogIndexPath(folder), ErrnoText(error));
    return false;
  }
  filesBegun_.fetch_add(1);
  FileOpened(path, now, true);
  return true;
}

void PacketLogger::FileOpened(const std::string& path, CaptureTime now, bool created) {
  fileOpen_ = true;
  fileCreated_ = created;
  fileBegun_ = now;
  filePath_ = path;
  struct stat status {};
  if (::stat(path.c_str(), &status) == 0) {
    fileDevice_ = status.st_dev;
    fileInode_ = status.st_ino;
  }
  std::lock_guard lock(statusMutex_);
  currentFile_ = path;
}

// The open file's name no longer names it: unlinked (by the pruner or by hand) or replaced.
bool PacketLogger::FileGone() const {
  struct stat status {};
  if (::stat(filePath_.c_str(), &status) != 0) return errno == ENOENT || errno == ENOTDIR;
  return status.st_dev != fileDevice_ || status.st_ino != fileInode_;
}

void PacketLogger::EndFile() {
  if (!form_) return;
  // A file begun while the disk was failing that never took a byte is removed again, and its
  // index entry with it while it is the last one.
  struct stat status {};
  const bool removeEmpty = fileOpen_ && fileCreated_ && !FileGone() &&
                           ::stat(filePath_.c_str(), &status) == 0 && status.st_size == 0;
  form_->Close();
  if (removeEmpty) {
    ::unlink(filePath_.c_str());
    if (!config_.settings.folder.empty()) RemoveLastLogIndexEntry(config_.settings.folder, filePath_);
    filesBegun_.fetch_sub(1);
  }
  fileOpen_ = false;
  endAfterWrite_ = false;
}

LogStatus PacketLogger::Status() const {
  LogStatus status;
  status.packetsLogged = packetsLogged_.load();
  status.filesBegun = filesBegun_.load();
  status.behind = std::max(0, store_.ItemCount() - nextShown_.load());
  status.notWritten = notWritten_.load();
  status.failureEpisodes = failureEpisodes_.load();
  status.failing = failing_.load();
  std::lock_guard lock(statusMutex_);
  status.currentFile = currentFile_;
  status.failedFile = failedFile_;
  status.failureReason = failureReason_;
  return status;
}

}  // namespace vormelt
