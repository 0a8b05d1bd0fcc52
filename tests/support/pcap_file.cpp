#include "support/pcap_file.hpp"

#include <cstdlib>
#include <filesystem>
#include <stdexcept>

namespace vormelt::test {

PcapFileWriter::PcapFileWriter(const std::string& path, std::uint32_t linkType,
                               std::uint32_t snapLength, bool nanoseconds)
    : file_(std::fopen(path.c_str(), "wb")) {
  if (!file_) throw std::runtime_error("cannot create " + path);
  const std::uint32_t magic = nanoseconds ? 0xa1b23c4d : 0xa1b2c3d4;
  const std::uint32_t header[6] = {magic, 0x00040002, 0, 0, snapLength, linkType};
  std::fwrite(header, sizeof header, 1, file_);
}

PcapFileWriter::~PcapFileWriter() { std::fclose(file_); }

void PcapFileWriter::Write(std::span<const std::uint8_t> data, std::uint32_t seconds,
                           std::uint32_t fraction, std::uint32_t originalLength) {
  const std::uint32_t size = static_cast<std::uint32_t>(data.size());
  const std::uint32_t record[4] = {seconds, fraction, size,
                                   originalLength ? originalLength : size};
  std::fwrite(record, sizeof record, 1, file_);
  if (size) std::fwrite(data.data(), 1, size, file_);
}

void WritePcap(const std::string& path, std::uint32_t linkType,
               const std::vector<std::vector<std::uint8_t>>& packets) {
  PcapFileWriter writer(path, linkType);
  std::uint32_t usec = 0;
  for (const auto& p : packets) writer.Write(p, 1700000000, usec++);
}

TempDir::TempDir() {
  std::string pattern = (std::filesystem::temp_directory_path() / "vormelt-test-XXXXXX").string();
  if (!mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp failed");
  path_ = pattern;
}

TempDir::~TempDir() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

}  // namespace vormelt::test
