// Reading and writing filter profiles as JSON. Everything from outside is checked field by field
// before it reaches a FilterSettings: a profile either loads whole or not at all.
#include "filters/filter_profile.hpp"

#include <limits>
#include <system_error>

#include <nlohmann/json.hpp>

#include "common/json_file.hpp"
#include "common/settings_store.hpp"
#include "common/paths.hpp"

namespace vormelt {
namespace {

// Insertion order: the file lists its keys in the order they are written below.
using Json = nlohmann::ordered_json;

// Profiles are a few kilobytes; anything far larger is not one of ours and is not read whole.
constexpr std::uintmax_t kLargestProfileBytes = 16u * 1024 * 1024;
constexpr std::string_view kRangeKeys[kRangeKindCount] = {
    "sourceInRanges", "sourceNotInRanges", "destInRanges", "destNotInRanges", "eitherInRanges"};
constexpr std::string_view kPortKeys[kPortKindCount] = {
    "sourcePorts", "sourceNotPorts", "destPorts", "destNotPorts", "eitherPorts"};

// The plain fields, each written and read under one name, in the order of the file.
template <typename Owner, typename T>
struct Plain {
  const char* key;
  T Owner::*member;
};
constexpr Plain<FilterValues, std::vector<std::string>> kTextLists[] = {
    {"mustContain", &FilterValues::mustContain}, {"mustNotContain", &FilterValues::mustNotContain},
    {"extensionsAllowed", &FilterValues::extensionsAllowed},
    {"extensionsDenied", &FilterValues::extensionsDenied}};
constexpr Plain<FilterValues, std::uint32_t> kSizes[] = {
    {"minPacketSize", &FilterValues::minPacketSize}, {"maxPacketSize", &FilterValues::maxPacketSize},
    {"minFileSize", &FilterValues::minFileSize}, {"maxFileSize", &FilterValues::maxFileSize}};
constexpr Plain<FilterValues, bool> kFlags[] = {
    {"allowTcp", &FilterValues::allowTcp}, {"allowUdp", &FilterValues::allowUdp},
    {"allowIcmp", &FilterValues::allowIcmp}, {"allowOther", &FilterValues::allowOther},
    {"allowArp", &FilterValues::allowArp}};
constexpr Plain<FilterWindowState, std::string> kWindowTexts[] = {
    {"fromText", &FilterWindowState::fromText}, {"toText", &FilterWindowState::toText},
    {"resolverText", &FilterWindowState::resolverText},
    {"mustContainEntry", &FilterWindowState::mustContainEntry},
    {"mustNotContainEntry", &FilterWindowState::mustNotContainEntry},
    {"extensionAllowedEntry", &FilterWindowState::extensionAllowedEntry},
    {"extensionDeniedEntry", &FilterWindowState::extensionDeniedEntry}};

template <typename Owner, typename T, std::size_t N>
void WritePlain(Json& object, const Owner& owner, const Plain<Owner, T> (&fields)[N]) {
  for (const auto& field : fields) object[field.key] = owner.*field.member;
}

// One address range as the file keeps it: two addresses, "from" and "to", dotted for IPv4 and
// in RFC 5952 text for IPv6, so a profile of IPv4 ranges reads as it always did.
Json RangeToJson(const IpRange& range) {
  return {{"from", range.from.ToString()}, {"to", range.to.ToString()}};
}
// A range holds two non-null addresses of one family, stored low end first as the window does.
std::optional<IpRange> RangeFromJson(const Json& item) {
  if (!item.is_object()) return std::nullopt;
  const auto from = item.find("from");
  const auto to = item.find("to");
  if (from == item.end() || to == item.end() || !from->is_string() || !to->is_string()) {
    return std::nullopt;
  }
  const auto range = ParseIpRange(from->get_ref<const std::string&>(), to->get_ref<const std::string&>());
  if (!range || IsNullAddress(range->from) || IsNullAddress(range->to)) return std::nullopt;
  return range;
}

using Type = SettingRule::Type;

// Reads the fields of one JSON object by the settings' own value rules. A profile loads whole or
// not at all, so the first wrong field is remembered (by its path) and every later read is
// skipped; callers read straight through.
class FieldReader {
 public:
  FieldReader(const Json& object, std::string path, std::string* error)
      : object_(object), path_(std::move(path)), error_(error) {}

