// The text log form: the renderer's bytes into one growing buffer, written with write(2).
#include "packetmode/log_form.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>

namespace vormelt {
namespace {

class TextLogForm final : public LogForm {
 public:
  explicit TextLogForm(RenderOptions options) : renderer_(options) {}
  ~TextLogForm() override { Close(); }

  LogOpen Open(const std::string& path, bool fresh) override {
    Close();
    const int flags = O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOFOLLOW | (fresh ? O_EXCL : 0);
    fd_ = ::open(path.c_str(), flags, 0644);
    if (fd_ < 0) return errno == EEXIST ? LogOpen::Exists : LogOpen::Failed;
    struct stat info {};
    size_ = ::fstat(fd_, &info) == 0 ? static_cast<std::uint64_t>(info.st_size) : 0;
    return LogOpen::Opened;
  }

  std::size_t Add(PacketRef packet) override { return renderer_.Append(packet, pending_); }

  bool Flush() override {
    std::string_view bytes = pending_;
    bool ok = fd_ >= 0;
    while (ok && !bytes.empty()) {
      const ssize_t written = ::write(fd_, bytes.data(), bytes.size());
      if (written < 0 && errno == EINTR) continue;
      if (written <= 0) {
        ok = false;
        break;
      }
      size_ += static_cast<std::uint64_t>(written);
      bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    pending_.clear();
    return ok;
  }

  void Close() override {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
  }

  std::uint64_t FileSize() const override { return size_; }

 private:
  PacketRenderer renderer_;
  std::string pending_;
  int fd_ = -1;
  std::uint64_t size_ = 0;
};

}  // namespace

std::unique_ptr<LogForm> MakeTextLogForm(RenderOptions options) {
  return std::make_unique<TextLogForm>(options);
}

}  // namespace vormelt
