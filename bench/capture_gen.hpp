// What the capture generators of the benchmarks share: a generator of the same numbers on every
// machine, and the loop that writes COUNT frames with rising time stamps into a pcap file.
#pragma once

#include <cstdint>
#include <string>

#include "support/pcap_file.hpp"

namespace vormelt::bench {

// A small linear congruential generator: the same file on every machine.
struct Random {
  std::uint32_t state;
  std::uint32_t Next() { return state = state * 1664525u + 1013904223u; }
  std::uint32_t Below(std::uint32_t limit) { return (Next() >> 8) % limit; }
};

// Writes `count` Ethernet frames made by `frame(random)`, each `minGap` plus up to `gapRange`
// microseconds after the one before, starting at 2023-11-14 22:13:20 UTC.
template <typename MakeFrame>
void WriteCapture(const std::string& path, long count, Random& random, std::uint32_t minGap,
                  std::uint32_t gapRange, MakeFrame frame) {
  test::PcapFileWriter writer(path, test::kLinkEthernet, 65535);
  std::uint32_t seconds = 1'700'000'000, microseconds = 0;
  for (long i = 0; i < count; ++i) {
    microseconds += minGap + random.Below(gapRange);
    if (microseconds >= 1'000'000) {
      microseconds -= 1'000'000;
      ++seconds;
    }
    writer.Write(frame(random), seconds, microseconds);
  }
}

}  // namespace vormelt::bench
