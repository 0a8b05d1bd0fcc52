// CaptureFileWriter: the two capture file layouts written by hand (a few fixed blocks), in the
// machine's own byte order, which both layouts announce in their first bytes. pcapng keeps the
// nanoseconds a frame record carries; pcap keeps microseconds.
#include "capture/capture_writer.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <strings.h>

namespace vormelt {
namespace {

constexpr std::uint32_t kLinkTypeEthernet = 1;
constexpr std::uint32_t kLinkTypeRawIp = 101;
constexpr std::uint32_t kSnapLength = 262144;

constexpr std::uint32_t kPcapMagicMicroseconds = 0xA1B2C3D4;
constexpr std::uint16_t kPcapVersionMajor = 2, kPcapVersionMinor = 4;

constexpr std::uint32_t kSectionHeaderBlock = 0x0A0D0D0A;
constexpr std::uint32_t kInterfaceBlock = 1;
constexpr std::uint32_t kEnhancedPacketBlock = 6;
constexpr std::uint32_t kByteOrderMagic = 0x1A2B3C4D;
constexpr std::uint16_t kOptionEnd = 0;
constexpr std::uint16_t kOptionTimestampResolution = 9;
constexpr std::uint8_t kNanoseconds = 9;

std::uint32_t Padded(std::uint32_t length) { return (length + 3u) & ~3u; }

bool EndsWith(std::string_view text, std::string_view suffix) {
  return text.size() >= suffix.size() &&
         strncasecmp(text.data() + text.size() - suffix.size(), suffix.data(), suffix.size()) == 0;
}

std::uint64_t Nanoseconds(CaptureTime time) {
  const auto ns = time.time_since_epoch().count();
  return ns > 0 ? static_cast<std::uint64_t>(ns) : 0;
}

}  // namespace

std::optional<CaptureFileFormat> CaptureFormatFromPath(std::string_view path) {
  if (EndsWith(path, ".pcapng")) return CaptureFileFormat::Pcapng;
  if (EndsWith(path, ".pcap")) return CaptureFileFormat::Pcap;
  return std::nullopt;
}

CaptureFileWriter::~CaptureFileWriter() { Close(); }

bool CaptureFileWriter::Fail(const char* what) {
  error_ = path_ + ": " + what + ": " + std::strerror(errno ? errno : EIO);
  file_.reset();
  beside_.Abandon();
  return false;
}

bool CaptureFileWriter::Put(const void* bytes, std::size_t size) {
  if (std::fwrite(bytes, 1, size, file_.get()) != size) return false;
  fileSize_ += size;
  return true;
}

bool CaptureFileWriter::Open(const std::string& path, std::optional<CaptureFileFormat> format,
                             CaptureOpenMode mode) {
  Close();
  path_ = path;
  error_.clear();
  format_ = format.value_or(CaptureFormatFromPath(path).value_or(CaptureFileFormat::Pcapng));
  pcapLinkType_.reset();
  ethernetInterface_.reset();
  rawInterface_.reset();
  interfaces_ = 0;
  written_ = leftOut_ = fileSize_ = 0;
  nameTaken_ = false;
  // A pcap file has one header at its start; only pcapng can go on in a new section.
  if (mode == CaptureOpenMode::Continue && format_ == CaptureFileFormat::Pcap) mode = CaptureOpenMode::CreateNew;
  int flags = O_WRONLY | O_CREAT | O_CLOEXEC;
  flags |= mode == CaptureOpenMode::Replace ? O_TRUNC : mode == CaptureOpenMode::CreateNew ? O_EXCL : O_APPEND;
  errno = 0;
  // A regular file (or none) is replaced by one written beside it; anything else under the
  // name (a device, a FIFO) is written as it is.
  struct stat existing {};
  const bool beside = mode == CaptureOpenMode::Replace &&
                      (::lstat(path.c_str(), &existing) != 0 ? errno == ENOENT : S_ISREG(existing.st_mode));
  int fd = -1;
  if (beside) {
    int error = 0;
    beside_ = FileBeside::Create(std::filesystem::path(path), error);
    errno = error;
    if (beside_) fd = ::fcntl(beside_.fd(), F_DUPFD_CLOEXEC, 0);
  } else {
    fd = ::open(path.c_str(), flags, 0644);
  }
  if (fd < 0) {
    beside_.Abandon();
    nameTaken_ = errno == EEXIST;
    return Fail("cannot create");
  }
  struct stat info {};
  if (mode == CaptureOpenMode::Continue && ::fstat(fd, &info) == 0) {
    fileSize_ = static_cast<std::uint64_t>(info.st_size);
  }
  file_.reset(::fdopen(fd, mode == CaptureOpenMode::Continue ? "ab" : "wb"));
  if (!file_) {
    ::close(fd);
    return Fail("cannot create");
  }
  if (format_ == CaptureFileFormat::Pcap) return true;  // its header waits for the link type

  const std::uint32_t length = 28;
  const std::uint16_t major = 1, minor = 0;
  const std::int64_t sectionLength = -1;
  const bool ok = Put(&kSectionHeaderBlock, 4) && Put(&length, 4) && Put(&kByteOrderMagic, 4) &&
                  Put(&major, 2) && Put(&minor, 2) && Put(&sectionLength, 8) && Put(&length, 4);
  return ok || Fail("cannot write");
}

bool CaptureFileWriter::WritePcapHeader(std::uint32_t linkType) {
  const std::int32_t zone = 0;
  const std::uint32_t sigfigs = 0;
  return Put(&kPcapMagicMicroseconds, 4) && Put(&kPcapVersionMajor, 2) &&
         Put(&kPcapVersionMinor, 2) && Put(&zone, 4) && Put(&sigfigs, 4) && Put(&kSnapLength, 4) &&
         Put(&linkType, 4);
}

bool CaptureFileWriter::WriteInterfaceBlock(std::uint32_t linkType) {
  const std::uint32_t length = 32;
  const std::uint16_t type16 = static_cast<std::uint16_t>(linkType), reserved = 0;
  const std::uint16_t resolutionLength = 1, endLength = 0;
  const std::uint8_t resolution[4] = {kNanoseconds, 0, 0, 0};
  return Put(&kInterfaceBlock, 4) && Put(&length, 4) && Put(&type16, 2) && Put(&reserved, 2) &&
         Put(&kSnapLength, 4) && Put(&kOptionTimestampResolution, 2) &&
         Put(&resolutionLength, 2) && Put(resolution, 4) && Put(&kOptionEnd, 2) &&
         Put(&endLength, 2) && Put(&length, 4);
}

bool CaptureFileWriter::WritePcapRecord(const FrameRecord& frame,
                                        std::span<const std::uint8_t> bytes,
                                        std::uint32_t wireLength) {
  const std::uint64_t ns = Nanoseconds(frame.time);
  const auto seconds = static_cast<std::uint32_t>(ns / 1'000'000'000u);
  const auto micros = static_cast<std::uint32_t>(ns % 1'000'000'000u / 1000u);
  const auto captured = static_cast<std::uint32_t>(bytes.size());
  return Put(&seconds, 4) && Put(&micros, 4) && Put(&captured, 4) && Put(&wireLength, 4) &&
         Put(bytes.data(), bytes.size());
}

bool CaptureFileWriter::WritePacketBlock(const FrameRecord& frame, std::uint32_t interfaceId,
                                         std::span<const std::uint8_t> bytes,
                                         std::uint32_t wireLength) {
  const auto captured = static_cast<std::uint32_t>(bytes.size());
  const std::uint32_t length = 32 + Padded(captured);
  const std::uint64_t ns = Nanoseconds(frame.time);
  const auto high = static_cast<std::uint32_t>(ns >> 32);
  const auto low = static_cast<std::uint32_t>(ns);
  static constexpr std::uint8_t kZeroes[4] = {};
  return Put(&kEnhancedPacketBlock, 4) && Put(&length, 4) && Put(&interfaceId, 4) &&
         Put(&high, 4) && Put(&low, 4) && Put(&captured, 4) && Put(&wireLength, 4) &&
         Put(bytes.data(), bytes.size()) && Put(kZeroes, Padded(captured) - captured) &&
         Put(&length, 4);
}

bool CaptureFileWriter::Write(const FrameRecord& frame) {
  if (!file_) {
    if (error_.empty()) error_ = "no capture file is open";
    return false;
  }
  const std::uint32_t wanted =
      frame.kind == InterfaceKind::PacketDriver ? kLinkTypeEthernet : kLinkTypeRawIp;
  std::uint32_t linkType = wanted;
  if (format_ == CaptureFileFormat::Pcap) {
    if (!pcapLinkType_) {
      if (!WritePcapHeader(wanted)) return Fail("cannot write");
      pcapLinkType_ = wanted;
    }
    linkType = *pcapLinkType_;
  }

  std::span<const std::uint8_t> bytes = frame.bytes;
  std::uint32_t wireLength = std::max(frame.wireLength, frame.length());
  if (linkType == kLinkTypeRawIp) {
    // Raw IP has no room for the pseudo header; it holds IPv4 and IPv6 (told apart by the
    // version nibble), and anything else has no place.
    const int etherType = bytes.size() >= kEthernetHeaderLength ? bytes[12] << 8 | bytes[13] : 0;
    if (etherType != kEtherTypeIpv4 && etherType != kEtherTypeIpv6) {
      ++leftOut_;
      return true;
    }
    bytes = bytes.subspan(kEthernetHeaderLength);
    wireLength -= kEthernetHeaderLength;
  }

  bool ok;
  if (format_ == CaptureFileFormat::Pcap) {
    ok = WritePcapRecord(frame, bytes, wireLength);
  } else {
    std::optional<std::uint32_t>& id =
        linkType == kLinkTypeEthernet ? ethernetInterface_ : rawInterface_;
    ok = true;
    if (!id) {
      ok = WriteInterfaceBlock(linkType);
      id = interfaces_++;
    }
    ok = ok && WritePacketBlock(frame, *id, bytes, wireLength);
  }
  if (!ok) return Fail("cannot write");
  ++written_;
  return true;
}

bool CaptureFileWriter::Flush() {
  if (!file_) return false;
  errno = 0;
  return std::fflush(file_.get()) == 0 || Fail("cannot write");
}

bool CaptureFileWriter::Close() {
  if (!file_) return error_.empty();
  // A pcap file that saw no frame still gets its header, so it opens as an empty capture.
  if (format_ == CaptureFileFormat::Pcap && !pcapLinkType_ && !WritePcapHeader(kLinkTypeEthernet)) {
    return Fail("cannot write");
  }
  errno = 0;
  if (std::fclose(file_.release()) != 0) return Fail("cannot close");
  if (beside_) {
    if (const int error = beside_.Commit(/*replace=*/true); error != 0) {
      errno = error;
      return Fail("cannot write");
    }
  }
  return true;
}

}  // namespace vormelt
