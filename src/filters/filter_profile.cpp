// Reading and writing filter profiles as JSON. Everything from outside is checked field by field
// before it reaches a FilterSettings: a profile either loads whole or not at all.
#include "filters/filter_profile.hpp"

#include <functional>
#include <limits>
#include <system_error>

#include <nlohmann/json.hpp>

#include "common/json_file.hpp"
#include "common/paths.hpp"

namespace vormelt {
namespace {

using Json = nlohmann::json;

// Profiles are a few kilobytes; anything far larger is not one of ours and is not read whole.
constexpr std::uintmax_t kLargestProfileBytes = 16u * 1024 * 1024;
constexpr std::string_view kRangeKeys[kRangeKindCount] = {
    "sourceInRanges", "sourceNotInRanges", "destInRanges", "destNotInRanges", "eitherInRanges"};
constexpr std::string_view kPortKeys[kPortKindCount] = {
    "sourcePorts", "sourceNotPorts", "destPorts", "destNotPorts", "eitherPorts"};

Json RangesToJson(const std::vector<IpRange>& ranges) {
  Json list = Json::array();
  for (const IpRange& r : ranges) {
    list.push_back({{"from", r.from.ToString()}, {"to", r.to.ToString()}});
  }
  return list;
}

Json GeometryToJson(const WindowState& g) {
  return {{"valid", g.valid},         {"x", g.x},
          {"y", g.y},                 {"width", g.width},
          {"height", g.height},       {"maximized", g.maximized},
          {"minimized", g.minimized}};
}

Json WindowToJson(const FilterWindowState& w) {
  return {{"selectedRangeKind", w.selectedRangeKind},
          {"fromText", w.fromText},
          {"toText", w.toText},
          {"resolverText", w.resolverText},
          {"mustContainEntry", w.mustContainEntry},
          {"mustNotContainEntry", w.mustNotContainEntry},
          {"extensionAllowedEntry", w.extensionAllowedEntry},
          {"extensionDeniedEntry", w.extensionDeniedEntry},
          {"geometry", GeometryToJson(w.geometry)}};
}

// Reads the fields of one JSON object into C++ values. The first wrong field is remembered
// (by its path) and every later read is skipped, so callers can read straight through.
class FieldReader {
 public:
  FieldReader(const Json& object, std::string path, std::string* error)
      : object_(object), path_(std::move(path)), error_(error) {}

  template <typename Check, typename Store>
  void Read(std::string_view key, Check check, Store store) {
    if (!error_->empty()) return;
    const auto it = object_.find(key);
    if (it == object_.end()) return;  // a missing field keeps its default
    if (!check(*it)) {
      *error_ = path_ + std::string(key);
      return;
    }
    store(*it);
  }

  void Bool(std::string_view key, bool& out) {
    Read(key, [](const Json& j) { return j.is_boolean(); }, [&](const Json& j) { out = j.get<bool>(); });
  }
  void Int(std::string_view key, int& out, int lowest, int highest) {
    Read(key,
         [&](const Json& j) {
           return j.is_number_integer() && j.get<std::int64_t>() >= lowest &&
                  j.get<std::int64_t>() <= highest;
         },
         [&](const Json& j) { out = static_cast<int>(j.get<std::int64_t>()); });
  }
  void Uint32(std::string_view key, std::uint32_t& out) {
    Read(key,
         [](const Json& j) {
           return j.is_number_unsigned() ||
                  (j.is_number_integer() && j.get<std::int64_t>() >= 0);
         },
         [&](const Json& j) {
           const std::uint64_t v = j.get<std::uint64_t>();
           if (v > std::numeric_limits<std::uint32_t>::max()) *error_ = path_ + std::string(key);
           out = static_cast<std::uint32_t>(v);
         });
  }
  void String(std::string_view key, std::string& out) {
    Read(key, [](const Json& j) { return j.is_string(); }, [&](const Json& j) { out = j.get<std::string>(); });
  }
  void Strings(std::string_view key, std::vector<std::string>& out) {
    Read(key, IsArrayOf<&Json::is_string>, [&](const Json& j) {
      out = j.get<std::vector<std::string>>();
    });
  }
  void Ports(std::string_view key, std::vector<std::uint16_t>& out) {
    // A zero is no port; it is left out exactly as the window leaves it out.
    Read(key, IsArrayOf<&Json::is_number_unsigned>, [&](const Json& j) {
      out.clear();
      for (const Json& item : j) {
        const std::uint64_t port = item.get<std::uint64_t>();
        if (port > 65535) {
          *error_ = path_ + std::string(key);
          return;
        }
        if (port != 0) out.push_back(static_cast<std::uint16_t>(port));
      }
    });
  }
  void Ranges(std::string_view key, std::vector<IpRange>& out) {
    Read(key, IsArrayOf<&Json::is_object>, [&](const Json& j) {
      out.clear();
      for (const Json& item : j) {
        const std::optional<IpRange> range = ParseRange(item);
        if (!range) {
          *error_ = path_ + std::string(key);
          return;
        }
        out.push_back(*range);
      }
    });
  }
  void Object(std::string_view key, const std::function<void(FieldReader&)>& readInner) {
    Read(key, [](const Json& j) { return j.is_object(); }, [&](const Json& j) {
      FieldReader inner(j, path_ + std::string(key) + ".", error_);
      readInner(inner);
    });
  }

