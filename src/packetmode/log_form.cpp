// The text log form: the renderer's bytes into one growing buffer, written with write(2).
#include "packetmode/log_form.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>
#include <vector>

#include "capture/capture_writer.hpp"
#include "common/file_write.hpp"

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
    if (fd_ < 0) {
      failure_ = ErrnoText(errno);
      return errno == EEXIST ? LogOpen::Exists : LogOpen::Failed;
    }
    struct stat info {};
    size_ = ::fstat(fd_, &info) == 0 ? static_cast<std::uint64_t>(info.st_size) : 0;
    return LogOpen::Opened;
  }

  std::size_t Add(PacketRef packet) override { return renderer_.Append(packet, pending_); }

  bool Flush() override {
    if (fd_ < 0) {
      failure_ = ErrnoText(EBADF);
      return false;
    }
    const WriteOutcome outcome = WriteAll(fd_, pending_);
    size_ += outcome.written;
    pending_.erase(0, static_cast<std::size_t>(outcome.written));
    if (!outcome.ok()) failure_ = ErrnoText(outcome.error);
    return outcome.ok();
  }

  bool Pending() const override { return !pending_.empty(); }
  std::string Failure() const override { return failure_; }
  bool IsOpen() const override { return fd_ >= 0; }

  void Close() override {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
  }

  std::uint64_t FileSize() const override { return size_; }

 private:
  PacketRenderer renderer_;
  std::string pending_;
  std::string failure_;
  int fd_ = -1;
  std::uint64_t size_ = 0;
};

// Add copies each packet's frame into one buffer (the store lock is held then); Flush hands
// them to the capture file writer.
class PcapngLogForm final : public LogForm {
 public:
  ~PcapngLogForm() override { Close(); }

  LogOpen Open(const std::string& path, bool fresh) override {
    failure_.clear();
    path_ = path;
    const bool opened = writer_.Open(path, CaptureFileFormat::Pcapng,
                                     fresh ? CaptureOpenMode::CreateNew : CaptureOpenMode::Continue);
    if (opened) return LogOpen::Opened;
    failure_ = writer_.Error();
    if (failure_.starts_with(path_ + ": ")) failure_.erase(0, path_.size() + 2);
    return writer_.NameTaken() ? LogOpen::Exists : LogOpen::Failed;
  }

  std::size_t Add(PacketRef packet) override {
    pending_.push_back(PendingFrame{bytes_.size(), packet.frameLength, packet.kind, packet.time});
    bytes_.insert(bytes_.end(), packet.frame, packet.frame + packet.frameLength);
    // An Enhanced Packet Block: 32 bytes around the frame, padded to four bytes.
    return 32 + ((packet.frameLength + 3) & ~3u);
  }

  // A frame the writer refused stays, with those after it, for the next Flush. The writer is
  // buffered: when handing the buffer to the system fails, which frames reached the file is
  // unknown, so all of them stay (a frame may then be in two files rather than in none).
  bool Flush() override {
    std::size_t done = 0;
    for (; writer_.IsOpen() && done < pending_.size(); ++done) {
      const PendingFrame& packet = pending_[done];
      FrameRecord record;
      record.bytes = std::span<const std::uint8_t>(bytes_.data() + packet.offset, packet.length);
      record.wireLength = packet.length;
      record.kind = packet.kind;
      record.time = packet.time;
      if (!writer_.Write(record)) break;
    }
    if (done == pending_.size() && writer_.IsOpen() && writer_.Flush()) {
      pending_.clear();
      bytes_.clear();
      return true;
    }
    // The writer's text begins with the path, which the logger names itself.
    failure_ = writer_.Error().empty() ? ErrnoText(EBADF) : writer_.Error();
    if (failure_.starts_with(path_ + ": ")) failure_.erase(0, path_.size() + 2);
    if (!writer_.IsOpen()) done = 0;
    pending_.erase(pending_.begin(), pending_.begin() + static_cast<std::ptrdiff_t>(done));
    return false;
  }

  bool Pending() const override { return !pending_.empty(); }
  std::string Failure() const override { return failure_; }
  bool IsOpen() const override { return writer_.IsOpen(); }

  void Close() override {
    writer_.Close();
    failure_.clear();
  }
  std::uint64_t FileSize() const override { return writer_.FileSize(); }

 private:
  struct PendingFrame {
    std::size_t offset;
    std::uint32_t length;
    InterfaceKind kind;
    CaptureTime time;
  };
  CaptureFileWriter writer_;
  std::vector<PendingFrame> pending_;
  std::vector<std::uint8_t> bytes_;
  std::string path_;
  std::string failure_;
};

}  // namespace

std::unique_ptr<LogForm> MakePcapngLogForm() { return std::make_unique<PcapngLogForm>(); }

std::unique_ptr<LogForm> MakeTextLogForm(RenderOptions options) {
  return std::make_unique<TextLogForm>(options);
}

}  // namespace vormelt
