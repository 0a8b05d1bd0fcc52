// The exposer and one Collectable that asks the mode's collector at every scrape. The handler
// prometheus-cpp registers answers GET only; any other method or path gets an error status.
#include "app/metrics_endpoint.hpp"

#include <prometheus/collectable.h>
#include <prometheus/exposer.h>
#include <prometheus/metric_family.h>

#include <charconv>
#include <exception>

namespace vormelt::metrics {
namespace {

constexpr std::string_view kLoopback = "127.0.0.1";

bool IsPort(std::string_view text) {
  unsigned port = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
  return error == std::errc() && end == text.data() + text.size() && port <= 65535;
}

class CollectorAdapter final : public prometheus::Collectable {
 public:
  explicit CollectorAdapter(Collector collector) : collector_(std::move(collector)) {}

  std::vector<prometheus::MetricFamily> Collect() const override {
    std::vector<prometheus::MetricFamily> out;
    for (const Family& family : collector_()) {
      prometheus::MetricFamily converted;
      converted.name = family.name;
      converted.help = family.help;
      converted.type = family.kind == Kind::Counter ? prometheus::MetricType::Counter
                                                    : prometheus::MetricType::Gauge;
      for (const Sample& sample : family.samples) {
        prometheus::ClientMetric metric;
        for (const auto& [name, value] : sample.labels) metric.label.push_back({name, value});
        if (family.kind == Kind::Counter) {
          metric.counter.value = sample.value;
        } else {
          metric.gauge.value = sample.value;
        }
        converted.metric.push_back(std::move(metric));
      }
      out.push_back(std::move(converted));
    }
    return out;
  }

 private:
  Collector collector_;
};

}  // namespace

std::optional<std::string> BindAddress(std::string_view listen, std::string& error) {
  if (IsPort(listen)) return std::string(kLoopback) + ":" + std::string(listen);
  const std::size_t colon = listen.rfind(':');
  if (colon == std::string_view::npos || colon == 0 || !IsPort(listen.substr(colon + 1))) {
    error = "'" + std::string(listen) + "' is not PORT or ADDRESS:PORT";
    return std::nullopt;
  }
  const std::string_view host = listen.substr(0, colon);
  const bool bracketed = host.front() == '[' && host.back() == ']';
  if (!bracketed && host.find(':') != std::string_view::npos) {
    error = "write an IPv6 address in brackets: [ADDRESS]:PORT";
    return std::nullopt;
  }
  return std::string(listen);
}

struct Endpoint::Parts {
  std::shared_ptr<CollectorAdapter> collectable;
  std::unique_ptr<prometheus::Exposer> exposer;
};

Endpoint::Endpoint(std::unique_ptr<Parts> parts) : parts_(std::move(parts)) {}
Endpoint::~Endpoint() = default;

std::unique_ptr<Endpoint> Endpoint::Start(std::string_view listen, Collector collector,
                                          std::string& error) {
  const std::optional<std::string> address = BindAddress(listen, error);
  if (!address) return nullptr;
  auto parts = std::make_unique<Parts>();
  parts->collectable = std::make_shared<CollectorAdapter>(std::move(collector));
  try {
    // One thread: a scrape is small, and Prometheus asks one at a time.
    parts->exposer = std::make_unique<prometheus::Exposer>(*address, 1);
  } catch (const std::exception& e) {
    error = "cannot listen on " + *address + ": " + e.what();
    return nullptr;
  }
  parts->exposer->RegisterCollectable(parts->collectable);
  return std::unique_ptr<Endpoint>(new Endpoint(std::move(parts)));
}

int Endpoint::port() const {
  const std::vector<int> ports = parts_->exposer->GetListeningPorts();
  return ports.empty() ? 0 : ports.front();
}

}  // namespace vormelt::metrics
