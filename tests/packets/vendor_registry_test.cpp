// The installed IEEE registry read at run time gives exactly the names the table generator
// gives for the same file (the generator's rule is the oracle), and a damaged registry file
// gives what could be read, never a crash or a wrong column.
#include "packets/vendor_registry.hpp"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <fstream>
#include <sstream>

#include "packets/names.hpp"
#include "support/process.hpp"

namespace vormelt::names {
namespace {

TEST(VendorRegistry, InstalledRegistryReadsAsTheGeneratorReadsIt) {
  const std::filesystem::path file = VendorRegistryFile();
  if (!std::filesystem::exists(file)) GTEST_SKIP() << file << " is not installed (ieee-data)";
  int status = -1;
  const std::string expected = test::ShellOutput(
      "python3 '" VORMELT_SOURCE_DIR "/scripts/generate-name-tables.py' --print-registry --oui '" +
          file.string() + "'",
      &status);
  ASSERT_EQ(status, 0);
  const auto pairs = ReadVendorRegistry(file);
  ASSERT_TRUE(pairs);
  std::istringstream lines(expected);
  std::string line;
  std::size_t row = 0, differing = 0;
  for (; std::getline(lines, line); ++row) {
    ASSERT_LT(row, pairs->size());
    char key[8];
    std::snprintf(key, sizeof key, "%06X", (*pairs)[row].oui);
    if (line != std::string(key) + "\t" + (*pairs)[row].name && ++differing <= 5) {
      ADD_FAILURE() << "row " << row << ": generator '" << line << "', program '" << key << "\t"
                    << (*pairs)[row].name << "'";
    }
  }
  EXPECT_EQ(row, pairs->size());
  EXPECT_EQ(differing, 0u);
  EXPECT_GT(row, 30000u);
}

TEST(VendorRegistry, HostileFilesAndTheFoldingRule) {
  EXPECT_EQ(RegistryStyle("  Acme\xC2\xA0 Widgets\xEF\xBC\x8C  Stra\xC3\x9F" "e\tGmbH "),
            "ACME WIDGETS, STRASSE GMBH");
  EXPECT_EQ(RegistryStyle("Tele\xC3\xA7o Se\x6E\xCC\x83or \xFF\xC3"), "TELE\xC3\x87O SE\xC3\x91OR \xEF\xBF\xBD\xEF\xBF\xBD");

  const auto folder = std::filesystem::temp_directory_path() / ("vormelt-oui-" + std::to_string(::getpid()));
  std::filesystem::create_directories(folder);
  const auto file = folder / "oui.csv";
  std::ofstream(file, std::ios::binary)
      << "Assignment,Registry,Organization Name,Organization Address\r\n"
      << "00000A,MA-L,\"Quoted, \"\"Name\"\"\",\"two\nlines\"\r\n"
      << "00000B,MA-M,Not a MA-L row,x\n"
      << "0000ZZ,MA-L,bad key,x\n"
      << "00000C,MA-L\n"
      << "00000D,MA-L,\"unterminated";
  const auto pairs = ReadVendorRegistry(file);
  ASSERT_TRUE(pairs);
  ASSERT_EQ(pairs->size(), 2u);
  EXPECT_EQ((*pairs)[0].oui, 0x00000Au);
  EXPECT_EQ((*pairs)[0].name, "QUOTED, \"NAME\"");
  EXPECT_EQ((*pairs)[1].name, "UNTERMINATED");

  std::ofstream(file, std::ios::binary) << "no header of ours\n00000A,MA-L,X\n";
  EXPECT_FALSE(ReadVendorRegistry(file));
  EXPECT_FALSE(ReadVendorRegistry(folder));  // a folder is no registry
  std::filesystem::remove_all(folder);
}

}  // namespace
}  // namespace vormelt::names
