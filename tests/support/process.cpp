#include "support/process.hpp"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <thread>

#include "support/pcap_file.hpp"

extern char** environ;

namespace vormelt::test {
namespace {

std::string ReadAll(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

ProcessRun Run(std::vector<std::string> words, std::string_view input,
               std::optional<std::chrono::milliseconds> interruptAfter, std::string_view marker,
               int signal) {
  ProcessRun run;
  if (words.empty()) return run;
  TempDir dir;
  const std::string inPath = dir.File("in"), outPath = dir.File("out"), errPath = dir.File("err");
  std::ofstream(inPath, std::ios::binary).write(input.data(), static_cast<std::streamsize>(input.size()));
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, inPath.c_str(), O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 1, outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  posix_spawn_file_actions_addopen(&actions, 2, errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  pid_t pid = 0;
  const int spawned = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (spawned != 0) return run;
  int status = 0;
  bool ended = false;
  if (interruptAfter) {
    std::this_thread::sleep_for(*interruptAfter);
    kill(pid, signal);
  } else if (!marker.empty()) {
    while (!(ended = waitpid(pid, &status, WNOHANG) == pid) &&
           ReadAll(errPath).find(marker) == std::string::npos) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    if (!ended) kill(pid, signal);
  }
  if (!ended) waitpid(pid, &status, 0);
  run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  run.out = ReadAll(outPath);
  run.err = ReadAll(errPath);
  return run;
}

}  // namespace

ProcessRun RunProgram(std::vector<std::string> words, std::string_view input,
                      std::optional<std::chrono::milliseconds> interruptAfter) {
  return Run(std::move(words), input, interruptAfter, {}, SIGINT);
}

ProcessRun RunCli(std::vector<std::string> words, std::string_view input,
                  std::optional<std::chrono::milliseconds> interruptAfter) {
  words.insert(words.begin(), VORMELT_CLI_PATH);
  return RunProgram(std::move(words), input, interruptAfter);
}

ProcessRun RunCliSignalledAfter(std::vector<std::string> words, std::string_view marker, int signal) {
  words.insert(words.begin(), VORMELT_CLI_PATH);
  return Run(std::move(words), {}, std::nullopt, marker, signal);
}

std::string ShellOutput(const std::string& commandLine, int* status) {
  ProcessRun run = RunProgram({"/bin/sh", "-c", commandLine});
  if (status) *status = run.status;
  return std::move(run.out);
}

bool ToolAvailable(const std::string& tool) {
  return std::system((tool + " --version >/dev/null 2>&1 || " + tool + " version >/dev/null 2>&1").c_str()) == 0;
}

}  // namespace vormelt::test
