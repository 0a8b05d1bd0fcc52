#include "support/small_disk.hpp"

#include <stdlib.h>
#include <sys/mount.h>

#include <cerrno>
#include <system_error>

namespace vormelt::test {

SmallDisk::SmallDisk(std::uint64_t bytes) {
  std::string folder = (std::filesystem::temp_directory_path() / "vormelt-disk-XXXXXX").string();
  if (::mkdtemp(folder.data()) == nullptr) {
    reason_ = std::error_code(errno, std::generic_category()).message();
    return;
  }
  path_ = folder;
  const std::string options = "size=" + std::to_string(bytes) + ",mode=0777";
  if (::mount("tmpfs", folder.c_str(), "tmpfs", MS_NOSUID | MS_NODEV, options.c_str()) != 0) {
    reason_ = "mount: " + std::error_code(errno, std::generic_category()).message();
    return;
  }
  mounted_ = true;
}

SmallDisk::~SmallDisk() {
  if (mounted_) ::umount2(path_.c_str(), MNT_DETACH);
  std::error_code ignored;
  if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
}

}  // namespace vormelt::test