  template <typename T>
  void Read(std::string_view key, const SettingRule& rule, T& out) {
    if (const Json* value = Find(key); value && !TakeValue(*value, rule, out)) Fail(key);
  }
  void Ports(std::string_view key, std::vector<std::uint16_t>& out) {
    std::vector<int> ports;
    const Json* value = Find(key);
    if (!value) return;
    const std::size_t count = value->is_array() ? value->size() : 0;
    if (!TakeValue(*value, SettingRule::Of(Type::IntegerList, 0, 65535, count), ports)) {
      return Fail(key);
    }
    // A zero is no port; it is left out exactly as the window leaves it out.
    out.clear();
    for (const int port : ports) {
      if (port != 0) out.push_back(static_cast<std::uint16_t>(port));
    }
  }
  void Ranges(std::string_view key, std::vector<IpRange>& out) {
    const Json* value = Find(key);
    if (!value) return;
    if (!value->is_array()) return Fail(key);
    std::vector<IpRange> ranges;
    for (const Json& item : *value) {
      const std::optional<IpRange> range = RangeFromJson(item);
      if (!range) return Fail(key);
      ranges.push_back(*range);
    }
    out = std::move(ranges);
  }
  // A nested object, read by `readInner`; anything else in its place is wrong.
  template <typename Inner>
  void Object(std::string_view key, Inner readInner) {
    const Json* value = Find(key);
    if (!value) return;
    if (!value->is_object()) return Fail(key);
    FieldReader inner(*value, path_ + std::string(key) + ".", error_);
    readInner(inner);
  }
  const Json& object() const { return object_; }
  void Fail(std::string_view key) {
    if (error_->empty()) *error_ = path_ + std::string(key);
  }

 private:
  // A missing field keeps its default; after a failure nothing more is read.
  const Json* Find(std::string_view key) const {
    if (!error_->empty()) return nullptr;
    const auto it = object_.find(key);
    return it == object_.end() ? nullptr : &*it;
  }

