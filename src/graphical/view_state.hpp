// The view state of Graphical Packets Mode and what each key does to it, as a pure state
// machine: the window turns a key into a Key, calls HandleKey and carries out the returned
// action and notice. Nothing here draws, times or persists anything.
#pragma once

#include <cstdint>
#include <optional>

#include "common/settings.hpp"
#include "common/texts.hpp"

namespace vormelt::graphical {

inline constexpr int kMinIpTimeout = 0;
inline constexpr int kMaxIpTimeout = 300;
inline constexpr int kBlinkOff = -1;
inline constexpr int kLastBlinkMode = 3;
// How long a notice stays on the surface.
inline constexpr int kNoticeMilliseconds = 4000;
// Capture files replay at one of these multiples of their recorded pace.
inline constexpr int kReplaySpeeds[] = {1, 10, 100};

enum class FullScreen : std::uint8_t { Off, Primary, AllDisplays };

enum class Key : std::uint8_t {
  F1, F2, F3, F4, F5, F6, F7, F8, F9, F10, F11, F12, Space, Escape, Context, Enter, Other
};

// What the window must do after a key, beside showing the notice.
enum class KeyAction : std::uint8_t {
  None,
  ShowHelp,
  ShowAbout,
  Redraw,            // repaint everything now
  ClearAndRestart,   // clear the surface and restart the drawing timer
  OpenSettings,
  ApplyFullScreen,   // the full-screen state changed
  ApplyReplaySpeed,  // a running replay takes the new speed
  Begin,             // the start surface's Enter: start listening
};

struct Notice {
  Text text;
  std::optional<unsigned> number;  // for "IP Timeout: %u" and "Replay speed: x%d"
};

struct KeyOutcome {
  KeyAction action = KeyAction::None;
  std::optional<Notice> notice;
};

struct ViewState {
  GraphicalSettings options;  // the persisted part: modes, timeout, blink, dialog options
  FullScreen fullScreen = FullScreen::Off;
  bool started = false;       // past the start surface
};

KeyOutcome HandleKey(ViewState& state, Key key);

// The blink mode after `mode` in the cycle off, Slow Squared, Fast Squared, Slow Cubed,
// Fast Cubed, off. A stored value outside the cycle restarts it.
int NextBlinkMode(int mode);
Text BlinkNotice(int mode);

// How bright a packet drawn `ageMs` ago is under `mode`, 0..255: squared modes switch on and
// off, cubed modes flash and fade with the cube of the time left in each period.
int BlinkLevel(int mode, std::int64_t ageMs);

}  // namespace vormelt::graphical
