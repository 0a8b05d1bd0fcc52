// Classic pcap of Ethernet frames, read block by block with one block always being read ahead.
// The records are parsed straight out of the blocks; a record cut by a block boundary is put
// together in a small carry buffer. What libpcap would refuse (an unknown version, a link type
// with FCS bits, an oversized record) is refused here as well, with a message of the same kind.
#include "capture/classic_pcap.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <mutex>
#include <optional>
#include <span>
#include <sys/stat.h>
#include <thread>
#include <utility>
#include <vector>

#include "capture/link_frames.hpp"
#include "common/frame_sink.hpp"
#include "common/unique_fd.hpp"

namespace vormelt {
namespace {

constexpr std::uint32_t kMagicMicro = 0xa1b2c3d4;
constexpr std::uint32_t kMagicNano = 0xa1b23c4d;
constexpr std::uint16_t kVersionMajor = 2;
constexpr std::uint16_t kVersionMinor = 4;
constexpr std::uint32_t kLinkTypeEthernet = 1;
// The link-type field's low 26 bits are the type; the bits above carry FCS information, which
// only libpcap interprets.
constexpr std::uint32_t kLinkTypeMask = 0x03FFFFFF;
constexpr std::size_t kFileHeaderSize = 24;
constexpr std::size_t kRecordHeaderSize = 16;
// libpcap's bound for an Ethernet record; anything larger is a damaged file, not a frame.
constexpr std::uint32_t kMaxRecordLength = 262144;
// Blocks of 512 KiB, two of them: one being read while the other is parsed. Few read
// calls, and little resident memory beside the frames themselves.
constexpr std::size_t kBlockSize = 512 << 10;
constexpr std::size_t kBlockCount = 2;
constexpr unsigned kProgressEvery = 1024;

// Reads a file front to back on its own thread into a small pool of blocks. Take() hands the
// consumer the next filled block and returns the one it had before to the pool.
class ReadAhead {
 public:
  struct Block {
    std::span<std::uint8_t> data;  // empty: the end of the file
    int error = 0;                       // errno of a failed read; data holds what came before
  };

  ReadAhead(int fd, std::uint64_t offset) : fd_(fd), offset_(offset) {
    for (auto& storage : storage_) {
      // The room past the data is for a frame's spare bytes (see ZeroSpareBytesAfter).
      storage = std::make_unique_for_overwrite<std::uint8_t[]>(kBlockSize + kFrameSpareBytes);
      free_.push_back(storage.get());
    }
    thread_ = std::thread([this] { Run(); });
  }

  ~ReadAhead() {
    {
      std::lock_guard lock(mutex_);
      stopping_ = true;
    }
    changed_.notify_all();
    thread_.join();
  }

  ReadAhead(const ReadAhead&) = delete;
  ReadAhead& operator=(const ReadAhead&) = delete;

  Block Take() {
    std::unique_lock lock(mutex_);
    if (held_) {
      free_.push_back(std::exchange(held_, nullptr));
      // Woken with the lock still held here, the reading thread would only wake to block on
      // it again: two switches for every block.
      lock.unlock();
      changed_.notify_all();
      lock.lock();
    }
    changed_.wait(lock, [&] { return !filled_.empty(); });
    Filled next = filled_.front();
    filled_.pop_front();
    held_ = next.memory;
    return {std::span<std::uint8_t>(next.memory, next.size), next.error};
  }

 private:
  struct Filled {
    std::uint8_t* memory;
    std::size_t size;
    int error;
  };

  void Run() {
    for (;;) {
      std::uint8_t* memory = nullptr;
      {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return stopping_ || !free_.empty(); });
        if (stopping_) return;
        memory = free_.front();
        free_.pop_front();
      }
      const Filled filled = Fill(memory);
      {
        std::lock_guard lock(mutex_);
        filled_.push_back(filled);
      }
      changed_.notify_all();
      // A short block is the last: the end of the file or an error. An empty one follows it
      // so that the consumer sees the end as well.
      if (filled.size == kBlockSize) continue;
      if (filled.size != 0 && filled.error == 0) continue;
      return;
    }
  }

  Filled Fill(std::uint8_t* memory) {
    std::size_t size = 0;
    while (size < kBlockSize) {
      const ssize_t got = pread(fd_, memory + size, kBlockSize - size, static_cast<off_t>(offset_));
      if (got < 0 && errno == EINTR) continue;
      if (got < 0) return {memory, size, errno};
      if (got == 0) break;
      size += static_cast<std::size_t>(got);
      offset_ += static_cast<std::uint64_t>(got);
    }
    return {memory, size, 0};
  }

