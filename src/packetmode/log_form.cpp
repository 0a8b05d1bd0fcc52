// The text log form: the renderer's bytes into one growing buffer, written with write(2).
#include "packetmode/log_form.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>
#include <vector>

#include "capture/capture_writer.hpp"

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

// Add copies each packet's frame into one buffer (the store lock is held then); Flush hands
// them to the capture file writer.
class PcapngLogForm final : public LogForm {
 public:
  ~PcapngLogForm() override { Close(); }

  LogOpen Open(const std::string& path, bool fresh) override {
    const bool opened = writer_.Open(path, CaptureFileFormat::Pcapng,
                                     fresh ? CaptureOpenMode::CreateNew : CaptureOpenMode::Continue);
    if (opened) return LogOpen::Opened;
    return writer_.NameTaken() ? LogOpen::Exists : LogOpen::Failed;
  }

  std::size_t Add(PacketRef packet) override {
    pending_.push_back({bytes_.size(), packet.frameLength, packet.kind, packet.time});
    bytes_.insert(bytes_.end(), packet.frame, packet.frame + packet.frameLength);
    // An Enhanced Packet Block: 32 bytes around the frame, padded to four bytes.
    return 32 + ((packet.frameLength + 3) & ~3u);
  }

  bool Flush() override {
    bool ok = writer_.IsOpen();
    for (const Pending& packet : pending_) {
      if (!ok) break;
      FrameRecord record;
      record.bytes = std::span<const std::uint8_t>(bytes_.data() + packet.offset, packet.length);
      record.wireLength = packet.length;
      record.kind = packet.kind;
      record.time = packet.time;
      ok = writer_.Write(record);
    }
    pending_.clear();
    bytes_.clear();
    return ok && writer_.Flush();
  }

  void Close() override { writer_.Close(); }
  std::uint64_t FileSize() const override { return writer_.FileSize(); }

 private:
  struct Pending {
    std::size_t offset;
    std::uint32_t length;
    InterfaceKind kind;
    CaptureTime time;
  };
  CaptureFileWriter writer_;
  std::vector<Pending> pending_;
  std::vector<std::uint8_t> bytes_;
};

}  // namespace

std::unique_ptr<LogForm> MakePcapngLogForm() { return std::make_unique<PcapngLogForm>(); }

std::unique_ptr<LogForm> MakeTextLogForm(RenderOptions options) {
  return std::make_unique<TextLogForm>(options);
}

}  // namespace vormelt
