// Formatting and queueing of capture messages. The catalogue's printf forms are used as they
// are; a message carries at most one argument, of the kind its text's conversion takes.
#include "capture/message.hpp"

#include <cstdio>
#include <utility>

namespace vormelt {

std::string FormatMessage(const CaptureMessage& message, UiLanguage language) {
  const char* form = Tr(message.text, language);
  int length = 0;
  // Two passes: measure, then write, so long arguments (file paths, libpcap texts) fit.
  const auto print = [&](char* out, std::size_t size) {
    if (message.textArgument) return std::snprintf(out, size, form, message.textArgument->c_str());
    if (message.numberArgument) return std::snprintf(out, size, form, *message.numberArgument);
    return std::snprintf(out, size, "%s", form);
  };
  length = print(nullptr, 0);
  if (length <= 0) return {};
  std::string text(static_cast<std::size_t>(length), '\0');
  print(text.data(), text.size() + 1);
  return text;
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
