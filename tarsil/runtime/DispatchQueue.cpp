#include "tarsil/runtime/DispatchQueue.hpp"

#include "tarsil/runtime/detail/GlobalQueue.hpp"
#include "tarsil/runtime/detail/MainQueue.hpp"
#include "tarsil/runtime/detail/SerialQueue.hpp"
#include "tarsil/support/process.hpp"

namespace tarsil {

// Like everything that worker threads may still use at the very end of the process, these two are never
// destroyed.

DispatchQueue& DispatchQueue::main() {
  static DispatchQueue& queue = *new DispatchQueue(std::make_shared<detail::MainQueue>());
  return queue;
}

DispatchQueue& DispatchQueue::global() {
  static DispatchQueue& queue = *new DispatchQueue(std::make_shared<detail::GlobalQueue>());
  return queue;
}

DispatchQueue DispatchQueue::serial(std::string label) {
  return DispatchQueue(std::make_shared<detail::SerialQueue>(std::move(label)));
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
