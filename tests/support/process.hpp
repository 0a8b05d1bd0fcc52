// Runs programs the way a user's shell would, for end-to-end tests: vormelt-cli and the oracle
// tools (tshark, tcpdump, openssl). No shell parses the words of RunProgram and RunCli.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vormelt::test {

struct ProcessRun {
  int status = -1;  // exit status; -1 when the program could not start or died of a signal
  std::string out;
  std::string err;
};

// Runs argv[0] (a path) with `input` on its standard input. With `interruptAfter`, sends SIGINT
// after that long and then waits for the program to end.
ProcessRun RunProgram(std::vector<std::string> argv, std::string_view input = {},
                      std::optional<std::chrono::milliseconds> interruptAfter = std::nullopt);
// RunProgram of vormelt-cli with these words after the program name.
ProcessRun RunCli(std::vector<std::string> words, std::string_view input = {},
                  std::optional<std::chrono::milliseconds> interruptAfter = std::nullopt);

// RunCli that sends `signal` once `marker` has appeared on the program's standard error (or
// not at all, when it ends first): a signal that lands at a known phase, not at a guessed time.
ProcessRun RunCliSignalledAfter(std::vector<std::string> words, std::string_view marker, int signal);

// The standard output of a shell command line (for oracle tools); `status` gets its exit status.
std::string ShellOutput(const std::string& commandLine, int* status = nullptr);
// True when `tool --version` (or `tool version`) runs: the oracle is installed.
bool ToolAvailable(const std::string& tool);

}  // namespace vormelt::test
