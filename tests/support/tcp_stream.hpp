// Server-to-client TCP segments of one HTTP response, as File Mode sees them, for tests, the
// fuzz target and the benchmarks: every segment carries the same acknowledgement number.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "support/frames.hpp"

namespace vormelt::test {

struct ResponseFlow {
  std::uint32_t ack = 1000;
  std::uint32_t firstSequence = 5000;
  std::size_t segmentSize = 1000;
  Ipv4Header ip = [] {
    Ipv4Header h;
    h.source = {10, 0, 0, 80};
    return h;
  }();
  std::uint16_t serverPort = 80, clientPort = 40000;
};

// The IP packets carrying `response` cut into segments, in order.
std::vector<Bytes> ResponseSegments(std::string_view response, const ResponseFlow& flow = {});

}  // namespace vormelt::test
