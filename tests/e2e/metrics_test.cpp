// The metrics end to end: a real Prometheus server scrapes `vormelt-cli stats --metrics-listen`
// while a known number of datagrams from one loopback address passes, and the counter Prometheus
// stored for that address is exactly that number; promtool accepts the endpoint's text. Runs on
// the loopback of a network namespace of its own, so its HTTP traffic never reaches the tests
// that capture the machine's loopback; skips, saying why, where that or Prometheus is missing.
#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <future>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>

#include "capture/source.hpp"
#include "support/process.hpp"

namespace vormelt {
namespace {

using namespace std::chrono_literals;

constexpr int kDatagrams = 25;

// A network namespace with its loopback up, removed with the object.
class Namespace {
 public:
  Namespace() : name_("vormelt-metrics-" + std::to_string(::getpid())) {
    int status = -1;
    test::ShellOutput("ip netns add " + name_ + " && ip netns exec " + name_ + " ip link set lo up", &status);
    made_ = status == 0;
  }
  ~Namespace() {
    if (made_) test::ShellOutput("ip netns del " + name_);
  }
  bool made() const { return made_; }
  std::string Exec() const { return "ip netns exec " + name_ + " "; }
  const std::string& name() const { return name_; }

 private:
  std::string name_;
  bool made_ = false;
};

// `count` datagrams from 127.0.0.3 to 127.0.0.2, from this thread's network namespace.
void SendDatagramsHere(int count) {
  const int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  sockaddr_in from{}, to{};
  from.sin_family = to.sin_family = AF_INET;
  inet_pton(AF_INET, "127.0.0.3", &from.sin_addr);
  inet_pton(AF_INET, "127.0.0.2", &to.sin_addr);
  to.sin_port = htons(9);
  ::bind(fd, reinterpret_cast<sockaddr*>(&from), sizeof from);
  for (int i = 0; i < count; ++i) {
    ::sendto(fd, "vormelt", 7, 0, reinterpret_cast<sockaddr*>(&to), sizeof to);
    std::this_thread::sleep_for(5ms);
  }
  ::close(fd);
}

// The same from inside `space`: setns moves only the sending thread.
void SendDatagrams(const Namespace& space, int count) {
  std::thread([&] {
    const int ns = ::open(("/var/run/netns/" + space.name()).c_str(), O_RDONLY | O_CLOEXEC);
    if (ns < 0) return;
    if (::setns(ns, CLONE_NEWNET) == 0) SendDatagramsHere(count);
    ::close(ns);
  }).join();
}

TEST(Metrics, PrometheusStoresTheCountedPacketsOfAnAddress) {
  const OpenResult probe = OpenSource(CaptureTarget::Address("127.0.0.1"));
  if (const auto* failure = std::get_if<CaptureMessage>(&probe)) {
    GTEST_SKIP() << "cannot capture on loopback here: " << FormatMessage(*failure, UiLanguage::English);
  }
  if (!test::ToolAvailable("prometheus") || !test::ToolAvailable("promtool")) {
    GTEST_SKIP() << "the prometheus package is not installed (scripts/install-deps.sh installs it)";
  }
  const Namespace space;
  if (!space.made()) GTEST_SKIP() << "cannot make a network namespace (needs root and ip)";
  const auto folder = std::filesystem::temp_directory_path() / ("vormelt-metrics-" + std::to_string(::getpid()));
  std::filesystem::create_directories(folder);
  const std::string metrics = "127.0.0.1:9477", web = "127.0.0.1:9090";
  std::ofstream(folder / "prometheus.yml")
      << "global:\n  scrape_interval: 1s\nscrape_configs:\n  - job_name: vormelt\n"
      << "    static_configs:\n      - targets: ['" << metrics << "']\n";
  const std::string server = test::ShellOutput(
      space.Exec() + "prometheus --config.file='" + (folder / "prometheus.yml").string() +
      "' --storage.tsdb.path='" + (folder / "data").string() + "' --web.listen-address=" + web +
      " >'" + (folder / "server.log").string() + "' 2>&1 & echo $!");
  const pid_t serverPid = std::stoi(server);

  auto counting = std::async(std::launch::async, [&] {
    return test::RunProgram({"/usr/bin/env", "ip", "netns", "exec", space.name(), VORMELT_CLI_PATH, "stats",
                             "--live", "127.0.0.1", "--seconds", "12", "--metrics-listen", metrics});
  });
  std::this_thread::sleep_for(1500ms);
  SendDatagrams(space, kDatagrams);

  int status = -1;
  const std::string text = test::ShellOutput(space.Exec() + "curl -sf http://" + metrics + "/metrics | tee '" +
                                             (folder / "metrics.txt").string() + "' | promtool check metrics", &status);
  EXPECT_EQ(status, 0) << text << test::ShellOutput("cat '" + (folder / "metrics.txt").string() + "'");

  const std::string query = "http://" + web + "/api/v1/query?query=" +
                            "vormelt_address_packets_total%7Baddress%3D%22127.0.0.3%22%2Cdirection%3D%22from%22%7D";
  std::string stored;
  for (auto deadline = std::chrono::steady_clock::now() + 9s; std::chrono::steady_clock::now() < deadline;) {
    const auto answer = nlohmann::json::parse(test::ShellOutput(space.Exec() + "curl -sf '" + query + "'"), nullptr, false);
    if (answer.is_object() && !answer["data"]["result"].empty()) {
      stored = answer["data"]["result"][0]["value"][1].get<std::string>();
      if (stored == std::to_string(kDatagrams)) break;
    }
    std::this_thread::sleep_for(500ms);
  }
  EXPECT_EQ(stored, std::to_string(kDatagrams)) << test::ShellOutput("tail -5 '" + (folder / "server.log").string() + "'");

  ::kill(serverPid, SIGTERM);
  const test::ProcessRun run = counting.get();
  EXPECT_EQ(run.status, 0) << run.err;
  std::filesystem::remove_all(folder);
}

}  // namespace
}  // namespace vormelt
