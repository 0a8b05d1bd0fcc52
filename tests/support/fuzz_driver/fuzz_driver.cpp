// Runs a libFuzzer entry point over seeded pseudo-random inputs, so fuzz targets run as
// ordinary tests in builds without clang. Half the inputs are mutations (flips, cuts, inserts,
// splices) of the seed files in the corpus folder given as the second argument, so structured
// formats are reached past their first syntax check; the rest are random bytes and runs of a few
// telling values. Every input sits in an exact-size heap block so a sanitizer sees overreads.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <random>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

using Bytes = std::vector<uint8_t>;

std::vector<Bytes> LoadSeeds(const char* folder) {
  std::vector<Bytes> seeds;
  std::error_code ec;
  if (!folder || !std::filesystem::is_directory(folder, ec)) return seeds;
  for (const auto& entry : std::filesystem::directory_iterator(folder, ec)) {
    std::ifstream in(entry.path(), std::ios::binary);
    seeds.emplace_back(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }
  std::sort(seeds.begin(), seeds.end());  // directory order varies; runs must repeat exactly
  return seeds;
}

Bytes RandomInput(std::mt19937_64& rng, long i) {
  const size_t size = (i % 10 == 0) ? rng() % 4096 : rng() % 256;
  Bytes input(size);
  const bool telling = (i % 3 == 0);
  for (auto& b : input) {
    b = telling ? static_cast<uint8_t>("\x00\x01\x06\x08\x11\x45\xff"[rng() % 7])
                : static_cast<uint8_t>(rng());
  }
  return input;
}

Bytes Mutate(std::mt19937_64& rng, const std::vector<Bytes>& seeds) {
  Bytes input = seeds[rng() % seeds.size()];
  const int edits = 1 + static_cast<int>(rng() % 4);
  for (int e = 0; e < edits; ++e) {
    const size_t at = input.empty() ? 0 : rng() % input.size();
    switch (rng() % 5) {
      case 0:  // flip a byte
        if (!input.empty()) input[at] ^= static_cast<uint8_t>(1u << (rng() % 8));
        break;
      case 1:  // set a byte to a telling value
        if (!input.empty()) input[at] = static_cast<uint8_t>("\x00\xff\x7f\x80\"{}[]:,0-"[rng() % 13]);
        break;
      case 2:  // cut the tail
        input.resize(at);
        break;
      case 3:  // insert random bytes
        for (int k = static_cast<int>(rng() % 8); k > 0; --k)
          input.insert(input.begin() + static_cast<long>(std::min(at, input.size())),
                       static_cast<uint8_t>(rng()));
        break;
      default: {  // splice in a piece of another seed
        const Bytes& other = seeds[rng() % seeds.size()];
        if (other.empty()) break;
        const size_t from = rng() % other.size();
        const size_t len = std::min<size_t>(other.size() - from, 1 + rng() % 64);
        input.insert(input.begin() + static_cast<long>(std::min(at, input.size())),
                     other.begin() + static_cast<long>(from),
                     other.begin() + static_cast<long>(from + len));
      }
    }
  }
  return input;
}

void RunOne(const Bytes& input) {
  std::unique_ptr<uint8_t[]> exact(new uint8_t[input.empty() ? 1 : input.size()]);
  std::copy(input.begin(), input.end(), exact.get());
  LLVMFuzzerTestOneInput(exact.get(), input.size());
}

}  // namespace

int main(int argc, char** argv) {
  const long runs = argc > 1 ? std::strtol(argv[1], nullptr, 10) : 10000;
  const std::vector<Bytes> seeds = LoadSeeds(argc > 2 ? argv[2] : nullptr);
  std::mt19937_64 rng(0x5eed);
  for (const Bytes& seed : seeds) RunOne(seed);
  for (long i = 0; i < runs; ++i) {
    RunOne(!seeds.empty() && i % 2 == 0 ? Mutate(rng, seeds) : RandomInput(rng, i));
  }
  std::printf("%ld inputs run (%zu seeds)\n", runs, seeds.size());
  return 0;
}
