// The metrics endpoint as a scraper sees it: the Prometheus text of what the collector says,
// GET on /metrics only, loopback unless an address is given.
#include "app/metrics_endpoint.hpp"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <string>

namespace vormelt::metrics {
namespace {

// One HTTP/1.0 exchange with 127.0.0.1:port; the whole answer, headers included.
std::string Exchange(int port, const std::string& request) {
  const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  std::string answer;
  if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
      ::send(fd, request.data(), request.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(request.size())) {
    char buffer[4096];
    for (ssize_t n; (n = ::recv(fd, buffer, sizeof buffer, 0)) > 0;) answer.append(buffer, static_cast<std::size_t>(n));
  }
  ::close(fd);
  return answer;
}

TEST(MetricsEndpoint, ServesTheCollectorsCountsToGetOnly) {
  std::atomic<int> scrapes = 0;
  std::string error;
  const auto endpoint = Endpoint::Start("0", [&] {
    ++scrapes;
    return std::vector<Family>{
        {"vormelt_address_packets_total", "Packets per address.", Kind::Counter,
         {{{{"address", "192.0.2.7"}, {"direction", "from"}}, 3}}},
        {"vormelt_store_packets", "Packets in the store.", Kind::Gauge, {{{}, 12}}}};
  }, error);
  ASSERT_TRUE(endpoint) << error;
  ASSERT_GT(endpoint->port(), 0);

  const std::string text = Exchange(endpoint->port(), "GET /metrics HTTP/1.0\r\n\r\n");
  EXPECT_NE(text.find(" 200 "), std::string::npos) << text;
  EXPECT_NE(text.find("# TYPE vormelt_address_packets_total counter"), std::string::npos) << text;
  EXPECT_NE(text.find("vormelt_address_packets_total{address=\"192.0.2.7\",direction=\"from\"} 3"),
            std::string::npos) << text;
  EXPECT_NE(text.find("vormelt_store_packets 12"), std::string::npos) << text;
  EXPECT_EQ(scrapes, 1);

  for (const char* request : {"POST /metrics HTTP/1.0\r\nContent-Length: 0\r\n\r\n",
                              "PUT /metrics HTTP/1.0\r\nContent-Length: 0\r\n\r\n",
                              "GET /other HTTP/1.0\r\n\r\n"}) {
    const std::string refused = Exchange(endpoint->port(), request);
    EXPECT_EQ(refused.find(" 200 "), std::string::npos) << request << refused;
  }
  EXPECT_EQ(scrapes, 1);
}

TEST(MetricsEndpoint, BindAddresses) {
  std::string error;
  EXPECT_EQ(BindAddress("9100", error), "127.0.0.1:9100");
  EXPECT_EQ(BindAddress("0.0.0.0:9100", error), "0.0.0.0:9100");
  EXPECT_EQ(BindAddress("[::1]:9100", error), "[::1]:9100");
  for (const char* bad : {"", "abc", "70000", ":9100", "::1:9100", "127.0.0.1:", "127.0.0.1:x"}) {
    EXPECT_FALSE(BindAddress(bad, error)) << bad;
  }
  EXPECT_FALSE(Endpoint::Start("127.0.0.1:abc", [] { return std::vector<Family>{}; }, error));
}

}  // namespace
}  // namespace vormelt::metrics
