// Runs a libFuzzer entry point over seeded pseudo-random inputs, so fuzz targets run as
// ordinary tests in builds without clang. Inputs vary in length from 0 to 4 KiB and mix
// random bytes with runs of a few repeated values, which reach more branches than noise alone.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <algorithm>
#include <random>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv) {
  const long runs = argc > 1 ? std::strtol(argv[1], nullptr, 10) : 10000;
  std::mt19937_64 rng(0x5eed);
  std::vector<uint8_t> input;
  for (long i = 0; i < runs; ++i) {
    const size_t size = (i % 10 == 0) ? rng() % 4096 : rng() % 256;
    input.assign(size, 0);
    const bool runs_of_values = (i % 3 == 0);
    for (size_t k = 0; k < size; ++k) {
      input[k] = runs_of_values ? static_cast<uint8_t>("\x00\x01\x06\x08\x11\x45\xff"[rng() % 7])
                                : static_cast<uint8_t>(rng());
    }
    // Exact-size heap copy so AddressSanitizer sees reads past the end.
    std::unique_ptr<uint8_t[]> exact(new uint8_t[size ? size : 1]);
    std::copy(input.begin(), input.end(), exact.get());
    LLVMFuzzerTestOneInput(exact.get(), size);
  }
  std::printf("%ld inputs run\n", runs);
  return 0;
}
