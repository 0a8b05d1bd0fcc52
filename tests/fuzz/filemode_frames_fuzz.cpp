// Fuzz target for File Mode from whole frames, as the receive loop hands them over: any
// Ethernet frame (any EtherType, IP header length, options, lengths that lie) goes through
// FileModeEngine::Take on the file clock, and Finish rebuilds and writes what it gathered.
// Input: one byte of options, then frames, each a 2-byte big-endian length and its bytes.
// Beyond not crashing or reading out of bounds: every file lands inside the folder, is as long
// as reported (when no later one may replace it), and no part file is left behind.
#include <stdlib.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <span>
#include <string>

#include "common/frame_sink.hpp"
#include "filemode/engine.hpp"

using namespace vormelt;
using namespace vormelt::filemode;

namespace {

namespace fs = std::filesystem;

void Check(bool condition) {
  if (!condition) std::abort();
}

// On /dev/shm where there is one: every file is flushed before its rename, which on a disk
// would make the run crawl. Made once and left for the atexit hook, which runs after ordinary
// statics are gone.
const fs::path& Folder() {
  static const fs::path* folder = [] {
    const fs::path base = fs::is_directory("/dev/shm") ? fs::path("/dev/shm") : fs::temp_directory_path();
    std::string path = (base / "vormelt-fmfuzz-XXXXXX").string();
    Check(::mkdtemp(path.data()) != nullptr);
    auto* made = new fs::path(path);
    std::atexit([] {
      std::error_code ignored;
      fs::remove_all(Folder(), ignored);
    });
    return made;
  }();
  return *folder;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static FileModeEngine engine;
  static FrameBuffer buffer;
  if (size == 0) return 0;
  const std::uint8_t flags = data[0];
  FileModeOptions options;
  options.dirty = flags & 1;
  options.pshOnly = flags & 2;
  options.latestDuplicates = flags & 4;
  options.acceptPartial = flags & 8;
  options.onlyHttp = !(flags & 16);
  options.ackTimeoutMs = flags & 32 ? 0 : 1000;
  options.naming.folder = Folder().string();
  options.naming.nameTemplate = std::string(1, 'f');  // not = "f": a GCC 12 -Wrestrict false alarm
  options.naming.overwrite = flags & 64;
  options.naming.createSubfolders = flags & 128;
  options.naming.levels = {SubfolderChoice::Extension, SubfolderChoice::Source, SubfolderChoice::None};
  engine.Start(options, StreamClock::File, {});

  std::size_t at = 1;
  std::int64_t ms = 1'700'000'000'000;
  while (at + 2 <= size) {
    const std::size_t length = std::min<std::size_t>((data[at] << 8) | data[at + 1], size - at - 2);
    at += 2;
    const FrameRecord frame = buffer.Fill(std::span(data + at, length), InterfaceKind::RawSockets,
                                          CaptureTime(std::chrono::milliseconds(ms += 7)));
    engine.Take(frame);
    at += length;
  }
  engine.Finish();

  const std::string inside = Folder().string() + "/";
  for (const WrittenFile& file : engine.DrainWritten()) {
    Check(file.path.rfind(inside, 0) == 0 && file.path.find("/../") == std::string::npos);
    // Over-writing lets a later file of the same name replace an earlier one.
    if (file.written() && !options.naming.overwrite) Check(fs::file_size(file.path) == file.size);
  }
  engine.Messages().Drain();
  for (const auto& entry : fs::recursive_directory_iterator(Folder())) {
    Check(entry.path().extension() != ".part");
  }
  for (const auto& entry : fs::directory_iterator(Folder())) fs::remove_all(entry.path());
  return 0;
}
