// Shared by the widget tests: message boxes and program starts answered by the test, named
// children looked up (a missing one stops the test).
// Qt side only; the engine tests never include this.
#pragma once

#include <QObject>
#include <QString>
#include <QStringList>
#include <deque>
#include <optional>
#include <vector>

#include "ui/shell/dialogs.hpp"

namespace vormelt::test {

// While it lives, no message box is shown and no program starts. A box gets the next of
// `answers`, else `answer`, else the answer it gives when dismissed; everything asked and every
// program start (program, then its arguments) is kept.
struct MessageLog {
  MessageLog();
  ~MessageLog();
  MessageLog(const MessageLog&) = delete;
  MessageLog& operator=(const MessageLog&) = delete;

  std::vector<ui::MessageRequest> asked;
  std::deque<MessageAnswer> answers;
  std::optional<MessageAnswer> answer;
  std::vector<QStringList> launches;
};

template <typename Widget>
Widget& Child(const QObject& parent, const char* name) {
  auto* child = parent.findChild<Widget*>(QString::fromLatin1(name));
  if (!child) qFatal("no child named %s", name);
  return *child;
}

}  // namespace vormelt::test

