// Names are built token by token in a fixed order (upper case first, the "%DAT" character
// swaps), and only then checked: a template or header that yields a name which could climb out
// of the folder makes the file invalid, and an invalid file is skipped, never "repaired".
#include "filemode/naming.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <utility>

#include "common/unique_fd.hpp"
#include "filters/filter_settings.hpp"
#include "packets/format.hpp"

namespace vormelt::filemode {
namespace {

constexpr mode_t kFolderMode = 0755;
constexpr unsigned kFileMode = 0644;

void ReplaceAll(std::string& text, std::string_view token, std::string_view value) {
  for (std::size_t at = text.find(token); at != std::string::npos;
       at = text.find(token, at + value.size())) {
    text.replace(at, token.size(), value);
  }
}

std::string Count(std::uint64_t value) {
  char text[24];
  std::snprintf(text, sizeof text, "%" PRIu64, value);
  return text;
}

std::string DateText(std::string_view dateTimeTemplate, const LocalTime& time) {
  std::string text = format::ExpandDateTime(dateTimeTemplate, time);
  std::replace(text.begin(), text.end(), ':', '.');
  std::replace(text.begin(), text.end(), '\\', '/');
  return text;
}

// Descends into (creating first) each sub-folder the levels ask for. Creation failures are
// ignored, as a folder that already exists is the usual case; opening decides.
UniqueFd EnterSubfolders(UniqueFd folder, const NamingOptions& options, std::string_view extension,
                   const IpAddress& source, const IpAddress& destination,
                         std::string& relative) {
  if (!options.createSubfolders) return folder;
  for (const SubfolderChoice level : options.levels) {
    std::string component;
    if (level == SubfolderChoice::Source) component = source.ToString();
    if (level == SubfolderChoice::Destination) component = destination.ToString();
    if (level == SubfolderChoice::Extension) component = std::string(extension);
    if (component.empty()) continue;
    if (!IsSafeComponent(component)) {
      errno = EINVAL;
      return UniqueFd();
    }
    ::mkdirat(folder.get(), component.c_str(), kFolderMode);
    folder = UniqueFd(::openat(folder.get(), component.c_str(),
                         O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (folder.get() < 0) return folder;
    relative += component + "/";
  }
  return folder;
}

// How a name stands in the folder: free, taken, or (when over-writing) taken by something a
// file may not replace. Only regular files are ever over-written; a link, a folder or a FIFO
// under the name is an error to tell, not a thing to follow or remove.
enum class NameState : std::uint8_t { Free, Taken, NotAFile, Unusable };

NameState StateOf(int folder, const std::string& fileName, int& error) {
  struct stat status {};
  if (::fstatat(folder, fileName.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0) {
    if (S_ISREG(status.st_mode)) return NameState::Taken;
    error = S_ISLNK(status.st_mode) ? ELOOP : S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
    return NameState::NotAFile;
  }
  error = errno;
  return errno == ENOENT ? NameState::Free : NameState::Unusable;
}

}  // namespace

SubfolderChoice ToSubfolderChoice(std::int32_t stored) {
  if (stored >= 1 && stored <= 3) return static_cast<SubfolderChoice>(stored);
  return SubfolderChoice::None;
}

std::string ExpandName(std::string_view nameTemplate, std::string_view dateTimeTemplate,
                       const NameFields& fields) {
  const std::string sip = fields.source.ToString();
  const std::string dip = fields.destination.ToString();
  const std::string dat = DateText(dateTimeTemplate, fields.completed);
  const std::string fcs = Count(fields.counts.sinceStart);
  const std::string fcl = Count(fields.counts.sinceLaunch);
  const std::string fci = Count(fields.counts.installed);
  const std::string fcc = Count(fields.counts.custom);
  std::string name(nameTemplate);
  for (const bool upper : {true, false}) {
    ReplaceAll(name, upper ? "%SIP" : "%sip", sip);
    ReplaceAll(name, upper ? "%DIP" : "%dip", dip);
    ReplaceAll(name, upper ? "%DAT" : "%dat", dat);
    ReplaceAll(name, upper ? "%FCS" : "%fcs", fcs);
    ReplaceAll(name, upper ? "%FCL" : "%fcl", fcl);
    ReplaceAll(name, upper ? "%FCI" : "%fci", fci);
    ReplaceAll(name, upper ? "%FCC" : "%fcc", fcc);
  }
  return name;
}

bool IsSafeComponent(std::string_view name) {
  if (name.empty() || name == "." || name == "..") return false;
  return std::none_of(name.begin(), name.end(), [](char c) {
    const auto byte = static_cast<unsigned char>(c);
    return c == '/' || c == '\\' || byte < 0x20 || byte == 0x7f;
  });
}

std::string SafeExtension(std::string_view extension) {
  if (!IsSafeComponent(extension) || extension.front() == '.') {
    return std::string(kDefaultExtension);
  }
  return std::string(extension);
}

std::string_view SubfolderSample(SubfolderChoice level) {
  switch (level) {
    case SubfolderChoice::Source: return "\\200.200.200.200";
    case SubfolderChoice::Destination: return "\\192.168.0.100";
    case SubfolderChoice::Extension: return "\\html";
    case SubfolderChoice::None: break;
  }
  return {};
}

std::string TrimFolder(std::string_view folder) {
  std::string text(folder.substr(0, std::min(folder.size(), kFolderTextLimit)));
  while (!text.empty() && (text.back() == '/' || text.back() == '\\')) text.pop_back();
  return text;
}

PlacedFile PlaceFile(const NamingOptions& options, std::string_view name,
                     std::string_view extension, const IpAddress& source,
                     const IpAddress& destination,
                     const FileFiller& fill) {
  PlacedFile result;
  const std::string folderText = TrimFolder(options.folder);
  result.path = folderText + "/" + std::string(name) + "." + std::string(extension);
  if (!IsSafeComponent(name)) {
    result.outcome = PlaceOutcome::InvalidName;
    return result;
  }
  UniqueFd folder(::open(folderText.empty() ? "/" : folderText.c_str(),
                         O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  std::string relative;
  if (folder.get() >= 0) {
    folder = EnterSubfolders(std::move(folder), options, extension, source, destination, relative);
  }
  const std::string base = folderText + "/" + relative + std::string(name);
  result.path = base + "." + std::string(extension);
  if (folder.get() < 0) {
    result.error = errno != 0 ? errno : ENOENT;
    return result;
  }

  const std::string stem(name);
  for (long number = 1; number <= kLastNumberedSuffix; ++number) {
    const std::string suffix = number == 1 ? "" : "_" + std::to_string(number);
    const std::string fileName = stem + suffix + "." + std::string(extension);
    result.path = base + suffix + "." + std::string(extension);
    int error = 0;
    switch (StateOf(folder.get(), fileName, error)) {
      case NameState::Free: break;
      case NameState::Taken:
        if (options.overwrite) break;
        continue;
      case NameState::NotAFile:
        if (!options.overwrite) continue;
        result.error = error;
        return result;
      case NameState::Unusable:
        result.outcome = error == ENAMETOOLONG ? PlaceOutcome::InvalidName : PlaceOutcome::Failed;
        result.error = error;
        return result;
    }
    FileBeside file = FileBeside::Create(folder.get(), fileName, error, kFileMode);
    if (!file) {
      // The part name is a few characters longer than the final one.
      result.outcome = error == ENAMETOOLONG ? PlaceOutcome::InvalidName : PlaceOutcome::Failed;
      result.error = error;
      return result;
    }
    fill(file);
    result.written = file.written();
    // Rebuilt files come by the hundred: each appears whole or not at all, without a flush each.
    error = file.Commit(options.overwrite, /*durable=*/false);
    if (error == 0) {
      result.outcome = PlaceOutcome::Written;
      return result;
    }
    // Someone else took the name while this one was written: the next number, as for a name
    // that was taken from the start.
    if (error == EEXIST && !options.overwrite) continue;
    result.created = true;
    result.error = error;
    return result;
  }
  result.outcome = PlaceOutcome::AllTaken;
  result.error = 0;
  return result;
}

}  // namespace vormelt::filemode
