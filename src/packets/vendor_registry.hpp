// The IEEE MA-L vendor registry as the distribution installs it (ieee-data's oui.csv), read at
// run time so that vendor names follow the system's registry. Names are brought to the
// registry's old style (one line, single blanks, upper case), the same rule the table
// generator applies. No Qt; a damaged file gives what could be read, never a crash.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vormelt::names {

// Where the registry is looked for: $VORMELT_IEEE_DATA/oui.csv when set, else ieee-data's.
std::filesystem::path VendorRegistryFile();

struct VendorPair {
  std::uint32_t oui = 0;
  std::string name;
};

// The MA-L rows of the registry file in the file's order; nullopt when the file is missing,
// unreadable, larger than any registry, or has no header naming the needed columns. Rows
// whose assignment is not six hex digits are skipped.
std::optional<std::vector<VendorPair>> ReadVendorRegistry(const std::filesystem::path& file);

// One line, runs of blanks folded to one, compatibility forms folded (full-width letters,
// no-break spaces), upper case.
std::string RegistryStyle(std::string_view utf8);

}  // namespace vormelt::names
