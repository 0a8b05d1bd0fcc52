// The fast path for the most common capture file: classic pcap (µs or ns, either byte order)
// of Ethernet frames, as tcpdump and most capture tools write it. The file is read in large
// blocks one block ahead on a thread of its own, so the kernel's copy of the next block runs
// beside the consumer's work on this one, and records are parsed in place: no stdio buffer,
// no per-record read call, no extra copy. Anything else (pcapng, other link types, unusual
// headers) is left to libpcap, which also has the last word on what a valid file is.
#pragma once

#include <memory>
#include <string>

#include "capture/source.hpp"

namespace vormelt {

// A source for the file at `path` when it is classic pcap of Ethernet frames; null when the
// file is anything else (or cannot be opened: libpcap's path then reports why).
std::unique_ptr<CaptureSource> OpenClassicPcap(const std::string& path);

}  // namespace vormelt
