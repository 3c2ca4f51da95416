#pragma once

#include <condition_variable>
#include <exception>
#include <mutex>

#include "tarsil/runtime/DispatchQueue.hpp"

namespace tarsil::detail {

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

}  // namespace tarsil::detail
