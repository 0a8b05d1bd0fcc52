// Fuzz target for the packet filter test: the leading bytes build a filter (ranges, ports,
// sizes, protocol flags, text patterns), the rest is a frame laid out as the store keeps it.
// Beyond not crashing, the reduced headers-only test must keep every frame the full test keeps.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <string>
#include <vector>

#include "filters/filter_settings.hpp"
#include "packets/record.hpp"
#include "support/fuzz_input.hpp"

using namespace vormelt;

namespace {

using vormelt::test::ByteReader;

FilterValues BuildValues(ByteReader& in) {
  FilterValues v;
  const std::uint8_t flags = in.Byte();
  v.allowTcp = flags & 1;
  v.allowUdp = flags & 2;
  v.allowIcmp = flags & 4;
  v.allowOther = flags & 8;
  v.allowArp = flags & 16;
  v.minPacketSize = in.Byte();
  v.maxPacketSize = in.Word() % 2048;
  for (int k = 0; k < kRangeKindCount; ++k) {
    for (int n = in.Byte() % 3; n > 0; --n) {
      const std::uint32_t a = in.Address(), b = in.Address();
      v.Ranges(static_cast<RangeKind>(k)).push_back(a <= b ? IpRange{a, b} : IpRange{b, a});
    }
  }
  for (int k = 0; k < kPortKindCount; ++k) {
    for (int n = in.Byte() % 3; n > 0; --n) v.Ports(static_cast<PortKind>(k)).push_back(in.Word());
  }
  for (auto* list : {&v.mustContain, &v.mustNotContain}) {
    for (int n = in.Byte() % 3; n > 0; --n) {
      std::string pattern;
      for (int length = in.Byte() % 9; length > 0; --length) pattern += static_cast<char>(in.Byte());
      list->push_back(pattern);
    }
  }
  return v;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  ByteReader in(data, size);
  const bool matchCase = in.Byte() & 1;
  FilterSettings filter;
  filter.SetAll(BuildValues(in));

  const std::span<const std::uint8_t> frame = in.Rest();
  const RecordBuffer record(frame, InterfaceKind::PacketDriver);
  const PacketRef ref = record.ref();
  const bool full = filter.PassesFilters(ref.frame, ref.frameLength, matchCase, false);
  const bool headers = filter.PassesFilters(ref.frame, ref.frameLength, matchCase, true);
  if (full && !headers) std::abort();
  return 0;
}
