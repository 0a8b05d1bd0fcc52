// Filter profiles (".HBFP"): a filter's lists and scalars plus the setup window's state, kept
// as versioned JSON. Loading never throws and never changes the file it reads; a profile that
// does not parse is reported, and the caller keeps what it had.
#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "common/settings.hpp"
#include "common/texts.hpp"
#include "filters/filter_settings.hpp"

namespace vormelt {

// Which mode's filter a window edits: Packet Mode filters packets, File Mode filters files.
enum class FilterMode { Packet, File };

inline constexpr int kFilterProfileVersion = 1;
inline constexpr std::string_view kFilterProfileExtension = ".HBFP";

// What the setup window shows besides the lists: which range kind is selected (-1 none), the
// texts standing in its edit fields, and where it was on screen.
struct FilterWindowState {
  int selectedRangeKind = 0;  // a RangeKind value, or -1 when no radio button is chosen
  std::string fromText;
  std::string toText;
  std::string resolverText;
  std::string mustContainEntry;
  std::string mustNotContainEntry;
  std::string extensionAllowedEntry;
  std::string extensionDeniedEntry;
  WindowState geometry;

  friend bool operator==(const FilterWindowState&, const FilterWindowState&) = default;
};

struct FilterProfile {
  FilterValues values;
  FilterWindowState window;

  friend bool operator==(const FilterProfile&, const FilterProfile&) = default;
};

enum class ProfileProblem {
  None,
  Missing,     // no such file (not a problem for the current profile: defaults apply)
  Unreadable,  // the file exists but cannot be read
  NotJson,     // the bytes are not JSON
  Invalid,     // JSON, but not a filter profile: detail names the field
  TooNew,      // written by a newer program version
  WriteFailed  // saving failed: detail holds the system's reason
};

struct ProfileResult {
  std::optional<FilterProfile> profile;  // set on a successful load
  ProfileProblem problem = ProfileProblem::None;
  std::string detail;  // technical detail (field name, parser message), may be empty

  bool ok() const { return problem == ProfileProblem::None; }
};

// JSON text of a profile, and its parse. Parsing accepts exactly what Serialize writes plus
// missing fields (which keep their defaults); anything of the wrong type is Invalid.
std::string SerializeFilterProfile(const FilterProfile& profile);
ProfileResult ParseFilterProfile(std::string_view json);

ProfileResult LoadFilterProfile(const std::filesystem::path& file);
// Writes through a temporary file and a rename, so a failed save leaves the old file whole.
ProfileResult SaveFilterProfile(const FilterProfile& profile, const std::filesystem::path& file);

// ConfigDirectory()/CurrentPacketModeFilterProfile.HBFP or .../CurrentFileModeFilterProfile.HBFP
std::filesystem::path CurrentProfilePath(FilterMode mode);

// What OK and Apply do with the lists and scalars: every one goes to its setter.
void ApplyProfile(const FilterProfile& profile, FilterSettings& settings);
// The profile of what `settings` holds now, with the given window state.
FilterProfile ProfileFromSettings(const FilterSettings& settings, FilterWindowState window = {});

// Start-up of a mode window: loads the mode's current profile and applies it. A missing file
// is silent. A profile that does not parse is copied aside as "<name>.bad", the filter keeps
// its defaults, and the returned text (in `language`) says so; empty when all went well.
std::string LoadCurrentProfileInto(FilterMode mode, FilterSettings& settings,
                                   UiLanguage language);

// A one-line message for a failed load or save of `file`, in `language`.
std::string DescribeProfileProblem(const ProfileResult& result,
                                   const std::filesystem::path& file, UiLanguage language);

}  // namespace vormelt
