// LocalAddressList: the host's own IPv4 and IPv6 addresses, which decide whether a TCP or UDP
// packet has a local port to count. A refresher thread rewrites it every 500 ms while the
// receive thread reads it without the statistics lock; entries are relaxed atomics, so a read
// that overlaps a rewrite can at worst attribute one packet to the wrong side (an IPv6 entry is
// two words, and a torn one matches no address), never tear an IPv4 value.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <span>
#include <string_view>
#include <thread>
#include <vector>

#include "statistics/tables.hpp"

namespace vormelt::statistics {

enum class LocalSide : std::uint8_t { None, Source, Destination };

class LocalAddressList {
 public:
  static constexpr std::size_t kCapacity = 4096;

  static constexpr std::size_t kIpv6Capacity = 1024;

  // Keeps at most kCapacity IPv4 (kIpv6Capacity IPv6) addresses, in order.
  void Replace(std::span<const Ipv4> addresses);
  void ReplaceIpv6(std::span<const IpAddress> addresses);
  // Walks the list in order, testing each entry against the source first, then the
  // destination; the first hit decides. A packet between two local addresses is the source's.
  LocalSide Classify(Ipv4 source, Ipv4 destination) const;
  LocalSide Classify(const IpAddress& source, const IpAddress& destination) const;
  std::vector<Ipv4> Copy() const;

 private:
  std::array<std::atomic<Ipv4>, kCapacity> entries_{};
  std::atomic<std::size_t> count_{0};
  struct Ipv6Entry {
    std::atomic<std::uint64_t> high{0}, low{0};
  };
  std::array<Ipv6Entry, kIpv6Capacity> ipv6Entries_{};
  std::atomic<std::size_t> ipv6Count_{0};
};

// Every IPv4 (IPv6) address of every interface that is up, loopback included (getifaddrs).
std::vector<Ipv4> HostIpv4Addresses();
std::vector<IpAddress> HostIpv6Addresses();

// "a.b.c.d" or nothing.
bool ParseIpv4(std::string_view text, Ipv4& address);

// Rewrites the list from the host's addresses at once and then every 500 ms until destroyed.
class LocalAddressRefresher {
 public:
  static constexpr auto kInterval = std::chrono::milliseconds(500);

  explicit LocalAddressRefresher(LocalAddressList& list);
  ~LocalAddressRefresher();
  LocalAddressRefresher(const LocalAddressRefresher&) = delete;
  LocalAddressRefresher& operator=(const LocalAddressRefresher&) = delete;
  // False when the thread could not be created; the list then keeps what it holds.
  bool Running() const { return thread_.joinable(); }

 private:
  void Run(std::stop_token stop);

  LocalAddressList& list_;
  std::mutex mutex_;
  std::condition_variable_any wake_;
  std::jthread thread_;
};

}  // namespace vormelt::statistics
