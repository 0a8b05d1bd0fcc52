// libpcap sources: live on an interface or adapter, or offline from a pcap/pcapng file. All of
// them run through PcapSource, which turns each link type into Ethernet shape. Every pcap_t is
// owned by a unique_ptr; nothing here knows what happens to a frame.
#include "capture/source.hpp"

#include <pcap/pcap.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <limits>
#include <optional>
#include <vector>

#include "capture/classic_pcap.hpp"
#include "capture/interfaces.hpp"
#include "capture/link_frames.hpp"
#include "common/frame_sink.hpp"

namespace vormelt {
namespace {

// A whole 65,535-byte datagram plus the longest link header we unwrap.
constexpr int kSnapLength = 65535 + 64;
// How long the kernel holds a part-filled buffer block before handing it over: the longest a
// quiet link's packet waits before it is listed. Not immediate mode, which wakes the thread
// for every packet and gives each one a slot as big as the largest frame (a few hundred
// slots in all), so a burst overflows the buffer at once.
constexpr int kReadTimeoutMs = 10;
// Files: how often the read position is sampled for the progress display.
constexpr unsigned kProgressEvery = 1024;

struct PcapClose {
  void operator()(pcap_t* handle) const { pcap_close(handle); }
};
using PcapHandle = std::unique_ptr<pcap_t, PcapClose>;

CaptureMessage Message(Text caption, Text text, std::string argument) {
  return CaptureMessage{caption, text, MessageIcon::Stop, std::move(argument), std::nullopt};
}

CaptureMessage UnableToListen(const std::string& interfaceText) {
  return Message(Text::UnableToListenCaption, Text::UnableToListen, interfaceText);
}

std::string LinkTypeName(int linkType) {
  const char* name = pcap_datalink_val_to_name(linkType);
  return name ? name : std::to_string(linkType);
}

// Files are read through a stdio buffer this large: one read call per megabyte instead of one
// per 4 KiB block, which is most of the system time of reading a large capture.
constexpr std::size_t kFileBufferSize = 1 << 20;

class PcapSource final : public CaptureSource {
 public:
  // `fileBuffer`: the stdio buffer of an offline handle's FILE, kept until the handle closes.
  PcapSource(PcapHandle handle, InterfaceKind kind, std::uint64_t fileSize,
             std::unique_ptr<char[]> fileBuffer = nullptr)
      : fileBuffer_(std::move(fileBuffer)),
        handle_(std::move(handle)),
        kind_(kind),
        linkType_(pcap_datalink(handle_.get())),
        file_(pcap_file(handle_.get())),
        fileSize_(fileSize),
        nanoseconds_(pcap_get_tstamp_precision(handle_.get()) == PCAP_TSTAMP_PRECISION_NANO) {
    converted_.reserve(kMaxFrameLength + 64 + kFrameSpareBytes);
  }

  InterfaceKind Kind() const override { return kind_; }

  ReadResult Next(FrameRecord& frame) override {
    if (interrupted_.load(std::memory_order_acquire)) return ReadResult::End;
    pcap_pkthdr* header = nullptr;
    const u_char* data = nullptr;
    const int status = pcap_next_ex(handle_.get(), &header, &data);
    if (status == 0) return ReadResult::Nothing;
    if (status == PCAP_ERROR_BREAK) return ReadResult::End;
    if (status < 0) {
      failure_ = pcap_geterr(handle_.get());
      return ReadResult::Failed;
    }
    SampleProgress();
    const std::optional<InterfaceKind> kind = Convert(std::span<const std::uint8_t>(data, header->caplen));
    if (!kind) return ReadResult::Nothing;
    const auto length = static_cast<std::uint32_t>(
        std::min<std::size_t>(converted_.size(), kMaxFrameLength));
    // What the link header added or took away applies to the wire length alike.
    const std::int64_t wire = std::int64_t{header->len} - header->caplen + length;
    converted_.resize(length + kFrameSpareBytes);
    std::memset(converted_.data() + length, 0, kFrameSpareBytes);
    frame.bytes = std::span<const std::uint8_t>(converted_.data(), length);
    frame.wireLength = static_cast<std::uint32_t>(std::max<std::int64_t>(wire, length));
    frame.time = Timestamp(header->ts);
    frame.kind = *kind;
    frame.timeText = {};
    return ReadResult::Frame;
  }

  void Interrupt() override {
    interrupted_.store(true, std::memory_order_release);
    pcap_breakloop(handle_.get());
  }

