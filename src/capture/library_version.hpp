// The capture library's own version line, for the About box: windows never include pcap.
#pragma once

#include <string>

namespace vormelt {

// E.g. "libpcap version 1.10.4 (with TPACKET_V3)".
std::string CaptureLibraryVersion();

}  // namespace vormelt
