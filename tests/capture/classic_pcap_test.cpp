// The block-reading pcap reader against libpcap itself: over files of a few megabytes (records
// cut by block boundaries everywhere), in both byte orders and both time resolutions, whole
// and cut off mid-record, it must hand out the same frames, lengths and times, with the spare
// bytes zeroed behind every frame, and stop where libpcap stops.
#include <gtest/gtest.h>
#include <pcap/pcap.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <vector>

#include "capture/classic_pcap.hpp"
#include "support/pcap_file.hpp"

namespace vormelt {
namespace {

struct Frame {
  std::vector<std::uint8_t> bytes;
  std::uint32_t wireLength = 0;
  std::int64_t nanoseconds = 0;
  bool operator==(const Frame&) const = default;
};

void Put32(std::vector<std::uint8_t>& out, std::uint32_t value, bool swapped) {
  if (swapped) value = __builtin_bswap32(value);
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(&value);
  out.insert(out.end(), bytes, bytes + 4);
}

// A classic pcap file of Ethernet records with random sizes (some past the largest frame the
// program keeps), contents and times.
std::vector<std::uint8_t> RandomFile(std::mt19937& random, bool swapped, bool nanoseconds) {
  std::vector<std::uint8_t> file;
  Put32(file, nanoseconds ? 0xa1b23c4d : 0xa1b2c3d4, swapped);
  const std::uint16_t version[2] = {swapped ? std::uint16_t{0x0200} : std::uint16_t{2},
                                    swapped ? std::uint16_t{0x0400} : std::uint16_t{4}};
  file.insert(file.end(), reinterpret_cast<const std::uint8_t*>(version),
              reinterpret_cast<const std::uint8_t*>(version) + 4);
  Put32(file, 0, swapped);
  Put32(file, 0, swapped);
  Put32(file, 262144, swapped);
  Put32(file, 1, swapped);
  std::uniform_int_distribution<int> byte(0, 255);
  while (file.size() < (3u << 20)) {
    const int pick = byte(random);
    const std::uint32_t size = pick < 8 ? pick : pick < 250 ? pick * 6 : 60000 + pick * 40;
    Put32(file, 1700000000u + pick, swapped);
    Put32(file, static_cast<std::uint32_t>(pick) * (nanoseconds ? 3'000'001u : 3001u), swapped);
    Put32(file, size, swapped);
    Put32(file, size + (pick % 3) * 100, swapped);
    for (std::uint32_t i = 0; i < size; ++i) file.push_back(static_cast<std::uint8_t>(byte(random)));
  }
  return file;
}

void Save(const std::string& path, std::span<const std::uint8_t> bytes) {
  std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()),
                                              static_cast<std::streamsize>(bytes.size()));
}

// libpcap's reading, cut to the frame length the program keeps. True when it ended cleanly.
bool ReadWithLibpcap(const std::string& path, std::vector<Frame>& frames) {
  char error[PCAP_ERRBUF_SIZE];
  pcap_t* handle = pcap_open_offline_with_tstamp_precision(path.c_str(), PCAP_TSTAMP_PRECISION_NANO, error);
  if (!handle) return false;
  pcap_pkthdr* header = nullptr;
  const u_char* data = nullptr;
  int status = 0;
  while ((status = pcap_next_ex(handle, &header, &data)) == 1) {
    const std::uint32_t kept = std::min<std::uint32_t>(header->caplen, kMaxFrameLength);
    frames.push_back({{data, data + kept}, std::max(header->len, kept),
                      std::int64_t{header->ts.tv_sec} * 1'000'000'000 + header->ts.tv_usec});
  }
  pcap_close(handle);
  return status == PCAP_ERROR_BREAK;
}

bool ReadWithOurs(const std::string& path, std::vector<Frame>& frames, bool& spareZeroed) {
  std::unique_ptr<CaptureSource> source = OpenClassicPcap(path);
  if (!source) return false;
  FrameRecord record;
  ReadResult result;
  while ((result = source->Next(record)) == ReadResult::Frame) {
    EXPECT_EQ(record.kind, InterfaceKind::PacketDriver);
    const std::uint8_t* spare = record.bytes.data() + record.bytes.size();
    spareZeroed = spareZeroed && std::all_of(spare, spare + kFrameSpareBytes, [](auto b) { return b == 0; });
    frames.push_back({{record.bytes.begin(), record.bytes.end()}, record.wireLength,
                      record.time.time_since_epoch().count()});
  }
  return result == ReadResult::End;
}

TEST(ClassicPcapReader, MatchesLibpcapAcrossBlocksByteOrdersResolutionsAndCuts) {
  test::TempDir dir;
  std::mt19937 random(7);
  for (const bool swapped : {false, true}) {
    for (const bool nanoseconds : {false, true}) {
      SCOPED_TRACE(testing::Message() << "swapped " << swapped << " nanoseconds " << nanoseconds);
      const std::vector<std::uint8_t> file = RandomFile(random, swapped, nanoseconds);
      for (const std::size_t size : {file.size(), file.size() - 1000, file.size() / 2 + 5, std::size_t{30}}) {
        const std::string path = dir.File("f.pcap");
        Save(path, std::span(file).first(size));
        std::vector<Frame> expected, got;
        bool spareZeroed = true;
        const bool libpcapClean = ReadWithLibpcap(path, expected);
        const bool oursClean = ReadWithOurs(path, got, spareZeroed);
        EXPECT_EQ(oursClean, libpcapClean) << size;
        ASSERT_EQ(got.size(), expected.size()) << size;
        EXPECT_TRUE(got == expected) << size;
        EXPECT_TRUE(spareZeroed);
      }
    }
  }
}

TEST(ClassicPcapReader, LeavesOtherFormatsToLibpcap) {
  test::TempDir dir;
  test::WritePcap(dir.File("raw.pcap"), test::kLinkRaw, {{0x45, 0, 0, 20}});
  std::ofstream(dir.File("text.pcap")) << "not a capture";
  EXPECT_EQ(OpenClassicPcap(dir.File("raw.pcap")), nullptr);
  EXPECT_EQ(OpenClassicPcap(dir.File("text.pcap")), nullptr);
  EXPECT_EQ(OpenClassicPcap(dir.File("missing.pcap")), nullptr);
  EXPECT_EQ(OpenClassicPcap(dir.path()), nullptr);
}

}  // namespace
}  // namespace vormelt
