// ProgramSettings <-> JSON in settings.json.
// Reading is lenient key by key: one bad value costs that value, never the whole file.
#include "common/settings_store.hpp"

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <initializer_list>
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
constexpr int kFirstDataForm = 1, kLastDataForm = 4;
constexpr int kMaxCodecInputType = 2;
constexpr int kMaxCodecOutputType = 3;
constexpr int kMaxStatisticsItems = 8192;  // the statistics tables' fixed capacity
constexpr int kMaxVictimPolicy = 2;
// Graphical Packets Mode bounds, as its settings dialog and keys enforce them.
constexpr int kMinBlinkMode = -1, kMaxBlinkMode = 3;
constexpr int kMaxIpTimeout = 300;
constexpr int kMaxRefreshSeconds = 3600;
constexpr int kMaxPixelSpeed = 10;
constexpr int kMaxExtraDelayMs = 1000;
constexpr int kMaxCircularity = 20;
constexpr int kMaxLogMethod = 3;
// File Mode's sub-folder levels: -1 and 0 none, 1 source, 2 destination address, 3 extension.
constexpr int kFirstSubfolderChoice = -1, kLastSubfolderChoice = 3;
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

Json SavingToJson(const SavingSettings& s) {
  return Json{{"saveData", s.saveData},     {"dataForm", s.dataForm},
              {"dataLevel", s.dataLevel},   {"onlyListed", s.onlyListed},
              {"append", s.append},         {"lastFolder", s.lastFolder},
              {"loadForm", s.loadForm},     {"loadThroughFilters", s.loadThroughFilters}};
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
              {"lastFolder", s.lastFolder},
              {"saving", SavingToJson(s.saving)}};
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

Json GraphicalToJson(const GraphicalSettings& s) {
  return Json{{"pixelMode", s.pixelMode},
              {"curvedLines", s.curvedLines},
              {"slowMode", s.slowMode},
              {"blinkMode", s.blinkMode},
              {"ipTimeout", s.ipTimeout},
              {"straightPixels", s.straightPixels},
              {"quadPixels", s.quadPixels},
              {"refreshPeriodically", s.refreshPeriodically},
              {"refreshSeconds", s.refreshSeconds},
              {"pixelSpeed", s.pixelSpeed},
              {"extraDelayMs", s.extraDelayMs},
              {"circularity", s.circularity},
              {"oscillate", s.oscillate},
              {"chirp", s.chirp},
              {"replaySpeed", s.replaySpeed}};
}

