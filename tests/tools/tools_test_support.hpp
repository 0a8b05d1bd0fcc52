// Shared by the tools tests: seeded random data, byte views of strings, and the openssl
// command-line tool as an independent oracle for MD5 and Base64 (tests call OpensslAvailable()
// first and skip with a reason when it is missing).
#pragma once

#include <cstdint>
#include <cstdio>
#include <fstream>
#include <optional>
#include <random>
#include <span>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "support/process.hpp"
#include "support/pcap_file.hpp"

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

// Everything `command` prints on standard output, or nothing when it could not run or failed.
inline std::optional<std::string> CommandOutput(const std::string& command) {
  int status = 0;
  std::string output = ShellOutput(command, &status);
  if (status != 0) return std::nullopt;
  return output;
}

// `openssl ARGS -in FILE` over `data`, through a temporary file.
inline std::optional<std::string> Openssl(const std::string& args, std::span<const std::uint8_t> data) {
  const TempDir dir;
  const std::string path = dir.File("input");
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char*>(data.data()), static_cast<std::streamsize>(data.size()));
  return CommandOutput("openssl " + args + " -in '" + path + "'");
}

// The 32 hex digits of `openssl md5` for each message, in order, from one run of openssl
// (starting it costs far more than hashing a few megabytes).
inline std::optional<std::vector<std::string>> OpensslMd5s(
    const std::vector<std::vector<std::uint8_t>>& messages) {
  const TempDir dir;
  std::string command = "openssl md5 -r";
  for (std::size_t i = 0; i < messages.size(); ++i) {
    const std::string path = dir.File(std::to_string(i));
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(messages[i].data()), static_cast<std::streamsize>(messages[i].size()));
    command += " '" + path + "'";
  }
  const auto lines = CommandOutput(command);  // "<digits> *<path>\n" per file
  if (!lines) return std::nullopt;
  std::vector<std::string> digests;
  std::istringstream stream(*lines);
  for (std::string line; std::getline(stream, line);) digests.push_back(line.substr(0, 32));
  if (digests.size() != messages.size()) return std::nullopt;
  return digests;
}

}  // namespace vormelt::test
