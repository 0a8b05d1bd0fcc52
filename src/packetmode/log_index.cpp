// Index file appender and pruner. Plain file descriptors: the pruner reads the index byte by
// byte through a small buffer and copies its tail in 4096-byte blocks, whatever its size.
// The index is outside input that names files to delete, so the pruner deletes only regular
// files that sit directly in the log folder, by name relative to the folder it opened.
#include "packetmode/log_index.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <optional>

#include "common/clock.hpp"
#include "common/file_write.hpp"
#include "common/unique_fd.hpp"

namespace vormelt {
namespace {

constexpr std::size_t kBlockSize = 4096;
constexpr std::size_t kMaxPathLine = 4095;
constexpr int kEndOfFile = -1;

// Reads the index one byte at a time through a block buffer.
class ByteReader {
 public:
  explicit ByteReader(int fd) : fd_(fd) {}

  int Next() {
    if (pos_ == size_ && !Fill()) return kEndOfFile;
    return static_cast<unsigned char>(buffer_[pos_++]);
  }
  void Unread() { --pos_; }  // only right after a Next that returned a byte

  // Copies what is left (the buffered part first) to `out`. False on a failed read or write.
  bool CopyRest(FileBeside& out) {
    do {
      if (!out.Write(std::string_view(buffer_.data() + pos_, size_ - pos_)).ok()) return false;
      pos_ = size_;
    } while (Fill());
    return !failed_;
  }

 private:
  bool Fill() {
    ssize_t got;
    do {
      got = ::read(fd_, buffer_.data(), buffer_.size());
    } while (got < 0 && errno == EINTR);
    if (got < 0) failed_ = true;
    if (got <= 0) return false;
    pos_ = 0;
    size_ = static_cast<std::size_t>(got);
    return true;
  }

