// Live capture tests on loopback: wait for a started session to listen, or learn why it will
// not (no capture rights here), so that the test can skip with that reason.
#pragma once

#include <chrono>
#include <string>
#include <thread>

#include "capture/session.hpp"

namespace vormelt::test {

// Up to five seconds for `session` to report Listening. Empty when it does; otherwise the
// capture has ended and the text says why, ready for GTEST_SKIP.
inline std::string AwaitListening(CaptureSession& session) {
  using namespace std::chrono_literals;
  for (auto deadline = std::chrono::steady_clock::now() + 5s;
       session.Status().status != CaptureStatus::Listening && session.listening.load() &&
       std::chrono::steady_clock::now() < deadline;) {
    std::this_thread::sleep_for(5ms);
  }
  if (session.Status().status == CaptureStatus::Listening) return {};
  session.Quit();
  std::string reason = "the capture did not start";
  for (const auto& message : session.Messages().Drain()) {
    reason = FormatMessage(message, UiLanguage::English);
  }
  return "cannot capture on loopback here (needs root or cap_net_raw,cap_net_admin): " + reason;
}

}  // namespace vormelt::test
