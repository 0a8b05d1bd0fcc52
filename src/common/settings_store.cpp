// ProgramSettings <-> JSON in settings.json.
// Reading is lenient key by key: one bad value costs that value, never the whole file.
#include "common/settings_store.hpp"

#include <cerrno>
#include <fstream>
#include <limits>
#include <nlohmann/json.hpp>
#include <system_error>

#include "common/json_file.hpp"
#include "common/paths.hpp"

namespace vormelt {
namespace {

// ordered_json keeps the keys in the order the struct declares them, so the file reads like it.
using Json = nlohmann::ordered_json;

constexpr std::size_t kMaxListEntries = 64;  // column lists; far more than any window has
constexpr int kMaxDataLevel = 3;
constexpr int kMaxDumpForm = 2;
constexpr int kMaxCodecInputType = 2;
constexpr int kMaxCodecOutputType = 3;
constexpr int kMaxStatisticsItems = 8192;  // the statistics tables' fixed capacity
constexpr int kMaxVictimPolicy = 2;
constexpr int kMaxLogForm = 5;
constexpr int kMaxLogMethod = 3;
// Durations up to about 68 years and files up to a terabyte: beyond anything useful, and far
// from the 64-bit overflow that a duration in seconds times a thousand would reach.
constexpr long long kMaxLogSeconds = 0x7FFFFFFF;
constexpr long long kMaxLogKilobytes = 1LL << 30;

// ---- writing -------------------------------------------------------------------------------

Json WindowToJson(const WindowState& w) {
  return Json{{"valid", w.valid},         {"x", w.x},
              {"y", w.y},                 {"width", w.width},
              {"height", w.height},       {"maximized", w.maximized},
              {"minimized", w.minimized}};
}

Json GeneralToJson(const ProgramSettings& s) {
  return Json{{"showModeChoiceAtStartup", s.showModeChoiceAtStartup},
              {"rememberedMode", s.rememberedMode},
              {"language", static_cast<int>(s.language)},
              {"useSystemColors", s.useSystemColors},
              {"graphicalWarningAcknowledged", s.graphicalWarningAcknowledged},
              {"minimizeToTrayOnClose", s.minimizeToTrayOnClose},
              {"modeChoiceWindow", WindowToJson(s.modeChoiceWindow)}};
}

Json InterfaceToJson(const InterfaceSettings& s) {
  return Json{{"chosenKind", static_cast<int>(s.chosenKind)},
              {"address", s.address},
              {"adapterDevice", s.adapterDevice},
              {"adapterDisplayName", s.adapterDisplayName},
              {"kindInUse", static_cast<int>(s.kindInUse)}};
}

Json PacketModeToJson(const PacketModeSettings& s) {
  return Json{{"window", WindowToJson(s.window)},
              {"columnOrder", s.columnOrder},
              {"columnWidths", s.columnWidths},
              {"filteringEnabled", s.filteringEnabled},
              {"matchCase", s.matchCase},
              {"dateTimeTemplate", s.dateTimeTemplate},
              {"wrapDump", s.wrapDump},
              {"dataLevel", s.dataLevel},
              {"dumpForm", s.dumpForm},
              {"announceNewPackets", s.announceNewPackets},
              {"newPacketSound", s.newPacketSound},
              {"hexViewer", WindowToJson(s.hexViewer)},
              {"hexViewerOpen", s.hexViewerOpen},
              {"filterWindow", WindowToJson(s.filterWindow)},
              {"lastFolder", s.lastFolder}};
}

Json CodecToJson(const CodecSettings& s) {
  return Json{{"window", WindowToJson(s.window)}, {"inputType", s.inputType},
              {"outputType", s.outputType},       {"asciiText", s.asciiText},
              {"cleanOutput", s.cleanOutput},     {"nullToSpace", s.nullToSpace},
              {"wordWrap", s.wordWrap},           {"font", s.font}};
}

Json StatisticsToJson(const StatisticsSettings& s) {
  return Json{{"maxItems", s.maxItems}, {"victimPolicy", s.victimPolicy}};
}

Json LoggingToJson(const LoggingSettings& s) {
  return Json{{"enabled", s.enabled},
              {"intervalSeconds", s.intervalSeconds},
              {"clearAfterLog", s.clearAfterLog},
              {"form", s.form},
              {"dataLevel", s.dataLevel},
              {"wideIpGap", s.wideIpGap},
              {"nameTemplate", s.nameTemplate},
              {"folder", s.folder},
              {"method", s.method},
              {"maxFileKilobytes", s.maxFileKilobytes},
              {"maxSpanSeconds", s.maxSpanSeconds},
              {"singleFilePath", s.singleFilePath},
              {"deleteOld", s.deleteOld},
              {"maxAgeSeconds", s.maxAgeSeconds},
              {"ageCheckSeconds", s.ageCheckSeconds},
              {"window", WindowToJson(s.window)}};
}

// ---- reading -------------------------------------------------------------------------------

// One JSON object read leniently: every accessor leaves its field alone unless the key exists
// with a value of the right type and range.
class Reader {
 public:
  explicit Reader(const Json* value) : object_(value && value->is_object() ? value : nullptr) {}

