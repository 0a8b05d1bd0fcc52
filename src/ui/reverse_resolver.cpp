// Worker threads for reverse look-ups and the message box that reports each answer.
// A worker only calls the look-up and posts its answer back; joining and every widget call
// happen on the resolver's thread.
#include "ui/reverse_resolver.hpp"

#include <QApplication>
#include <QMetaObject>
#include <QWidget>
#include <utility>

#include "packetmode/filter_window_model.hpp"
#include "ui/dialogs.hpp"
#include "ui/qt_text.hpp"

namespace vormelt::ui {

ReverseResolver::ReverseResolver(QObject* parent)
    : ReverseResolver(&ReverseResolveAddress, parent) {}

ReverseResolver::ReverseResolver(Lookup lookup, QObject* parent)
    : QObject(parent), lookup_(std::move(lookup)) {}

ReverseResolver::~ReverseResolver() {
  // Answers posted from here on are discarded with this object; the cursor is given back for
  // every look-up that will never report.
  for (auto& [id, worker] : workers_) {
    worker.join();
    QApplication::restoreOverrideCursor();
  }
}

void ReverseResolver::resolve(std::string address, Done done) {
  const int id = nextId_++;
  QApplication::setOverrideCursor(Qt::WaitCursor);
  workers_.emplace(id, std::thread([this, id, address = std::move(address), done = std::move(done)] {
    std::optional<std::string> name = lookup_(address);
    QMetaObject::invokeMethod(
        this, [this, id, name = std::move(name), done] { Finish(id, name, done); },
        Qt::QueuedConnection);
  }));
}

void ReverseResolver::Finish(int id, std::optional<std::string> name, const Done& done) {
  auto worker = workers_.extract(id);
  if (!worker.empty()) worker.mapped().join();
  QApplication::restoreOverrideCursor();
  done(std::move(name));
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