  CaptureMessage Failure() const override {
    if (file_) return Message(Text::CaptureFileCaption, Text::CaptureFileDamaged, failure_);
    return Message(Text::UnknownErrorCaption, Text::ErrorWithDetail, failure_);
  }

  std::uint64_t BytesRead() const override { return bytesRead_.load(std::memory_order_relaxed); }
  std::uint64_t BytesTotal() const override { return fileSize_; }

  // pcap_stats counts since the capture opened; as tcpdump reports: full buffer + interface.
  std::uint64_t Dropped() const override {
    pcap_stat stats{};
    if (file_ || pcap_stats(handle_.get(), &stats) != 0) return 0;
    return std::uint64_t{stats.ps_drop} + stats.ps_ifdrop;
  }

  SkippedPackets Skipped() const override { return skipped_; }

 private:
  // Into converted_: the frame in Ethernet shape, and its kind. Nullopt for a packet left
  // out; a file's are counted for the user.
  std::optional<InterfaceKind> Convert(std::span<const std::uint8_t> packet) {
    if (kind_ == InterfaceKind::PacketDriver && linkType_ == DLT_EN10MB) {
      converted_.assign(packet.begin(), packet.end());
      return kind_;
    }
    const ConvertedFrame converted = ToFrame(linkType_, kind_, packet, converted_);
    switch (converted.outcome) {
      case FrameOutcome::Kept: return converted.kind;
      case FrameOutcome::NotIp: skipped_.notIp += file_ ? 1 : 0; break;
      case FrameOutcome::CutShort: skipped_.cutShort += file_ ? 1 : 0; break;
      case FrameOutcome::NotForRawSockets: break;
    }
    return std::nullopt;
  }

