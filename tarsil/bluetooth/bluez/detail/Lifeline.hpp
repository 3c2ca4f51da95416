#pragma once

#include <functional>
#include <memory>
#include <utility>

#include "tarsil/runtime/DispatchQueue.hpp"

namespace tarsil::bluez {

/// Ties work that runs later to the life of an object: it runs only while the object lives, and keeps it
/// alive meanwhile. Main thread.
class Lifeline {
 public:
  Lifeline() = default;
  explicit Lifeline(std::weak_ptr<void> owner) : owner_(std::move(owner)) {}

  /// The same function, called only while the owner lives.
  template <class F>
  auto guarded(F function) const {
    return [owner = owner_, function = std::move(function)](auto&&... arguments) {
      if (const auto alive = owner.lock()) function(arguments...);
    };
  }

  /// Runs the work on a later turn of the main loop.
  void later(Work work) const;
  /// Runs the work after the pause before something that failed is tried again: a second.
  void afterPause(std::function<void()> work) const;

 private:
  std::weak_ptr<void> owner_;
};

}  // namespace tarsil::bluez
