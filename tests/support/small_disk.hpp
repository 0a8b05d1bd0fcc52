// A small tmpfs mounted for one test, to make a full disk on purpose. Mounting needs root
// (CAP_SYS_ADMIN); where it is not allowed, `reason()` says why and the test skips.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

namespace vormelt::test {

class SmallDisk {
 public:
  explicit SmallDisk(std::uint64_t bytes);
  ~SmallDisk();
  SmallDisk(const SmallDisk&) = delete;
  SmallDisk& operator=(const SmallDisk&) = delete;

  bool mounted() const { return mounted_; }
  const std::string& reason() const { return reason_; }
  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
  bool mounted_ = false;
  std::string reason_;
};

}  // namespace vormelt::test

// Skips the current test when the disk could not be mounted.
#define VORMELT_REQUIRE_SMALL_DISK(disk) \
  if ((disk).mounted()) {                \
  } else                                 \
    GTEST_SKIP() << "no small tmpfs: " << (disk).reason()
