#pragma once

#include <condition_variable>
#include <cstdint>
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
/// The pieces are numbered, and each one that `async` queues gets a turn on the worker threads: the turn runs
/// everything up to its piece. Whoever works the queue off, a worker with a turn or a thread in `sync`, does
/// so alone, and takes over the turns that come meanwhile. So nobody in `sync` waits for a free worker.
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
  class Turn;
  struct Waiter {
    bool done = false;
    std::exception_ptr exception;
  };
  struct Piece {
    std::uint64_t number;
    Work work;
    /// Who waits for the work in `sync`; null for `async`.
    Waiter* waiter = nullptr;
  };

  void postTurn(std::uint64_t number);
  void takeTurn(std::uint64_t number);
  void forfeitTurn(std::uint64_t number);
  bool hasTurn() const { return !pieces_.empty() && pieces_.front().number <= turn_; }
  void runFirst(std::unique_lock<std::mutex>& lock, CurrentQueue::Origin origin);
  void run(Piece& piece, CurrentQueue::Origin origin) const;
  void withdraw(const Waiter& waiter);

  const std::string label_;
  std::mutex mutex_;
  /// A piece that somebody waits for has run, or the queue is no longer busy.
  std::condition_variable changed_;
  std::deque<Piece> pieces_;
  std::uint64_t lastNumber_ = 0;
  /// The pieces up to this number have had their turn.
  std::uint64_t turn_ = 0;
  bool busy_ = false;
};

}  // namespace tarsil::detail
