// Interface listing with getifaddrs (addresses) and pcap_findalldevs (adapters). Both lists are
// freed by RAII holders; a failure of either leaves the other's rows intact.
#include "capture/interfaces.hpp"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <pcap/pcap.h>

#include <memory>

#include "common/ip_address.hpp"

namespace vormelt {
namespace {

struct IfaddrsFree {
  void operator()(ifaddrs* list) const { freeifaddrs(list); }
};
using IfaddrsList = std::unique_ptr<ifaddrs, IfaddrsFree>;

struct DevicesFree {
  void operator()(pcap_if_t* list) const { pcap_freealldevs(list); }
};
using DeviceList = std::unique_ptr<pcap_if_t, DevicesFree>;

IfaddrsList ReadIfaddrs() {
  ifaddrs* list = nullptr;
  if (getifaddrs(&list) != 0) return nullptr;
  return IfaddrsList(list);
}

// The address as text: dotted IPv4, or IPv6 in its short form (no zone index: the address
// alone names the interface when it is chosen).
std::string AddressText(const sockaddr* address) {
  char text[INET6_ADDRSTRLEN] = {};
  if (address->sa_family == AF_INET) {
    inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in*>(address)->sin_addr, text, sizeof text);
  } else {
    inet_ntop(AF_INET6, &reinterpret_cast<const sockaddr_in6*>(address)->sin6_addr, text, sizeof text);
  }
  return text;
}

bool IsIp(const sockaddr* address) {
  return address && (address->sa_family == AF_INET || address->sa_family == AF_INET6);
}

void AddAdapterRows(std::vector<InterfaceRow>& rows) {
  char error[PCAP_ERRBUF_SIZE] = {};
  pcap_if_t* first = nullptr;
  if (pcap_findalldevs(&first, error) != 0) return;  // adapters are optional; addresses remain
  const DeviceList devices(first);
  for (const pcap_if_t* device = first; device; device = device->next) {
    InterfaceRow row;
    row.kind = InterfaceKind::PacketDriver;
    row.device = device->name;
    row.name = device->description ? device->description : device->name;
    // The first IPv4 address names the adapter; one with IPv6 only shows its first of those.
    for (const pcap_addr_t* address = device->addresses; address; address = address->next) {
      if (!IsIp(address->addr)) continue;
      if (row.address.empty() || address->addr->sa_family == AF_INET) row.address = AddressText(address->addr);
      if (address->addr->sa_family == AF_INET) break;
    }
    rows.push_back(std::move(row));
  }
}

}  // namespace

InterfaceList ListInterfaces() {
  InterfaceList list;
  const IfaddrsList addresses = ReadIfaddrs();
  if (!addresses) {
    list.failure = CaptureMessage{Text::ProgramTitle, Text::ErrorGettingInterfaceInfo,
                                  MessageIcon::Stop, std::nullopt, std::nullopt};
    return list;
  }
  for (const ifaddrs* entry = addresses.get(); entry; entry = entry->ifa_next) {
    if (!IsIp(entry->ifa_addr) || !(entry->ifa_flags & IFF_UP)) continue;
    list.rows.push_back(InterfaceRow{InterfaceKind::RawSockets, entry->ifa_name,
                                     AddressText(entry->ifa_addr), entry->ifa_name});
  }
  AddAdapterRows(list.rows);
  return list;
}

Text InterfaceTypeText(const InterfaceRow& row) {
  return row.kind == InterfaceKind::RawSockets ? Text::InterfaceTypeSockets
                                               : Text::InterfaceTypeAdapter;
}

std::optional<std::string> InterfaceHoldingAddress(std::string_view address) {
  // An IPv4 or an IPv6 address (no zone index: the address alone names the interface).
  const std::optional<IpAddress> wanted = IpAddress::Parse(address);
  if (!wanted) return std::nullopt;
  const IfaddrsList addresses = ReadIfaddrs();
  for (const ifaddrs* entry = addresses.get(); entry; entry = entry->ifa_next) {
    if (!IsIp(entry->ifa_addr) || !(entry->ifa_flags & IFF_UP)) continue;
    std::optional<IpAddress> held;
    if (entry->ifa_addr->sa_family == AF_INET) {
      const auto* in = reinterpret_cast<const sockaddr_in*>(entry->ifa_addr);
      held = IpAddress::V4Bytes(reinterpret_cast<const std::uint8_t*>(&in->sin_addr));
    } else {
      held = IpAddress::V6Bytes(reinterpret_cast<const sockaddr_in6*>(entry->ifa_addr)->sin6_addr.s6_addr);
    }
    if (held == wanted) return std::string(entry->ifa_name);
  }
  return std::nullopt;
}

}  // namespace vormelt
