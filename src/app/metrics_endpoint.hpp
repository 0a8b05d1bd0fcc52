// What the program counts, served for Prometheus: an HTTP endpoint that answers GET /metrics in
// the Prometheus text format, through prometheus-cpp's exposer (no HTTP server of our own). The
// values are read when a scrape comes, from a collector the running mode hands over, so the
// engines keep their own counters and know nothing of Prometheus. Serves nothing that writes.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace vormelt::metrics {

enum class Kind { Counter, Gauge };

struct Sample {
  std::vector<std::pair<std::string, std::string>> labels;
  double value = 0;
};

// One metric: a counter's name ends in "_total" and never goes down while its series lives.
struct Family {
  std::string name;
  std::string help;
  Kind kind = Kind::Counter;
  std::vector<Sample> samples;
};

// Called on the endpoint's own threads for every scrape: must only read what is safe to read
// from another thread (atomics, or copies taken under the engine's lock).
using Collector = std::function<std::vector<Family>()>;

// "PORT" or "ADDRESS:PORT" ("[ADDRESS]:PORT" for IPv6) as the exposer's bind address; a bare
// port binds to loopback only, so nothing is served to the network unless asked for. nullopt
// with `error` for anything else.
std::optional<std::string> BindAddress(std::string_view listen, std::string& error);

class Endpoint {
 public:
  // Starts serving; nullptr with `error` set when the text is not an address or the port
  // cannot be bound.
  static std::unique_ptr<Endpoint> Start(std::string_view listen, Collector collector,
                                         std::string& error);
  ~Endpoint();
  Endpoint(const Endpoint&) = delete;
  Endpoint& operator=(const Endpoint&) = delete;

  // The port it listens on (the one the system chose, for port 0).
  int port() const;

 private:
  struct Parts;
  explicit Endpoint(std::unique_ptr<Parts> parts);
  std::unique_ptr<Parts> parts_;
};

}  // namespace vormelt::metrics
