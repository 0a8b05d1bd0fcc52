// Index file appender and pruner. Plain file descriptors: the pruner reads the index byte by
// byte through a small buffer and copies its tail in 4096-byte blocks, whatever its size.
#include "packetmode/log_index.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <optional>

#include "common/clock.hpp"
#include "common/unique_fd.hpp"

namespace vormelt {
namespace {

constexpr std::size_t kBlockSize = 4096;
constexpr std::size_t kMaxPathLine = 4095;
constexpr std::string_view kTempSuffix = "_TEMP.txt";
constexpr int kEndOfFile = -1;

bool WriteAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = ::write(fd, bytes.data(), bytes.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

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
  bool CopyRest(int out) {
    do {
      if (!WriteAll(out, std::string_view(buffer_.data() + pos_, size_ - pos_))) return false;
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

// Writes the kept entries to a fresh temporary index and puts it in the index's place.
// False when no temporary file could be made or filled: the caller then deletes the index.
bool RewriteIndex(const std::string& indexPath, UniqueFd& index, ByteReader& reader,
                  const std::array<char, kLogStampLength + 1>& stamp) {
  const std::string tempPath = indexPath.substr(0, indexPath.size() - 4) + std::string(kTempSuffix);
  UniqueFd temp(::open(tempPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0644));
  if (temp.get() < 0) return false;
  if (!WriteAll(temp.get(), "\r\n") ||
      !WriteAll(temp.get(), std::string_view(stamp.data(), kLogStampLength)) ||
      !reader.CopyRest(temp.get())) {
    temp.Close();
    ::unlink(tempPath.c_str());
    return false;
  }
  index.Close();
  ::unlink(indexPath.c_str());
  temp.Close();
  ::rename(tempPath.c_str(), indexPath.c_str());
  return true;
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

void AppendLogIndexEntry(std::string_view folder, std::string_view logPath, CaptureTime now) {
  const std::string path = LogIndexPath(folder);
  UniqueFd index(::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOFOLLOW, 0644));
  if (index.get() < 0) return;
  std::string entry = "\r\n" + LogStamp(now) + "    ";
  entry += logPath;
  WriteAll(index.get(), entry);
}

void PruneLogFiles(std::string_view folder, std::int64_t maxAgeSeconds, CaptureTime now) {
  const std::string indexPath = LogIndexPath(folder);
  UniqueFd index(::open(indexPath.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW));
  if (index.get() < 0) return;
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
      if (RewriteIndex(indexPath, index, reader, stamp)) return;
      break;
    }
    const std::string logPath = ReadPathLine(reader);
    if (!logPath.empty()) ::unlink(logPath.c_str());  // already gone: nothing to say
  }
  index.Close();
  ::unlink(indexPath.c_str());
}

}  // namespace vormelt