  int fd_;
  std::array<char, kBlockSize> buffer_{};
  std::size_t pos_ = 0, size_ = 0;
  bool failed_ = false;
};

// The stamp as milliseconds since the epoch; nullopt when it is no date at all.
std::optional<std::int64_t> StampMilliseconds(const std::array<char, kLogStampLength + 1>& stamp) {
  unsigned short year, month, day, hour, minute, second, millisecond;
  if (std::sscanf(stamp.data(), "%hu.%hu.%hu %hu.%hu.%hu.%hu", &year, &month, &day, &hour,
                  &minute, &second, &millisecond) != 7) {
    return std::nullopt;
  }
  if (year < 1601 || month < 1 || month > 12 || day < 1 || day > 31 || hour > 23 ||
      minute > 59 || second > 59 || millisecond > 999) {
    return std::nullopt;
  }
  std::tm fields{};
  fields.tm_year = year - 1900;
  fields.tm_mon = month - 1;
  fields.tm_mday = day;
  fields.tm_hour = hour;
  fields.tm_min = minute;
  fields.tm_sec = second;
  return static_cast<std::int64_t>(timegm(&fields)) * 1000 + millisecond;
}

std::int64_t Milliseconds(CaptureTime time) {
  return std::chrono::floor<std::chrono::milliseconds>(time.time_since_epoch()).count();
}

bool IsSkippedBetweenEntries(int byte) {
  return byte == '\n' || byte == '\r' || byte == '\t' || byte == ' ';
}

// The rest of an entry's line, blanks and tabs trimmed at both ends.
std::string ReadPathLine(ByteReader& reader) {
  std::string line;
  while (line.size() < kMaxPathLine) {
    const int byte = reader.Next();
    if (byte == kEndOfFile) break;
    if (byte == '\r' || byte == '\n') {
      reader.Unread();
      break;
    }
    line.push_back(static_cast<char>(byte));
  }
  const auto first = line.find_first_not_of(" \t");
  if (first == std::string::npos) return {};
  const auto last = line.find_last_not_of(" \t");
  return line.substr(first, last - first + 1);
}

enum class Rewrite : std::uint8_t { Done, Kept, NoTemporary };

// Writes the kept entries to a temporary index beside the index and, once it is whole and on
// disk, renames it over the index. A temporary that cannot be filled (a full disk) is removed
// and the old index stays: its expired entries name files already gone, which the next prune
// passes over, while a lost index would leave every later log unprunable.
Rewrite RewriteIndex(int folderFd, ByteReader& reader,
                     const std::array<char, kLogStampLength + 1>& stamp) {
  int error = 0;
  FileBeside temp = FileBeside::Create(folderFd, kLogIndexFileName, error);
  if (!temp) return Rewrite::NoTemporary;
  temp.Write("\r\n");
  temp.Write(std::string_view(stamp.data(), kLogStampLength));  // a failure sticks
  if (temp.error() != 0 || !reader.CopyRest(temp)) return Rewrite::Kept;
  return temp.Commit(true) == 0 ? Rewrite::Done : Rewrite::Kept;
}

// The file an entry names, when it is directly in the log folder: its name there. The index
// and its temporary are never log files.
std::optional<std::string> NameInFolder(const std::string& logPath, const std::string& folder) {
  const std::filesystem::path path = std::filesystem::path(logPath).lexically_normal();
  if (path.parent_path() != std::filesystem::path(folder).lexically_normal()) return std::nullopt;
  std::string name = path.filename().string();
  if (name.empty() || name == "." || name == ".." || name == kLogIndexFileName ||
      name == "." + std::string(kLogIndexFileName) + ".part") {
    return std::nullopt;
  }
  return name;
}

// Deletes the entry's file if it is a regular file in the folder; anything else (a path
// elsewhere, a link, a folder) stays, silently, as a file already gone does.
void DeleteLogFile(int folderFd, const std::string& logPath, const std::string& folder) {
  const std::optional<std::string> name = NameInFolder(logPath, folder);
  if (!name) return;
  struct stat status {};
  if (::fstatat(folderFd, name->c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0 ||
      !S_ISREG(status.st_mode)) {
    return;
  }
  ::unlinkat(folderFd, name->c_str(), 0);
}

}  // namespace

std::string LogIndexPath(std::string_view folder) {
  while (!folder.empty() && (folder.back() == '/' || folder.back() == '\\')) {
    folder.remove_suffix(1);
  }
  std::string path(folder);
  path += '/';
  path += kLogIndexFileName;
  return path;
}

std::string LogStamp(CaptureTime time) {
  const LocalTime t = ToUtcTime(time);
  char text[64];
  const int n = std::snprintf(text, sizeof text, "%u.%02u.%02u %02u.%02u.%02u.%03u",
                              unsigned(t.year), unsigned(t.month), unsigned(t.day),
                              unsigned(t.hour), unsigned(t.minute), unsigned(t.second),
                              unsigned(t.millisecond));
  return std::string(text, n > 0 ? static_cast<std::size_t>(n) : 0);
}

int AppendLogIndexEntry(std::string_view folder, std::string_view logPath, CaptureTime now) {
  const std::string path = LogIndexPath(folder);
  UniqueFd index(::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOFOLLOW, 0644));
  if (!index) return errno;
  std::string entry = "\r\n" + LogStamp(now) + "    ";
  entry += logPath;
  // An entry is whole or absent: a short write (a full disk) is cut off again, so the pruner
  // never reads half a path and the next entry starts on its own line.
  struct stat before {};
  if (::fstat(index.get(), &before) != 0) return errno;
  const WriteOutcome outcome = WriteAll(index.get(), entry);
  if (!outcome.ok() && outcome.written > 0) {
    // Truncating frees blocks, so it works on a full disk too.
    if (::ftruncate(index.get(), before.st_size) != 0) return outcome.error;
  }
  return outcome.error;
}

void RemoveLastLogIndexEntry(std::string_view folder, std::string_view logPath) {
  const std::string path = LogIndexPath(folder);
  UniqueFd index(::open(path.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW));
  struct stat status {};
  const std::size_t entryLength = 2 + kLogStampLength + 4 + logPath.size();
  if (!index || ::fstat(index.get(), &status) != 0 ||
      static_cast<std::uint64_t>(status.st_size) < entryLength) {
    return;
  }
  const off_t start = status.st_size - static_cast<off_t>(entryLength);
  std::string tail(entryLength, '\0');
  if (::pread(index.get(), tail.data(), entryLength, start) != static_cast<ssize_t>(entryLength)) return;
  if (tail.starts_with("\r\n") && tail.ends_with(std::string("    ") + std::string(logPath))) {
    ::ftruncate(index.get(), start);
  }
}

void PruneLogFiles(std::string_view folder, std::int64_t maxAgeSeconds, CaptureTime now) {
  const std::string indexPath = LogIndexPath(folder);
  const std::string folderPath = indexPath.substr(0, indexPath.size() - kLogIndexFileName.size() - 1);
  UniqueFd folderFd(::open(folderPath.empty() ? "/" : folderPath.c_str(),
                           O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!folderFd) return;
  UniqueFd index(::openat(folderFd.get(), std::string(kLogIndexFileName).c_str(),
                          O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
  if (!index) return;
  const std::int64_t nowMs = Milliseconds(now);
  ByteReader reader(index.get());
  for (;;) {
    int byte;
    do {
      byte = reader.Next();
    } while (IsSkippedBetweenEntries(byte));
    std::array<char, kLogStampLength + 1> stamp{};
    std::size_t got = 0;
    for (; byte != kEndOfFile && got < kLogStampLength; ++got) {
      stamp[got] = static_cast<char>(byte);
      if (got + 1 < kLogStampLength) byte = reader.Next();
    }
    if (got < kLogStampLength) break;  // end of the index: everything in it expired
    // A stamp that is no date cannot be aged: it and everything after it stay.
    const std::optional<std::int64_t> stampMs = StampMilliseconds(stamp);
    // Whole seconds, truncated toward zero: an entry a fraction over the age is still kept.
    const std::int64_t age = stampMs ? (nowMs - *stampMs) / 1000 : 0;
    if (!stampMs || age <= maxAgeSeconds) {
      if (RewriteIndex(folderFd.get(), reader, stamp) != Rewrite::NoTemporary) return;
      break;
    }
    DeleteLogFile(folderFd.get(), ReadPathLine(reader), folderPath.empty() ? "/" : folderPath);
  }
  index.Close();
  ::unlinkat(folderFd.get(), std::string(kLogIndexFileName).c_str(), 0);
}

}  // namespace vormelt
