#include "tarsil/runtime/RunLoop.hpp"

#include <poll.h>

#include <chrono>
#include <optional>
#include <utility>

#include "tarsil/runtime/detail/CurrentQueue.hpp"
#include "tarsil/runtime/detail/QueueImplementation.hpp"
#include "tarsil/runtime/detail/RunLoopImplementation.hpp"
#include "tarsil/runtime/detail/VirtualTimeImplementation.hpp"
#include "tarsil/runtime/detail/schedule.hpp"
#include "tarsil/support/process.hpp"

namespace tarsil {
namespace {

/// Reports a descriptor for as long as somebody wants to hear of it.
class DescriptorWatch final : public detail::Watcher, public std::enable_shared_from_this<DescriptorWatch> {
 public:
  DescriptorWatch(std::shared_ptr<detail::Reactor> reactor, Work work)
      : reactor_(std::move(reactor)), work_(std::move(work)) {}

  void begin(int descriptor) {
    watch_ = reactor_->watch(descriptor, shared_from_this(), detail::Reactor::Writer::machine);
  }
  void end() {
    if (watch_) reactor_->unwatch(*std::exchange(watch_, std::nullopt));
  }

  void ready(bool /*hungUp*/) override {
    // Ended while the report was on its way.
    if (!watch_) return;
    // The work may end the watch.
    const auto self = shared_from_this();
    try {
      work_();
    } catch (...) {
      goOn();
      throw;
    }
    goOn();
  }

 private:
  void goOn() {
    if (watch_) reactor_->rearm(*watch_);
  }

  const std::shared_ptr<detail::Reactor> reactor_;
  const Work work_;
  std::optional<detail::Reactor::WatchId> watch_;
};

}  // namespace

RunLoop& RunLoop::main() {
  // Never destroyed: workers hand work to the main queue until the very end of the process.
  static RunLoop& loop = *new RunLoop(std::make_unique<Implementation>(Implementation::Thread::main));
  return loop;
}

RunLoop& RunLoop::current() {
  if (isMainThread()) return main();
  static thread_local RunLoop loop(std::make_unique<Implementation>(Implementation::Thread::other));
  return loop;
}

bool RunLoop::isMainThread() {
  if (!detail::isFirstThread()) return false;
  if (VirtualTime::Implementation::current() == nullptr) return true;
  const auto* queue = detail::CurrentQueue::innermost();
  return queue == nullptr || queue == &DispatchQueue::Implementation::of(DispatchQueue::main());
}

RunLoop::RunLoop(std::unique_ptr<Implementation> implementation)
    : implementation_(std::move(implementation)) {}

RunLoop::~RunLoop() = default;

void RunLoop::run() {
  implementation_->run({}, Clock::Instant::max());
}

bool RunLoop::runFor(Duration timeout) {
  return runUntil({}, timeout);
}

bool RunLoop::runUntil(const std::function<bool()>& condition, Duration timeout) {
  const auto end = detail::after(Clock::now(), timeout);
  const auto ended = implementation_->run(condition, end);
  return condition ? ended == Implementation::Ended::conditionHeld : ended == Implementation::Ended::stopped;
}

void RunLoop::stop() {
  implementation_->stop();
}

int RunLoop::descriptor() const {
  return implementation_->descriptor();
}

void RunLoop::processDue() {
  implementation_->processDue();
}

void RunLoop::perform(Work work) {
  performer()(std::move(work));
}

std::function<void(Work)> RunLoop::performer() {
  return [reactor = implementation_->reactor()](Work work) {
    if (!work) fatalError("RunLoop::perform was given no work");
    reactor->post(std::move(work));
  };
}

Observation RunLoop::watch(int descriptor, Work work) {
  if (!work) fatalError("RunLoop::watch was given no work");
  const auto watch = std::make_shared<DescriptorWatch>(implementation_->reactor(), std::move(work));
  watch->begin(descriptor);
  return Observation([watch] { watch->end(); });
}

/// One `run` on the loop's thread, for as long as it lasts; a handler may start another one within.
class RunLoop::Implementation::Run {
 public:
  explicit Run(Implementation& loop) : loop_(loop) {
    const std::lock_guard lock(loop_.runMutex_);
    outer_ = std::exchange(loop_.innermost_, this);
  }
  ~Run() {
    const std::lock_guard lock(loop_.runMutex_);
    loop_.innermost_ = outer_;
  }
  Run(const Run&) = delete;
  Run& operator=(const Run&) = delete;

