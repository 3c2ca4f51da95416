#pragma once

#include <memory>
#include <mutex>

#include "tarsil/runtime/DispatchQueue.hpp"

namespace tarsil::detail {

class Reactor;

/// The life of a source, whatever it waits for: suspended, then in turns armed (the reactor watches for the
/// event) and delivering (the handler is on its way or runs), at last ended. Only who takes it out of
/// `suspended` or `armed` may end it, and a source that delivers ends itself, so the cancel handler comes
/// once and last.
class Source : public std::enable_shared_from_this<Source> {
 public:
  virtual ~Source() = default;
  Source(const Source&) = delete;
  Source& operator=(const Source&) = delete;

  void setEventHandler(Work handler);
  void setCancelHandler(Work handler);
  void resume();
  void cancel();
  bool isCancelled() const;

 protected:
  explicit Source(DispatchQueue queue);

  /// Lets the reactor watch for the next event. Called under the source's lock, as is `disarm`.
  virtual void arm() = 0;
  virtual void disarm() = 0;

  /// Called on the queue, right before the event handler.
  virtual void willFire() {}

  /// Called by the reactor's thread for the event that the source was armed for.
  void happened();

  const std::shared_ptr<Reactor> reactor_;

 private:
  enum class State { suspended, armed, delivering, ended };

  void setHandler(Work& place, Work handler, const char* setter);
  void deliver();
  void goOn();
  void end();

  const DispatchQueue queue_;
  mutable std::mutex mutex_;
  State state_ = State::suspended;
  bool cancelled_ = false;
  /// Set while suspended, let go of at the end, and left alone in between.
  Work eventHandler_;
  Work cancelHandler_;
};

}  // namespace tarsil::detail
