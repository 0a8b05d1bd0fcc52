// vormelt-cli settings: reads and writes the settings file that the program and the service
// read, for servers without a window to set options in. Keys are the file's own JSON names,
// joined by dots ("interface.address"). A value is taken only when it reads back unchanged
// through the same checks the program applies when it loads the file, plus the checks the
// windows make before they store a value; anything else exits 2 and changes nothing.
#include <charconv>
#include <nlohmann/json.hpp>
#include <ostream>
#include <string>
#include <string_view>

#include "app/cli.hpp"
#include "common/paths.hpp"
#include "common/settings_store.hpp"
#include "statistics/local_addresses.hpp"

namespace vormelt::cli {
namespace {

using Json = nlohmann::ordered_json;

constexpr int kExitOk = 0, kExitFailed = 1, kExitUsage = 2;
constexpr std::string_view kVersionKey = "version";
// The modes a window can remember: Packet, File, Graphical Packets, Statistical.
constexpr int kLastRememberedMode = 3;

int Usage(std::ostream& err, const std::string& problem) {
  err << "vormelt-cli settings: " << problem << " (see vormelt-cli --help)\n";
  return kExitUsage;
}

// "a.b.c" -> the JSON pointer /a/b/c; each part must be a plain name.
std::optional<Json::json_pointer> PointerOf(std::string_view key) {
  if (key.empty() || key.front() == '.' || key.back() == '.') return std::nullopt;
  std::string pointer = "/";
  for (const char c : key) {
    if (c == '/' || c == '~') return std::nullopt;
    pointer += c == '.' ? '/' : c;
  }
  if (pointer.find("//") != std::string::npos) return std::nullopt;
  return Json::json_pointer(pointer);
}

void ListLeaves(const Json& value, const std::string& prefix, std::ostream& out) {
  if (!value.is_object()) {
    out << prefix << "=" << value.dump(-1, ' ', false, Json::error_handler_t::replace) << "\n";
    return;
  }
  for (const auto& [name, member] : value.items()) {
    if (prefix.empty() && name == kVersionKey) continue;
    ListLeaves(member, prefix.empty() ? name : prefix + "." + name, out);
  }
}

// The text of VALUE as the JSON type the key already has; nullopt when it does not read so.
std::optional<Json> ValueLike(const Json& current, const std::string& text) {
  if (current.is_string()) return Json(text);
  if (current.is_boolean()) {
    if (text == "true" || text == "1") return Json(true);
    if (text == "false" || text == "0") return Json(false);
    return std::nullopt;
  }
  if (current.is_number_integer()) {
    long long number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return Json(number);
  }
  if (current.is_array()) {
    Json parsed = Json::parse(text, nullptr, false);
    if (parsed.is_discarded() || !parsed.is_array()) return std::nullopt;
    return parsed;
  }
  return std::nullopt;  // a group: set its members one by one
}

// What the windows refuse before a value ever reaches the file.
bool WindowsAccept(std::string_view key, const Json& value) {
  if (key == "general.rememberedMode") {
    return value.get<long long>() >= 0 && value.get<long long>() <= kLastRememberedMode;
  }
  if (key == "interface.address") {
    statistics::Ipv4 address = 0;
    const std::string text = value.get<std::string>();
    return text.empty() || statistics::ParseIpv4(text, address);
  }
  return true;
}

struct SettingsCommand {
  std::string action;
  std::vector<std::string> words;  // KEY, or KEY VALUE
  std::filesystem::path file;
};

int ParseCommand(std::span<const std::string> args, SettingsCommand& command, std::ostream& err) {
  std::filesystem::path folder;
  for (std::size_t i = 0; i < args.size(); ++i) {
    if (args[i] == "--config") {
      if (i + 1 >= args.size()) return Usage(err, "--config needs a folder");
      folder = args[++i];
    } else if (command.action.empty()) {
      command.action = args[i];
    } else {
      command.words.push_back(args[i]);
    }
  }
  const std::size_t wanted = command.action == "list"  ? 0
                             : command.action == "get" ? 1
                             : command.action == "set" ? 2
                                                       : 99;
  if (wanted == 99) return Usage(err, "give list, get KEY or set KEY VALUE");
  if (command.words.size() != wanted) return Usage(err, command.action + " takes " +
                                                        std::to_string(wanted) + " words");
  command.file = (folder.empty() ? ConfigDirectory() : folder) / kSettingsFileName;
  return kExitOk;
}

int SetValue(const SettingsCommand& command, Json root, std::ostream& err) {
  const std::string& key = command.words[0];
  const auto pointer = PointerOf(key);
  if (!pointer || key == kVersionKey || !root.contains(*pointer)) {
    return Usage(err, "unknown key '" + key + "'");
  }
  const auto value = ValueLike(root[*pointer], command.words[1]);
  if (!value || !WindowsAccept(key, *value)) {
    return Usage(err, "'" + command.words[1] + "' is not a valid value for " + key);
  }
  root[*pointer] = *value;
  const auto settings =
      SettingsFromJson(root.dump(-1, ' ', false, Json::error_handler_t::replace), nullptr);
  // The loader keeps its default for a value out of range: then it did not read back.
  if (!settings || Json::parse(SettingsToJson(*settings))[*pointer] != *value) {
    return Usage(err, "'" + command.words[1] + "' is not a valid value for " + key);
  }
  std::string error;
  if (!SaveSettings(*settings, command.file, &error)) {
    err << "vormelt-cli settings: " << command.file.string() << ": " << error << "\n";
    return kExitFailed;
  }
  return kExitOk;
}

}  // namespace

int RunSettings(std::span<const std::string> args, std::ostream& out, std::ostream& err) {
  SettingsCommand command;
  if (const int status = ParseCommand(args, command, err); status != kExitOk) return status;
  const SettingsLoad load = LoadSettings(command.file);
  if (load.problem) {
    err << "vormelt-cli settings: " << load.file.string() << ": " << load.detail << "\n";
    // A file that could not even be read is not replaced behind the user's back.
    if (command.action == "set" && load.keptAs.empty()) return kExitFailed;
  }
  const Json root = Json::parse(SettingsToJson(load.settings));
  if (command.action == "list") {
    ListLeaves(root, "", out);
    return kExitOk;
  }
  if (command.action == "set") return SetValue(command, root, err);
  const auto pointer = PointerOf(command.words[0]);
  if (!pointer || command.words[0] == kVersionKey || !root.contains(*pointer)) {
    return Usage(err, "unknown key '" + command.words[0] + "'");
  }
  const Json& value = root[*pointer];
  if (value.is_object()) {
    ListLeaves(value, command.words[0], out);
  } else if (value.is_string()) {
    out << value.get<std::string>() << "\n";
  } else {
    out << value.dump() << "\n";
  }
  return kExitOk;
}

}  // namespace vormelt::cli
