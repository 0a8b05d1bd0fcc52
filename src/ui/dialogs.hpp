// Every message box of the program goes through ShowMessage, so captions, icons and buttons are
// chosen in one place and widget tests can answer questions without a modal loop.
#pragma once

#include <QString>
#include <functional>

#include "common/message.hpp"

class QWidget;

namespace vormelt::ui {

enum class MessageButtons { Ok, YesNo, YesNoCancel };

struct MessageRequest {
  QString caption;
  QString text;
  MessageIcon icon = MessageIcon::Information;
  MessageButtons buttons = MessageButtons::Ok;
  // The answer when the user dismisses the box (Escape, window close).
  MessageAnswer onDismiss = MessageAnswer::Ok;
};

// Shows a modal message box (or asks the test handler) and returns the answer.
MessageAnswer ShowMessage(QWidget* parent, const MessageRequest& request);

// Tests install a handler that answers instead of a modal box; an empty handler restores boxes.
using MessageHandler = std::function<MessageAnswer(const MessageRequest&)>;
void SetMessageHandler(MessageHandler handler);

}  // namespace vormelt::ui
