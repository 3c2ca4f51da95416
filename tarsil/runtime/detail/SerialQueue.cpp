#include "tarsil/runtime/detail/SerialQueue.hpp"

#include <algorithm>
#include <iterator>

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
    if (queue_.hasTurn()) queue_.postTurn(queue_.turn_);
    queue_.changed_.notify_all();
  }
  Busy(const Busy&) = delete;
  Busy& operator=(const Busy&) = delete;

 private:
  SerialQueue& queue_;
};

/// A turn that is lost when the reactor ends before it came.
class SerialQueue::Turn {
 public:
  Turn(std::shared_ptr<SerialQueue> queue, std::uint64_t number)
      : queue_(std::move(queue)), number_(number) {}
  ~Turn() {
    if (queue_) queue_->forfeitTurn(number_);
  }
  Turn(const Turn&) = delete;
  Turn& operator=(const Turn&) = delete;

  void take() { std::exchange(queue_, nullptr)->takeTurn(number_); }

 private:
  std::shared_ptr<SerialQueue> queue_;
  const std::uint64_t number_;
};

void SerialQueue::async(Work work) {
  const std::lock_guard lock(mutex_);
  pieces_.push_back({++lastNumber_, std::move(work)});
  postTurn(lastNumber_);
}

void SerialQueue::sync(const Work& work) {
  if (isCurrent())
    fatalError("sync on the serial queue \"" + label_ + "\" from its own work waits for itself");
  Waiter waiter;
  std::unique_lock lock(mutex_);
  pieces_.push_back({++lastNumber_, [&work] { work(); }, &waiter});
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

void SerialQueue::postTurn(std::uint64_t number) {
  reactor()->post([turn = std::make_shared<Turn>(shared_from_this(), number)] { turn->take(); });
}

void SerialQueue::takeTurn(std::uint64_t number) {
  std::unique_lock lock(mutex_);
  turn_ = std::max(turn_, number);
  if (busy_) return;
  const Busy busy(*this);
  while (hasTurn()) runFirst(lock, CurrentQueue::Origin::reactor);
}

// What nobody waits for goes with the turn: nothing would ever run it, and it may hold what holds the queue.
void SerialQueue::forfeitTurn(std::uint64_t number) {
  std::deque<Piece> dropped;
  const std::lock_guard lock(mutex_);
  const auto isLost = [&](const Piece& piece) { return piece.number <= number && piece.waiter == nullptr; };
  const auto kept = std::stable_partition(pieces_.begin(), pieces_.end(), isLost);
  std::move(pieces_.begin(), kept, std::back_inserter(dropped));
  pieces_.erase(pieces_.begin(), kept);
}

void SerialQueue::runFirst(std::unique_lock<std::mutex>& lock, CurrentQueue::Origin origin) {
  Piece piece = std::move(pieces_.front());
  pieces_.pop_front();
  {
    const Unlocked unlocked(lock);
    run(piece, origin);
    piece.work = nullptr;
  }
  if (piece.waiter == nullptr) return;
  piece.waiter->done = true;
  changed_.notify_all();
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