  int fd_;
  std::uint64_t offset_;  // the reading thread's only
  std::array<std::unique_ptr<std::uint8_t[]>, kBlockCount> storage_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<std::uint8_t*> free_;
  std::deque<Filled> filled_;
  std::uint8_t* held_ = nullptr;  // the consumer's block
  bool stopping_ = false;
  std::thread thread_;
};

std::uint16_t ByteSwap(std::uint16_t value) { return __builtin_bswap16(value); }
std::uint32_t ByteSwap(std::uint32_t value) { return __builtin_bswap32(value); }

struct FileHeader {
  bool swapped;
  bool nanoseconds;
  // Longer records are cut to this, as libpcap cuts them: some writers store more than the
  // snapshot length their header claims.
  std::uint32_t snapLength;
};

// The header's reading, or nothing when the file is not classic pcap of Ethernet frames that
// this reader takes on.
std::optional<FileHeader> ReadFileHeader(int fd) {
  std::array<std::uint8_t, kFileHeaderSize> bytes{};
  if (pread(fd, bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
    return std::nullopt;
  }
  std::uint32_t magic = 0;
  std::memcpy(&magic, bytes.data(), 4);
  FileHeader header{};
  if (magic == kMagicMicro || magic == kMagicNano) {
    header.swapped = false;
  } else if (ByteSwap(magic) == kMagicMicro || ByteSwap(magic) == kMagicNano) {
    header.swapped = true;
    magic = ByteSwap(magic);
  } else {
    return std::nullopt;
  }
  header.nanoseconds = magic == kMagicNano;
  std::uint16_t major = 0;
  std::uint16_t minor = 0;
  std::uint32_t snapLength = 0;
  std::uint32_t linkType = 0;
  std::memcpy(&major, bytes.data() + 4, 2);
  std::memcpy(&minor, bytes.data() + 6, 2);
  std::memcpy(&snapLength, bytes.data() + 16, 4);
  std::memcpy(&linkType, bytes.data() + 20, 4);
  if (header.swapped) {
    major = ByteSwap(major);
    minor = ByteSwap(minor);
    snapLength = ByteSwap(snapLength);
    linkType = ByteSwap(linkType);
  }
  // A header without a sensible snapshot length gets the largest record length, as in libpcap.
  header.snapLength = snapLength == 0 || snapLength > kMaxRecordLength ? kMaxRecordLength : snapLength;
  // Versions before 2.4 may hold the two lengths in the other order; libpcap sorts that out.
  if (major != kVersionMajor || minor != kVersionMinor || linkType != kLinkTypeEthernet ||
      (linkType & ~kLinkTypeMask) != 0) {
    return std::nullopt;
  }
  return header;
}

class ClassicPcapSource final : public CaptureSource {
 public:
  ClassicPcapSource(int fd, FileHeader header, std::uint64_t fileSize)
      : file_(fd), header_(header), fileSize_(fileSize), reader_(fd, kFileHeaderSize) {
  }

  InterfaceKind Kind() const override { return InterfaceKind::PacketDriver; }

  ReadResult Next(FrameRecord& frame) override {
    RestoreSpareBytes();
    if (interrupted_.load(std::memory_order_acquire) || failed_) return ReadResult::End;
    std::array<std::uint32_t, 4> fields{};  // seconds, fraction, captured, original length
    switch (Read(kRecordHeaderSize, [&](std::span<std::uint8_t> bytes) {
      std::memcpy(fields.data(), bytes.data(), kRecordHeaderSize);
    })) {
      case Got::All: break;
      case Got::Nothing: return ReadResult::End;
      case Got::Part: return Fail("truncated capture file: a record header is cut short");
      case Got::Error: return ReadResult::Failed;
    }
    if (header_.swapped) {
      for (auto& field : fields) field = ByteSwap(field);
    }
    const auto [seconds, fraction, captured, original] = fields;
    if (captured > kMaxRecordLength) {
      return Fail("invalid packet capture length " + std::to_string(captured) +
                  ", bigger than maximum of " + std::to_string(kMaxRecordLength));
    }
    std::span<std::uint8_t> data;
    switch (Read(captured, [&](std::span<std::uint8_t> bytes) { data = bytes; })) {
      case Got::All: break;
      case Got::Nothing:
      case Got::Part: return Fail("truncated capture file: a packet's data is cut short");
      case Got::Error: return ReadResult::Failed;
    }
    const auto length = std::min({captured, header_.snapLength, kMaxFrameLength});
    ZeroSpareBytesAfter(data.data() + length);
    SampleProgress();
    frame.bytes = data.first(length);
    frame.wireLength = std::max(original, length);
    const std::int64_t nanoseconds = header_.nanoseconds ? fraction : std::int64_t{fraction} * 1000;
    frame.time = CaptureTime(std::chrono::nanoseconds(std::int64_t{seconds} * 1'000'000'000 + nanoseconds));
    frame.kind = InterfaceKind::PacketDriver;
    frame.timeText = {};
    return ReadResult::Frame;
  }

  void Interrupt() override { interrupted_.store(true, std::memory_order_release); }

  CaptureMessage Failure() const override {
    return CaptureMessage{Text::CaptureFileCaption, Text::CaptureFileDamaged, MessageIcon::Stop,
                          failure_, std::nullopt};
  }

  std::uint64_t BytesRead() const override { return bytesRead_.load(std::memory_order_relaxed); }
  std::uint64_t BytesTotal() const override { return fileSize_; }

 private:
  enum class Got : std::uint8_t { All, Nothing, Part, Error };

  // Hands `use` the next `count` bytes of the file in one piece: in place when the current
  // block holds them, else put together in carry_ across blocks.
  template <typename Use>
  Got Read(std::size_t count, Use&& use) {
    if (block_.size() - position_ >= count) {
      use(block_.subspan(position_, count));
      position_ += count;
      consumed_ += count;
      return Got::All;
    }
    carry_.assign(block_.begin() + static_cast<std::ptrdiff_t>(position_), block_.end());
    while (carry_.size() < count) {
      if (atEnd_) return carry_.empty() ? Got::Nothing : Got::Part;
      const ReadAhead::Block next = reader_.Take();
      block_ = next.data;
      position_ = std::min(count - carry_.size(), block_.size());
      carry_.insert(carry_.end(), block_.begin(), block_.begin() + static_cast<std::ptrdiff_t>(position_));
      if (next.error != 0) {
        failure_ = std::string("cannot read the capture file: ") + std::strerror(next.error);
        failed_ = true;
        return Got::Error;
      }
      if (block_.empty()) atEnd_ = true;
    }
    carry_.resize(count + kFrameSpareBytes);  // room for the spare bytes of a frame
    use(std::span<std::uint8_t>(carry_.data(), count));
    consumed_ += count;
    return Got::All;
  }

  // A frame is handed out where it lies, in its block or the carry buffer, so the bytes
  // behind it (the next record, or slack past the block's end) are zeroed for as long as the
  // frame is out, and put back before the next record is read. Every block and the carry
  // buffer have kFrameSpareBytes of room past their data for this.
  void ZeroSpareBytesAfter(std::uint8_t* end) {
    spareAt_ = end;
    std::memcpy(savedSpare_.data(), spareAt_, kFrameSpareBytes);
    std::memset(spareAt_, 0, kFrameSpareBytes);
  }

  void RestoreSpareBytes() {
    if (!spareAt_) return;
    std::memcpy(spareAt_, savedSpare_.data(), kFrameSpareBytes);
    spareAt_ = nullptr;
  }

  ReadResult Fail(std::string text) {
    failure_ = std::move(text);
    failed_ = true;
    return ReadResult::Failed;
  }

  void SampleProgress() {
    if (++packetsSinceSample_ < kProgressEvery) return;
    packetsSinceSample_ = 0;
    bytesRead_.store(kFileHeaderSize + consumed_, std::memory_order_relaxed);
  }

  UniqueFd file_;
  FileHeader header_;
  std::uint64_t fileSize_;
  ReadAhead reader_;  // after file_: stops reading before the file closes
  std::span<std::uint8_t> block_;
  std::size_t position_ = 0;
  bool atEnd_ = false;
  bool failed_ = false;
  std::uint64_t consumed_ = 0;
  std::vector<std::uint8_t> carry_;
  std::uint8_t* spareAt_ = nullptr;  // where zeroed spare bytes stand in for file bytes
  std::array<std::uint8_t, kFrameSpareBytes> savedSpare_{};
  std::string failure_;
  std::atomic<bool> interrupted_{false};
  std::atomic<std::uint64_t> bytesRead_{0};
  unsigned packetsSinceSample_ = 0;
};

}  // namespace

std::unique_ptr<CaptureSource> OpenClassicPcap(const std::string& path) {
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return nullptr;
  UniqueFd owner(fd);
  struct stat status {};
  if (fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) return nullptr;
  const std::optional<FileHeader> header = ReadFileHeader(fd);
  if (!header) return nullptr;
  posix_fadvise(fd, 0, 0, POSIX_FADV_SEQUENTIAL);
  const auto size = static_cast<std::uint64_t>(status.st_size);
  return std::make_unique<ClassicPcapSource>(owner.release(), *header, size);
}

}  // namespace vormelt
