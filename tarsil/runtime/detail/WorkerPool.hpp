#pragma once

#include <chrono>
#include <memory>
#include <mutex>

#include "tarsil/runtime/detail/MachineReactor.hpp"

namespace tarsil::detail {

/// The threads that run all work but the main queue's. They all wait for one reactor and each takes one thing
/// at a time. One thread waits at any moment as long as there are fewer than `mostThreads`: the one that
/// takes the last place starts another first. So work that blocks its thread keeps nobody from his turn.
class WorkerPool {
 public:
  static constexpr int mostThreads = 64;

  /// The process's pool. Its first thread starts here, and nothing ends it: work may run until the very end
  /// of the process, later than any destructor of a static object.
  static WorkerPool& shared();

  const std::shared_ptr<MachineReactor>& reactor() const { return reactor_; }
  int threadCount() const;

  /// A thread that has had nothing to do for `idleTime` leaves, but for the last two. A pool's threads
  /// outlive whoever made it, so it is never destroyed.
  explicit WorkerPool(std::chrono::milliseconds idleTime);

 private:
  void startThread();
  void runThread() noexcept;
  Work awaitWork();
  bool isSpare() const;
  bool leave();
  void beginWaiting();
  void endWaiting();

  const std::chrono::milliseconds idleTime_;
  const std::shared_ptr<MachineReactor> reactor_ =
      std::make_shared<MachineReactor>(MachineReactor::Served::byManyThreads);
  mutable std::mutex mutex_;
  int threads_ = 0;
  /// How many of them wait for the reactor, one that is about to begin included.
  int waiting_ = 0;
};

}  // namespace tarsil::detail