Json FileModeToJson(const FileModeSettings& s) {
  return Json{{"window", WindowToJson(s.window)},
              {"filterWindow", WindowToJson(s.filterWindow)},
              {"overwrite", s.overwrite},
              {"onlyHttp", s.onlyHttp},
              {"acceptPartial", s.acceptPartial},
              {"dirtyMode", s.dirtyMode},
              {"pshOnly", s.pshOnly},
              {"latestDuplicates", s.latestDuplicates},
              {"applyFilters", s.applyFilters},
              {"shortExtensions", s.shortExtensions},
              {"ackTimeoutMs", s.ackTimeoutMs},
              {"folder", s.folder},
              {"nameTemplate", s.nameTemplate},
              {"dateTimeTemplate", s.dateTimeTemplate},
              {"createSubfolders", s.createSubfolders},
              {"subfolderLevels", s.subfolderLevels},
              {"countInstalled", s.countInstalled},
              {"countCustom", s.countCustom},
              {"lastCaptureFolder", s.lastCaptureFolder}};
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
//
// The same reading also states each key's rule: run over nothing with a RuleQuery, it records
// the type and bounds of the one key asked for, so `settings set` checks and describes a value
// by the very rule that loading applies.
struct RuleQuery {
  std::string_view key;  // dotted: "statistics.maxItems"
  std::optional<SettingRule> found;
};

SettingRule Rule(SettingRule::Type type, long long min = 0, long long max = 0) {
  SettingRule rule;
  rule.type = type;
  rule.min = min;
  rule.max = max;
  return rule;
}

class Reader {
 public:
  explicit Reader(const Json* value, RuleQuery* query = nullptr, std::string prefix = {})
      : object_(value && value->is_object() ? value : nullptr),
        query_(query),
        prefix_(std::move(prefix)) {}

  Reader Group(const char* key) const {
    return Reader(Find(key), query_, query_ ? prefix_ + key + "." : std::string());
  }

  void Bool(const char* key, bool& out) const {
    Note(key, Rule(SettingRule::Type::Bool));
    if (const Json* v = Find(key); v && v->is_boolean()) out = v->get<bool>();
  }

  void Int(const char* key, int& out, long long min = std::numeric_limits<int>::min(),
           long long max = std::numeric_limits<int>::max()) const {
    Note(key, Rule(SettingRule::Type::Integer, min, max));
    const Json* v = Find(key);
    if (!v) return;
    if (auto n = AsInteger(*v); n && *n >= min && *n <= max) out = static_cast<int>(*n);
  }

  // An integer that must be one of `values`.
  void IntOf(const char* key, int& out, std::initializer_list<int> values) const {
    SettingRule rule = Rule(SettingRule::Type::Integer, std::min(values), std::max(values));
    rule.only.assign(values.begin(), values.end());
    Note(key, rule);
    const Json* v = Find(key);
    if (!v) return;
    if (auto n = AsInteger(*v); n && std::ranges::find(values, *n) != values.end()) {
      out = static_cast<int>(*n);
    }
  }

  template <typename Enum>
  void EnumValue(const char* key, Enum& out, int max) const {
    int n = static_cast<int>(out);
    Int(key, n, 0, max);
    out = static_cast<Enum>(n);
  }

  void UInt64(const char* key, std::uint64_t& out) const {
    Note(key, Rule(SettingRule::Type::Unsigned));
    if (const Json* v = Find(key); v && v->is_number_unsigned()) out = v->get<std::uint64_t>();
  }

  void Int64(const char* key, std::int64_t& out, long long min, long long max) const {
    Note(key, Rule(SettingRule::Type::Integer, min, max));
    const Json* v = Find(key);
    if (!v) return;
    if (auto n = AsInteger(*v); n && *n >= min && *n <= max) out = *n;
  }

  void String(const char* key, std::string& out) const {
    Note(key, Rule(SettingRule::Type::Text));
    if (const Json* v = Find(key); v && v->is_string()) out = v->get<std::string>();
  }

  // A list of integers within [min, max]: exactly `size` of them, or up to kMaxListEntries
  // when `size` is 0.
  void IntList(const char* key, std::vector<int>& out,
               long long min = std::numeric_limits<int>::min(),
               long long max = std::numeric_limits<int>::max(), std::size_t size = 0) const {
    SettingRule rule = Rule(SettingRule::Type::IntegerList, min, max);
    rule.listSize = size;
    rule.maxListSize = size ? size : kMaxListEntries;
    Note(key, rule);
    const Json* v = Find(key);
    if (!v || !v->is_array() || v->size() > rule.maxListSize || (size && v->size() != size)) return;
    std::vector<int> list;
    for (const Json& item : *v) {
      auto n = AsInteger(item);
      if (!n || *n < min || *n > max) {
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
  void Note(const char* key, SettingRule rule) const {
    if (query_ && query_->key == prefix_ + key) query_->found = std::move(rule);
  }

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
  RuleQuery* query_;
  std::string prefix_;  // of the key names, only while answering a query
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

void ReadCapture(const Reader& r, InterfaceSettings& s) {
  r.Int("bufferMiB", s.bufferMiB, kMinCaptureBufferMiB, kMaxCaptureBufferMiB);
}

void ReadSaving(const Reader& r, SavingSettings& s) {
  r.Bool("saveData", s.saveData);
  r.Int("dataForm", s.dataForm, kFirstDataForm, kLastDataForm);
  r.Int("dataLevel", s.dataLevel, 0, kMaxDataLevel);
  r.Bool("onlyListed", s.onlyListed);
  r.Bool("append", s.append);
  r.String("lastFolder", s.lastFolder);
  r.Int("loadForm", s.loadForm, kFirstDataForm, kLastDataForm);
  r.Bool("loadThroughFilters", s.loadThroughFilters);
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
  ReadSaving(r.Group("saving"), s.saving);
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

void ReadGraphical(const Reader& r, GraphicalSettings& s) {
  r.Bool("pixelMode", s.pixelMode);
  r.Bool("curvedLines", s.curvedLines);
  r.Bool("slowMode", s.slowMode);
  r.Int("blinkMode", s.blinkMode, kMinBlinkMode, kMaxBlinkMode);
  r.Int("ipTimeout", s.ipTimeout, 0, kMaxIpTimeout);
  r.Bool("straightPixels", s.straightPixels);
  r.Bool("quadPixels", s.quadPixels);
  r.Bool("refreshPeriodically", s.refreshPeriodically);
  r.Int("refreshSeconds", s.refreshSeconds, 1, kMaxRefreshSeconds);
  r.Int("pixelSpeed", s.pixelSpeed, 1, kMaxPixelSpeed);
  r.Int("extraDelayMs", s.extraDelayMs, 0, kMaxExtraDelayMs);
  r.Int("circularity", s.circularity, 0, kMaxCircularity);
  r.Bool("oscillate", s.oscillate);
  r.Bool("chirp", s.chirp);
  r.IntOf("replaySpeed", s.replaySpeed, {1, 10, 100});
}

void ReadFileMode(const Reader& r, FileModeSettings& s) {
  r.Window("window", s.window);
  r.Window("filterWindow", s.filterWindow);
  r.Bool("overwrite", s.overwrite);
  r.Bool("onlyHttp", s.onlyHttp);
  r.Bool("acceptPartial", s.acceptPartial);
  r.Bool("dirtyMode", s.dirtyMode);
  r.Bool("pshOnly", s.pshOnly);
  r.Bool("latestDuplicates", s.latestDuplicates);
  r.Bool("applyFilters", s.applyFilters);
  r.Bool("shortExtensions", s.shortExtensions);
  r.Int("ackTimeoutMs", s.ackTimeoutMs);
  r.String("folder", s.folder);
  r.String("nameTemplate", s.nameTemplate);
  r.String("dateTimeTemplate", s.dateTimeTemplate);
  r.Bool("createSubfolders", s.createSubfolders);
  r.IntList("subfolderLevels", s.subfolderLevels, kFirstSubfolderChoice, kLastSubfolderChoice,
            s.subfolderLevels.size());
  r.UInt64("countInstalled", s.countInstalled);
  r.UInt64("countCustom", s.countCustom);
  r.String("lastCaptureFolder", s.lastCaptureFolder);
}

void ReadLogging(const Reader& r, LoggingSettings& s) {
  r.Bool("enabled", s.enabled);
  r.Int("intervalSeconds", s.intervalSeconds, 1, kMaxLogSeconds);
  r.Bool("clearAfterLog", s.clearAfterLog);
  r.Int("form", s.form, 0, kLogFormPcapng);
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

void ReadService(const Reader& r, ServiceSettings& s) { r.String("metricsListen", s.metricsListen); }

ProgramSettings ReadSettings(const Reader& r) {
  ProgramSettings settings;
  ReadGeneral(r.Group("general"), settings);
  ReadInterface(r.Group("interface"), settings.interface);
  ReadCapture(r.Group("capture"), settings.interface);
  ReadPacketMode(r.Group("packetMode"), settings.packetMode);
  ReadCodec(r.Group("codec"), settings.codec);
  ReadStatistics(r.Group("statistics"), settings.statistics);
  ReadGraphical(r.Group("graphical"), settings.graphical);
  ReadFileMode(r.Group("fileMode"), settings.fileMode);
  ReadLogging(r.Group("logging"), settings.logging);
  ReadService(r.Group("service"), settings.service);
  return settings;
}

ProgramSettings SettingsFromObject(const Json& root) { return ReadSettings(Reader(&root)); }

}  // namespace

std::filesystem::path DefaultSettingsFile() { return ConfigDirectory() / kSettingsFileName; }

std::string SettingsToJson(const ProgramSettings& s) {
  const Json root{{"version", kSettingsVersion},
                  {"general", GeneralToJson(s)},
                  {"interface", InterfaceToJson(s.interface)},
                  {"capture", Json{{"bufferMiB", s.interface.bufferMiB}}},
                  {"packetMode", PacketModeToJson(s.packetMode)},
                  {"codec", CodecToJson(s.codec)},
                  {"statistics", StatisticsToJson(s.statistics)},
                  {"graphical", GraphicalToJson(s.graphical)},
                  {"fileMode", FileModeToJson(s.fileMode)},
                  {"logging", LoggingToJson(s.logging)},
                  {"service", Json{{"metricsListen", s.service.metricsListen}}}};
  // Strings may hold bytes that are not UTF-8 (folder names); replace them instead of throwing.
  return root.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

std::optional<SettingRule> FindSettingRule(std::string_view key) {
  RuleQuery query{key, std::nullopt};
  (void)ReadSettings(Reader(nullptr, &query));
  return query.found;
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
