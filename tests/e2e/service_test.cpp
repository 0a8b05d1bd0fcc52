// The service run end to end: `vormelt -Service` started the way systemd starts it, with
// NOTIFY_SOCKET at this test's own datagram socket and its own configuration and state folders.
// Captures on loopback only (needs root; skips otherwise), ping bounded to three echoes. Also
// the unit vormelt-cli writes, checked by systemd-analyze, and the settings command's refusals.
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <mutex>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "support/pcap_file.hpp"
#include "support/process.hpp"

extern char** environ;

namespace vormelt::test {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

// The service manager's end of sd_notify: collects what the service sends, on a thread of its
// own as systemd would. A socket left unread fills after ten datagrams, and the service then
// waits in sd_notify instead of hearing its SIGTERM.
class NotifySocket {
 public:
  explicit NotifySocket(std::string path) : path_(std::move(path)) {
    fd_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path_.copy(address.sun_path, sizeof address.sun_path - 1);
    bind(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address);
    const timeval wait{0, 100'000};
    setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof wait);
    reader_ = std::jthread([this](std::stop_token stop) { Read(stop); });
  }
  ~NotifySocket() {
    reader_.request_stop();
    reader_.join();
    close(fd_);
  }
  const std::string& path() const { return path_; }

  // Waits until a line of the received datagrams starts with `prefix` and `accept`s it.
  template <typename Accept>
  bool Await(std::string_view prefix, Clock::duration timeout, Accept accept) {
    for (const auto deadline = Clock::now() + timeout; Clock::now() < deadline;) {
      for (const std::string& line : Lines()) {
        if (line.starts_with(prefix) && accept(line.substr(prefix.size()))) return true;
      }
      std::this_thread::sleep_for(20ms);
    }
    return false;
  }
  bool Await(std::string_view line, Clock::duration timeout) {
    return Await(line, timeout, [](std::string_view) { return true; });
  }
  // Listens for `duration`, then counts the lines equal to `line` received so far.
  std::size_t CountAfter(Clock::duration duration, std::string_view line) {
    std::this_thread::sleep_for(duration);
    return static_cast<std::size_t>(std::ranges::count(Lines(), line));
  }

 private:
  void Read(const std::stop_token& stop) {
    while (!stop.stop_requested()) {
      char buffer[4096];
      const ssize_t n = recv(fd_, buffer, sizeof buffer, 0);
      if (n <= 0) continue;
      const std::lock_guard lock(mutex_);
      for (std::istringstream in(std::string(buffer, n)); !in.eof();) {
        std::string line;
        std::getline(in, line);
        if (!line.empty()) lines_.push_back(line);
      }
    }
  }
  std::vector<std::string> Lines() {
    const std::lock_guard lock(mutex_);
    return lines_;
  }

  std::string path_;
  int fd_ = -1;
  std::mutex mutex_;
  std::vector<std::string> lines_;
  std::jthread reader_;
};

// A loopback port nothing listens on now.
int FreePort() {
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address);
  socklen_t length = sizeof address;
  getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
  close(fd);
  return ntohs(address.sin_port);
}

struct Service {
  pid_t pid = -1;
  std::string errFile;
};

// Starts vormelt -Service remembering `mode` on 127.0.0.1, as systemd would (its folders in
// the environment).
// `extra`: more settings groups, as JSON members (",\"logging\":{...}").
Service StartService(const TempDir& dir, int mode, const std::string& notifySocket,
                     const std::string& extra = {}) {
  const std::string config = dir.File("config"), state = dir.File("state");
  std::filesystem::create_directories(config);
  std::filesystem::create_directories(state);
  std::ofstream(config + "/settings.json")
      << R"({"general":{"rememberedMode":)" << mode
      << R"(},"interface":{"chosenKind":0,"address":"127.0.0.1"})" << extra << "}";
  // A watchdog of 400 ms: pinged every 200 ms while the receive loop turns.
  std::vector<std::string> env = {"CONFIGURATION_DIRECTORY=" + config, "STATE_DIRECTORY=" + state,
                                  "NOTIFY_SOCKET=" + notifySocket, "WATCHDOG_USEC=400000",
                                  "PATH=/usr/bin:/bin"};
  std::vector<char*> envp;
  for (std::string& entry : env) envp.push_back(entry.data());
  envp.push_back(nullptr);
  std::string program = VORMELT_PROGRAM_PATH, word = "-Service";
  char* argv[] = {program.data(), word.data(), nullptr};
  Service service{-1, dir.File("stderr")};
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 2, service.errFile.c_str(),
                                   O_WRONLY | O_CREAT | O_TRUNC, 0600);
  posix_spawn(&service.pid, argv[0], &actions, nullptr, argv, envp.data());
  posix_spawn_file_actions_destroy(&actions);
  return service;
}