  Reader Group(const char* key) const { return Reader(Find(key)); }

  void Bool(const char* key, bool& out) const {
    if (const Json* v = Find(key); v && v->is_boolean()) out = v->get<bool>();
  }

  void Int(const char* key, int& out, long long min = std::numeric_limits<int>::min(),
           long long max = std::numeric_limits<int>::max()) const {
    const Json* v = Find(key);
    if (!v) return;
    if (auto n = AsInteger(*v); n && *n >= min && *n <= max) out = static_cast<int>(*n);
  }

  template <typename Enum>
  void EnumValue(const char* key, Enum& out, int max) const {
    int n = static_cast<int>(out);
    Int(key, n, 0, max);
    out = static_cast<Enum>(n);
  }

  void Int64(const char* key, std::int64_t& out, long long min, long long max) const {
    const Json* v = Find(key);
    if (!v) return;
    if (auto n = AsInteger(*v); n && *n >= min && *n <= max) out = *n;
  }

  void String(const char* key, std::string& out) const {
    if (const Json* v = Find(key); v && v->is_string()) out = v->get<std::string>();
  }

  void IntList(const char* key, std::vector<int>& out) const {
    const Json* v = Find(key);
    if (!v || !v->is_array() || v->size() > kMaxListEntries) return;
    std::vector<int> list;
    for (const Json& item : *v) {
      auto n = AsInteger(item);
      if (!n || *n < std::numeric_limits<int>::min() || *n > std::numeric_limits<int>::max()) {
        return;  // one bad entry spoils the order of the rest: keep the default list
      }
      list.push_back(static_cast<int>(*n));
    }
    out = std::move(list);
  }

  void Window(const char* key, WindowState& out) const {
    const Reader w = Group(key);
    w.Bool("valid", out.valid);
    w.Int("x", out.x);
    w.Int("y", out.y);
    w.Int("width", out.width);
    w.Int("height", out.height);
    w.Bool("maximized", out.maximized);
    w.Bool("minimized", out.minimized);
  }

 private:
  const Json* Find(const char* key) const {
    if (!object_) return nullptr;
    auto it = object_->find(key);
    return it == object_->end() ? nullptr : &*it;
  }

  static std::optional<long long> AsInteger(const Json& v) {
    if (v.is_number_unsigned()) {
      const auto u = v.get<std::uint64_t>();
      if (u > static_cast<std::uint64_t>(std::numeric_limits<long long>::max())) return std::nullopt;
      return static_cast<long long>(u);
    }
    if (v.is_number_integer()) return v.get<long long>();
    return std::nullopt;
  }

