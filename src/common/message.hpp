// Messages the engine threads want shown, and the queue that carries them to whoever shows
// them (a window drains it on its 10 ms timer, the CLI prints to stderr). Engine threads never
// call a window: they only push here. The language is chosen when a message is shown.
#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "common/texts.hpp"

namespace vormelt {

// A message box's icon and the button that answered it; shared by every box of the program.
enum class MessageIcon : std::uint8_t { None, Information, Warning, Question, Stop };
enum class MessageAnswer : std::uint8_t { Ok, Yes, No, Cancel };

// One message box: caption and text keys, and the one argument the text's conversion takes
// (a %s text or a %ld number), already worked out.
struct CaptureMessage {
  Text caption;
  Text text;
  MessageIcon icon = MessageIcon::Stop;
  std::optional<std::string> textArgument;  // for a %s text
  std::optional<long> numberArgument;       // for a %ld text
};

// The message text in `language`, with its argument put in.
std::string FormatMessage(const CaptureMessage& message, UiLanguage language);
std::string FormatCaption(const CaptureMessage& message, UiLanguage language);

// Thread-safe FIFO. Any thread pushes; the showing thread drains.
class MessageQueue {
 public:
  void Push(CaptureMessage message);
  std::vector<CaptureMessage> Drain();
  bool Empty() const;

 private:
  mutable std::mutex mutex_;
  std::vector<CaptureMessage> pending_;
};

}  // namespace vormelt