  /// Called under the loop's lock.
  void stop() { stopped_ = true; }
  bool isStopped() const {
    const std::lock_guard lock(loop_.runMutex_);
    return stopped_;
  }

 private:
  Implementation& loop_;
  Run* outer_ = nullptr;
  bool stopped_ = false;
};

RunLoop::Implementation::Implementation(Thread thread)
    : isMain_(thread == Thread::main), thread_(std::this_thread::get_id()) {}

RunLoop::Implementation::~Implementation() {
  reactor_->abandon();
}

std::shared_ptr<detail::Reactor> RunLoop::Implementation::reactor() const {
  const auto* virtualTime = VirtualTime::Implementation::current();
  if (virtualTime != nullptr && isMain_) return virtualTime->mainReactor();
  return reactor_;
}

RunLoop::Implementation::Ended RunLoop::Implementation::run(const std::function<bool()>& condition,
                                                            Clock::Instant end) {
  const Run run(*this);
  lookAround();
  const auto ended = [&]() -> std::optional<Ended> {
    if (condition && condition()) return Ended::conditionHeld;
    if (run.isStopped()) return Ended::stopped;
    return std::nullopt;
  };
  if (const auto early = ended()) return *early;
  for (;;) {
    beginRound();
    while (const Work due = takeDue()) {
      due();
      if (const auto now = ended()) return *now;
    }
    if (!waitUntil(end)) return ended().value_or(Ended::timedOut);
  }
}

void RunLoop::Implementation::stop() {
  const std::lock_guard lock(runMutex_);
  if (innermost_ == nullptr) return;
  innermost_->stop();
  // Wakes the loop's thread, should it wait.
  if (!isOnItsThread()) reactor_->post([] {});
}

void RunLoop::Implementation::processDue() {
  lookAround();
  beginRound();
  while (const Work due = takeDue()) due();
}

bool RunLoop::Implementation::isOnItsThread() const {
  return isMain_ ? detail::isFirstThread() : std::this_thread::get_id() == thread_;
}

void RunLoop::Implementation::lookAround() {
  if (auto* virtualTime = VirtualTime::Implementation::current()) virtualTime->lookAround();
}

void RunLoop::Implementation::beginRound() {
  workLeft_ = reactor_->workCount();
  readableLeft_ = reactor_->watchCount();
  roundBegan_ = reactor_->now();
}

// The next thing of the round. On virtual time nothing waits for a next round: the clock stands until nothing
// is due.
Work RunLoop::Implementation::takeDue() {
  if (auto* virtualTime = VirtualTime::Implementation::current()) return virtualTime->takeDue();
  if (workLeft_ > 0) {
    --workLeft_;
    if (Work work = reactor_->takeWork()) return work;
  }
  if (Work ringing = reactor_->takeAlarm(roundBegan_)) return ringing;
  if (readableLeft_ > 0) {
    --readableLeft_;
    if (Work report = reactor_->takeReadable()) return report;
  }
  return {};
}

// False when it is `end`, or later.
bool RunLoop::Implementation::waitUntil(Clock::Instant end) const {
  if (auto* virtualTime = VirtualTime::Implementation::current()) {
    if (end != Clock::Instant::max() || virtualTime->hasAlarm()) return virtualTime->jump(end);
    if (virtualTime->waitForDescriptor()) return true;
    fatalError("RunLoop::run() on a VirtualTime with no timer and no descriptor would never end");
  }
  const auto now = reactor_->now();
  if (now >= end) return false;
  pollfd due{reactor_->descriptor(), POLLIN, 0};
  const auto seconds = std::chrono::floor<std::chrono::seconds>(end - now);
  const timespec timeout{seconds.count(), (end - now - seconds).count()};
  ppoll(&due, 1, &timeout, nullptr);
  return true;
}

}  // namespace tarsil
