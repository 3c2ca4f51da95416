#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <exception>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include "tarsil/runtime/detail/CurrentQueue.hpp"
#include "tarsil/runtime/detail/QueueImplementation.hpp"

namespace tarsil::detail {

/// Runs work one piece at a time.
///
/// Each piece that `async` queues gets a turn on the worker threads. Whoever works the queue off, a worker
/// with its turn or a thread in `sync`, does so alone; turns that come meanwhile are owed, and he takes them
/// over or gives them back. So there is a turn for each queued piece at any time, and nobody waits for a free
/// worker in `sync`.
class SerialQueue final : public DispatchQueue::Implementation,
                          public std::enable_shared_from_this<SerialQueue> {
 public:
  explicit SerialQueue(std::string label) : label_(std::move(label)) {}

  void async(Work work) override;
  void sync(const Work& work) override;
  bool isCurrent() const override;
  std::shared_ptr<Reactor> reactor() const override;
  void deliver(Work work) override;

 private:
  class Busy;
  struct Waiter {
    bool done = false;
    std::exception_ptr exception;
  };
  struct Piece {
    Work work;
    /// Who waits for the work in `sync`; null for `async`.
    Waiter* waiter = nullptr;
  };

  void postTurn();
  void takeTurn();
  bool runFirst(std::unique_lock<std::mutex>& lock, CurrentQueue::Origin origin);
  void run(Piece& piece, CurrentQueue::Origin origin) const;
  void withdraw(const Waiter& waiter);

  const std::string label_;
  std::mutex mutex_;
  /// A piece that somebody waits for has run, or the queue is no longer busy.
  std::condition_variable changed_;
  std::deque<Piece> pieces_;
  bool busy_ = false;
  std::size_t turnsOwed_ = 0;
};

}  // namespace tarsil::detail
