#pragma once

#include "tarsil/runtime/detail/QueueImplementation.hpp"

namespace tarsil::detail {

/// Runs work on the main thread, from the main run loop.
class MainQueue final : public DispatchQueue::Implementation {
 public:
  void async(Work work) override;
  void sync(const Work& work) override;
  bool isCurrent() const override;
  std::shared_ptr<Reactor> reactor() const override;
  void deliver(Work work) override;
};

}  // namespace tarsil::detail
