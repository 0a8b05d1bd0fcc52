// Every file the program writes goes through WriteAll here, so a short count is always seen;
// files that must never be seen half-written are built beside their final name and renamed.
#include "common/file_write.hpp"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <system_error>
#include <utility>

namespace vormelt {

std::string ErrnoText(int error) { return std::error_code(error, std::generic_category()).message(); }

WriteOutcome WriteAll(int fd, std::span<const std::uint8_t> bytes) {
  WriteOutcome outcome;
  while (outcome.written < bytes.size()) {
    const ssize_t n = ::write(fd, bytes.data() + outcome.written, bytes.size() - outcome.written);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      outcome.error = n == 0 ? ENOSPC : errno;
      break;
    }
    outcome.written += static_cast<std::uint64_t>(n);
  }
  return outcome;
}

WriteOutcome WriteAll(int fd, std::string_view bytes) {
  return WriteAll(fd, std::span(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()));
}

WriteOutcome WriteAll(int fd, std::span<const std::span<const std::uint8_t>> pieces) {
  WriteOutcome outcome;
  std::array<iovec, IOV_MAX> vector{};
  std::size_t next = 0;  // the first piece not wholly written
  std::size_t skip = 0;  // how much of it was
  while (next < pieces.size()) {
    std::size_t count = 0;
    for (std::size_t i = next; i < pieces.size() && count < vector.size(); ++i) {
      const std::size_t from = i == next ? skip : 0;
      if (pieces[i].size() == from) continue;
      vector[count++] = {const_cast<std::uint8_t*>(pieces[i].data()) + from,
                         pieces[i].size() - from};
    }
    if (count == 0) break;
    const ssize_t n = ::writev(fd, vector.data(), static_cast<int>(count));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      outcome.error = n == 0 ? ENOSPC : errno;
      break;
    }
    outcome.written += static_cast<std::uint64_t>(n);
    // Steps over what went out: whole pieces, then part of the next.
    auto left = static_cast<std::size_t>(n);
    while (next < pieces.size() && left >= pieces[next].size() - skip) {
      left -= pieces[next].size() - skip;
      skip = 0;
      ++next;
    }
    skip += left;
  }
  return outcome;
}

void SyncDirectory(int folderFd) { ::fsync(folderFd); }

void SyncDirectory(const std::filesystem::path& folder) {
  UniqueFd fd(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (fd) ::fsync(fd.get());
}

FileBeside::FileBeside(FileBeside&& other) noexcept
    : folder_(std::move(other.folder_)),
      fd_(std::move(other.fd_)),
      name_(std::move(other.name_)),
      written_(other.written_),
      error_(other.error_) {}

FileBeside& FileBeside::operator=(FileBeside&& other) noexcept {
  if (this != &other) {
    Abandon();
    folder_ = std::move(other.folder_);
    fd_ = std::move(other.fd_);
    name_ = std::move(other.name_);
    written_ = other.written_;
    error_ = other.error_;
  }
  return *this;
}

std::string FileBeside::PartName() const { return "." + name_ + ".part"; }

FileBeside FileBeside::Create(int folderFd, std::string_view name, int& error, unsigned mode) {
  FileBeside file;
  error = 0;
  file.folder_ = UniqueFd(::fcntl(folderFd, F_DUPFD_CLOEXEC, 0));
  if (!file.folder_) {
    error = errno;
    return file;
  }
  file.name_ = std::string(name);
  const std::string part = file.PartName();
  const auto create = [&] {
    return UniqueFd(::openat(folderFd, part.c_str(),
                             O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode));
  };
  file.fd_ = create();
  int createError = file.fd_ ? 0 : errno;
  // A part file left by a crash is ours to replace; anything else under that name (a link, a
  // folder, a FIFO) makes the exclusive create fail and is left alone. Looked at only when the
  // name is taken: hundreds of files a second each save a system call.
  struct stat status {};
  if (createError == EEXIST &&
      ::fstatat(folderFd, part.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
      S_ISREG(status.st_mode)) {
    ::unlinkat(folderFd, part.c_str(), 0);
    file.fd_ = create();
    createError = file.fd_ ? 0 : errno;
  }
  if (!file.fd_) {
    error = createError;
    file.folder_.Close();
  }
  return file;
}

FileBeside FileBeside::Create(const std::filesystem::path& file, int& error, unsigned mode) {
  const std::filesystem::path folder = file.has_parent_path() ? file.parent_path() : ".";
  UniqueFd folderFd(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!folderFd) {
    error = errno;
    return FileBeside();
  }
  return Create(folderFd.get(), file.filename().string(), error, mode);
}

WriteOutcome FileBeside::Write(std::span<const std::uint8_t> bytes) {
  return Write(std::span<const std::span<const std::uint8_t>>(&bytes, 1));
}

WriteOutcome FileBeside::Write(std::span<const std::span<const std::uint8_t>> pieces) {
  if (error_ != 0) return {0, error_};
  if (!fd_) return {0, error_ = EBADF};
  const WriteOutcome outcome = WriteAll(fd_.get(), pieces);
  written_ += outcome.written;
  error_ = outcome.error;
  return outcome;
}

WriteOutcome FileBeside::Write(std::string_view bytes) {
  return Write(std::span(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()));
}

int FileBeside::Commit(bool replace, bool durable) {
  if (!fd_) return error_ != 0 ? error_ : EBADF;
  int failure = error_;
  if (failure == 0 && durable && ::fsync(fd_.get()) != 0) failure = errno;
  if (!fd_.Close() && failure == 0) failure = errno;
  if (failure != 0) {
    Abandon();
    return error_ = failure;
  }
  const std::string part = PartName();
  int renamed = ::renameat2(folder_.get(), part.c_str(), folder_.get(), name_.c_str(),
                            replace ? 0 : RENAME_NOREPLACE);
  if (renamed != 0 && !replace && errno == EINVAL) {
    // A file system without RENAME_NOREPLACE: a hard link fails on a taken name just the same.
    renamed = ::linkat(folder_.get(), part.c_str(), folder_.get(), name_.c_str(), 0);
    if (renamed == 0) ::unlinkat(folder_.get(), part.c_str(), 0);
  }
  if (renamed != 0) {
    error_ = errno;
    Abandon();
    return error_;
  }
  if (durable) SyncDirectory(folder_.get());
  folder_.Close();
  return 0;
}

void FileBeside::Abandon() {
  fd_.Close();
  if (folder_) {
    ::unlinkat(folder_.get(), PartName().c_str(), 0);
    folder_.Close();
  }
}

}  // namespace vormelt