// The exit status within `timeout`, or -1 (and the process killed) when it did not end.
int AwaitExit(pid_t pid, Clock::duration timeout) {
  int status = 0;
  for (const auto deadline = Clock::now() + timeout; Clock::now() < deadline;) {
    if (waitpid(pid, &status, WNOHANG) == pid) return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    std::this_thread::sleep_for(20ms);
  }
  kill(pid, SIGKILL);
  waitpid(pid, &status, 0);
  return -1;
}

// Starts the service, waits for READY=1, pings 127.0.0.1 three times and waits for the status
// to count them; then SIGTERM must give STOPPING=1 and exit 0 within 5 seconds.
void RunPingedService(const TempDir& dir, int mode, std::string_view countedWords,
                      const std::string& extra = {}) {
  if (std::string_view(VORMELT_PROGRAM_PATH).empty()) GTEST_SKIP() << "built without vormelt";
  if (geteuid() != 0) GTEST_SKIP() << "capturing on loopback needs root";
  NotifySocket notify(dir.File("notify"));
  const Service service = StartService(dir, mode, notify.path(), extra);
  ASSERT_GT(service.pid, 0);
  const bool ready = notify.Await("READY=1", 5s);
  if (!ready) AwaitExit(service.pid, 0s);
  ASSERT_TRUE(ready) << ReadFile(service.errFile);
  // A quiet network is no reason to starve the watchdog (pinged every 200 ms).
  EXPECT_GE(notify.CountAfter(1s, "WATCHDOG=1"), 3u);
  ASSERT_EQ(std::system("ping -c 3 -i 0.2 127.0.0.1 >/dev/null 2>&1"), 0);
  // Echo and reply both pass loopback: six packets at least.
  EXPECT_TRUE(notify.Await("STATUS=", 5s, [&](std::string_view status) {
    const std::size_t at = status.find(countedWords);
    return at != std::string_view::npos &&
           std::atoi(std::string(status.substr(status.rfind("; ", at) + 2)).c_str()) >= 6;
  }));
  const auto stopAsked = Clock::now();
  kill(service.pid, SIGTERM);
  EXPECT_TRUE(notify.Await("STOPPING=1", 5s));
  EXPECT_EQ(AwaitExit(service.pid, 5s), 0) << ReadFile(service.errFile);
  EXPECT_LT(Clock::now() - stopAsked, 5s);
}

TEST(ServiceRun, StatisticalModeCountsPingAndSavesItsListsAtStop) {
  TempDir dir;
  RunPingedService(dir, 3, " packets counted");
  if (HasFatalFailure() || IsSkipped()) return;
  const auto lists = nlohmann::json::parse(ReadFile(dir.File("state/statistics-lists.json")));
  // Other loopback traffic may share the lists; the pinged address must be among them.
  const auto& ip = lists.at("ip");
  const auto host =
      std::ranges::find_if(ip, [](const auto& row) { return row["address"] == "127.0.0.1"; });
  ASSERT_NE(host, ip.end()) << ip.dump();
  EXPECT_GE((*host)["packetsFrom"].get<int>(), 6);
  EXPECT_FALSE(lists.at("pairs").empty());
  EXPECT_TRUE(lists.at("ports").is_array());
}

TEST(ServiceRun, PacketModeStoresPingAndSaysLoggingIsOff) {
  TempDir dir;
  RunPingedService(dir, 0, " packets stored");
  if (HasFatalFailure() || IsSkipped()) return;
  EXPECT_NE(ReadFile(dir.File("stderr")).find("logging is switched off"), std::string::npos);
}

