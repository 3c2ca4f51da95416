#include "tarsil/runtime/detail/SerialQueue.hpp"

#include <algorithm>

#include "tarsil/runtime/detail/Reactor.hpp"
#include "tarsil/runtime/detail/background.hpp"
#include "tarsil/support/process.hpp"

namespace tarsil::detail {
namespace {

/// Lets go of a lock for as long as it lives.
class Unlocked {
 public:
  explicit Unlocked(std::unique_lock<std::mutex>& lock) : lock_(lock) { lock_.unlock(); }
  ~Unlocked() { lock_.lock(); }
  Unlocked(const Unlocked&) = delete;
  Unlocked& operator=(const Unlocked&) = delete;

 private:
  std::unique_lock<std::mutex>& lock_;
};

}  // namespace

/// Keeps the queue for one thread, for as long as it lives. Made and ended under the queue's lock.
class SerialQueue::Busy {
 public:
  explicit Busy(SerialQueue& queue) : queue_(queue) { queue_.busy_ = true; }
  ~Busy() {
    queue_.busy_ = false;
    for (; queue_.turnsOwed_ > 0; --queue_.turnsOwed_) queue_.postTurn();
    queue_.changed_.notify_all();
  }
  Busy(const Busy&) = delete;
  Busy& operator=(const Busy&) = delete;

 private:
  SerialQueue& queue_;
};

void SerialQueue::async(Work work) {
  const std::lock_guard lock(mutex_);
  pieces_.push_back({std::move(work)});
  postTurn();
}

void SerialQueue::sync(const Work& work) {
  if (isCurrent())
    fatalError("sync on the serial queue \"" + label_ + "\" from its own work waits for itself");
  Waiter waiter;
  std::unique_lock lock(mutex_);
  pieces_.push_back({[&work] { work(); }, &waiter});
  try {
    while (!waiter.done) {
      if (busy_) {
        changed_.wait(lock);
        continue;
      }
      const Busy busy(*this);
      while (!waiter.done) runFirst(lock, CurrentQueue::Origin::sync);
    }
  } catch (...) {
    withdraw(waiter);
    throw;
  }
  if (waiter.exception) std::rethrow_exception(waiter.exception);
}

bool SerialQueue::isCurrent() const {
  return CurrentQueue::contains(*this);
}

std::shared_ptr<Reactor> SerialQueue::reactor() const {
  return backgroundReactor();
}

void SerialQueue::deliver(Work work) {
  async(std::move(work));
}

void SerialQueue::postTurn() {
  reactor()->post([self = shared_from_this()] { self->takeTurn(); });
}

void SerialQueue::takeTurn() {
  std::unique_lock lock(mutex_);
  ++turnsOwed_;
  if (busy_) return;
  const Busy busy(*this);
  while (turnsOwed_ > 0 && !pieces_.empty()) {
    --turnsOwed_;
    // Pieces that somebody waits for have no turn of their own; they go along with the next one.
    while (!pieces_.empty() && runFirst(lock, CurrentQueue::Origin::reactor)) continue;
  }
  if (pieces_.empty()) turnsOwed_ = 0;
}

// True when somebody waited for it.
bool SerialQueue::runFirst(std::unique_lock<std::mutex>& lock, CurrentQueue::Origin origin) {
  Piece piece = std::move(pieces_.front());
  pieces_.pop_front();
  {
    const Unlocked unlocked(lock);
    run(piece, origin);
    piece.work = nullptr;
  }
  if (piece.waiter == nullptr) return false;
  piece.waiter->done = true;
  changed_.notify_all();
  return true;
}

void SerialQueue::run(Piece& piece, CurrentQueue::Origin origin) const {
  const CurrentQueue current(*this, origin);
  if (piece.waiter != nullptr) {
    try {
      piece.work();
    } catch (...) {
      piece.waiter->exception = std::current_exception();
    }
  } else if (reactor()->isVirtual()) {
    piece.work();
  } else {
    // Nobody waits for an exception of this work, least of all the thread that works the queue off in `sync`.
    [&]() noexcept { piece.work(); }();
  }
}

void SerialQueue::withdraw(const Waiter& waiter) {
  std::erase_if(pieces_, [&](const Piece& piece) { return piece.waiter == &waiter; });
}

}  // namespace tarsil::detail
