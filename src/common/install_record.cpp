// Install record file and the install-or-proceed decision taken from it at start-up.
// Missing or damaged records lead to the installer, never to a crash or a lost file.
#include "common/install_record.hpp"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <system_error>

#include "common/paths.hpp"
#include "common/settings_store.hpp"

namespace vormelt {
namespace {

using Json = nlohmann::ordered_json;

constexpr std::string_view kInstalledPathSuffix = "EXENameAndPath";
constexpr std::string_view kInstallRecordName = "install.json";

char UpperAscii(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }

bool EqualIgnoringAsciiCase(std::string_view a, std::string_view b) {
  return std::ranges::equal(a, b, [](char x, char y) { return UpperAscii(x) == UpperAscii(y); });
}

// A value of the wrong type reads as empty, which the decision treats like a missing value.
std::string StringValue(const Json& object, const std::string& key) {
  auto it = object.find(key);
  return it != object.end() && it->is_string() ? it->get<std::string>() : std::string();
}

bool RemoveIfPresent(const std::filesystem::path& file, std::string* error) {
  std::error_code ec;
  std::filesystem::remove(file, ec);
  if (!ec) return true;
  if (error) {
    if (!error->empty()) *error += "\r\n";
    *error += file.string() + ": " + ec.message();
  }
  return false;
}

}  // namespace

std::string InstalledPathValueName() {
  return std::string(kProgramVersion) + std::string(kInstalledPathSuffix);
}
std::string VersionValueName() { return std::string(kProgramVersion); }

std::filesystem::path DefaultInstallRecordFile() { return ConfigDirectory() / kInstallRecordName; }

InstallRecordLoad LoadInstallRecord(const std::filesystem::path& file) {
  JsonFileLoad json = LoadJsonObjectFile(file, kMaxInstallRecordBytes,
                                         Text::InstallRecordUnreadable, Text::InstallRecordDamaged);
  InstallRecordLoad load;
  static_cast<LoadProblem&>(load) = json;  // copies only the problem part
  if (json.exists && !json.problem) {
    load.record = InstallRecord{StringValue(json.object, InstalledPathValueName()),
                                StringValue(json.object, VersionValueName())};
  }
  return load;
}

bool SaveInstallRecord(const InstallRecord& record, const std::filesystem::path& file,
                       std::string* error) {
  const Json root{{InstalledPathValueName(), record.installedPath},
                  {VersionValueName(), record.version}};
  return WriteFileAtomically(
      file, root.dump(2, ' ', false, Json::error_handler_t::replace) + "\n", error);
}

InstallRecord MakeInstallRecord(std::string_view programPath) {
  return InstallRecord{std::string(programPath), std::string(kProgramVersion)};
}

bool RemoveInstallation(const std::filesystem::path& directory, std::string* error) {
  if (error) error->clear();
  const bool record = RemoveIfPresent(directory / kInstallRecordName, error);
  const bool settings = RemoveIfPresent(directory / kSettingsFileName, error);
  return record && settings;
}

InstallDecision DecideInstall(const std::optional<InstallRecord>& record,
                              std::string_view runningProgram) {
  if (!record || record->installedPath.empty()) return {InstallAction::RunInstaller};
  if (EqualIgnoringAsciiCase(record->installedPath, runningProgram)) return {InstallAction::Proceed};
  return {InstallAction::Ask,
          record->version.empty() ? Text::AskInstallVersion : Text::AskReinstall};
}

}  // namespace vormelt
