// Writes classic pcap files for tests and benchmarks, without libpcap, so fixtures can be made
// with any link type (Ethernet, raw IPv4) and any content, including malformed frames.
#pragma once

#include <cstdint>
#include <cstdio>
#include <span>
#include <string>
#include <vector>

namespace vormelt::test {

inline constexpr std::uint32_t kLinkEthernet = 1;
inline constexpr std::uint32_t kLinkRaw = 101;  // raw IP, no link header

class PcapFileWriter {
 public:
  // `nanoseconds`: the magic that makes each record's fraction count nanoseconds.
  PcapFileWriter(const std::string& path, std::uint32_t linkType, std::uint32_t snapLength = 262144,
                 bool nanoseconds = false);
  ~PcapFileWriter();
  PcapFileWriter(const PcapFileWriter&) = delete;
  PcapFileWriter& operator=(const PcapFileWriter&) = delete;

  // Writes one packet; `fraction` is in micro- or nanoseconds by the file's magic;
  // `originalLength` 0 means the packet's own size.
  void Write(std::span<const std::uint8_t> data, std::uint32_t seconds = 1700000000,
             std::uint32_t fraction = 0, std::uint32_t originalLength = 0);

 private:
  std::FILE* file_;
};

void WritePcap(const std::string& path, std::uint32_t linkType,
               const std::vector<std::vector<std::uint8_t>>& packets);

// A fresh, empty directory under the system temp folder, removed by the destructor.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::string& path() const { return path_; }
  std::string File(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

}  // namespace vormelt::test