 private:
  template <bool (Json::*IsKind)() const noexcept>
  static bool IsArrayOf(const Json& j) {
    if (!j.is_array()) return false;
    for (const Json& item : j) {
      if (!(item.*IsKind)()) return false;
    }
    return true;
  }

  // A range holds two non-null addresses of one family, stored low end first as the window does.
  static std::optional<IpRange> ParseRange(const Json& item) {
    const auto from = item.find("from");
    const auto to = item.find("to");
    if (from == item.end() || to == item.end() || !from->is_string() || !to->is_string()) {
      return std::nullopt;
    }
    const auto range = ParseIpRange(from->get_ref<const std::string&>(), to->get_ref<const std::string&>());
    if (!range || IsNullAddress(range->from) || IsNullAddress(range->to)) return std::nullopt;
    return range;
  }

  const Json& object_;
  std::string path_;
  std::string* error_;
};

void ReadValues(FieldReader& r, FilterValues& v) {
  for (int k = 0; k < kRangeKindCount; ++k) {
    r.Ranges(kRangeKeys[k], v.Ranges(static_cast<RangeKind>(k)));
  }
  for (int k = 0; k < kPortKindCount; ++k) {
    r.Ports(kPortKeys[k], v.Ports(static_cast<PortKind>(k)));
  }
  r.Strings("mustContain", v.mustContain);
  r.Strings("mustNotContain", v.mustNotContain);
  r.Strings("extensionsAllowed", v.extensionsAllowed);
  r.Strings("extensionsDenied", v.extensionsDenied);
  r.Uint32("minPacketSize", v.minPacketSize);
  r.Uint32("maxPacketSize", v.maxPacketSize);
  r.Uint32("minFileSize", v.minFileSize);
  r.Uint32("maxFileSize", v.maxFileSize);
  r.Bool("allowTcp", v.allowTcp);
  r.Bool("allowUdp", v.allowUdp);
  r.Bool("allowIcmp", v.allowIcmp);
  r.Bool("allowOther", v.allowOther);
  r.Bool("allowArp", v.allowArp);
}

void ReadWindow(FieldReader& r, FilterWindowState& w) {
  r.Int("selectedRangeKind", w.selectedRangeKind, -1, kRangeKindCount - 1);
  r.String("fromText", w.fromText);
  r.String("toText", w.toText);
  r.String("resolverText", w.resolverText);
  r.String("mustContainEntry", w.mustContainEntry);
  r.String("mustNotContainEntry", w.mustNotContainEntry);
  r.String("extensionAllowedEntry", w.extensionAllowedEntry);
  r.String("extensionDeniedEntry", w.extensionDeniedEntry);
  r.Object("geometry", [&](FieldReader& g) {
    constexpr int kLargest = 1 << 20;  // no screen is a million pixels wide
    g.Bool("valid", w.geometry.valid);
    g.Int("x", w.geometry.x, -kLargest, kLargest);
    g.Int("y", w.geometry.y, -kLargest, kLargest);
    g.Int("width", w.geometry.width, 0, kLargest);
    g.Int("height", w.geometry.height, 0, kLargest);
    g.Bool("maximized", w.geometry.maximized);
    g.Bool("minimized", w.geometry.minimized);
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
    root[std::string(kRangeKeys[k])] = RangesToJson(v.Ranges(static_cast<RangeKind>(k)));
  }
  for (int k = 0; k < kPortKindCount; ++k) {
    root[std::string(kPortKeys[k])] = v.Ports(static_cast<PortKind>(k));
  }
  root["mustContain"] = v.mustContain;
  root["mustNotContain"] = v.mustNotContain;
  root["extensionsAllowed"] = v.extensionsAllowed;
  root["extensionsDenied"] = v.extensionsDenied;
  root["minPacketSize"] = v.minPacketSize;
  root["maxPacketSize"] = v.maxPacketSize;
  root["minFileSize"] = v.minFileSize;
  root["maxFileSize"] = v.maxFileSize;
  root["allowTcp"] = v.allowTcp;
  root["allowUdp"] = v.allowUdp;
  root["allowIcmp"] = v.allowIcmp;
  root["allowOther"] = v.allowOther;
  root["allowArp"] = v.allowArp;
  root["window"] = WindowToJson(profile.window);
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
