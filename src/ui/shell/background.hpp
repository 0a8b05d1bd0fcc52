// Work that must not run on the window thread (name look-ups, anything that may block) and the
// one way its answer comes back. Nothing on the window thread ever waits for such work: when
// the window is gone before the answer, the answer is dropped and the worker ends on its own.
#pragma once

#include <QMetaObject>
#include <QObject>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>

namespace vormelt::ui {

namespace detail {

// Lives as a child of the receiver; its end cuts the worker's way back.
class BackgroundReturn final : public QObject {
 public:
  struct Link {
    std::mutex mutex;
    QObject* target = nullptr;  // this object while it lives
  };

  explicit BackgroundReturn(QObject* receiver)
      : QObject(receiver), link_(std::make_shared<Link>()) {
    link_->target = this;
  }
  ~BackgroundReturn() override {
    std::lock_guard lock(link_->mutex);
    link_->target = nullptr;  // answers posted before this line are dropped with the object
  }
  std::shared_ptr<Link> link() const { return link_; }

 private:
  std::shared_ptr<Link> link_;
};

}  // namespace detail

// Runs `work` on a worker thread and then `done(result)` on `receiver`'s thread, unless the
// receiver has been destroyed meanwhile.
template <typename Work, typename Done>
void RunInBackground(QObject* receiver, Work work, Done done) {
  auto* back = new detail::BackgroundReturn(receiver);
  std::thread([link = back->link(), work = std::move(work), done = std::move(done)]() mutable {
    auto result = work();
    std::lock_guard lock(link->mutex);
    if (!link->target) return;
    QObject* target = link->target;
    QMetaObject::invokeMethod(
        target,
        [target, done = std::move(done), result = std::move(result)]() mutable {
          done(std::move(result));
          target->deleteLater();
        },
        Qt::QueuedConnection);
  }).detach();
}

}  // namespace vormelt::ui
