// A file descriptor that closes itself: the one owner type for every raw descriptor the
// program opens (files read block by block, atomic writes, directories opened beneath).
#pragma once

#include <unistd.h>

#include <utility>

namespace vormelt {

class UniqueFd {
 public:
  explicit UniqueFd(int fd = -1) : fd_(fd) {}
  ~UniqueFd() { Close(); }
  UniqueFd(UniqueFd&& other) noexcept : fd_(other.release()) {}
  UniqueFd& operator=(UniqueFd&& other) noexcept {
    if (this != &other) {
      Close();
      fd_ = other.release();
    }
    return *this;
  }
  UniqueFd(const UniqueFd&) = delete;
  UniqueFd& operator=(const UniqueFd&) = delete;

  int get() const { return fd_; }
  explicit operator bool() const { return fd_ >= 0; }
  int release() { return std::exchange(fd_, -1); }
  // Closes now and reports whether the close itself succeeded (it can report a late write error).
  bool Close() {
    if (fd_ < 0) return true;
    const int result = ::close(fd_);
    fd_ = -1;
    return result == 0;
  }

 private:
  int fd_;
};

}  // namespace vormelt
