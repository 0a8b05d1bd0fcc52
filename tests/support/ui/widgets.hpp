// Shared by the widget tests: message boxes and program starts answered by the test, named
// children looked up (a missing one stops the test), and a main() that can also save pictures.
// Qt side only; the engine tests never include this.
#pragma once

#include <QObject>
#include <QString>
#include <QStringList>
#include <deque>
#include <functional>
#include <optional>
#include <vector>

#include "ui/dialogs.hpp"

namespace vormelt::test {

// The answer a test gives a message box.
using Answer = MessageAnswer;

// While it lives, no message box is shown and no program starts. A box gets the next of
// `answers`, else `answer`, else the answer it gives when dismissed; everything asked and every
// program start (program, then its arguments) is kept.
struct MessageLog {
  MessageLog();
  ~MessageLog();
  MessageLog(const MessageLog&) = delete;
  MessageLog& operator=(const MessageLog&) = delete;

  std::vector<ui::MessageRequest> asked;
  std::deque<Answer> answers;
  std::optional<Answer> answer;
  std::vector<QStringList> launches;
  bool launchSucceeds = true;
};

template <typename Widget>
Widget& Child(const QObject& parent, const char* name) {
  auto* child = parent.findChild<Widget*>(QString::fromLatin1(name));
  if (!child) qFatal("no child named %s", name);
  return *child;
}

using SaveScreenshot = std::function<bool(const QString& path)>;
// Runs the test slots as QTEST_MAIN does; given "--screenshot PATH", also calls save(PATH).
int RunWidgetTests(QObject& tests, int argc, char** argv, const SaveScreenshot& save);

}  // namespace vormelt::test

// main() for a widget test whose pictures `save` makes, for looking at a layout by eye.
#define VORMELT_WIDGET_TEST_MAIN(TestClass, save)                       \
  int main(int argc, char** argv) {                                     \
    QApplication app(argc, argv);                                       \
    TestClass tests;                                                    \
    return vormelt::test::RunWidgetTests(tests, argc, argv, save);      \
  }
