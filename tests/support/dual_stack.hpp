// A capture of real dual-stack loopback traffic (HTTP, UDP and echo over ::1 and 127.0.0.1),
// made once per test program by dual_stack_capture.sh in a network namespace of its own.
#pragma once

#include <string>

#include "support/pcap_file.hpp"
#include "support/process.hpp"

namespace vormelt::test {

// The pcap's path, or empty with `why` set (for GTEST_SKIP) when it cannot be made here.
inline std::string DualStackCapture(std::string& why) {
  static const TempDir dir;
  static std::string failure;
  static const std::string path = [] {
    const std::string pcap = dir.File("dual-stack.pcap");
    int status = -1;
    const std::string log = ShellOutput(std::string(VORMELT_SOURCE_DIR) +
                                        "/tests/support/dual_stack_capture.sh '" + pcap + "' 2>&1", &status);
    if (status == 0) return pcap;
    failure = "cannot capture dual-stack traffic here (needs root, tcpdump, curl, ping): " + log;
    return std::string();
  }();
  why = failure;
  return path;
}

}  // namespace vormelt::test
