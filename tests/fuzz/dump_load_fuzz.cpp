// Fuzz target for the packet dump file loader: the input's first byte picks the declared data
// form, the rest is the file. Whatever it holds, every frame handed on fits the frame limit and
// the loader says where it stopped within the input.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>

#include "packetmode/dump_file.hpp"

using namespace vormelt;

namespace {

class CheckingSink final : public FrameSink {
 public:
  SinkVerdict Take(const FrameRecord& frame) override {
    if (frame.bytes.size() > kMaxFrameLength) std::abort();
    // Now and then decline one, as a filter would, and fill up at the tenth, so that the
    // declining and the counting of what is not taken are walked too.
    if (++taken == 10) return SinkVerdict::ItemLimitReached;
    return taken % 3 == 0 ? SinkVerdict::Skipped : SinkVerdict::Stored;
  }
  std::size_t taken = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  constexpr DataForm kForms[] = {DataForm::Text, DataForm::Dec, DataForm::Hex, DataForm::HexText};
  DumpLoadOptions options;
  options.form = kForms[data[0] % 4];
  const std::span<const std::uint8_t> file(data + 1, size - 1);
  CheckingSink sink;
  const DumpLoadResult result = LoadDumpBytes(file, sink, options);
  if (result.offset > file.size()) std::abort();
  return 0;
}
