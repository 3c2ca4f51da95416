#include "tarsil/runtime/detail/GlobalQueue.hpp"

#include <utility>

#include "tarsil/runtime/detail/CurrentQueue.hpp"
#include "tarsil/runtime/detail/Reactor.hpp"
#include "tarsil/runtime/detail/background.hpp"

namespace tarsil::detail {

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

}  // namespace tarsil::detail
