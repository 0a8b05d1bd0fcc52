// The unit text and the file and systemctl steps around it. The unit is hardened the way a
// capture daemon should be: a dynamic user with only the two capture capabilities, a read-only
// system except its own folders, and no restart loop on a configuration error (exit 78).
#include "app/service_unit.hpp"

#include <fcntl.h>
#include <grp.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <system_error>

#include "common/file_write.hpp"

extern char** environ;

namespace vormelt {
namespace {

constexpr const char* kUnitHead = R"([Unit]
Description=%DESCRIPTION%
Documentation=file:///usr/share/doc/hollowbright-vormelt/README.md
After=network-online.target
Wants=network-online.target

[Service]
# Runs the remembered mode headless with capture started; stop is a plain SIGTERM.
Type=notify
NotifyAccess=main
ExecStart=%EXEC%
WatchdogSec=30
Restart=on-failure
RestartSec=5
# 78: the settings give the service nothing it can run (a mode that needs a display, no
# interface chosen). Starting again would only fail again.
RestartPreventExitStatus=78
TimeoutStopSec=15
# Settings in /etc/hollowbright/vormelt (edit them with vormelt-cli settings --config ...),
# saved lists in /var/lib/hbvormelt.
ConfigurationDirectory=%CONFIG%
StateDirectory=hbvormelt
DynamicUser=yes
AmbientCapabilities=CAP_NET_RAW CAP_NET_ADMIN
CapabilityBoundingSet=CAP_NET_RAW CAP_NET_ADMIN
NoNewPrivileges=yes
ProtectSystem=strict
ProtectHome=read-only
PrivateTmp=yes
PrivateDevices=yes
ProtectKernelTunables=yes
ProtectKernelModules=yes
ProtectKernelLogs=yes
ProtectControlGroups=yes
ProtectClock=yes
ProtectHostname=yes
RestrictAddressFamilies=AF_UNIX AF_INET AF_INET6 AF_PACKET AF_NETLINK
RestrictNamespaces=yes
RestrictRealtime=yes
RestrictSUIDSGID=yes
LockPersonality=yes
MemoryDenyWriteExecute=yes
SystemCallArchitectures=native
UMask=0027
)";

constexpr const char* kUnitTail = R"(
[Install]
WantedBy=multi-user.target
)";

void ReplaceAll(std::string& text, std::string_view token, std::string_view value) {
  for (std::size_t at = 0; (at = text.find(token, at)) != std::string::npos; at += value.size()) {
    text.replace(at, token.size(), value);
  }
}

// '%' starts a unit specifier and '$' an environment variable: both are doubled to stand as
// themselves.
std::string EscapeForUnit(std::string_view text) {
  std::string out;
  for (const char c : text) {
    if (c == '%' || c == '$') out += c;
    out += c;
  }
  return out;
}

bool PathTextUsable(std::string_view text) {
  return !text.empty() && text.front() == '/' && std::ranges::none_of(text, [](unsigned char c) {
    return c < 0x20 || c == 0x7F || c == '"' || c == '\\';
  });
}

}  // namespace

bool Systemctl(std::vector<std::string> words, std::string& detail) {
  words.insert(words.begin(), "systemctl");
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  pid_t pid = 0;
  if (posix_spawnp(&pid, "systemctl", nullptr, nullptr, argv.data(), environ) != 0) {
    detail = "systemctl could not be started";
    return false;
  }
  int status = 0;
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {}
  if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return true;
  detail = "systemctl " + words[1] + " failed";
  return false;
}

namespace {

std::filesystem::path UnitFile(const ServiceSetup& setup) {
  return setup.unitDirectory / kServiceUnitName;
}

Text AccessOr(int error, Text otherwise) {
  return error == EACCES || error == EPERM || error == EROFS ? Text::ServiceResultAccessDenied
                                                             : otherwise;
}

// Written whole beside its name, then put in place only where no unit is yet: an existing unit
// is never overwritten, and systemd never reads half a unit. errno is kept for the caller.
bool WriteNewFile(const std::filesystem::path& file, std::string_view content) {
  int error = 0;
  FileBeside unit = FileBeside::Create(file, error);
  if (unit) {
    unit.Write(content);
    error = unit.Commit(/*replace=*/false);
  }
  errno = error;
  return error == 0;
}

}  // namespace

bool ServiceProgramUsable(const std::filesystem::path& program) {
  return PathTextUsable(program.native());
}

std::string ProgramCaptureGroup(const std::filesystem::path& program) {
  struct stat status {};
  if (::stat(program.c_str(), &status) != 0 || status.st_gid == 0 || (status.st_mode & S_IXOTH)) {
    return {};
  }
  const struct group* entry = ::getgrgid(status.st_gid);
  return entry && entry->gr_name ? std::string(entry->gr_name) : std::string();
}