  const Json& object_;
  std::string path_;
  std::string* error_;
};

template <typename Owner, typename T, std::size_t N>
void ReadPlain(FieldReader& r, const SettingRule& rule, Owner& owner, const Plain<Owner, T> (&fields)[N]) {
  for (const auto& field : fields) r.Read(field.key, rule, owner.*field.member);
}

void ReadValues(FieldReader& r, FilterValues& v) {
  for (int k = 0; k < kRangeKindCount; ++k) {
    r.Ranges(kRangeKeys[k], v.Ranges(static_cast<RangeKind>(k)));
  }
  for (int k = 0; k < kPortKindCount; ++k) {
    r.Ports(kPortKeys[k], v.Ports(static_cast<PortKind>(k)));
  }
  ReadPlain(r, SettingRule::Of(Type::Text), v, kTextLists);
  ReadPlain(r, SettingRule::Of(Type::Integer, 0, std::numeric_limits<std::uint32_t>::max()), v, kSizes);
  ReadPlain(r, SettingRule::Of(Type::Bool), v, kFlags);
}

void ReadWindow(FieldReader& r, FilterWindowState& w) {
  r.Read("selectedRangeKind", SettingRule::Of(Type::Integer, -1, kRangeKindCount - 1),
         w.selectedRangeKind);
  ReadPlain(r, SettingRule::Of(Type::Text), w, kWindowTexts);
  r.Object("geometry", [&](FieldReader& g) {
    if (const std::string refused = ReadWindowState(g.object(), w.geometry); !refused.empty()) {
      g.Fail(refused);
    }
  });
}

ProfileResult Failure(ProfileProblem problem, std::string detail) {
  ProfileResult result;
  result.problem = problem;
  result.detail = std::move(detail);
  return result;
}

ProfileResult ReadProfile(const Json& root) {
  if (!root.is_object()) return Failure(ProfileProblem::Invalid, "not an object");
  const auto version = root.find("version");
  if (version == root.end() || !version->is_number_integer() ||
      version->get<std::int64_t>() < 1) {
    return Failure(ProfileProblem::Invalid, "version");
  }
  if (version->get<std::int64_t>() > kFilterProfileVersion) {
    return Failure(ProfileProblem::TooNew, {});
  }

  FilterProfile profile;
  std::string error;
  FieldReader reader(root, "", &error);
  ReadValues(reader, profile.values);
  reader.Object("window", [&](FieldReader& w) { ReadWindow(w, profile.window); });
  if (!error.empty()) return Failure(ProfileProblem::Invalid, error);

  ProfileResult result;
  result.profile = std::move(profile);
  return result;
}


}  // namespace

std::string SerializeFilterProfile(const FilterProfile& profile) {
  const FilterValues& v = profile.values;
  Json root = {{"version", kFilterProfileVersion}};
  for (int k = 0; k < kRangeKindCount; ++k) {
    Json& list = root[std::string(kRangeKeys[k])] = Json::array();
    for (const IpRange& range : v.Ranges(static_cast<RangeKind>(k))) list.push_back(RangeToJson(range));
  }
  for (int k = 0; k < kPortKindCount; ++k) {
    root[std::string(kPortKeys[k])] = v.Ports(static_cast<PortKind>(k));
  }
  WritePlain(root, v, kTextLists);
  WritePlain(root, v, kSizes);
  WritePlain(root, v, kFlags);
  Json& window = root["window"] = {{"selectedRangeKind", profile.window.selectedRangeKind}};
  WritePlain(window, profile.window, kWindowTexts);
  window["geometry"] = WindowStateToJson(profile.window.geometry);
  // Texts come from the window as UTF-8; a stray invalid byte is replaced rather than thrown on.
  return root.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

ProfileResult ParseFilterProfile(std::string_view text) {
  Json root;
  try {
    root = Json::parse(text.begin(), text.end());
  } catch (const Json::exception& e) {
    return Failure(ProfileProblem::NotJson, JsonParserMessage(e.what()));
  }
  try {
    return ReadProfile(root);
  } catch (const std::exception& e) {
    // Every field is type-checked before it is read; this is only a last line of defence.
    return Failure(ProfileProblem::Invalid, JsonParserMessage(e.what()));
  }
}

ProfileResult LoadFilterProfile(const std::filesystem::path& file) {
  FileRead read = ReadSmallFile(file, kLargestProfileBytes);
  if (!read.exists) return Failure(ProfileProblem::Missing, {});
  if (read.tooLarge) return Failure(ProfileProblem::Invalid, "too large");
  if (!read.ok) return Failure(ProfileProblem::Unreadable, read.error);
  return ParseFilterProfile(read.content);
}

ProfileResult SaveFilterProfile(const FilterProfile& profile, const std::filesystem::path& file) {
  std::string error;
  if (!WriteFileAtomically(file, SerializeFilterProfile(profile), &error)) {
    return Failure(ProfileProblem::WriteFailed, error);
  }
  return {};
}

std::filesystem::path CurrentProfilePath(FilterMode mode) {
  const char* name = mode == FilterMode::Packet ? "CurrentPacketModeFilterProfile.HBFP"
                                                : "CurrentFileModeFilterProfile.HBFP";
  return ConfigDirectory() / name;
}

void ApplyProfile(const FilterProfile& profile, FilterSettings& settings) {
  settings.SetAll(profile.values);
}

FilterProfile ProfileFromSettings(const FilterSettings& settings, FilterWindowState window) {
  return FilterProfile{settings.Values(), std::move(window)};
}

std::string LoadCurrentProfileInto(FilterMode mode, FilterSettings& settings,
                                   UiLanguage language) {
  const std::filesystem::path file = CurrentProfilePath(mode);
  const ProfileResult result = LoadFilterProfile(file);
  if (result.ok()) {
    ApplyProfile(*result.profile, settings);
    return {};
  }
  if (result.problem == ProfileProblem::Missing) return {};

  // A damaged profile moves aside for the user to look at, under a name that never replaces an
  // earlier copy; the next load then finds no file and is silent, so this is said only once.
  std::string message = DescribeProfileProblem(result, file, language);
  if (result.problem == ProfileProblem::Unreadable) return message;
  std::string moveError;
  const std::filesystem::path aside = KeepDamagedFile(file, &moveError);
  if (!aside.empty()) {
    message += " " + FormatText(Text::FilterProfileKeptAside, language, aside.string().c_str());
  }
  return message;
}

std::string DescribeProfileProblem(const ProfileResult& result,
                                   const std::filesystem::path& file, UiLanguage language) {
  const std::string name = file.string();
  switch (result.problem) {
    case ProfileProblem::None: return {};
    case ProfileProblem::Missing: return FormatText(Text::FilterProfileMissing, language, name.c_str());
    case ProfileProblem::Unreadable:
      return FormatText(Text::FilterProfileUnreadable, language, name.c_str(), result.detail.c_str());
    case ProfileProblem::NotJson:
      return FormatText(Text::FilterProfileNotJson, language, name.c_str(), result.detail.c_str());
    case ProfileProblem::Invalid:
      return FormatText(Text::FilterProfileInvalid, language, name.c_str(), result.detail.c_str());
    case ProfileProblem::TooNew: return FormatText(Text::FilterProfileTooNew, language, name.c_str());
    case ProfileProblem::WriteFailed:
      return FormatText(Text::FilterProfileWriteFailed, language, name.c_str(), result.detail.c_str());
  }
  return {};
}

}  // namespace vormelt