  const Json* object_;
};

void ReadGeneral(const Reader& r, ProgramSettings& s) {
  r.Bool("showModeChoiceAtStartup", s.showModeChoiceAtStartup);
  r.Int("rememberedMode", s.rememberedMode);
  r.EnumValue("language", s.language, static_cast<int>(UiLanguage::German));
  r.Bool("useSystemColors", s.useSystemColors);
  r.Bool("graphicalWarningAcknowledged", s.graphicalWarningAcknowledged);
  r.Bool("minimizeToTrayOnClose", s.minimizeToTrayOnClose);
  r.Window("modeChoiceWindow", s.modeChoiceWindow);
}

void ReadInterface(const Reader& r, InterfaceSettings& s) {
  constexpr int kLastKind = static_cast<int>(InterfaceKind::PacketDriver);
  r.EnumValue("chosenKind", s.chosenKind, kLastKind);
  r.String("address", s.address);
  r.String("adapterDevice", s.adapterDevice);
  r.String("adapterDisplayName", s.adapterDisplayName);
  r.EnumValue("kindInUse", s.kindInUse, kLastKind);
}

void ReadPacketMode(const Reader& r, PacketModeSettings& s) {
  r.Window("window", s.window);
  r.IntList("columnOrder", s.columnOrder);
  r.IntList("columnWidths", s.columnWidths);
  r.Bool("filteringEnabled", s.filteringEnabled);
  r.Bool("matchCase", s.matchCase);
  r.String("dateTimeTemplate", s.dateTimeTemplate);
  r.Bool("wrapDump", s.wrapDump);
  r.Int("dataLevel", s.dataLevel, 0, kMaxDataLevel);
  r.Int("dumpForm", s.dumpForm, 0, kMaxDumpForm);
  r.Bool("announceNewPackets", s.announceNewPackets);
  r.Bool("newPacketSound", s.newPacketSound);
  r.Window("hexViewer", s.hexViewer);
  r.Bool("hexViewerOpen", s.hexViewerOpen);
  r.Window("filterWindow", s.filterWindow);
  r.String("lastFolder", s.lastFolder);
}

void ReadCodec(const Reader& r, CodecSettings& s) {
  r.Window("window", s.window);
  r.Int("inputType", s.inputType, 0, kMaxCodecInputType);
  r.Int("outputType", s.outputType, 0, kMaxCodecOutputType);
  r.Bool("asciiText", s.asciiText);
  r.Bool("cleanOutput", s.cleanOutput);
  r.Bool("nullToSpace", s.nullToSpace);
  r.Bool("wordWrap", s.wordWrap);
  r.String("font", s.font);
}

void ReadStatistics(const Reader& r, StatisticsSettings& s) {
  r.Int("maxItems", s.maxItems, 1, kMaxStatisticsItems);
  r.Int("victimPolicy", s.victimPolicy, 0, kMaxVictimPolicy);
}

void ReadLogging(const Reader& r, LoggingSettings& s) {
  r.Bool("enabled", s.enabled);
  r.Int("intervalSeconds", s.intervalSeconds, 1, kMaxLogSeconds);
  r.Bool("clearAfterLog", s.clearAfterLog);
  r.Int("form", s.form, 0, kMaxLogForm);
  r.Int("dataLevel", s.dataLevel, 0, kMaxDataLevel);
  r.Bool("wideIpGap", s.wideIpGap);
  r.String("nameTemplate", s.nameTemplate);
  r.String("folder", s.folder);
  r.Int("method", s.method, 0, kMaxLogMethod);
  r.Int64("maxFileKilobytes", s.maxFileKilobytes, 1, kMaxLogKilobytes);
  r.Int64("maxSpanSeconds", s.maxSpanSeconds, 1, kMaxLogSeconds);
  r.String("singleFilePath", s.singleFilePath);
  r.Bool("deleteOld", s.deleteOld);
  r.Int64("maxAgeSeconds", s.maxAgeSeconds, 0, kMaxLogSeconds);
  r.Int64("ageCheckSeconds", s.ageCheckSeconds, 1, kMaxLogSeconds);
  r.Window("window", s.window);
}

ProgramSettings SettingsFromObject(const Json& root) {
  ProgramSettings settings;
  const Reader r(&root);
  ReadGeneral(r.Group("general"), settings);
  ReadInterface(r.Group("interface"), settings.interface);
  ReadPacketMode(r.Group("packetMode"), settings.packetMode);
  ReadCodec(r.Group("codec"), settings.codec);
  ReadStatistics(r.Group("statistics"), settings.statistics);
  ReadLogging(r.Group("logging"), settings.logging);
  return settings;
}

}  // namespace

std::filesystem::path DefaultSettingsFile() { return ConfigDirectory() / kSettingsFileName; }

std::string SettingsToJson(const ProgramSettings& s) {
  const Json root{{"version", kSettingsVersion},
                  {"general", GeneralToJson(s)},
                  {"interface", InterfaceToJson(s.interface)},
                  {"packetMode", PacketModeToJson(s.packetMode)},
                  {"codec", CodecToJson(s.codec)},
                  {"statistics", StatisticsToJson(s.statistics)},
                  {"logging", LoggingToJson(s.logging)}};
  // Strings may hold bytes that are not UTF-8 (folder names); replace them instead of throwing.
  return root.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
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
  if (json.exists && !json.problem) load.settings = SettingsFromObject(json.object);
  return load;
}

bool SaveSettings(const ProgramSettings& settings, const std::filesystem::path& file,
                  std::string* error) {
  return WriteFileAtomically(file, SettingsToJson(settings), error);
}

}  // namespace vormelt
