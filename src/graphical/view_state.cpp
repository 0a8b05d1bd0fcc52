// Keys of Graphical Packets Mode. Every key that changes the view answers with the notice the
// user sees for four seconds; keys with nothing to say return only their action.
#include "graphical/view_state.hpp"

#include <algorithm>
#include <iterator>

namespace vormelt::graphical {
namespace {

constexpr std::int64_t kSlowBlinkPeriodMs = 400;
constexpr std::int64_t kFastBlinkPeriodMs = 120;
constexpr int kFullLevel = 255;

KeyOutcome Do(KeyAction action) { return KeyOutcome{action, std::nullopt}; }

KeyOutcome Say(KeyAction action, Text text, std::optional<unsigned> number = std::nullopt) {
  return KeyOutcome{action, Notice{text, number}};
}

KeyOutcome ToggleFullScreen(ViewState& state, FullScreen target, Text on, Text off) {
  state.fullScreen = state.fullScreen == target ? FullScreen::Off : target;
  return Say(KeyAction::ApplyFullScreen, state.fullScreen == target ? on : off);
}

int NextReplaySpeed(int speed) {
  const auto* found = std::ranges::find(kReplaySpeeds, speed);
  if (found == std::end(kReplaySpeeds) || found + 1 == std::end(kReplaySpeeds)) {
    return kReplaySpeeds[0];
  }
  return *(found + 1);
}

}  // namespace

int NextBlinkMode(int mode) {
  if (mode < kBlinkOff || mode >= kLastBlinkMode) return kBlinkOff;
  return mode + 1;
}

Text BlinkNotice(int mode) {
  switch (mode) {
    case 0: return Text::GpBlinkSlowSquared;
    case 1: return Text::GpBlinkFastSquared;
    case 2: return Text::GpBlinkSlowCubed;
    case 3: return Text::GpBlinkFastCubed;
    default: return Text::GpBlinkOff;
  }
}

int BlinkLevel(int mode, std::int64_t ageMs) {
  if (mode < 0 || mode > kLastBlinkMode || ageMs < 0) return kFullLevel;
  const bool slow = mode == 0 || mode == 2;
  const std::int64_t period = slow ? kSlowBlinkPeriodMs : kFastBlinkPeriodMs;
  const double phase = static_cast<double>(ageMs % period) / static_cast<double>(period);
  if (mode <= 1) return phase < 0.5 ? kFullLevel : 0;
  const double left = 1.0 - phase;
  return static_cast<int>(kFullLevel * left * left * left);
}

KeyOutcome HandleKey(ViewState& state, Key key) {
  GraphicalSettings& o = state.options;
  switch (key) {
    case Key::F1: return Do(KeyAction::ShowHelp);
    case Key::F2: return Do(KeyAction::ShowAbout);
    case Key::F3:
      o.pixelMode = !o.pixelMode;
      return Say(KeyAction::Redraw, o.pixelMode ? Text::GpPixelModeOn : Text::GpPixelModeOff);
    case Key::F4:
      o.curvedLines = !o.curvedLines;
      return Say(KeyAction::Redraw, o.curvedLines ? Text::GpCurveOn : Text::GpCurveOff);
    case Key::F5:
      o.slowMode = !o.slowMode;
      return Do(KeyAction::None);
    case Key::F6: return Do(KeyAction::Redraw);
    case Key::F7:
      o.ipTimeout = std::max(kMinIpTimeout, o.ipTimeout - 1);
      return Say(KeyAction::None, Text::GpIpTimeout, static_cast<unsigned>(o.ipTimeout));
    case Key::F8:
      o.ipTimeout = std::min(kMaxIpTimeout, o.ipTimeout + 1);
      return Say(KeyAction::None, Text::GpIpTimeout, static_cast<unsigned>(o.ipTimeout));
    case Key::F9:
      o.blinkMode = NextBlinkMode(o.blinkMode);
      return Say(KeyAction::None, BlinkNotice(o.blinkMode));
    case Key::F10:
      o.replaySpeed = NextReplaySpeed(o.replaySpeed);
      return Say(KeyAction::ApplyReplaySpeed, Text::GpReplaySpeed,
                 static_cast<unsigned>(o.replaySpeed));
    case Key::F11:
    case Key::Space:
      return ToggleFullScreen(state, FullScreen::Primary, Text::GpPrimaryFullScreenOn,
                              Text::GpPrimaryFullScreenOff);
    case Key::F12:
      return ToggleFullScreen(state, FullScreen::AllDisplays, Text::GpMultiFullScreenOn,
                              Text::GpMultiFullScreenOff);
    case Key::Escape: return Do(KeyAction::ClearAndRestart);
    case Key::Context: return Do(KeyAction::OpenSettings);
    case Key::Enter: return Do(state.started ? KeyAction::None : KeyAction::Begin);
    case Key::Other: break;
  }
  return {};
}

}  // namespace vormelt::graphical
