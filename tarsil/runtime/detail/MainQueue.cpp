#include "tarsil/runtime/detail/MainQueue.hpp"

#include <utility>

#include "tarsil/runtime/RunLoop.hpp"
#include "tarsil/runtime/detail/Completion.hpp"
#include "tarsil/runtime/detail/CurrentQueue.hpp"
#include "tarsil/runtime/detail/Reactor.hpp"
#include "tarsil/runtime/detail/RunLoopImplementation.hpp"

namespace tarsil::detail {

void MainQueue::async(Work work) {
  reactor()->post([this, work = std::move(work)]() mutable { deliver(std::move(work)); });
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

}  // namespace tarsil::detail
