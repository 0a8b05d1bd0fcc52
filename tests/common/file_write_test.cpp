// Writing beside and renaming: a full disk or a taken name never leaves a half file or a part
// file behind, and never touches what was there before.
#include "common/file_write.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <fstream>
#include <string>
#include <vector>

#include "capture/capture_writer.hpp"
#include "support/small_disk.hpp"

namespace vormelt {
namespace {

std::string Slurp(const std::filesystem::path& file) {
  std::ifstream in(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

TEST(FileBeside, FullDiskKeepsTheOldFileAndLeavesNoPart) {
  test::SmallDisk disk(64 * 1024);
  VORMELT_REQUIRE_SMALL_DISK(disk);
  const auto target = disk.path() / "dump.txt";
  std::ofstream(target) << "old";
  int error = 0;
  FileBeside file = FileBeside::Create(target, error);
  ASSERT_TRUE(file) << ErrnoText(error);
  const WriteOutcome outcome = file.Write(std::string(200 * 1024, 'x'));
  EXPECT_EQ(outcome.error, ENOSPC);
  EXPECT_LT(outcome.written, 200u * 1024);
  EXPECT_EQ(file.Write("more").written, 0u);  // the first failure sticks
  EXPECT_EQ(file.Commit(), ENOSPC);
  EXPECT_EQ(Slurp(target), "old");
  EXPECT_FALSE(std::filesystem::exists(disk.path() / ".dump.txt.part"));
}

// A chunked body goes out as thousands of pieces, empty ones among them: more than one system
// call takes. On a full disk the count said is what the file holds.
TEST(FileBeside, PiecesArriveInOrderAndAShortWriteIsCountedExactly) {
  std::string text, whole;
  for (int i = 0; i < 64; ++i) text += char('a' + i % 26);
  std::vector<std::span<const std::uint8_t>> pieces;
  for (std::size_t i = 0; i < 120'000; ++i) {
    pieces.push_back({reinterpret_cast<const std::uint8_t*>(text.data()) + i % 26, i % 7 * 5});
    if (whole.size() < 2'000'000) whole += text.substr(i % 26, i % 7 * 5);
  }
  test::SmallDisk disk(1024 * 1024);
  VORMELT_REQUIRE_SMALL_DISK(disk);
  int error = 0;
  FileBeside file = FileBeside::Create(disk.path() / "body.bin", error);
  const WriteOutcome outcome = file.Write(pieces);
  EXPECT_EQ(outcome.error, ENOSPC);
  struct stat status {};
  ASSERT_EQ(::fstat(file.fd(), &status), 0);
  EXPECT_EQ(outcome.written, static_cast<std::uint64_t>(status.st_size));
  EXPECT_EQ(Slurp(disk.path() / ".body.bin.part"), whole.substr(0, outcome.written));
}

TEST(FileBeside, WithoutReplaceATakenNameStaysAndTheNewBytesGo) {
  const auto folder = std::filesystem::temp_directory_path() / ("vormelt-beside-" + std::to_string(::getpid()));
  std::filesystem::create_directories(folder);
  std::ofstream(folder / "a.bin") << "first";
  int error = 0;
  FileBeside file = FileBeside::Create(folder / "a.bin", error);
  ASSERT_TRUE(file);
  ASSERT_TRUE(file.Write("second").ok());
  EXPECT_EQ(file.Commit(/*replace=*/false), EEXIST);
  EXPECT_EQ(Slurp(folder / "a.bin"), "first");
  EXPECT_FALSE(std::filesystem::exists(folder / ".a.bin.part"));

  FileBeside other = FileBeside::Create(folder / "b.bin", error);
  ASSERT_TRUE(other.Write("whole").ok());
  EXPECT_EQ(other.Commit(false), 0);
  EXPECT_EQ(Slurp(folder / "b.bin"), "whole");
  std::filesystem::remove_all(folder);
}

// A capture file written over an old one (--write, the window's export) on a full disk: the
// failure is said and the old file stays as it was.
TEST(FileBeside, ACaptureFileThatDoesNotFitLeavesTheOldOne) {
  test::SmallDisk disk(64 * 1024);
  VORMELT_REQUIRE_SMALL_DISK(disk);
  const auto target = disk.path() / "out.pcapng";
  std::ofstream(target) << "old";
  CaptureFileWriter writer;
  ASSERT_TRUE(writer.Open(target.string())) << writer.Error();
  FrameBuffer buffer;
  const std::vector<std::uint8_t> bytes(1500, 0x45);
  bool written = true;
  for (int i = 0; i < 200 && written; ++i) {
    written = writer.Write(buffer.Fill(bytes, InterfaceKind::PacketDriver, CaptureTime{}));
  }
  written = written && writer.Close();
  EXPECT_FALSE(written);
  EXPECT_NE(writer.Error().find("No space left on device"), std::string::npos) << writer.Error();
  EXPECT_EQ(Slurp(target), "old");
  EXPECT_FALSE(std::filesystem::exists(disk.path() / ".out.pcapng.part"));
}

}  // namespace
}  // namespace vormelt
