// Formatting and queueing of capture messages. The catalogue's printf forms are used as they
// are; a message carries at most one argument, of the kind its text's conversion takes.
#include "common/message.hpp"

#include <utility>

namespace vormelt {

std::string FormatMessage(const CaptureMessage& message, UiLanguage language) {
  if (message.textArgument) return FormatText(message.text, language, message.textArgument->c_str());
  if (message.numberArgument) return FormatText(message.text, language, *message.numberArgument);
  return FormatText(message.text, language);
}

std::string FormatCaption(const CaptureMessage& message, UiLanguage language) {
  return Tr(message.caption, language);
}

void MessageQueue::Push(CaptureMessage message) {
  std::lock_guard lock(mutex_);
  pending_.push_back(std::move(message));
}

std::vector<CaptureMessage> MessageQueue::Drain() {
  std::lock_guard lock(mutex_);
  return std::exchange(pending_, {});
}

bool MessageQueue::Empty() const {
  std::lock_guard lock(mutex_);
  return pending_.empty();
}

}  // namespace vormelt
