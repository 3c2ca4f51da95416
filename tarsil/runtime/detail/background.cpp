#include "tarsil/runtime/detail/background.hpp"

#include "tarsil/runtime/detail/VirtualTimeImplementation.hpp"
#include "tarsil/runtime/detail/WorkerPool.hpp"

namespace tarsil::detail {

std::shared_ptr<Reactor> backgroundReactor() {
  if (const auto* virtualTime = VirtualTime::Implementation::current())
    return virtualTime->backgroundReactor();
  return WorkerPool::shared().reactor();
}

}  // namespace tarsil::detail
