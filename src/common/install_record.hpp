// The install record (install.json beside settings.json): which program file was installed, and
// the pure decision start-up takes from it. Value names carry the version, as they always have.
// Never decides from anything but its arguments; only Load/Save/Remove touch files.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "common/settings_store.hpp"
#include "common/texts.hpp"

namespace vormelt {

inline constexpr std::string_view kProductName = "Hollowbright VORMELT";
inline constexpr std::string_view kProgramVersion = "2.2";
inline constexpr std::uintmax_t kMaxInstallRecordBytes = 1024 * 1024;

struct InstallRecord {
  std::string installedPath;  // value "2.2EXENameAndPath": the installed program file
  std::string version;        // value "2.2"

  friend bool operator==(const InstallRecord&, const InstallRecord&) = default;
};

// "2.2EXENameAndPath" and "2.2": the two value names of this version's record.
std::string InstalledPathValueName();
std::string VersionValueName();

struct InstallRecordLoad : LoadProblem {
  std::optional<InstallRecord> record;  // absent when there is no file or it was unusable
};

// ConfigDirectory()/install.json.
std::filesystem::path DefaultInstallRecordFile();
// A damaged record is kept aside as install.json.bad and treated as absent. Values of the wrong
// type read as empty; unknown keys are ignored.
InstallRecordLoad LoadInstallRecord(const std::filesystem::path& file);
bool SaveInstallRecord(const InstallRecord& record, const std::filesystem::path& file,
                       std::string* error);
// What installing writes on this system: the program file and this version.
InstallRecord MakeInstallRecord(std::string_view programPath);
// Uninstalling: removes install.json and settings.json from `directory`. Files already gone
// are fine; anything else that fails is described in `error`.
bool RemoveInstallation(const std::filesystem::path& directory, std::string* error);

enum class InstallAction {
  Proceed,       // the installed program is this one
  RunInstaller,  // no record, or no installed path in it
  Ask,           // another copy is installed: ask `question` with Yes/No/Cancel
};

struct InstallDecision {
  InstallAction action = InstallAction::Proceed;
  // AskReinstall (product, version) when the record names a version, else AskInstallVersion
  // (version, product). Meaningful only for Ask.
  Text question = Text::AskReinstall;
};

// Paths are compared without regard to ASCII case, as the record always has been.
InstallDecision DecideInstall(const std::optional<InstallRecord>& record,
                              std::string_view runningProgram);

}  // namespace vormelt