  // A damaged or hostile file may claim a time that no 64-bit count of nanoseconds reaches
  // (outside the years 1677 to 2262): it is pinned to the nearer end instead of wrapping.
  CaptureTime Timestamp(const timeval& stamp) const {
    const std::int64_t fraction = nanoseconds_ ? stamp.tv_usec : std::int64_t{stamp.tv_usec} * 1000;
    std::int64_t total = 0;
    if (__builtin_mul_overflow(std::int64_t{stamp.tv_sec}, std::int64_t{1'000'000'000}, &total) ||
        __builtin_add_overflow(total, fraction, &total)) {
      total = stamp.tv_sec < 0 ? std::numeric_limits<std::int64_t>::min()
                               : std::numeric_limits<std::int64_t>::max();
    }
    return CaptureTime(std::chrono::nanoseconds(total));
  }

  void SampleProgress() {
    if (!file_ || ++packetsSinceSample_ < kProgressEvery) return;
    packetsSinceSample_ = 0;
    const long position = std::ftell(file_);
    if (position >= 0) bytesRead_.store(static_cast<std::uint64_t>(position));
  }

  std::unique_ptr<char[]> fileBuffer_;  // outlives handle_, whose FILE reads into it
  PcapHandle handle_;
  InterfaceKind kind_;
  int linkType_;
  std::FILE* file_;  // the offline file, owned by the handle; null when live
  std::uint64_t fileSize_;
  bool nanoseconds_;  // the handle's time stamps count nanoseconds, not microseconds
  std::atomic<bool> interrupted_{false};
  std::vector<std::uint8_t> converted_;
  std::string failure_;
  std::atomic<std::uint64_t> bytesRead_{0};
  unsigned packetsSinceSample_ = 0;
  SkippedPackets skipped_;
};

// Opens a live capture on `device` with a kernel buffer of `bufferMiB`. `interfaceText` names
// it in messages. The buffer absorbs bursts while the receive thread is busy; frames are packed
// into it one after the other (TPACKET_V3), so it holds tens of thousands of small ones.
OpenResult OpenLive(const std::string& device, InterfaceKind kind,
                    const std::string& interfaceText, std::int32_t bufferMiB) {
  char error[PCAP_ERRBUF_SIZE] = {};
  PcapHandle handle(pcap_create(device.c_str(), error));
  if (!handle) {
    return CaptureMessage{Text::ErrorCreatingSocketCaption, Text::ErrorCreatingSocket,
                          MessageIcon::Stop, std::nullopt, static_cast<long>(errno)};
  }
  pcap_t* p = handle.get();
  bufferMiB = std::clamp(bufferMiB, kMinCaptureBufferMiB, kMaxCaptureBufferMiB);
  pcap_set_buffer_size(p, bufferMiB << 20);
  pcap_set_snaplen(p, kSnapLength);
  pcap_set_promisc(p, 0);
  pcap_set_timeout(p, kReadTimeoutMs);
  pcap_set_tstamp_precision(p, PCAP_TSTAMP_PRECISION_NANO);  // refused on old kernels: then µs
  const int status = pcap_activate(p);
  if (status == PCAP_ERROR_PERM_DENIED || status == PCAP_ERROR_NO_SUCH_DEVICE ||
      status == PCAP_ERROR_IFACE_NOT_UP) {
    return UnableToListen(interfaceText);
  }
  if (status < 0) {
    const char* detail = status == PCAP_ERROR ? pcap_geterr(p) : pcap_statustostr(status);
    return Message(Text::UnknownErrorCaption, Text::ErrorWithDetail, detail);
  }
  const int linkType = pcap_datalink(p);
  if (!LinkTypeSupported(linkType)) {
    return Message(Text::UnknownErrorCaption, Text::LinkTypeUnsupported, LinkTypeName(linkType));
  }
  return std::make_unique<PcapSource>(std::move(handle), kind, 0);
}

OpenResult OpenAddress(const std::string& address, std::int32_t bufferMiB) {
  const std::optional<std::string> device = InterfaceHoldingAddress(address);
  if (!device) return UnableToListen(address);
  return OpenLive(*device, InterfaceKind::RawSockets, address, bufferMiB);
}

OpenResult OpenFile(const std::string& path) {
  if (std::unique_ptr<CaptureSource> source = OpenClassicPcap(path)) return source;
  char error[PCAP_ERRBUF_SIZE] = {};
  std::FILE* file = std::fopen(path.c_str(), "rb");
  if (!file) {
    const std::string detail = path + ": " + std::strerror(errno);
    return Message(Text::CaptureFileCaption, Text::CaptureFileUnreadable, detail);
  }
  auto buffer = std::make_unique_for_overwrite<char[]>(kFileBufferSize);
  std::setvbuf(file, buffer.get(), _IOFBF, kFileBufferSize);
  // Once open, the handle owns the file and closes it; a refused file is still ours to close.
  PcapHandle handle(pcap_fopen_offline_with_tstamp_precision(file, PCAP_TSTAMP_PRECISION_NANO, error));
  if (!handle) {
    std::fclose(file);
    // libpcap names the file itself in some of its messages; name it once in all of them.
    const std::string detail = std::string_view(error).starts_with(path) ? error : path + ": " + error;
    return Message(Text::CaptureFileCaption, Text::CaptureFileUnreadable, detail);
  }
  const int linkType = pcap_datalink(handle.get());
  if (!LinkTypeSupported(linkType)) {
    return Message(Text::CaptureFileCaption, Text::CaptureFileLinkType, LinkTypeName(linkType));
  }
  std::error_code ignored;
  const auto size = std::filesystem::file_size(path, ignored);
  return std::make_unique<PcapSource>(std::move(handle), KindForLinkType(linkType),
                                      ignored ? 0 : static_cast<std::uint64_t>(size),
                                      std::move(buffer));
}

std::string FileName(const std::string& path) {
  return std::filesystem::path(path).filename().string();
}

}  // namespace

CaptureTarget CaptureTarget::Address(std::string address) {
  CaptureTarget target{Type::Address, std::move(address), {}};
  target.displayName = target.name;
  return target;
}

CaptureTarget CaptureTarget::Adapter(std::string device, std::string displayName) {
  CaptureTarget target{Type::Adapter, std::move(device), std::move(displayName)};
  if (target.displayName.empty()) target.displayName = target.name;
  return target;
}

CaptureTarget CaptureTarget::File(std::string path) {
  const std::string name = FileName(path);
  return CaptureTarget{Type::File, std::move(path), name};
}

CaptureTarget CaptureTarget::FromSettings(const InterfaceSettings& settings) {
  CaptureTarget target = settings.chosenKind == InterfaceKind::RawSockets
                             ? Address(settings.address)
                             : Adapter(settings.adapterDevice, settings.adapterDisplayName);
  target.bufferMiB = settings.bufferMiB;
  return target;
}

OpenResult OpenSource(const CaptureTarget& target) {
  switch (target.type) {
    case CaptureTarget::Type::Address: return OpenAddress(target.name, target.bufferMiB);
    case CaptureTarget::Type::Adapter:
      return OpenLive(target.name, InterfaceKind::PacketDriver, target.displayName,
                      target.bufferMiB);
    case CaptureTarget::Type::File: return OpenFile(target.name);
  }
  return UnableToListen(target.name);
}

}  // namespace vormelt
