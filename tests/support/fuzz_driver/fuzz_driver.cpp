// Runs a libFuzzer entry point over seeded pseudo-random inputs, so fuzz targets run as
// ordinary tests in builds without clang: every seed of the corpus folder (second argument),
// then mutations of the seeds (flips, cuts, inserts, splices) alternating with random bytes.
// Every input sits in an exact-size heap block so a sanitizer sees overreads.
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
  for (const auto& entry : std::filesystem::directory_iterator(folder ? folder : "", ec)) {
    std::ifstream in(entry.path(), std::ios::binary);
    seeds.emplace_back(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }
  std::sort(seeds.begin(), seeds.end());  // directory order varies; runs must repeat exactly
  return seeds;
}

Bytes Mutate(std::mt19937_64& rng, const std::vector<Bytes>& seeds) {
  Bytes input = seeds[rng() % seeds.size()];
  for (int edits = 1 + static_cast<int>(rng() % 4); edits > 0; --edits) {
    const size_t at = input.empty() ? 0 : rng() % input.size();
    const Bytes& other = seeds[rng() % seeds.size()];
    switch (rng() % 4) {
      case 0:  // a telling value in place of a byte
        if (!input.empty()) input[at] = static_cast<uint8_t>("\x00\xff\x7f\x80\"{}[]:,0-"[rng() % 13]);
        break;
      case 1:  // cut the tail
        input.resize(at);
        break;
      case 2:  // random bytes inserted
        for (int k = static_cast<int>(rng() % 8); k > 0; --k) input.insert(input.begin() + at, static_cast<uint8_t>(rng()));
        break;
      default:  // a piece of another seed spliced in
        if (other.empty()) break;
        const size_t from = rng() % other.size(), length = std::min<size_t>(other.size() - from, 1 + rng() % 64);
        input.insert(input.begin() + at, other.begin() + from, other.begin() + from + length);
    }
  }
  return input;
}

Bytes RandomInput(std::mt19937_64& rng, long i) {
  Bytes input((i % 10 == 0) ? rng() % 4096 : rng() % 256);
  for (auto& b : input) b = (i % 3 == 0) ? static_cast<uint8_t>("\x00\x01\x06\x08\x11\x45\xff"[rng() % 7]) : rng();
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
  for (long i = 0; i < runs; ++i) RunOne(!seeds.empty() && i % 2 == 0 ? Mutate(rng, seeds) : RandomInput(rng, i));
  std::printf("%ld inputs run (%zu seeds)\n", runs, seeds.size());
  return 0;
}
