#include "tarsil/runtime/DispatchQueue.hpp"

#include <algorithm>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <exception>
#include <iterator>
#include <mutex>
#include <utility>

#include "tarsil/runtime/RunLoop.hpp"
#include "tarsil/runtime/detail/CurrentQueue.hpp"
#include "tarsil/runtime/detail/QueueImplementation.hpp"
#include "tarsil/runtime/detail/Reactor.hpp"
#include "tarsil/runtime/detail/RunLoopImplementation.hpp"
#include "tarsil/runtime/detail/VirtualTimeImplementation.hpp"
#include "tarsil/runtime/detail/WorkerPool.hpp"
#include "tarsil/support/process.hpp"

namespace tarsil {
namespace {

using namespace detail;

/// The reactor of every queue but the main one: the worker threads', or the `VirtualTime`'s while one exists.
std::shared_ptr<Reactor> backgroundReactor() {
  if (const auto* virtualTime = VirtualTime::Implementation::current())
    return virtualTime->backgroundReactor();
  return WorkerPool::shared().reactor();
}

/// Runs work on the main thread, from the main run loop.
class MainQueue final : public DispatchQueue::Implementation {
 public:
  void async(Work work) override;
  void sync(const Work& work) override;
  bool isCurrent() const override;
  std::shared_ptr<Reactor> reactor() const override;
  void deliver(Work work) override;
};

/// Work that runs on one thread while another waits for its end.
class Completion {
 public:
  explicit Completion(const Work& work) : work_(work) {}

  void run() {
    std::exception_ptr exception;
    try {
      work_();
    } catch (...) {
      exception = std::current_exception();
    }
    // Told under the lock: the waiting thread may destroy this object as soon as it holds the lock itself.
    const std::lock_guard lock(mutex_);
    exception_ = exception;
    done_ = true;
    ended_.notify_one();
  }

  /// Returns when the work has run; throws what it threw.
  void wait() {
    std::unique_lock lock(mutex_);
    ended_.wait(lock, [this] { return done_; });
    if (exception_) std::rethrow_exception(exception_);
  }

