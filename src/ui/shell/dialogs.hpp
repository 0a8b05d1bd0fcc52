// Every message box of the program goes through ShowMessage, so captions, icons and buttons are
// chosen in one place and widget tests can answer questions without a modal loop.
#pragma once

#include <QString>
#include <functional>

#include <filesystem>

#include "common/message.hpp"
#include "common/texts.hpp"

class QWidget;

namespace vormelt {
struct ProgramSettings;
}

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

// A box with one OK button: the catalogue caption over `text`.
void ShowNotice(QWidget* parent, Text caption, const QString& text, MessageIcon icon);

// Writes the settings to `file`; on failure tells the user (a warning box) and returns false.
bool SaveSettingsOrWarn(QWidget* parent, const ProgramSettings& settings,
                        const std::filesystem::path& file);

// Tests install a handler that answers instead of a modal box; an empty handler restores boxes.
using MessageHandler = std::function<MessageAnswer(const MessageRequest&)>;
void SetMessageHandler(MessageHandler handler);

}  // namespace vormelt::ui
