// Capture sources: where a receive loop gets its frames. Live libpcap on the interface holding
// an address (Raw Sockets kind), live libpcap on an adapter, or a pcap/pcapng file. Every
// source hands out Ethernet-shaped frames; none of them knows who consumes them.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <variant>

#include "common/message.hpp"
#include "common/frame_sink.hpp"
#include "common/settings.hpp"
#include "common/types.hpp"

namespace vormelt {

// What to capture from.
struct CaptureTarget {
  enum class Type : std::uint8_t { Address, Adapter, File };
  Type type = Type::Address;
  std::string name;         // dotted IPv4 address, libpcap device name, or file path
  std::string displayName;  // shown in the status text (the address, adapter or file name)
  std::int32_t bufferMiB = kDefaultCaptureBufferMiB;  // the kernel buffer of a live capture

  static CaptureTarget Address(std::string address);
  static CaptureTarget Adapter(std::string device, std::string displayName = {});
  static CaptureTarget File(std::string path);
  // The chosen interface of the settings (kind, address, adapter device and display name) and
  // its capture buffer.
  static CaptureTarget FromSettings(const InterfaceSettings& settings);
};

enum class ReadResult : std::uint8_t {
  Frame,    // `frame` holds the next frame
  Nothing,  // no frame yet (timeout, or a frame of another kind was dropped): poll flags
  End,      // the file is finished, or Interrupt() was called
  Failed,   // a read error; Failure() says what. Frames read before it stay valid.
};

// Packets of a capture file that no frame was made of, by why: what the user is told.
struct SkippedPackets {
  std::uint64_t notIp = 0;     // a raw IP link's packet that is neither IPv4 nor IPv6
  std::uint64_t cutShort = 0;  // shorter than its link header
  std::uint64_t total() const { return notIp + cutShort; }
};

class CaptureSource {
 public:
  virtual ~CaptureSource() = default;
  virtual InterfaceKind Kind() const = 0;
  // Blocks until a frame comes, a short timeout passes, or Interrupt(). `frame` is filled as
  // a sink is handed it (Ethernet shape, spare bytes, capture time, kind) and stays valid
  // until the next call.
  virtual ReadResult Next(FrameRecord& frame) = 0;
  // From any thread: a blocked Next returns promptly, and every later one returns End.
  virtual void Interrupt() = 0;
  // The message for a Failed read.
  virtual CaptureMessage Failure() const = 0;
  // For files: bytes read so far and the file's size, for a progress display; 0/0 when live.
  virtual std::uint64_t BytesRead() const { return 0; }
  virtual std::uint64_t BytesTotal() const { return 0; }
  // Live captures: frames the kernel dropped so far (buffer full, or the interface). Called
  // on the receive thread only. 0 for files.
  virtual std::uint64_t Dropped() const { return 0; }
  // Files: packets read but left out so far. Called on the receive thread only.
  virtual SkippedPackets Skipped() const { return {}; }
};

// A source, or the message telling why there is none.
using OpenResult = std::variant<std::unique_ptr<CaptureSource>, CaptureMessage>;

// Opens the target. Fails with the unable-to-listen message when the address is on no
// interface that is up or capturing is not permitted, "Error: %s" for other libpcap errors,
// and the unreadable-file message for files.
OpenResult OpenSource(const CaptureTarget& target);

}  // namespace vormelt
