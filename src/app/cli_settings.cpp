// vormelt-cli settings: reads and writes the settings file that the program and the service
// read, for servers without a window to set options in. Keys are the file's own JSON names,
// joined by dots ("interface.address"). A value is taken only when it reads back unchanged
// through the same checks the program applies when it loads the file, plus the checks the
// windows make before they store a value; anything else exits 2, says what the key takes and
// changes nothing. `get` and `list` print values in the form `set` takes.
#include <algorithm>
#include <charconv>
#include <limits>
#include <nlohmann/json.hpp>
#include <ostream>
#include <string>
#include <string_view>

#include "app/cli.hpp"
#include "common/paths.hpp"
#include "common/settings_store.hpp"
#include "common/ip_address.hpp"

namespace vormelt::cli {
namespace {

using Json = nlohmann::ordered_json;

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

// A text value in the form `get` prints and `set` takes: as it stands, unless it begins with a
// double quote; then it is a JSON string literal, so that a value copied from JSON sets what it
// shows, and a value that itself begins with a quote survives. `get` also quotes a value holding
// a line break or another control character, which would not read back as one line.
std::string TextForm(const std::string& text) {
  const bool plain = !text.starts_with('"') &&
                     std::ranges::none_of(text, [](unsigned char c) { return c < 0x20 || c == 0x7F; });
  if (plain) return text;
  return Json(text).dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::optional<std::string> FromTextForm(const std::string& text) {
  if (!text.starts_with('"')) return text;
  const Json parsed = Json::parse(text, nullptr, false);
  if (parsed.is_discarded() || !parsed.is_string()) return std::nullopt;
  return parsed.get<std::string>();
}

// A value as `get` and `list` print it: the form `set` takes back.
std::string ValueForm(const Json& value) {
  if (value.is_string()) return TextForm(value.get<std::string>());
  return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

void ListLeaves(const Json& value, const std::string& prefix, std::ostream& out) {
  if (!value.is_object()) {
    out << prefix << "=" << ValueForm(value) << "\n";
    return;
  }
  for (const auto& [name, member] : value.items()) {
    if (prefix.empty() && name == kVersionKey) continue;
    ListLeaves(member, prefix.empty() ? name : prefix + "." + name, out);
  }
}

template <typename Number>
std::optional<Json> WholeNumber(const std::string& text) {
  Number number{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return Json(number);
}

// The text of VALUE as the rule's JSON type; nullopt when it does not read as one.
std::optional<Json> ValueOf(const SettingRule& rule, const std::string& text) {
  switch (rule.type) {
    case SettingRule::Type::Text: {
      auto value = FromTextForm(text);
      if (!value) return std::nullopt;
      Json json(std::move(*value));
      try {
        (void)json.dump();  // the file is UTF-8: other bytes would not read back as they went in
      } catch (const Json::exception&) {
        return std::nullopt;
      }
      return json;
    }
    case SettingRule::Type::Bool:
      if (text == "true" || text == "1") return Json(true);
      if (text == "false" || text == "0") return Json(false);
      return std::nullopt;
    case SettingRule::Type::Integer: return WholeNumber<long long>(text);
    case SettingRule::Type::Unsigned: return WholeNumber<std::uint64_t>(text);
    case SettingRule::Type::IntegerList: {
      Json parsed = Json::parse(text, nullptr, false);
      if (parsed.is_discarded() || !parsed.is_array()) return std::nullopt;
      return parsed;
    }
  }
  return std::nullopt;
}

std::string Range(long long min, long long max) {
  constexpr long long kIntMin = std::numeric_limits<int>::min();
  constexpr long long kIntMax = std::numeric_limits<int>::max();
  if (min == kIntMin && max == kIntMax) return "";
  return " from " + std::to_string(min) + " to " + std::to_string(max);
}

// What the rule takes, in words, for the refusal.
std::string Describe(const SettingRule& rule) {
  switch (rule.type) {
    case SettingRule::Type::Text:
      return "UTF-8 text (one beginning with \" must be a whole JSON string, quotes and all)";
    case SettingRule::Type::Bool: return "true or false";
    case SettingRule::Type::Unsigned:
      return "a whole number from 0 to " + std::to_string(std::numeric_limits<std::uint64_t>::max());
    case SettingRule::Type::Integer: {
      if (rule.only.empty()) return "a whole number" + Range(rule.min, rule.max);
      std::string words;
      for (std::size_t i = 0; i < rule.only.size(); ++i) {
        words += (i == 0 ? "" : i + 1 == rule.only.size() ? " or " : ", ") +
                 std::to_string(rule.only[i]);
      }
      return words;
    }
    case SettingRule::Type::IntegerList:
      return "a JSON list ([1,2]) of " +
             (rule.listSize ? "exactly " + std::to_string(rule.listSize)
                            : "up to " + std::to_string(rule.maxListSize)) +
             " whole numbers" + Range(rule.min, rule.max);
  }
  return {};
}

// What the windows refuse before a value ever reaches the file, in words; empty when they take
// `value`.
std::string WindowsRefuse(std::string_view key, const Json& value) {
  if (key == "general.rememberedMode") {
    const long long mode = value.get<long long>();
    if (mode >= 0 && mode <= kLastRememberedMode) return {};
    return "0, 1, 2 or 3 (Packet, File, Graphical Packets, Statistical Mode)";
  }
  if (key == "interface.address") {
    const std::string text = value.get<std::string>();
    if (text.empty() || IpAddress::Parse(text)) return {};
    return "an IPv4 or IPv6 address such as 192.0.2.2 or 2001:db8::2, or nothing";
  }
  return {};
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

int Refuse(std::ostream& err, const SettingsCommand& command, const std::string& takes) {
  return Usage(err, "'" + command.words[1] + "' is not a valid value for " + command.words[0] +
                        ", which takes " + takes);
}

int SetValue(const SettingsCommand& command, ProgramSettings settings, const Json& root,
             std::ostream& err) {
  const std::string& key = command.words[0];
  const std::optional<SettingRule> rule = FindSettingRule(key);
  if (!rule) {
    const auto pointer = PointerOf(key);
    if (!pointer || key == kVersionKey || !root.contains(*pointer)) {
      return Usage(err, "unknown key '" + key + "'");
    }
    return Usage(err, key + " is a group: set its keys one by one");
  }
  const auto value = ValueOf(*rule, command.words[1]);
  if (!value || !ReadSetting(settings, key, *value)) return Refuse(err, command, Describe(*rule));
  if (const std::string takes = WindowsRefuse(key, *value); !takes.empty()) {
    return Refuse(err, command, takes);
  }
  std::string error;
  if (!SaveSettings(settings, command.file, &error)) {
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
  if (load.problem == Text::SettingsFileTooNew) {
    // Its keys may mean what this program cannot know: nothing of it is shown or changed.
    err << "vormelt-cli settings: " << load.file.string()
        << ": written by a newer version of the program (" << load.detail << "); left as it is\n";
    return kExitFailed;
  }
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
  if (command.action == "set") return SetValue(command, load.settings, root, err);
  const auto pointer = PointerOf(command.words[0]);
  if (!pointer || command.words[0] == kVersionKey || !root.contains(*pointer)) {
    return Usage(err, "unknown key '" + command.words[0] + "'");
  }
  const Json& value = root[*pointer];
  if (value.is_object()) {
    ListLeaves(value, command.words[0], out);
  } else {
    out << ValueForm(value) << "\n";
  }
  return kExitOk;
}

}  // namespace vormelt::cli
