// Feeds arbitrary bytes to the capture file reader as a file: whatever a damaged or hostile
// capture holds, reading it must end cleanly or with a failure, never read past a record, and
// agree with libpcap frame for frame on every classic pcap it takes on.
#include <pcap/pcap.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "capture/classic_pcap.hpp"
#include "capture/source.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const int fd = memfd_create("capture", 0);
  if (fd < 0 || ftruncate(fd, 0) != 0 || pwrite(fd, data, size, 0) != static_cast<ssize_t>(size)) return 0;
  const std::string path = "/proc/self/fd/" + std::to_string(fd);

  std::vector<std::vector<std::uint8_t>> ours;
  if (std::unique_ptr<vormelt::CaptureSource> source = vormelt::OpenClassicPcap(path)) {
    vormelt::FrameRecord record;
    while (source->Next(record) == vormelt::ReadResult::Frame) {
      const std::uint8_t* spare = record.bytes.data() + record.bytes.size();
      if (!std::all_of(spare, spare + vormelt::kFrameSpareBytes, [](auto b) { return b == 0; })) std::abort();
      ours.emplace_back(record.bytes.begin(), record.bytes.end());
    }
    char error[PCAP_ERRBUF_SIZE];
    pcap_t* handle = pcap_open_offline(path.c_str(), error);
    if (!handle) std::abort();  // libpcap refuses what we took on
    pcap_pkthdr* header = nullptr;
    const u_char* bytes = nullptr;
    std::size_t index = 0;
    while (pcap_next_ex(handle, &header, &bytes) == 1) {
      const std::size_t kept = std::min<std::size_t>(header->caplen, vormelt::kMaxFrameLength);
      if (index >= ours.size() || !std::equal(bytes, bytes + kept, ours[index].begin(), ours[index].end())) {
        std::abort();
      }
      ++index;
    }
    pcap_close(handle);
    if (index != ours.size()) std::abort();
  }
  // Whatever the format, the general path must survive it too.
  auto opened = vormelt::OpenSource(vormelt::CaptureTarget::File(path));
  if (auto* source = std::get_if<std::unique_ptr<vormelt::CaptureSource>>(&opened)) {
    vormelt::FrameRecord record;
    for (int i = 0; i < 100000; ++i) {
      const vormelt::ReadResult result = (*source)->Next(record);
      if (result == vormelt::ReadResult::End || result == vormelt::ReadResult::Failed) break;
    }
  }
  return 0;
}
