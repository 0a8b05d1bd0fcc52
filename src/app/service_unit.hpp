// Creating and deleting the service: the hardened systemd unit hbvormelt.service, written to the
// system unit folder (or another folder, for tests and packaging) and, in the system folder,
// reloaded, enabled and started through systemctl. Results are the service manager's error
// names the installer has always shown ("SUCCESS", "ERROR_SERVICE_EXISTS", ...).
#pragma once

#include <filesystem>
#include <iosfwd>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "common/settings.hpp"
#include "common/texts.hpp"

namespace vormelt {

inline constexpr std::string_view kServiceUnitName = "hbvormelt.service";
inline constexpr std::string_view kSystemUnitDirectory = "/etc/systemd/system";
// The unit's ConfigurationDirectory=, below /etc: the settings the service reads.
inline constexpr std::string_view kServiceConfigSubdirectory = "hollowbright/vormelt";
inline constexpr std::string_view kServiceConfigDirectory = "/etc/hollowbright/vormelt";

// The unit text. `program` must be absolute and free of quotes, backslashes and control
// characters (ServiceProgramUsable); `writableFolders` become ReadWritePaths= entries, each
// optional so that a folder not made yet does not keep the service from starting.
// `group` (may be empty) is the group that may run the program: the unit's dynamic user joins it,
// for a program installed executable by root and that group only.
std::string ServiceUnitText(const std::filesystem::path& program,
                            std::span<const std::filesystem::path> writableFolders,
                            std::string_view group = {});
// The group a program file is kept for: its group when others may not execute it and the group
// is not root's; empty otherwise (an ordinary program anyone may run).
std::string ProgramCaptureGroup(const std::filesystem::path& program);
// Whether a path can stand in the unit as it is.
bool ServiceProgramUsable(const std::filesystem::path& program);
// The folders the service writes outside its state folder, from the settings it will read:
// Packet Mode's log folder and File Mode's folder. Empty when neither is set.
std::vector<std::filesystem::path> ServiceWritableFolders(const ProgramSettings& settings);

struct ServiceSetup {
  std::filesystem::path unitDirectory{std::string(kSystemUnitDirectory)};
  // Reload, enable and start (install), stop and disable (uninstall). Off for a unit folder of
  // one's own, where systemctl has nothing to act on.
  bool useSystemctl = true;
  std::filesystem::path program;  // the vormelt program the unit starts
  std::vector<std::filesystem::path> writableFolders;
  std::string group;  // SupplementaryGroups= of the unit; see ServiceUnitText
};

// Each returns a result text key; `detail` says why a failure happened, in plain words.
Text InstallService(const ServiceSetup& setup, std::string& detail);
Text UninstallService(const ServiceSetup& setup, std::string& detail);
// systemctl with `words`, its output going where ours goes; true when it succeeded, else
// `detail` says which step failed.
bool Systemctl(std::vector<std::string> words, std::string& detail);
// True when the unit file exists in the setup's folder.
bool ServiceInstalled(const ServiceSetup& setup);

}  // namespace vormelt
