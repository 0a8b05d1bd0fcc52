// vormelt-cli: every engine without a window, for servers, scripts, tests and benchmarks.
// Links no Qt. Dispatches to the command runners in app/.
#include <cstdio>
#include <iostream>
#include <string>
#include <vector>

#include "app/cli.hpp"
#include "app/modes.hpp"

namespace {

constexpr const char* kUsage =
    "Usage: vormelt-cli COMMAND [OPTIONS]\n"
    "\n"
    "Hollowbright VORMELT without windows.\n"
    "\n"
    "Commands:\n"
    "  names proto|ethertype|tcp|udp|vendor VALUE\n"
    "      Print the name table's text for VALUE (decimal or 0x-hex; for vendor a MAC or OUI\n"
    "      such as 00:0C:29, 00-0C-29-12-34-56 or 000C29).\n"
    "  packets (--read FILE | --live ADDRESS | --adapter NAME | --load-dump FILE --form FORM)\n"
    "          [--count N]\n"
    "          [--render none|text|dec|hex|hex+text --level datalink|network|transport|presentation\n"
    "           [--wide]] [--filter-profile FILE [--match-case]]\n"
    "          [--save FILE --form FORM [--level LEVEL] [--append]] [--write FILE.pcapng|FILE.pcap]\n"
    "          [--log-folder DIR --log-method single|size|time|size+time [--log-max-kb N]\n"
    "           [--log-span-s N] [--log-form heading|text|dec|hex|hex+text|pcapng] [--log-interval-s N]\n"
    "           [--log-prune-age-s N]] [--find TEXT [--match-case]] [--metrics-listen [ADDRESS:]PORT]\n"
    "      Capture or read packets into the packet store and print one line per stored packet\n"
    "      (the eleven list columns separated by TABs), or each packet's rendering; then save\n"
    "      them as a packet dump file (FORM: text, dec, hex or hex+text) or a capture file.\n"
    "      --log-* also log them to text files as Packet Mode's automatic logging does; --find\n"
    "      lists only the packets whose payload holds TEXT.\n"
    "  stats (--read FILE | --live ADDRESS | --adapter NAME | --load-dump FILE --form FORM)\n"
    "        [--seconds N]\n"
    "        [--table ip|pairs|ports] [--max-items N] [--policy longest-ago|lowest|highest]\n"
    "        [--local ADDRESS,...] [--format tsv|csv|json] [--metrics-listen [ADDRESS:]PORT]\n"
    "      Count bytes and packets per IP address, address pair or local port, then print\n"
    "      the table (raw integers; --local replaces the host's own addresses).\n"
    "  files (--read FILE | --load-dump FILE --form F | --live ADDRESS | --adapter NAME)\n"
    "        --out DIR [--seconds N] [--template T] [--ack-timeout-ms N] [--dirty]\n"
    "        [--overwrite] [--all-streams] [--partial] [--psh-only] [--latest-duplicates]\n"
    "        [--short-ext] [--subdirs sip|dip|ext,...] [--filter-profile FILE]\n"
    "        [--manifest FILE] [--metrics-listen [ADDRESS:]PORT]\n"
    "      Rebuild HTTP response bodies as files in DIR; print one line per file (path,\n"
    "      size, content type; TAB-separated) and a summary on stderr. --manifest writes\n"
    "      JSON Lines with addresses, ports, times, MD5 and whether each body is complete.\n"
    "  packets, stats and files also take --buffer-mib N with --live or --adapter: the\n"
    "      kernel's capture buffer in MiB (1 to 1024); what it could not hold is reported\n"
    "      as dropped.\n"
    "  --metrics-listen serves the counts at http://ADDRESS:PORT/metrics for Prometheus while\n"
    "      packets, stats or files runs (ADDRESS defaults to 127.0.0.1).\n"
    "  codec --in text|hex|base64 --out text|hex|base64|md5 [--clean] [--ascii] [--null-to-space]\n"
    "      Convert standard input and write the result to standard output (no line break\n"
    "      added; MD5 is exactly 32 lower-case hex digits).\n"
    "  service install|uninstall|status|unit [--unit-dir DIR] [--program PATH] [--config DIR]\n"
    "          [--group NAME]\n"
    "      Create, delete or show the systemd service hbvormelt.service (unit: print the unit).\n"
    "      Without --unit-dir the unit goes to /etc/systemd/system and systemctl reloads,\n"
    "      enables and starts it (uninstall: stops, disables, removes). --program is the\n"
    "      vormelt program it starts (default: the one beside vormelt-cli); --config the\n"
    "      service's settings folder (default /etc/hollowbright/vormelt); --group the group\n"
    "      the service joins to run a program kept for that group (default: the program\n"
    "      file's group when others may not run it).\n"
    "  settings list | get KEY | set KEY VALUE [--config DIR]\n"
    "      Read or change the settings file (default: the user's configuration folder).\n"
    "      Keys are dotted, e.g. general.rememberedMode, interface.address; a value the\n"
    "      program would not accept exits 2 and changes nothing.\n"
    "\n"
    "Options:\n"
    "  --help     Show this text.\n"
    "  --version  Show the program version.\n";

}  // namespace

int main(int argc, char** argv) {
  std::ios::sync_with_stdio(false);
  std::vector<std::string> words(argv + 1, argv + argc);
  if (words.empty()) {
    std::cerr << kUsage;
    return 2;
  }
  const std::string& command = words.front();
  const std::span<const std::string> rest(words.data() + 1, words.size() - 1);
  if (command == "--help" || command == "-h" || command == "help") {
    std::cout << kUsage;
    return 0;
  }
  if (command == "--version") {
    std::cout << "Hollowbright VORMELT 2.2\n";
    return 0;
  }
  if (command == "names") return vormelt::cli::RunNames(rest, std::cout, std::cerr);
  for (const vormelt::ModeEntry& mode : vormelt::ModeList()) {
    if (mode.cli && command == mode.cliCommand) return mode.cli(rest, std::cout, std::cerr);
  }
  if (command == "codec") return vormelt::cli::RunCodec(rest, std::cin, std::cout, std::cerr);
  if (command == "service") return vormelt::cli::RunServiceCommand(rest, std::cout, std::cerr);
  if (command == "settings") return vormelt::cli::RunSettings(rest, std::cout, std::cerr);
  std::cerr << "vormelt-cli: unknown command '" << command << "' (try --help)\n";
  return 2;
}
