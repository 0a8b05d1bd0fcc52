// The small JSON files of the program (settings, install record, filter profiles) are read and
// written only through here: bounded reads, atomic replace with fsync, and damaged files kept
// aside under a numbered name that never overwrites an earlier copy.
#include "common/json_file.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <stdio.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <system_error>

#include "common/file_write.hpp"
#include "common/unique_fd.hpp"

namespace vormelt {
namespace {

using Json = nlohmann::ordered_json;

constexpr int kMaxKeptAsideCopies = 1000;
constexpr mode_t kWrittenFileMode = 0644;

// The parser's messages start with an internal tag ("[json.exception.parse_error.101] ");
// the user only needs what follows it.
std::string ParserMessage(const char* what) {
  std::string_view text(what);
  if (text.starts_with('[')) {
    if (const auto end = text.find("] "); end != std::string_view::npos) text.remove_prefix(end + 2);
  }
  return std::string(text);
}

void SetError(std::string* error, std::string text) {
  if (error) *error = std::move(text);
}

}  // namespace

std::string JsonParserMessage(const char* what) { return ParserMessage(what); }

bool WriteFileAtomically(const std::filesystem::path& file, std::string_view content,
                         std::string* error) {
  const std::filesystem::path dir = file.has_parent_path() ? file.parent_path() : ".";
  std::error_code ec;
  std::filesystem::create_directories(dir, ec);
  std::string temp = (dir / (file.filename().string() + ".tmpXXXXXX")).string();
  UniqueFd fd(::mkostemp(temp.data(), O_CLOEXEC));
  if (fd.get() < 0) {
    SetError(error, dir.string() + ": " + ErrnoText(errno));
    return false;
  }
  // mkostemp makes the file for its owner only; settings are no secret, and a service running
  // as another user (systemd's dynamic user) must be able to read what root wrote for it.
  ::fchmod(fd.get(), kWrittenFileMode);
  const WriteOutcome outcome = WriteAll(fd.get(), content);
  int failure = outcome.error;
  if (failure == 0 && ::fsync(fd.get()) != 0) failure = errno;
  if (!fd.Close() && failure == 0) failure = errno;
  if (failure != 0) {
    SetError(error, ErrnoText(failure));
    ::unlink(temp.c_str());
    return false;
  }
  if (::rename(temp.c_str(), file.c_str()) != 0) {
    SetError(error, ErrnoText(errno));
    ::unlink(temp.c_str());
    return false;
  }
  SyncDirectory(dir);
  return true;
}

FileRead ReadSmallFile(const std::filesystem::path& file, std::uintmax_t maxBytes) {
  FileRead result;
  std::error_code ec;
  const auto status = std::filesystem::status(file, ec);
  if (status.type() == std::filesystem::file_type::not_found) return result;
  result.exists = true;
  if (ec) {  // e.g. a folder on the way that may not be searched
    result.error = ec.message();
    return result;
  }
  if (!std::filesystem::is_regular_file(status)) {
    result.error = "not a regular file";
    return result;
  }
  const std::uintmax_t size = std::filesystem::file_size(file, ec);
  if (ec) {
    result.error = ec.message();
    return result;
  }
  if (size > maxBytes) {
    result.tooLarge = true;
    result.error = "larger than " + std::to_string(maxBytes) + " bytes";
    return result;
  }
  std::ifstream in(file, std::ios::binary);
  if (!in) {
    result.error = ErrnoText(errno);
    return result;
  }
  result.content.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  if (in.bad() || result.content.size() > maxBytes) {
    result.error = in.bad() ? "read error" : "grew while being read";
    result.content.clear();
    return result;
  }
  result.ok = true;
  return result;
}

std::optional<Json> ParseJsonObject(std::string_view text, std::string* error) {
  Json root;
  try {
    root = Json::parse(text.begin(), text.end());
  } catch (const Json::exception& e) {
    SetError(error, ParserMessage(e.what()));
    return std::nullopt;
  }
  if (!root.is_object()) {
    SetError(error, "the top level is not a JSON object");
    return std::nullopt;
  }
  return root;
}

JsonFileLoad LoadJsonObjectFile(const std::filesystem::path& file, std::uintmax_t maxBytes,
                                Text unreadable, Text damaged) {
  JsonFileLoad load;
  load.file = file;
  FileRead read = ReadSmallFile(file, maxBytes);
  load.exists = read.exists;
  if (!read.exists) return load;
  if (!read.ok && !read.tooLarge) {
    load.problem = unreadable;
    load.detail = std::move(read.error);
    return load;
  }
  if (read.tooLarge) {
    load.detail = std::move(read.error);
  } else if (auto root = ParseJsonObject(read.content, &load.detail)) {
    load.object = std::move(*root);
    return load;
  }
  std::string moveError;
  load.keptAs = KeepDamagedFile(file, &moveError);
  if (load.keptAs.empty()) {
    // It could not be moved aside: report it as unreadable, since the next save replaces it.
    load.problem = unreadable;
    load.detail += "; " + moveError;
    return load;
  }
  load.problem = damaged;
  return load;
}

std::filesystem::path KeepDamagedFile(const std::filesystem::path& file, std::string* error) {
  std::filesystem::path target = file;
  target += ".bad";
  std::error_code ec;
  for (int copy = 2; std::filesystem::exists(std::filesystem::symlink_status(target, ec));
       ++copy) {
    if (copy > kMaxKeptAsideCopies) {
      SetError(error, "too many kept-aside copies");
      return {};
    }
    target = file;
    target += ".bad." + std::to_string(copy);
  }
  // RENAME_NOREPLACE: a copy that appeared since the check above is never overwritten.
  if (::renameat2(AT_FDCWD, file.c_str(), AT_FDCWD, target.c_str(), RENAME_NOREPLACE) != 0) {
    SetError(error, ErrnoText(errno));
    return {};
  }
  return target;
}

}  // namespace vormelt
