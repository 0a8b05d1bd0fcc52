// CaptureFileWriter: frame records out to a pcapng or pcap file that other capture tools read.
// Streaming: a file is created (replacing one, or only when the name is free), written frame by
// frame and closed. A pcapng file can also be continued: a new section is appended, which every
// pcapng reader takes as the same capture going on. Errors are kept as text for the caller;
// nothing is thrown.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "common/file_write.hpp"
#include "common/frame_sink.hpp"
#include "common/types.hpp"

namespace vormelt {

enum class CaptureFileFormat : std::uint8_t { Pcapng, Pcap };
// Replace: create or truncate. CreateNew: only when no file has the name (NameTaken() says so
// otherwise). Continue (pcapng only): append a new section to the file, creating it if absent.
enum class CaptureOpenMode : std::uint8_t { Replace, CreateNew, Continue };

// ".pcap" -> Pcap, ".pcapng" -> Pcapng (letter case ignored); nullopt for anything else.
std::optional<CaptureFileFormat> CaptureFormatFromPath(std::string_view path);

class CaptureFileWriter {
 public:
  CaptureFileWriter() = default;
  ~CaptureFileWriter();
  CaptureFileWriter(const CaptureFileWriter&) = delete;
  CaptureFileWriter& operator=(const CaptureFileWriter&) = delete;

  // Creates `path` in `format`, or in the one its extension names (pcapng when it names none).
  // False with Error() set when the file cannot be created.
  bool Open(const std::string& path, std::optional<CaptureFileFormat> format = std::nullopt,
            CaptureOpenMode mode = CaptureOpenMode::Replace);
  // Frames of the adapter kind are written as Ethernet frames; frames of the Raw Sockets kind
  // as raw IP (IPv4 or IPv6), without the pseudo Ethernet header they carry here. A pcapng file
  // describes one interface per kind it meets; a pcap file has one link type, that of its first
  // frame, and writes later frames of the other kind in that shape (a frame that is neither
  // IPv4 nor IPv6 cannot be raw IP and is left out). False with Error() set when writing failed.
  bool Write(const FrameRecord& frame);
  // Hands what was written to the system; false with Error() set when that failed.
  bool Flush();
  // Flushes and closes; false with Error() set when that failed. Safe to call twice.
  bool Close();

  bool IsOpen() const { return file_ != nullptr; }
  // The last Open failed because CreateNew found the name taken.
  bool NameTaken() const { return nameTaken_; }
  // The file's size: what it held when opened plus what was written since.
  std::uint64_t FileSize() const { return fileSize_; }
  const std::string& Error() const { return error_; }
  std::uint64_t FramesWritten() const { return written_; }
  std::uint64_t FramesLeftOut() const { return leftOut_; }

 private:
  struct FileCloser {
    void operator()(std::FILE* f) const { std::fclose(f); }
  };

  bool Fail(const char* what);
  bool Put(const void* bytes, std::size_t size);
  bool WritePcapHeader(std::uint32_t linkType);
  bool WriteInterfaceBlock(std::uint32_t linkType);
  bool WritePcapRecord(const FrameRecord& frame, std::span<const std::uint8_t> bytes,
                       std::uint32_t wireLength);
  bool WritePacketBlock(const FrameRecord& frame, std::uint32_t interfaceId,
                        std::span<const std::uint8_t> bytes, std::uint32_t wireLength);

  std::unique_ptr<std::FILE, FileCloser> file_;
  // Replace writes beside the old file and renames over it on a good Close, so a full disk or
  // a failed write leaves the old file as it was.
  FileBeside beside_;
  CaptureFileFormat format_ = CaptureFileFormat::Pcapng;
  std::string path_;
  std::string error_;
  std::optional<std::uint32_t> pcapLinkType_;
  // pcapng interface ids per link type, given in the order the kinds first appear.
  std::optional<std::uint32_t> ethernetInterface_, rawInterface_;
  std::uint32_t interfaces_ = 0;
  std::uint64_t written_ = 0;
  std::uint64_t leftOut_ = 0;
  std::uint64_t fileSize_ = 0;
  bool nameTaken_ = false;
};

}  // namespace vormelt
