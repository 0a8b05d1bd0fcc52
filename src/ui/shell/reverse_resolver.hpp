// Reverse look-ups of IPv4 addresses off the window's thread: a slow resolver must never freeze
// the window. Answers come back on the resolver's own (window) thread; nothing here is shared
// with the worker threads but the address text each one was given.
#pragma once

#include <QObject>
#include <functional>
#include <optional>
#include <string>

class QWidget;

namespace vormelt::ui {

class ReverseResolver : public QObject {
  Q_OBJECT

 public:
  // Blocking look-up of a dotted IPv4 address; nullopt when it has no name.
  using Lookup = std::function<std::optional<std::string>(const std::string& address)>;
  using Done = std::function<void(std::optional<std::string> name)>;

  // Resolves with the system resolver (getnameinfo).
  explicit ReverseResolver(QObject* parent = nullptr);
  ReverseResolver(Lookup lookup, QObject* parent);
  // Look-ups still running are not waited for; their answers are dropped.
  ~ReverseResolver() override;

  // Starts a look-up on a worker thread and shows the wait cursor until it ends; `done` runs
  // later on this object's thread.
  void resolve(std::string address, Done done);
  int pending() const { return pending_; }

 private:
  Lookup lookup_;
  int pending_ = 0;
};

// Looks up `address` with the window's resolver (made on first use, a child of `window`) and
// shows the name, or "Unable to reverse resolve address.", in a message box over `window`.
void ReverseResolveAndShow(QWidget* window, const std::string& address);

}  // namespace vormelt::ui
