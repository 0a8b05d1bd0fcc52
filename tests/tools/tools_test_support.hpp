// Shared by the tools tests: seeded random data, byte views of strings, and the openssl
// command-line tool as an independent oracle for MD5 and Base64 (tests call OpensslAvailable()
// first and skip with a reason when it is missing).
#pragma once

#include <cstdint>
#include <optional>
#include <random>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "support/process.hpp"

namespace vormelt::test {

inline std::span<const std::uint8_t> Bytes(std::string_view s) {
  return {reinterpret_cast<const std::uint8_t*>(s.data()), s.size()};
}

inline std::vector<std::uint8_t> RandomBytes(std::size_t size, std::uint64_t seed) {
  std::mt19937_64 rng(seed);
  std::vector<std::uint8_t> data(size);
  for (auto& byte : data) byte = static_cast<std::uint8_t>(rng());
  return data;
}

inline bool OpensslAvailable() { return ToolAvailable("openssl"); }

// What `openssl ARGS` prints for `data` on its input, or nothing when it failed.
inline std::optional<std::string> Openssl(const std::string& args, std::span<const std::uint8_t> data) {
  const ProcessRun run = RunProgram({"/bin/sh", "-c", "openssl " + args},
                                    {reinterpret_cast<const char*>(data.data()), data.size()});
  if (run.status != 0) return std::nullopt;
  return run.out;
}

}  // namespace vormelt::test
