#pragma once

#include <functional>
#include <utility>

namespace tarsil {

/// Somebody's interest in a key or a notification: it lasts until this object is dropped. Drop it on any
/// thread; an observer that is being called at that moment on another thread finishes its call.
class Observation {
 public:
  Observation() = default;
  explicit Observation(std::function<void()> end) : end_(std::move(end)) {}
  Observation(Observation&& other) noexcept : end_(std::exchange(other.end_, nullptr)) {}
  Observation& operator=(Observation&& other) noexcept {
    if (this != &other) {
      reset();
      end_ = std::exchange(other.end_, nullptr);
    }
    return *this;
  }
  ~Observation() { reset(); }

  void reset() {
    if (auto end = std::exchange(end_, nullptr)) end();
  }

 private:
  std::function<void()> end_;
};

}  // namespace tarsil
