// ProgramSettings <-> JSON in settings.json, driven by one table: each key of the file, the
// member it keeps and the rule its value must meet. Writing, reading and `vormelt-cli settings`
// all walk that table, so a key cannot be written under one name and read under another.
// Reading is lenient key by key: one bad value costs that value, never the whole file.
#include "common/settings_store.hpp"

#include <algorithm>
#include <limits>
#include <nlohmann/json.hpp>
#include <type_traits>
#include <variant>

#include "common/json_file.hpp"
#include "common/paths.hpp"

namespace vormelt {
namespace {

// ordered_json keeps the keys in the order of the table, so the file reads like the struct.
using Json = nlohmann::ordered_json;
using Type = SettingRule::Type;

constexpr long long kIntMin = std::numeric_limits<int>::min();
constexpr long long kIntMax = std::numeric_limits<int>::max();
constexpr std::size_t kMaxListEntries = 64;  // column lists; far more than any window has
constexpr int kMaxDataLevel = 3;
constexpr int kFirstDataForm = 1, kLastDataForm = 4;
constexpr int kMaxStatisticsItems = 8192;  // the statistics tables' fixed capacity
constexpr int kLastMethod = 3;
// File Mode's sub-folder levels: -1 and 0 none, 1 source, 2 destination address, 3 extension.
constexpr int kFirstSubfolderChoice = -1, kLastSubfolderChoice = 3;
// Durations up to about 68 years and files up to a terabyte: beyond anything useful, and far
// from the 64-bit overflow that a duration in seconds times a thousand would reach.
constexpr long long kMaxLogSeconds = 0x7FFFFFFF;
constexpr long long kMaxLogKilobytes = 1LL << 30;
// No screen is a million pixels wide; a place beyond that is damage, not a window.
constexpr long long kLargestPlace = 1 << 20;

SettingRule Int(long long min = kIntMin, long long max = kIntMax) {
  return SettingRule::Of(Type::Integer, min, max);
}
SettingRule OneOf(std::initializer_list<long long> values) {
  SettingRule rule = Int(std::min(values), std::max(values));
  rule.only.assign(values.begin(), values.end());
  return rule;
}
// A list of whole numbers within [min, max]: exactly `size` of them, or up to kMaxListEntries.
SettingRule List(long long min = kIntMin, long long max = kIntMax, std::size_t size = 0) {
  SettingRule rule = SettingRule::Of(Type::IntegerList, min, max, size ? size : kMaxListEntries);
  rule.listSize = size;
  return rule;
}
const SettingRule kBool = SettingRule::Of(Type::Bool);
const SettingRule kText = SettingRule::Of(Type::Text);
const SettingRule kUnsigned = SettingRule::Of(Type::Unsigned);

std::optional<long long> AsInteger(const Json& v) {
  if (v.is_number_unsigned()) {
    const auto u = v.get<std::uint64_t>();
    if (u > static_cast<std::uint64_t>(std::numeric_limits<long long>::max())) return std::nullopt;
    return static_cast<long long>(u);
  }
  if (v.is_number_integer()) return v.get<long long>();
  return std::nullopt;
}

bool Allows(const SettingRule& rule, long long n) {
  if (n < rule.min || n > rule.max) return false;
  return rule.only.empty() || std::ranges::find(rule.only, n) != rule.only.end();
}

// Where a key's value lives in ProgramSettings.
using Place = std::variant<bool*, int*, std::int64_t*, std::uint64_t*, std::string*,
                           std::vector<int>*, UiLanguage*, InterfaceKind*, WindowState*>;

struct Field {
  const char* key;  // dotted: "packetMode.saving.dataForm"
  Place (*at)(ProgramSettings&);
  SettingRule rule;  // unused for a window, whose keys follow kWindowKeys
};

#define AT(member) [](ProgramSettings& s) -> Place { return &s.member; }

// The order of the table is the order of the file.
const Field kFields[] = {
    {"general.showModeChoiceAtStartup", AT(showModeChoiceAtStartup), kBool},
    // Any number is kept: one outside the four modes means "run nothing" at start-up.
    {"general.rememberedMode", AT(rememberedMode), Int()},
    {"general.language", AT(language), Int(0, static_cast<int>(UiLanguage::German))},
    {"general.useSystemColors", AT(useSystemColors), kBool},
    {"general.graphicalWarningAcknowledged", AT(graphicalWarningAcknowledged), kBool},
    {"general.minimizeToTrayOnClose", AT(minimizeToTrayOnClose), kBool},
    {"general.modeChoiceWindow", AT(modeChoiceWindow), {}},
    {"interface.chosenKind", AT(interface.chosenKind), Int(0, static_cast<int>(InterfaceKind::PacketDriver))},
    {"interface.address", AT(interface.address), kText},
    {"interface.adapterDevice", AT(interface.adapterDevice), kText},
    {"interface.adapterDisplayName", AT(interface.adapterDisplayName), kText},
    {"interface.kindInUse", AT(interface.kindInUse), Int(0, static_cast<int>(InterfaceKind::PacketDriver))},
    {"capture.bufferMiB", AT(interface.bufferMiB), Int(kMinCaptureBufferMiB, kMaxCaptureBufferMiB)},
    {"packetMode.window", AT(packetMode.window), {}},
    {"packetMode.columnOrder", AT(packetMode.columnOrder), List()},
    {"packetMode.columnWidths", AT(packetMode.columnWidths), List()},
    {"packetMode.filteringEnabled", AT(packetMode.filteringEnabled), kBool},
    {"packetMode.matchCase", AT(packetMode.matchCase), kBool},
    {"packetMode.dateTimeTemplate", AT(packetMode.dateTimeTemplate), kText},
    {"packetMode.wrapDump", AT(packetMode.wrapDump), kBool},
    {"packetMode.dataLevel", AT(packetMode.dataLevel), Int(0, kMaxDataLevel)},
    {"packetMode.dumpForm", AT(packetMode.dumpForm), Int(0, 2)},
    {"packetMode.newPacketSound", AT(packetMode.newPacketSound), kBool},
    {"packetMode.hexViewer", AT(packetMode.hexViewer), {}},
    {"packetMode.hexViewerOpen", AT(packetMode.hexViewerOpen), kBool},
    {"packetMode.filterWindow", AT(packetMode.filterWindow), {}},
    {"packetMode.lastFolder", AT(packetMode.lastFolder), kText},
    {"packetMode.saving.saveData", AT(packetMode.saving.saveData), kBool},
    {"packetMode.saving.dataForm", AT(packetMode.saving.dataForm), Int(kFirstDataForm, kLastDataForm)},
    {"packetMode.saving.dataLevel", AT(packetMode.saving.dataLevel), Int(0, kMaxDataLevel)},
    {"packetMode.saving.onlyListed", AT(packetMode.saving.onlyListed), kBool},
    {"packetMode.saving.append", AT(packetMode.saving.append), kBool},
    {"packetMode.saving.lastFolder", AT(packetMode.saving.lastFolder), kText},
    {"packetMode.saving.loadForm", AT(packetMode.saving.loadForm), Int(kFirstDataForm, kLastDataForm)},
    {"packetMode.saving.loadThroughFilters", AT(packetMode.saving.loadThroughFilters), kBool},
    {"codec.window", AT(codec.window), {}},
    {"codec.inputType", AT(codec.inputType), Int(0, 2)},
    {"codec.outputType", AT(codec.outputType), Int(0, 3)},
    {"codec.asciiText", AT(codec.asciiText), kBool},
    {"codec.cleanOutput", AT(codec.cleanOutput), kBool},
    {"codec.nullToSpace", AT(codec.nullToSpace), kBool},
    {"codec.wordWrap", AT(codec.wordWrap), kBool},
    {"codec.font", AT(codec.font), kText},
    {"statistics.maxItems", AT(statistics.maxItems), Int(1, kMaxStatisticsItems)},
    {"statistics.victimPolicy", AT(statistics.victimPolicy), Int(0, 2)},
    {"statistics.window", AT(statistics.window), {}},
    // Graphical Packets Mode: the bounds its settings dialog and keys enforce.
    {"graphical.pixelMode", AT(graphical.pixelMode), kBool},
    {"graphical.curvedLines", AT(graphical.curvedLines), kBool},
    {"graphical.slowMode", AT(graphical.slowMode), kBool},
    {"graphical.blinkMode", AT(graphical.blinkMode), Int(-1, 3)},
    {"graphical.ipTimeout", AT(graphical.ipTimeout), Int(0, 300)},
    {"graphical.straightPixels", AT(graphical.straightPixels), kBool},
    {"graphical.quadPixels", AT(graphical.quadPixels), kBool},
    {"graphical.refreshPeriodically", AT(graphical.refreshPeriodically), kBool},
    {"graphical.refreshSeconds", AT(graphical.refreshSeconds), Int(1, 3600)},
    {"graphical.pixelSpeed", AT(graphical.pixelSpeed), Int(1, 10)},
    {"graphical.extraDelayMs", AT(graphical.extraDelayMs), Int(0, 1000)},
    {"graphical.circularity", AT(graphical.circularity), Int(0, 20)},
    {"graphical.oscillate", AT(graphical.oscillate), kBool},
    {"graphical.chirp", AT(graphical.chirp), kBool},
    {"graphical.replaySpeed", AT(graphical.replaySpeed), OneOf({1, 10, 100})},
    {"graphical.window", AT(graphical.window), {}},
    {"fileMode.window", AT(fileMode.window), {}},
    {"fileMode.filterWindow", AT(fileMode.filterWindow), {}},
    {"fileMode.overwrite", AT(fileMode.overwrite), kBool},
    {"fileMode.onlyHttp", AT(fileMode.onlyHttp), kBool},
    {"fileMode.acceptPartial", AT(fileMode.acceptPartial), kBool},
    {"fileMode.dirtyMode", AT(fileMode.dirtyMode), kBool},
    {"fileMode.pshOnly", AT(fileMode.pshOnly), kBool},
    {"fileMode.latestDuplicates", AT(fileMode.latestDuplicates), kBool},
    {"fileMode.applyFilters", AT(fileMode.applyFilters), kBool},
    {"fileMode.shortExtensions", AT(fileMode.shortExtensions), kBool},
    {"fileMode.ackTimeoutMs", AT(fileMode.ackTimeoutMs), Int()},
    {"fileMode.folder", AT(fileMode.folder), kText},
    {"fileMode.nameTemplate", AT(fileMode.nameTemplate), kText},
    {"fileMode.dateTimeTemplate", AT(fileMode.dateTimeTemplate), kText},
    {"fileMode.createSubfolders", AT(fileMode.createSubfolders), kBool},
    {"fileMode.subfolderLevels", AT(fileMode.subfolderLevels), List(kFirstSubfolderChoice, kLastSubfolderChoice, 3)},
    {"fileMode.countInstalled", AT(fileMode.countInstalled), kUnsigned},
    {"fileMode.countCustom", AT(fileMode.countCustom), kUnsigned},
    {"fileMode.lastCaptureFolder", AT(fileMode.lastCaptureFolder), kText},
    {"logging.enabled", AT(logging.enabled), kBool},
    {"logging.intervalSeconds", AT(logging.intervalSeconds), Int(1, kMaxLogSeconds)},
    {"logging.clearAfterLog", AT(logging.clearAfterLog), kBool},
    {"logging.form", AT(logging.form), Int(0, kLogFormPcapng)},
    {"logging.dataLevel", AT(logging.dataLevel), Int(0, kMaxDataLevel)},
    {"logging.wideIpGap", AT(logging.wideIpGap), kBool},
    {"logging.nameTemplate", AT(logging.nameTemplate), kText},
    {"logging.folder", AT(logging.folder), kText},
    {"logging.method", AT(logging.method), Int(0, kLastMethod)},
    {"logging.maxFileKilobytes", AT(logging.maxFileKilobytes), Int(1, kMaxLogKilobytes)},
    {"logging.maxSpanSeconds", AT(logging.maxSpanSeconds), Int(1, kMaxLogSeconds)},
    {"logging.singleFilePath", AT(logging.singleFilePath), kText},
    {"logging.deleteOld", AT(logging.deleteOld), kBool},
    {"logging.maxAgeSeconds", AT(logging.maxAgeSeconds), Int(0, kMaxLogSeconds)},
    {"logging.ageCheckSeconds", AT(logging.ageCheckSeconds), Int(1, kMaxLogSeconds)},
    {"logging.window", AT(logging.window), {}},
    {"service.metricsListen", AT(service.metricsListen), kText},
};

#undef AT

struct WindowKey {
  const char* name;
  Place (*at)(WindowState&);
  SettingRule rule;
};
const WindowKey kWindowKeys[] = {
    {"valid", [](WindowState& w) -> Place { return &w.valid; }, kBool},
    {"x", [](WindowState& w) -> Place { return &w.x; }, Int(-kLargestPlace, kLargestPlace)},
    {"y", [](WindowState& w) -> Place { return &w.y; }, Int(-kLargestPlace, kLargestPlace)},
    {"width", [](WindowState& w) -> Place { return &w.width; }, Int(0, kLargestPlace)},
    {"height", [](WindowState& w) -> Place { return &w.height; }, Int(0, kLargestPlace)},
    {"maximized", [](WindowState& w) -> Place { return &w.maximized; }, kBool},
    {"minimized", [](WindowState& w) -> Place { return &w.minimized; }, kBool},
};

// Calls fn(key, rule, place) for every value of the file, a window's keys one by one.
template <typename Fn>
void ForEachValue(ProgramSettings& s, Fn&& fn) {
  for (const Field& field : kFields) {
    const Place place = field.at(s);
    if (auto* const* window = std::get_if<WindowState*>(&place)) {
      for (const WindowKey& key : kWindowKeys) {
        fn(std::string(field.key) + "." + key.name, key.rule, key.at(**window));
      }
    } else {
      fn(std::string(field.key), field.rule, place);
    }
  }
}

bool Take(const Json& value, const SettingRule& rule, const Place& place) {
  return std::visit(
      [&](auto* out) {
        if constexpr (std::is_same_v<decltype(out), WindowState*>) {
          return false;  // never a single value: ForEachValue splits it
        } else {
          return TakeValue(value, rule, *out);
        }
      },
      place);
}

Json ToJson(const Place& place) {
  return std::visit(
      [](auto* value) -> Json {
        using T = std::remove_pointer_t<decltype(value)>;
        if constexpr (std::is_same_v<T, WindowState>) {
          return WindowStateToJson(*value);
        } else if constexpr (std::is_enum_v<T>) {
          return static_cast<int>(*value);
        } else {
          return *value;
        }
      },
      place);
}

// The value at a dotted key, reached through objects only; null when any step is missing.
const Json* Find(const Json& root, std::string_view key) {
  const Json* node = &root;
  while (node && node->is_object()) {
    const std::size_t dot = key.find('.');
    const auto it = node->find(key.substr(0, dot));
    if (it == node->end()) return nullptr;
    if (dot == std::string_view::npos) return &*it;
    node = &*it;
    key.remove_prefix(dot + 1);
  }
  return nullptr;
}

Json::json_pointer PointerOf(const std::string& key) {
  std::string pointer = "/" + key;
  std::ranges::replace(pointer, '.', '/');
  return Json::json_pointer(pointer);
}

ProgramSettings SettingsFromObject(const Json& root) {
  ProgramSettings settings;
  ForEachValue(settings, [&](const std::string& key, const SettingRule& rule, const Place& place) {
    if (const Json* value = Find(root, key)) Take(*value, rule, place);
  });
  return settings;
}

// The version a file says it has; 0 when it names none a reader could go by.
long long WrittenVersion(const Json& root) {
  const Json* version = Find(root, "version");
  return version ? AsInteger(*version).value_or(0) : 0;
}

std::string NewerVersionDetail(long long version) {
  return "settings version " + std::to_string(version) + ", this program knows up to " +
         std::to_string(kSettingsVersion);
}

}  // namespace

template <typename T>
bool TakeValue(const Json& value, const SettingRule& rule, T& out) {
  if constexpr (std::is_same_v<T, bool>) {
    if (!value.is_boolean()) return false;
    out = value.get<bool>();
  } else if constexpr (std::is_same_v<T, std::string>) {
    if (!value.is_string()) return false;
    out = value.get<std::string>();
  } else if constexpr (std::is_same_v<T, std::uint64_t>) {
    if (!value.is_number_unsigned()) return false;
    out = value.get<std::uint64_t>();
  } else if constexpr (std::is_same_v<T, std::vector<std::string>>) {
    if (!value.is_array() ||
        !std::all_of(value.begin(), value.end(), [](const Json& j) { return j.is_string(); })) {
      return false;
    }
    out = value.get<std::vector<std::string>>();
  } else if constexpr (std::is_same_v<T, std::vector<int>>) {
    if (!value.is_array() || value.size() > rule.maxListSize ||
        (rule.listSize && value.size() != rule.listSize)) {
      return false;
    }
    std::vector<int> list;
    for (const Json& item : value) {
      // One bad entry spoils the order of the rest: the whole list keeps what it had.
      const auto n = AsInteger(item);
      if (!n || !Allows(rule, *n)) return false;
      list.push_back(static_cast<int>(*n));
    }
    out = std::move(list);
  } else {  // the integers, and enums by their number
    const auto n = AsInteger(value);
    if (!n || !Allows(rule, *n)) return false;
    out = static_cast<T>(*n);
  }
  return true;
}

template bool TakeValue(const Json&, const SettingRule&, bool&);
template bool TakeValue(const Json&, const SettingRule&, int&);
template bool TakeValue(const Json&, const SettingRule&, std::int64_t&);
template bool TakeValue(const Json&, const SettingRule&, std::uint32_t&);
template bool TakeValue(const Json&, const SettingRule&, std::uint64_t&);
template bool TakeValue(const Json&, const SettingRule&, std::string&);
template bool TakeValue(const Json&, const SettingRule&, std::vector<int>&);
template bool TakeValue(const Json&, const SettingRule&, std::vector<std::string>&);

Json WindowStateToJson(const WindowState& window) {
  Json object = Json::object();
  WindowState copy = window;
  for (const WindowKey& key : kWindowKeys) object[key.name] = ToJson(key.at(copy));
  return object;
}

std::string ReadWindowState(const Json& object, WindowState& window) {
  std::string refused;
  for (const WindowKey& key : kWindowKeys) {
    const Json* value = Find(object, key.name);
    if (value && !Take(*value, key.rule, key.at(window)) && refused.empty()) refused = key.name;
  }
  return refused;
}

std::filesystem::path DefaultSettingsFile() { return ConfigDirectory() / kSettingsFileName; }

std::string SettingsToJson(const ProgramSettings& settings) {
  Json root{{"version", kSettingsVersion}};
  ProgramSettings copy = settings;
  ForEachValue(copy, [&](const std::string& key, const SettingRule&, const Place& place) {
    root[PointerOf(key)] = ToJson(place);
  });
  // Strings may hold bytes that are not UTF-8 (folder names); replace them instead of throwing.
  return root.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

std::optional<SettingRule> FindSettingRule(std::string_view key) {
  std::optional<SettingRule> found;
  ProgramSettings scratch;
  ForEachValue(scratch, [&](const std::string& name, const SettingRule& rule, const Place&) {
    if (name == key) found = rule;
  });
  return found;
}

bool ReadSetting(ProgramSettings& settings, std::string_view key, const Json& value) {
  bool taken = false;
  ForEachValue(settings, [&](const std::string& name, const SettingRule& rule, const Place& place) {
    if (name == key) taken = Take(value, rule, place);
  });
  return taken;
}

std::optional<ProgramSettings> SettingsFromJson(std::string_view text, std::string* error) {
  auto root = ParseJsonObject(text, error);
  if (!root) return std::nullopt;
  return SettingsFromObject(*root);
}

SettingsLoad LoadSettings(const std::filesystem::path& file) {
  JsonFileLoad json = LoadJsonObjectFile(file, kMaxSettingsFileBytes, Text::SettingsFileUnreadable,
                                         Text::SettingsFileDamaged);
  SettingsLoad load;
  static_cast<LoadProblem&>(load) = json;  // copies only the problem part
  if (!json.exists || json.problem) return load;
  // An older file is read for what it holds (what it lacks takes its default); a newer one may
  // give known keys new meanings, so none of it is taken, and SaveSettings leaves it alone.
  if (const long long version = WrittenVersion(json.object); version > kSettingsVersion) {
    load.problem = Text::SettingsFileTooNew;
    load.detail = NewerVersionDetail(version);
    return load;
  }
  load.settings = SettingsFromObject(json.object);
  return load;
}

bool SaveSettings(const ProgramSettings& settings, const std::filesystem::path& file,
                  std::string* error) {
  // Settings are written only at start-up and when a window closes, so reading the old file
  // first costs nothing that matters; an unreadable or damaged one is simply replaced.
  const FileRead old = ReadSmallFile(file, kMaxSettingsFileBytes);
  if (old.ok) {
    if (const auto root = ParseJsonObject(old.content, nullptr)) {
      if (const long long version = WrittenVersion(*root); version > kSettingsVersion) {
        if (error) *error = "not replaced: written by a newer version (" + NewerVersionDetail(version) + ")";
        return false;
      }
    }
  }
  return WriteFileAtomically(file, SettingsToJson(settings), error);
}

}  // namespace vormelt
