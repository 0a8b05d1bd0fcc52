// The headless commands of vormelt-cli. Each takes the words after its command name and
// returns the process exit status: 0 success, 1 failure while working, 2 bad command line.
// Errors are one clear line on `err`; results go to `out` byte for byte.
#pragma once

#include <charconv>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <system_error>
#include <type_traits>

namespace vormelt {
class CaptureSession;
class FilterSettings;
class FrameSink;
struct CaptureTarget;
}  // namespace vormelt

namespace vormelt::cli {

// `text` read whole as a decimal number within [low, high] into `value`, which is left alone
// when the text is anything else. The one number reader of the commands' options.
template <typename Number>
bool ParseNumber(std::string_view text, std::type_identity_t<Number> low,
                 std::type_identity_t<Number> high, Number& value) {
  Number parsed{};
  const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), parsed);
  if (error != std::errc() || stop != text.data() + text.size() || parsed < low || parsed > high) {
    return false;
  }
  value = parsed;
  return true;
}

// --buffer-mib N, which every capture command takes: the live capture's kernel buffer in MiB.
// ParseBufferMiB reads N into `mib`; ApplyBufferMiB gives it to the chosen source once all
// options are read. Each returns the problem for the command's usage line, or "" when fine.
std::string ParseBufferMiB(const std::string& text, std::optional<std::int32_t>& mib);
std::string ApplyBufferMiB(const std::optional<std::int32_t>& mib,
                           std::optional<CaptureTarget>& target);

// Loads the filter profile at `path` into `filter`; false, with one line on `err`, when it
// cannot be loaded.
bool LoadProfileInto(const std::string& path, FilterSettings& filter, std::ostream& err);

// Captures from `target` into `sink` until the source ends, SIGINT or SIGTERM comes, or
// `seconds` (0: no limit) have passed; `afterWait` runs after every look, which comes at least
// every 10 ms. Returns once the capture threads have ended.
void CaptureUntilStopped(CaptureSession& session, const CaptureTarget& target, FrameSink& sink,
                         long seconds, const std::function<void()>& afterWait = {});

// vormelt-cli names proto|ethertype|tcp|udp|vendor VALUE
int RunNames(std::span<const std::string> args, std::ostream& out, std::ostream& err);
// vormelt-cli packets --read FILE | --live ADDRESS | --adapter NAME  [options]
int RunPackets(std::span<const std::string> args, std::ostream& out, std::ostream& err);
// vormelt-cli stats --read FILE | --live ADDRESS | --adapter NAME  [options]
int RunStats(std::span<const std::string> args, std::ostream& out, std::ostream& err);
// vormelt-cli files (--read FILE | --load-dump FILE --form F | --live ADDRESS | --adapter NAME)
//                   --out DIR [options]
int RunFiles(std::span<const std::string> args, std::ostream& out, std::ostream& err);
// vormelt-cli codec --in ... --out ... [options]   (reads `in` to its end)
int RunCodec(std::span<const std::string> args, std::istream& in, std::ostream& out,
             std::ostream& err);

// vormelt-cli service install|uninstall|status|unit [--unit-dir DIR] [--program PATH]
//                    [--config DIR]
int RunServiceCommand(std::span<const std::string> args, std::ostream& out, std::ostream& err);
// vormelt-cli settings list | get KEY | set KEY VALUE  [--config DIR]
int RunSettings(std::span<const std::string> args, std::ostream& out, std::ostream& err);

}  // namespace vormelt::cli