TEST(ServiceRun, GraphicalModeNeedsADisplayAndEndsWith78BeforeReady) {
  if (std::string_view(VORMELT_PROGRAM_PATH).empty()) GTEST_SKIP() << "built without vormelt";
  TempDir dir;
  NotifySocket notify(dir.File("notify"));
  const Service service = StartService(dir, 2, notify.path());
  EXPECT_EQ(AwaitExit(service.pid, 5s), 78);
  EXPECT_NE(ReadFile(service.errFile).find("Graphical Packets Mode needs a display"),
            std::string::npos);
  EXPECT_FALSE(notify.Await("READY=1", 200ms));
}

TEST(ServiceUnit, InstallWritesAUnitSystemdAcceptsAndRefusesASecondOne) {
  if (!ToolAvailable("systemd-analyze")) GTEST_SKIP() << "systemd-analyze is not installed";
  TempDir dir;
  // Any executable does for the unit; the real program when it was built.
  const std::string program =
      std::string_view(VORMELT_PROGRAM_PATH).empty() ? VORMELT_CLI_PATH : VORMELT_PROGRAM_PATH;
  const std::vector<std::string> install = {"service", "install", "--unit-dir", dir.path(),
                                            "--program", program, "--config", dir.File("none")};
  const ProcessRun first = RunCli(install);
  ASSERT_EQ(first.status, 0) << first.err;
  EXPECT_EQ(first.out, "SUCCESS\n");
  const std::string unit = dir.File("hbvormelt.service");
  EXPECT_NE(ReadFile(unit).find("ExecStart=\"" + program + "\" -Service\n"), std::string::npos);
  // Warnings (an unknown key, say) do not fail verify: its output must be silent as well.
  const ProcessRun verify = RunProgram({"/usr/bin/systemd-analyze", "verify", unit});
  EXPECT_EQ(verify.status, 0) << verify.err;
  EXPECT_EQ(verify.err.find("hbvormelt.service"), std::string::npos) << verify.err;

  EXPECT_EQ(RunCli(install).out, "ERROR_SERVICE_EXISTS\n");
  const std::vector<std::string> uninstall = {"service", "uninstall", "--unit-dir", dir.path()};
  EXPECT_EQ(RunCli(uninstall).out, "SUCCESS\n");
  EXPECT_FALSE(std::filesystem::exists(unit));
  EXPECT_EQ(RunCli(uninstall).out, "ERROR_SERVICE_DOES_NOT_EXIST\n");
}

TEST(SettingsCommand, RefusedValuesExitTwoAndLeaveTheFileAsItWas) {
  TempDir dir;
  const auto set = [&](const std::string& key, const std::string& value) {
    return RunCli({"settings", "set", key, value, "--config", dir.path()}).status;
  };
  ASSERT_EQ(set("statistics.maxItems", "8192"), 0);
  ASSERT_EQ(set("interface.address", "2001:db8::2"), 0);
  const std::string before = ReadFile(dir.File("settings.json"));
  EXPECT_EQ(set("statistics.maxItems", "8193"), 2);      // beyond the tables
  EXPECT_EQ(set("statistics.maxItems", "12abc"), 2);
  EXPECT_EQ(set("general.rememberedMode", "4"), 2);      // no window remembers it
  EXPECT_EQ(set("interface.address", "127.0.0"), 2);
  EXPECT_EQ(set("interface.address", "fe80::1%lo"), 2);  // a zone index names no one address
  EXPECT_EQ(set("packetMode.dateTimeTemplate", "\xff\xfe"), 2);  // not UTF-8: would not read back
  EXPECT_EQ(set("general", "1"), 2);                     // a group, not a value
  EXPECT_EQ(set("general.nothing", "1"), 2);
  EXPECT_EQ(ReadFile(dir.File("settings.json")), before);
  EXPECT_EQ(RunCli({"settings", "get", "statistics.maxItems", "--config", dir.path()}).out,
            "8192\n");
}

