// Find / Next: the finder works in slices of slots between timer ticks; a match stops the
// timer, so the wait for the next press is the event loop itself.
#include "ui/packetmode/find_controller.hpp"

#include <QLineEdit>
#include <QProgressBar>
#include <QWidget>

#include "ui/shell/dialogs.hpp"
#include "ui/shell/qt_text.hpp"

namespace vormelt::ui {
namespace {

// Slots scanned per timer tick: a few milliseconds of work, so typing and painting stay smooth.
constexpr std::int32_t kSlotsPerTick = 4096;

}  // namespace

FindController::FindController(const PacketStore& store, QWidget& window, QLineEdit& text,
                               QProgressBar& progress, Hooks hooks)
    : QObject(&window), store_(store), window_(window), text_(text), progress_(progress),
      hooks_(std::move(hooks)) {
  timer_.setInterval(0);
  connect(&timer_, &QTimer::timeout, this, &FindController::Step);
  text_.setMaxLength(static_cast<int>(kMaxFindText));
  progress_.setVisible(false);
}

void FindController::findNext() {
  if (state_ == State::Waiting) {
    Scan();
    return;
  }
  if (state_ == State::Scanning) return;
  if (store_.RowCount() == 0) {
    ShowNotice(&window_, Text::FindCaption, T(Text::FindNothingToSearch), MessageIcon::Information);
    return;
  }
  const std::string text = text_.text().toStdString();
  if (text.empty()) {
    ShowNotice(&window_, Text::FindCaption, T(Text::FindBlankText), MessageIcon::Information);
    return;
  }
  finder_.Begin(store_, text, hooks_.matchCase());
  Scan();
}

void FindController::cancel() {
  timer_.stop();
  progress_.setVisible(false);
  hooks_.showList(true);
  SetState(State::Idle);
}

void FindController::Scan() {
  hooks_.showList(false);
  progress_.setRange(0, std::max(finder_.End(), 1));
  progress_.setValue(finder_.Scanned());
  progress_.setVisible(true);
  SetState(State::Scanning);
  timer_.start();
}

void FindController::Step() {
  const PacketFinder::Step step = finder_.Advance(store_, kSlotsPerTick);
  progress_.setValue(finder_.Scanned());
  if (step == PacketFinder::Step::Running) return;
  timer_.stop();
  if (step == PacketFinder::Step::Finished) {
    Finish();
    return;
  }
  progress_.setVisible(false);
  hooks_.showList(true);
  hooks_.selectIndex(finder_.Hit().index);
  hooks_.selectBytes(finder_.Hit().frameOffset, finder_.Hit().length);
  SetState(State::Waiting);
}

void FindController::Finish() {
  progress_.setVisible(false);
  hooks_.showList(true);
  SetState(State::Idle);
  if (!finder_.AnyMatch()) {
    ShowNotice(&window_, Text::FindCaption, T(Text::FindNoInstance), MessageIcon::Information);
    return;
  }
  const MessageAnswer again = ShowMessage(
      &window_, {T(Text::FindSearchAgainCaption), T(Text::FindSearchAgain), MessageIcon::Question,
                 MessageButtons::YesNo, MessageAnswer::No});
  if (again != MessageAnswer::Yes) return;
  finder_.Restart();
  Scan();
}

void FindController::SetState(State state) {
  if (state_ == state) return;
  state_ = state;
  emit stateChanged();
}

}  // namespace vormelt::ui
