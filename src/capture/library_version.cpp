#include "capture/library_version.hpp"

#include <pcap/pcap.h>

namespace vormelt {

std::string CaptureLibraryVersion() {
  const char* version = pcap_lib_version();
  return version ? version : std::string();
}

}  // namespace vormelt
