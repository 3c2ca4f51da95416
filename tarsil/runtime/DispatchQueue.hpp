#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>

#include "tarsil/runtime/Work.hpp"

namespace tarsil {

/// Runs work in the order in which it came: one at a time (the main queue, a serial queue) or on as many
/// threads as it takes (the global queue). All members may be called on any thread.
///
/// Queues are handles: copies name the same queue, and queued work keeps it alive.
class DispatchQueue {
 public:
  /// Work runs on the main thread, when its run loop processes what is due.
  static DispatchQueue& main();
  /// Work runs concurrently on the library's worker threads.
  static DispatchQueue& global();
  /// A new serial queue: its work runs one at a time on worker threads.
  static DispatchQueue serial(std::string label);

  /// Queues the work and returns. An exception that leaves it passes out of the run loop on the main queue,
  /// and ends the process on the others: nobody is there to catch it.
  void async(Work work) const;

  /// Queues the work and waits until it has run; hands back what it returned and passes its exception on.
  /// On the main thread, `sync` to the main queue runs the work at once. On a serial queue the calling thread
  /// works the queue off itself, so that progress never waits for a free worker; calling it from work of the
  /// same serial queue is a deadlock by definition and stops the process. The global queue, which orders
  /// nothing, runs it on the calling thread.
  template <class F>
  auto sync(F&& work) const -> std::invoke_result_t<F> {
    using Result = std::invoke_result_t<F>;
    if constexpr (std::is_void_v<Result>) {
      syncWork(std::ref(work));
    } else {
      std::optional<Result> result;
      syncWork([&] { result.emplace(work()); });
      return std::move(*result);
    }
  }

  /// True while work of this queue runs on the calling thread (for the main queue: on the main thread).
  bool isCurrent() const;

  /// Equal when they name the same queue.
  bool operator==(const DispatchQueue&) const = default;

  class Implementation;

 private:
  explicit DispatchQueue(std::shared_ptr<Implementation> implementation);
  void syncWork(const Work& work) const;
  std::shared_ptr<Implementation> implementation_;
};

}  // namespace tarsil
