// Find / Next for the Packet Mode window: scans the store in slices on a zero-delay timer so
// the window keeps painting, shows progress, stops at each listed match and waits for the
// next press (or Cancel) without any loop of its own. The window supplies the widgets.
#pragma once

#include <QObject>
#include <QTimer>
#include <cstdint>
#include <functional>

#include "packetmode/packet_find.hpp"

class QLineEdit;
class QProgressBar;
class QWidget;

namespace vormelt::ui {

class FindController : public QObject {
  Q_OBJECT

 public:
  struct Hooks {
    std::function<void(bool)> showList;           // false while scanning
    std::function<void(std::int32_t)> selectIndex;  // select, focus and scroll to a store index
    std::function<void(std::int32_t, std::int32_t)> selectBytes;  // frame offset, length
    std::function<bool()> matchCase;
  };

  FindController(const PacketStore& store, QWidget& window, QLineEdit& text, QProgressBar& progress,
                 Hooks hooks);

  // The "Find / Next" button: starts a search, or goes on after the match shown.
  void findNext();
  // Ends the search; the list is shown again.
  void cancel();
  bool searching() const { return state_ != State::Idle; }
  bool waiting() const { return state_ == State::Waiting; }

 signals:
  void stateChanged();

 private:
  enum class State { Idle, Scanning, Waiting };
  void Step();
  void Scan();
  void Finish();
  void SetState(State state);

  const PacketStore& store_;
  QWidget& window_;
  QLineEdit& text_;
  QProgressBar& progress_;
  Hooks hooks_;
  PacketFinder finder_;
  QTimer timer_;
  State state_ = State::Idle;
};

}  // namespace vormelt::ui
