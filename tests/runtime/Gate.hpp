#pragma once

#include <condition_variable>
#include <mutex>

namespace tarsil {

/// Opens once; whoever waits goes on then.
class Gate {
 public:
  void open() {
    const std::lock_guard lock(mutex_);
    open_ = true;
    opened_.notify_all();
  }
  void wait() {
    std::unique_lock lock(mutex_);
    opened_.wait(lock, [this] { return open_; });
  }

 private:
  std::mutex mutex_;
  std::condition_variable opened_;
  bool open_ = false;
};

}  // namespace tarsil