// With logging on, the pings land in the log files the index names, and nothing says logging
// is off.
TEST(ServiceRun, PacketModeWithLoggingWritesPingToItsLogs) {
  TempDir dir;
  const std::string logs = dir.File("logs");
  RunPingedService(dir, 0, " packets stored",
                   R"(,"logging":{"enabled":true,"intervalSeconds":1,"method":1,"form":1,"folder":")" +
                       logs + R"("})");
  if (HasFatalFailure() || IsSkipped()) return;
  EXPECT_EQ(ReadFile(dir.File("stderr")).find("logging is switched off"), std::string::npos);
  std::string logged;
  for (const auto& file : std::filesystem::directory_iterator(logs)) {
    if (file.path().filename() != "_VORMELT_LOG_FILE_INDEX.txt") logged += ReadFile(file.path());
  }
  EXPECT_NE(logged.find("ICMP"), std::string::npos) << logged.substr(0, 400);
}

// File Mode as a service: a body fetched with curl from a loopback HTTP server is written to
// the chosen folder and named in the journal; SIGTERM ends it with status 0.
TEST(ServiceRun, FileModeWritesADownloadedBody) {
  if (std::string_view(VORMELT_PROGRAM_PATH).empty()) GTEST_SKIP() << "built without vormelt";
  if (geteuid() != 0) GTEST_SKIP() << "capturing on loopback needs root";
  if (std::system("command -v curl >/dev/null && command -v python3 >/dev/null") != 0) {
    GTEST_SKIP() << "curl or python3 is missing";
  }
  TempDir dir;
  // The folder does not exist yet: the service makes it.
  const std::string served = dir.File("served"), out = dir.File("out/made/here");
  std::filesystem::create_directories(served);
  std::string body;
  for (int i = 0; i < 4000; ++i) body += "line " + std::to_string(i) + " of the served page\n";
  std::ofstream(served + "/page.txt") << body;
  NotifySocket notify(dir.File("notify"));
  const Service service = StartService(dir, 1, notify.path(),
                                       R"(,"fileMode":{"ackTimeoutMs":300,"folder":")" + out + R"("})");
  ASSERT_GT(service.pid, 0);
  const bool ready = notify.Await("READY=1", 5s);
  if (!ready) AwaitExit(service.pid, 0s);
  ASSERT_TRUE(ready) << ReadFile(service.errFile);
  // python's server answers HTTP/1.0, the body ending with the connection; bounded by timeout.
  const std::string port = std::to_string(FreePort());
  const std::string fetch = "cd '" + served + "' && (timeout 20 python3 -m http.server " + port +
                            " --bind 127.0.0.1 >/dev/null 2>&1 & sleep 1; curl -s -o /dev/null --max-time 5 "
                            "http://127.0.0.1:" + port + "/page.txt; sleep 0.2; kill %1)";
  EXPECT_EQ(std::system(fetch.c_str()), 0);
  // Other tests may fetch over loopback meanwhile, and the service writes their bodies too: the
  // page must be among the files, whatever else is.
  const auto pageWritten = [&] {
    if (!std::filesystem::exists(out)) return false;
    for (const auto& file : std::filesystem::recursive_directory_iterator(out)) {
      if (file.is_regular_file() && ReadFile(file.path()) == body) return true;
    }
    return false;
  };
  for (auto deadline = Clock::now() + 8s; !pageWritten() && Clock::now() < deadline;) {
    std::this_thread::sleep_for(100ms);
  }
  kill(service.pid, SIGTERM);
  EXPECT_EQ(AwaitExit(service.pid, 5s), 0) << ReadFile(service.errFile);
  EXPECT_TRUE(pageWritten()) << ReadFile(service.errFile);
  EXPECT_NE(ReadFile(service.errFile).find("File written: "), std::string::npos);
}

TEST(ServiceRun, FileModeSaysPlainlyWhenItCannotMakeItsFolder) {
  if (std::string_view(VORMELT_PROGRAM_PATH).empty()) GTEST_SKIP() << "built without vormelt";
  TempDir dir;
  std::ofstream(dir.File("plain")) << "a file, not a folder";
  NotifySocket notify(dir.File("notify"));
  const Service service = StartService(dir, 1, notify.path(),
                                       R"(,"fileMode":{"folder":")" + dir.File("plain/out") + R"("})");
  EXPECT_EQ(AwaitExit(service.pid, 5s), 78);
  EXPECT_NE(ReadFile(service.errFile).find("cannot create its folder " + dir.File("plain/out") + " (Not a directory)"),
            std::string::npos) << ReadFile(service.errFile);
}

}  // namespace
}  // namespace vormelt::test
