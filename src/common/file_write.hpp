// Writing files so that a short write is never taken for a whole one: the one WriteAll that
// reports how far it got and why it stopped, and FileBeside, which writes a new file under a
// temporary name next to its final one and renames it only once it is whole and flushed.
#pragma once

#include <cstdint>
#include <filesystem>
#include <span>
#include <string>
#include <string_view>

#include "common/unique_fd.hpp"

namespace vormelt {

// The system's words for an errno value ("No space left on device").
std::string ErrnoText(int error);

// How one WriteAll ended: every byte reached the file, or `written` did and `error` says why
// the rest did not (a write that returns 0 counts as ENOSPC, as the kernel means by it).
struct WriteOutcome {
  std::uint64_t written = 0;
  int error = 0;
  bool ok() const { return error == 0; }
};
WriteOutcome WriteAll(int fd, std::span<const std::uint8_t> bytes);
WriteOutcome WriteAll(int fd, std::string_view bytes);
// The pieces one after another, as few system calls as the kernel allows: a chunked body of
// thousands of small chunks costs a handful of writes, not one each.
WriteOutcome WriteAll(int fd, std::span<const std::span<const std::uint8_t>> pieces);

// Flushes a folder, so that a name just made or renamed in it survives a power cut.
void SyncDirectory(int folderFd);
void SyncDirectory(const std::filesystem::path& folder);

// A file written beside its final name, as ".<name>.part" in the same folder (same file system,
// so the rename is atomic). The part file is made with an exclusive create that follows no
// link; Commit flushes it and renames it over (or, without `replace`, only onto a free) final
// name. A FileBeside that is destroyed or Abandoned before Commit removes its part file, so a
// failed write leaves nothing half-written behind.
class FileBeside {
 public:
  FileBeside() = default;
  ~FileBeside() { Abandon(); }
  FileBeside(FileBeside&& other) noexcept;
  FileBeside& operator=(FileBeside&& other) noexcept;
  FileBeside(const FileBeside&) = delete;
  FileBeside& operator=(const FileBeside&) = delete;

  // Opens ".<name>.part" in the folder `folderFd` (which must stay open until Commit or
  // Abandon; the FileBeside keeps its own duplicate). On failure returns a closed FileBeside
  // and sets `error` to the errno. A stale part file of the same name is replaced.
  static FileBeside Create(int folderFd, std::string_view name, int& error, unsigned mode = 0644);
  // The same for a path: its folder is opened here.
  static FileBeside Create(const std::filesystem::path& file, int& error, unsigned mode = 0644);

  explicit operator bool() const { return static_cast<bool>(fd_); }
  int fd() const { return fd_.get(); }
  const std::string& name() const { return name_; }
  std::string PartName() const;

  // Appends bytes; the first failure sticks (later writes do nothing) and is what Commit returns.
  WriteOutcome Write(std::span<const std::uint8_t> bytes);
  WriteOutcome Write(std::string_view bytes);
  WriteOutcome Write(std::span<const std::span<const std::uint8_t>> pieces);
  std::uint64_t written() const { return written_; }
  int error() const { return error_; }

  // fsync, close, rename to the final name (replacing it only when `replace`), sync the folder.
  // Returns 0 or the errno that stopped it (EEXIST when the final name was taken and !replace);
  // on any failure the part file is removed. Without `durable` the two flushes are left out:
  // the file still appears whole or not at all, but a power cut may lose it, which is the
  // price of writing hundreds of files a second.
  int Commit(bool replace = true, bool durable = true);
  // Removes the part file now, if there is one.
  void Abandon();

 private:
  UniqueFd folder_;
  UniqueFd fd_;
  std::string name_;
  std::uint64_t written_ = 0;
  int error_ = 0;
};

}  // namespace vormelt