 private:
  const Work& work_;
  std::mutex mutex_;
  std::condition_variable ended_;
  bool done_ = false;
  std::exception_ptr exception_;
};

void MainQueue::async(Work work) {
  const auto reactor = this->reactor();
  // Which queue's work runs is asked on virtual time only, where one thread serves them all.
  if (!reactor->isVirtual()) return reactor->post(std::move(work));
  reactor->post([this, work = std::move(work)]() mutable { deliver(std::move(work)); });
}

void MainQueue::sync(const Work& work) {
  if (isCurrent()) return work();
  const auto reactor = this->reactor();
  if (!reactor->isVirtual()) {
    Completion completion(work);
    async([&completion] { completion.run(); });
    return completion.wait();
  }
  // The one thread there is runs the work itself: after what the main queue already holds, unless the main
  // thread stands still beneath, waiting for this very work.
  const bool mainThreadWaits = CurrentQueue::waitsFor(*this);
  const CurrentQueue current(*this, CurrentQueue::Origin::sync);
  if (!mainThreadWaits) {
    for (auto left = reactor->workCount(); left > 0; --left) {
      if (const Work earlier = reactor->takeWork()) earlier();
    }
  }
  work();
}

bool MainQueue::isCurrent() const {
  return RunLoop::isMainThread();
}

std::shared_ptr<Reactor> MainQueue::reactor() const {
  return RunLoop::Implementation::of(RunLoop::main()).reactor();
}

void MainQueue::deliver(Work work) {
  const CurrentQueue current(*this, CurrentQueue::Origin::reactor);
  work();
}

/// Runs work concurrently on the worker threads.
class GlobalQueue final : public DispatchQueue::Implementation {
 public:
  void async(Work work) override;
  void sync(const Work& work) override;
  bool isCurrent() const override;
  std::shared_ptr<Reactor> reactor() const override;
  void deliver(Work work) override;
};

void GlobalQueue::async(Work work) {
  reactor()->post([this, work = std::move(work)]() mutable { deliver(std::move(work)); });
}

void GlobalQueue::sync(const Work& work) {
  // Nothing orders work of this queue, so the calling thread is as good as any.
  const CurrentQueue current(*this, CurrentQueue::Origin::sync);
  work();
}

bool GlobalQueue::isCurrent() const {
  return CurrentQueue::contains(*this);
}

std::shared_ptr<Reactor> GlobalQueue::reactor() const {
  return backgroundReactor();
}

void GlobalQueue::deliver(Work work) {
  const CurrentQueue current(*this, CurrentQueue::Origin::reactor);
  work();
}

/// Runs work one piece at a time.
///
/// The pieces are numbered, and each one that `async` queues gets a turn on the worker threads: the turn runs
/// everything up to its piece. Whoever works the queue off, a worker with a turn or a thread in `sync`, does
/// so alone, and takes over the turns that come meanwhile. So nobody in `sync` waits for a free worker.
class SerialQueue final : public DispatchQueue::Implementation,
                          public std::enable_shared_from_this<SerialQueue> {
 public:
  explicit SerialQueue(std::string label) : label_(std::move(label)) {}

  void async(Work work) override;
  void sync(const Work& work) override;
  bool isCurrent() const override;
  std::shared_ptr<Reactor> reactor() const override;
  void deliver(Work work) override;

 private:
  class Busy;
  class Turn;
  struct Waiter {
    bool done = false;
    std::exception_ptr exception;
  };
  struct Piece {
    std::uint64_t number;
    Work work;
    /// Who waits for the work in `sync`; null for `async`.
    Waiter* waiter = nullptr;
  };

  void postTurn(std::uint64_t number);
  void takeTurn(std::uint64_t number);
  void forfeitTurn(std::uint64_t number);
  bool hasTurn() const { return !pieces_.empty() && pieces_.front().number <= turn_; }
  void runFirst(std::unique_lock<std::mutex>& lock, CurrentQueue::Origin origin);
  void run(Piece& piece, CurrentQueue::Origin origin) const;
  void withdraw(const Waiter& waiter);

  const std::string label_;
  std::mutex mutex_;
  /// A piece that somebody waits for has run, or the queue is no longer busy.
  std::condition_variable changed_;
  std::deque<Piece> pieces_;
  std::uint64_t lastNumber_ = 0;
  /// The pieces up to this number have had their turn.
  std::uint64_t turn_ = 0;
  bool busy_ = false;
};

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
  Turn(Turn&&) noexcept = default;
  Turn& operator=(Turn&&) = delete;
  ~Turn() {
    if (queue_) queue_->forfeitTurn(number_);
  }

  void operator()() { std::exchange(queue_, nullptr)->takeTurn(number_); }

 private:
  std::shared_ptr<SerialQueue> queue_;
  std::uint64_t number_;
};

void SerialQueue::async(Work work) {
  const std::lock_guard lock(mutex_);
  pieces_.push_back({++lastNumber_, std::move(work)});
  // Whoever works the queue off takes it along. On virtual time its turn has a place among everything else's.
  if (busy_ && !reactor()->isVirtual()) {
    turn_ = lastNumber_;
    return;
  }
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
  reactor()->post(Turn(shared_from_this(), number));
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

}  // namespace

// Like everything that worker threads may still use at the very end of the process, these two are never
// destroyed.

DispatchQueue& DispatchQueue::main() {
  static DispatchQueue& queue = *new DispatchQueue(std::make_shared<MainQueue>());
  return queue;
}

DispatchQueue& DispatchQueue::global() {
  static DispatchQueue& queue = *new DispatchQueue(std::make_shared<GlobalQueue>());
  return queue;
}

DispatchQueue DispatchQueue::serial(std::string label) {
  return DispatchQueue(std::make_shared<SerialQueue>(std::move(label)));
}

void DispatchQueue::async(Work work) const {
  if (!work) fatalError("DispatchQueue::async was given no work");
  implementation_->async(std::move(work));
}

bool DispatchQueue::isCurrent() const {
  return implementation_->isCurrent();
}

DispatchQueue::DispatchQueue(std::shared_ptr<Implementation> implementation)
    : implementation_(std::move(implementation)) {}

void DispatchQueue::syncWork(const Work& work) const {
  // The work may drop the last handle.
  const auto kept = implementation_;
  kept->sync(work);
}

}  // namespace tarsil