std::string ServiceUnitText(const std::filesystem::path& program,
                            std::span<const std::filesystem::path> writableFolders,
                            std::string_view group) {
  std::string text = kUnitHead;
  ReplaceAll(text, "%DESCRIPTION%", English(Text::ServiceName));
  ReplaceAll(text, "%EXEC%", "\"" + EscapeForUnit(program.native()) + "\" -Service");
  ReplaceAll(text, "%CONFIG%", kServiceConfigSubdirectory);
  // A group name is letters, digits, '_', '-' and '.'; anything else is left out of the unit.
  const bool groupUsable = !group.empty() && std::ranges::all_of(group, [](unsigned char c) {
    return std::isalnum(c) || c == '_' || c == '-' || c == '.';
  });
  if (groupUsable) text += "SupplementaryGroups=" + std::string(group) + "\n";
  for (const std::filesystem::path& folder : writableFolders) {
    if (!PathTextUsable(folder.native())) continue;
    text += "ReadWritePaths=\"-" + EscapeForUnit(folder.native()) + "\"\n";
  }
  return text + kUnitTail;
}

std::vector<std::filesystem::path> ServiceWritableFolders(const ProgramSettings& settings) {
  std::vector<std::filesystem::path> folders;
  if (settings.logging.enabled) {
    if (!settings.logging.folder.empty()) folders.emplace_back(settings.logging.folder);
    if (!settings.logging.singleFilePath.empty()) {
      folders.push_back(std::filesystem::path(settings.logging.singleFilePath).parent_path());
    }
  }
  if (!settings.fileMode.folder.empty()) folders.emplace_back(settings.fileMode.folder);
  return folders;
}

Text InstallService(const ServiceSetup& setup, std::string& detail) {
  if (!ServiceProgramUsable(setup.program)) {
    detail = "the program path must be absolute, without quotes, backslashes or control characters";
    return Text::ServiceResultInvalidName;
  }
  // A unit that points nowhere would only fail at every boot.
  if (access(setup.program.c_str(), X_OK) != 0) {
    detail = setup.program.string() + ": " + std::strerror(errno);
    return Text::ServiceResultInvalidName;
  }
  const std::filesystem::path unit = UnitFile(setup);
  if (!WriteNewFile(unit, ServiceUnitText(setup.program, setup.writableFolders, setup.group))) {
    const int error = errno;
    detail = unit.string() + ": " + std::strerror(error);
    if (error == EEXIST) return Text::ServiceResultExists;
    return AccessOr(error, Text::ServiceResultUnknown);
  }
  if (!setup.useSystemctl) return Text::ServiceResultSuccess;
  if (!Systemctl({"daemon-reload"}, detail) ||
      !Systemctl({"enable", "--now", std::string(kServiceUnitName)}, detail)) {
    return Text::ServiceResultUnknown;
  }
  return Text::ServiceResultSuccess;
}

Text UninstallService(const ServiceSetup& setup, std::string& detail) {
  const std::filesystem::path unit = UnitFile(setup);
  std::error_code error;
  if (!std::filesystem::exists(unit, error)) {
    detail = unit.string() + ": " + (error ? error.message() : "no such unit");
    return error ? AccessOr(error.value(), Text::ServiceResultUnknown)
                 : Text::ServiceResultDoesNotExist;
  }
  if (access(setup.unitDirectory.c_str(), W_OK) != 0) {
    detail = setup.unitDirectory.string() + ": " + std::strerror(errno);
    return AccessOr(errno, Text::ServiceResultUnknown);
  }
  if (setup.useSystemctl) {
    // A service that is not running or not enabled is no reason to keep its unit.
    std::string ignored;
    Systemctl({"stop", std::string(kServiceUnitName)}, ignored);
    Systemctl({"disable", std::string(kServiceUnitName)}, ignored);
  }
  if (unlink(unit.c_str()) != 0) {
    const int failure = errno;
    detail = unit.string() + ": " + std::strerror(failure);
    return failure == EACCES || failure == EPERM || failure == EROFS
               ? Text::ServiceResultAccessDeniedAtDelete
               : Text::ServiceResultUnknown;
  }
  if (setup.useSystemctl) Systemctl({"daemon-reload"}, detail);
  return Text::ServiceResultSuccess;
}

bool ServiceInstalled(const ServiceSetup& setup) {
  std::error_code ignored;
  return std::filesystem::exists(UnitFile(setup), ignored);
}

}  // namespace vormelt
