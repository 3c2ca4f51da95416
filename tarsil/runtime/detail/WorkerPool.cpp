#include "tarsil/runtime/detail/WorkerPool.hpp"

#include <pthread.h>

#include <csignal>
#include <string>
#include <system_error>
#include <thread>

#include "tarsil/support/process.hpp"

namespace tarsil::detail {
namespace {

// Two threads are enough for work that never blocks, and stay. The others leave when they have had nothing to
// do.
constexpr int threadsThatStay = 2;
constexpr std::chrono::seconds usualIdleTime(5);

/// The host's signals belong to the host's threads: a thread made while this lives gets none.
class SignalsBlocked {
 public:
  SignalsBlocked() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before_);
  }
  ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;

 private:
  sigset_t before_;
};

}  // namespace

WorkerPool& WorkerPool::shared() {
  static WorkerPool& pool = *new WorkerPool(usualIdleTime);
  return pool;
}

WorkerPool::WorkerPool(std::chrono::milliseconds idleTime) : idleTime_(idleTime) {
  const std::lock_guard lock(mutex_);
  startThread();
}

int WorkerPool::threadCount() const {
  const std::lock_guard lock(mutex_);
  return threads_;
}

// Called under the lock.
void WorkerPool::startThread() {
  const SignalsBlocked blocked;
  try {
    std::thread([this] { runThread(); }).detach();
    ++threads_;
    ++waiting_;
  } catch (const std::system_error& error) {
    // With other threads at work, what comes waits for one of them.
    if (threads_ == 0) fatalError(std::string("cannot start a worker thread: ") + error.what());
  }
}

// An exception that nobody below has caught ends the process here, with its stack still there to look at.
void WorkerPool::runThread() noexcept {
  nameThisThread("tarsil-worker");
  while (const Work work = awaitWork()) {
    work();
    beginWaiting();
  }
}

// Empty when the thread has left.
Work WorkerPool::awaitWork() {
  for (;;) {
    const auto event = reactor_->wait(isSpare() ? static_cast<int>(idleTime_.count()) : -1);
    if (!event && leave()) return {};
    if (!event) continue;
    if (Work work = reactor_->take(*event)) {
      endWaiting();
      return work;
    }
  }
}

bool WorkerPool::isSpare() const {
  const std::lock_guard lock(mutex_);
  return threads_ > threadsThatStay;
}

bool WorkerPool::leave() {
  const std::lock_guard lock(mutex_);
  if (threads_ <= threadsThatStay || waiting_ == 1) return false;
  --threads_;
  --waiting_;
  return true;
}

void WorkerPool::beginWaiting() {
  const std::lock_guard lock(mutex_);
  ++waiting_;
}

void WorkerPool::endWaiting() {
  const std::lock_guard lock(mutex_);
  --waiting_;
  if (waiting_ == 0 && threads_ < mostThreads) startThread();
}

}  // namespace tarsil::detail
