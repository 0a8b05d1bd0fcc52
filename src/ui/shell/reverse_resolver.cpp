// Reverse look-ups off the window thread and the message box that reports each answer.
// A worker only calls the look-up; every widget call happens on the resolver's thread.
#include "ui/shell/reverse_resolver.hpp"

#include <QApplication>
#include <QWidget>
#include <utility>

#include "filters/filter_window_model.hpp"
#include "ui/shell/background.hpp"
#include "ui/shell/dialogs.hpp"
#include "ui/shell/qt_text.hpp"

namespace vormelt::ui {

ReverseResolver::ReverseResolver(QObject* parent)
    : ReverseResolver(&ReverseResolveAddress, parent) {}

ReverseResolver::ReverseResolver(Lookup lookup, QObject* parent)
    : QObject(parent), lookup_(std::move(lookup)) {}

ReverseResolver::~ReverseResolver() {
  // Look-ups that will never report still hold the wait cursor.
  for (; pending_ > 0; --pending_) QApplication::restoreOverrideCursor();
}

void ReverseResolver::resolve(std::string address, Done done) {
  ++pending_;
  QApplication::setOverrideCursor(Qt::WaitCursor);
  RunInBackground(
      this, [lookup = lookup_, address = std::move(address)] { return lookup(address); },
      [this, done = std::move(done)](std::optional<std::string> name) {
        --pending_;
        QApplication::restoreOverrideCursor();
        done(std::move(name));
      });
}

void ReverseResolveAndShow(QWidget* window, const std::string& address) {
  // Without a window the application keeps the resolver, so a look-up never outlives it.
  QObject* owner = window ? static_cast<QObject*>(window) : QCoreApplication::instance();
  auto* resolver = owner->findChild<ReverseResolver*>(QString(), Qt::FindDirectChildrenOnly);
  if (!resolver) resolver = new ReverseResolver(owner);
  resolver->resolve(address, [window](std::optional<std::string> name) {
    MessageRequest request;
    request.caption = T(Text::FilterReverseResolve);
    request.text = name ? QString::fromStdString(*name) : T(Text::FilterReverseFailed);
    request.icon = name ? MessageIcon::Information : MessageIcon::Warning;
    ShowMessage(window, request);
  });
}

}  // namespace vormelt::ui
