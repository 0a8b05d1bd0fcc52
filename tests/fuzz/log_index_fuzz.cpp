// Fuzz target for the log index reader of the pruner: the input is an index file in a folder of
// its own beside a file that must survive. Whatever the index holds, the pruner may delete only
// regular files in that folder, and it ends with the index gone or holding a tail of itself
// behind a stamp it read.
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "packetmode/log_index.hpp"

using namespace vormelt;

namespace {

namespace fs = std::filesystem;

const fs::path& Root() {
  static const fs::path root = [] {
    std::string pattern = (fs::temp_directory_path() / "vormelt-log-index-fuzz-XXXXXX").string();
    if (!::mkdtemp(pattern.data())) std::abort();
    return fs::path(pattern);
  }();
  return root;
}

std::string ReadAll(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const fs::path folder = Root() / "logs";
  const fs::path outside = Root() / "outside.txt";
  fs::create_directories(folder);
  std::ofstream(outside) << "keep";
  // The working folder is the fuzzer's (its corpus and artifacts): relative paths in the index
  // name files there, which the pruner must leave alone as it does any path outside the folder.
  const std::string input(reinterpret_cast<const char*>(data), size);
  // The first byte picks the age; the index is the rest.
  const std::int64_t maxAge = size > 0 ? data[0] * 1000 : 0;
  const std::string index = size > 0 ? input.substr(1) : input;
  std::ofstream(LogIndexPath(folder.string()), std::ios::binary) << index;
  PruneLogFiles(folder.string(), maxAge, CaptureTime(std::chrono::seconds(1'800'000'000)));
  if (!fs::exists(outside)) std::abort();
  if (fs::exists(LogIndexPath(folder.string()))) {
    const std::string after = ReadAll(LogIndexPath(folder.string()));
    // Kept: the index as it was, or CR LF, a stamp and a tail of the index.
    if (after != index && (after.size() < 2 + kLogStampLength || after.compare(0, 2, "\r\n") != 0 ||
                           !index.ends_with(after.substr(2 + kLogStampLength)))) {
      std::abort();
    }
  }
  for (const auto& entry : fs::directory_iterator(folder)) {
    if (entry.path().filename().string().ends_with(".part")) std::abort();
  }
  return 0;
}
