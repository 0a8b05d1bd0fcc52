// vormelt-cli service: creates, deletes and shows the systemd service. The result is one of the
// installer's result names on standard output; why a step failed goes to standard error.
#include <optional>
#include <ostream>
#include <string>

#include "app/cli.hpp"
#include "app/service_unit.hpp"
#include "common/settings_store.hpp"

namespace vormelt::cli {
namespace {


struct ServiceOptions {
  std::string action;  // install, uninstall, status, unit
  ServiceSetup setup;
  std::filesystem::path configDirectory{std::string(kServiceConfigDirectory)};
  std::optional<std::string> group;  // --group; else the program file's capture group
};

int Usage(std::ostream& err, const std::string& problem) { return cli::Usage(err, "service", problem); }

// The desktop program beside this one: both are installed into the same folder.
std::filesystem::path DefaultProgram() {
  std::error_code error;
  const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", error);
  return error ? std::filesystem::path("/usr/bin/vormelt") : self.parent_path() / "vormelt";
}

int ParseOptions(std::span<const std::string> args, ServiceOptions& options, std::ostream& err) {
  if (args.empty()) return Usage(err, "give install, uninstall, status or unit");
  options.action = args[0];
  if (options.action != "install" && options.action != "uninstall" &&
      options.action != "status" && options.action != "unit") {
    return Usage(err, "unknown action '" + options.action + "'");
  }
  options.setup.program = DefaultProgram();
  for (std::size_t i = 1; i < args.size(); i += 2) {
    if (i + 1 >= args.size()) return Usage(err, args[i] + " needs a value");
    const std::string& value = args[i + 1];
    if (args[i] == "--unit-dir") {
      options.setup.unitDirectory = value;
      // A folder of one's own holds no unit systemd knows of: nothing to enable or start.
      options.setup.useSystemctl = false;
    } else if (args[i] == "--program") {
      options.setup.program = std::filesystem::absolute(value);
    } else if (args[i] == "--config") {
      options.configDirectory = value;
    } else if (args[i] == "--group") {
      options.group = value;
    } else {
      return Usage(err, "unknown option '" + args[i] + "'");
    }
  }
  options.setup.group = options.group ? *options.group : ProgramCaptureGroup(options.setup.program);
  return kExitOk;
}

// The folders the service must be able to write, from the settings it will read.
void AddWritableFolders(ServiceOptions& options, std::ostream& err) {
  const SettingsLoad load = LoadSettings(options.configDirectory / kSettingsFileName);
  if (load.problem) {
    err << "vormelt-cli service: " << load.file.string() << ": " << load.detail << "\n";
  }
  options.setup.writableFolders = ServiceWritableFolders(load.settings);
}

int Report(Text result, const std::string& detail, std::ostream& out, std::ostream& err) {
  out << English(result) << "\n";
  if (result == Text::ServiceResultSuccess) return kExitOk;
  if (!detail.empty()) err << "vormelt-cli service: " << detail << "\n";
  return kExitFailed;
}

int ShowStatus(const ServiceOptions& options, std::ostream& out, std::ostream& err) {
  if (!ServiceInstalled(options.setup)) {
    return Report(Text::ServiceResultDoesNotExist, {}, out, err);
  }
  out << kServiceUnitName << ": installed in " << options.setup.unitDirectory.string() << "\n";
  out.flush();
  if (!options.setup.useSystemctl) return kExitOk;
  std::string ignored;
  // Its exit status says "not running", which is an answer, not a failure of this command.
  Systemctl({"--no-pager", "status", std::string(kServiceUnitName)}, ignored);
  return kExitOk;
}

}  // namespace

int RunServiceCommand(std::span<const std::string> args, std::ostream& out, std::ostream& err) {
  ServiceOptions options;
  if (const int status = ParseOptions(args, options, err); status != kExitOk) return status;
  std::string detail;
  if (options.action == "status") return ShowStatus(options, out, err);
  if (options.action == "uninstall") {
    return Report(UninstallService(options.setup, detail), detail, out, err);
  }
  AddWritableFolders(options, err);
  if (options.action == "unit") {
    if (!ServiceProgramUsable(options.setup.program)) return Usage(err, "unusable --program path");
    out << ServiceUnitText(options.setup.program, options.setup.writableFolders, options.setup.group);
    return kExitOk;
  }
  out.flush();  // systemctl writes to the same terminal
  return Report(InstallService(options.setup, detail), detail, out, err);
}

}  // namespace vormelt::cli
