// The host's IPv4 and IPv6 addresses from getifaddrs, and the thread that keeps the list
// current as interfaces come and go (a VPN, a DHCP renewal) while a capture runs.
#include "statistics/local_addresses.hpp"

#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>

#include <algorithm>
#include <charconv>
#include <system_error>

#include "common/byte_order.hpp"

namespace vormelt::statistics {

void LocalAddressList::Replace(std::span<const Ipv4> addresses) {
  const std::size_t count = std::min(addresses.size(), kCapacity);
  // Shrink first so a reader never walks entries that are half rewritten beyond the new end.
  if (count < count_.load(std::memory_order_relaxed)) count_.store(count, std::memory_order_release);
  for (std::size_t i = 0; i < count; ++i) entries_[i].store(addresses[i], std::memory_order_relaxed);
  count_.store(count, std::memory_order_release);
}

LocalSide LocalAddressList::Classify(Ipv4 source, Ipv4 destination) const {
  const std::size_t count = count_.load(std::memory_order_acquire);
  for (std::size_t i = 0; i < count; ++i) {
    const Ipv4 local = entries_[i].load(std::memory_order_relaxed);
    if (local == source) return LocalSide::Source;
    if (local == destination) return LocalSide::Destination;
  }
  return LocalSide::None;
}

namespace {

std::uint64_t Word(const IpAddress& address, std::size_t from) {
  std::uint64_t word = 0;
  for (std::size_t i = from; i < from + 8; ++i) word = (word << 8) | address.bytes()[i];
  return word;
}

}  // namespace

void LocalAddressList::ReplaceIpv6(std::span<const IpAddress> addresses) {
  const std::size_t count = std::min(addresses.size(), kIpv6Capacity);
  if (count < ipv6Count_.load(std::memory_order_relaxed)) {
    ipv6Count_.store(count, std::memory_order_release);
  }
  for (std::size_t i = 0; i < count; ++i) {
    ipv6Entries_[i].high.store(Word(addresses[i], 0), std::memory_order_relaxed);
    ipv6Entries_[i].low.store(Word(addresses[i], 8), std::memory_order_relaxed);
  }
  ipv6Count_.store(count, std::memory_order_release);
}

LocalSide LocalAddressList::Classify(const IpAddress& source, const IpAddress& destination) const {
  if (source.isV4()) return Classify(source.v4(), destination.v4());
  const std::uint64_t sourceHigh = Word(source, 0), sourceLow = Word(source, 8);
  const std::uint64_t destinationHigh = Word(destination, 0), destinationLow = Word(destination, 8);
  const std::size_t count = ipv6Count_.load(std::memory_order_acquire);
  for (std::size_t i = 0; i < count; ++i) {
    const std::uint64_t high = ipv6Entries_[i].high.load(std::memory_order_relaxed);
    const std::uint64_t low = ipv6Entries_[i].low.load(std::memory_order_relaxed);
    if (high == sourceHigh && low == sourceLow) return LocalSide::Source;
    if (high == destinationHigh && low == destinationLow) return LocalSide::Destination;
  }
  return LocalSide::None;
}

std::vector<Ipv4> LocalAddressList::Copy() const {
  const std::size_t count = count_.load(std::memory_order_acquire);
  std::vector<Ipv4> copy(count);
  for (std::size_t i = 0; i < count; ++i) copy[i] = entries_[i].load(std::memory_order_relaxed);
  return copy;
}

namespace {

// The addresses of `family` of every interface that is up, at most `limit`, each as `convert`
// makes it from the interface's sockaddr.
template <typename Address, typename Convert>
std::vector<Address> HostAddresses(int family, std::size_t limit, Convert convert) {
  std::vector<Address> addresses;
  ifaddrs* list = nullptr;
  if (getifaddrs(&list) != 0) return addresses;
  for (const ifaddrs* entry = list; entry && addresses.size() < limit; entry = entry->ifa_next) {
    if (!entry->ifa_addr || entry->ifa_addr->sa_family != family) continue;
    if (!(entry->ifa_flags & IFF_UP)) continue;
    addresses.push_back(convert(entry->ifa_addr));
  }
  freeifaddrs(list);
  return addresses;
}

}  // namespace

std::vector<Ipv4> HostIpv4Addresses() {
  return HostAddresses<Ipv4>(AF_INET, LocalAddressList::kCapacity, [](const sockaddr* address) {
    const auto* inet = reinterpret_cast<const sockaddr_in*>(address);
    return ReadBe32(reinterpret_cast<const std::uint8_t*>(&inet->sin_addr.s_addr));
  });
}

std::vector<IpAddress> HostIpv6Addresses() {
  return HostAddresses<IpAddress>(
      AF_INET6, LocalAddressList::kIpv6Capacity, [](const sockaddr* address) {
        const auto* inet6 = reinterpret_cast<const sockaddr_in6*>(address);
        return IpAddress::V6Bytes(inet6->sin6_addr.s6_addr);
      });
}

bool ParseIpv4(std::string_view text, Ipv4& address) {
  Ipv4 value = 0;
  const char* at = text.data();
  const char* end = text.data() + text.size();
  for (int part = 0; part < 4; ++part) {
    if (part > 0) {
      if (at == end || *at != '.') return false;
      ++at;
    }
    unsigned byte = 256;
    const auto [stop, error] = std::from_chars(at, end, byte);
    if (error != std::errc() || byte > 255 || stop - at > 3) return false;
    at = stop;
    value = (value << 8) | byte;
  }
  if (at != end) return false;
  address = value;
  return true;
}

LocalAddressRefresher::LocalAddressRefresher(LocalAddressList& list) : list_(list) {
  list_.Replace(HostIpv4Addresses());
  list_.ReplaceIpv6(HostIpv6Addresses());
  try {
    thread_ = std::jthread([this](std::stop_token stop) { Run(stop); });
  } catch (const std::system_error&) {
    // The caller tells the user; the list keeps the addresses read above.
  }
}

LocalAddressRefresher::~LocalAddressRefresher() {
  thread_.request_stop();
  wake_.notify_all();
}

void LocalAddressRefresher::Run(std::stop_token stop) {
  std::unique_lock lock(mutex_);
  while (!wake_.wait_for(lock, stop, kInterval, [] { return false; })) {
    if (stop.stop_requested()) return;
    list_.Replace(HostIpv4Addresses());
    list_.ReplaceIpv6(HostIpv6Addresses());
  }
}

}  // namespace vormelt::statistics
