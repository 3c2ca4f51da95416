#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string_view>
#include <vector>

#include "tarsil/runtime/DispatchQueue.hpp"
#include "tarsil/runtime/DispatchSource.hpp"
#include "tarsil/serial/ORSSerialRequest.hpp"
#include "tarsil/serial/detail/PacketMatcher.hpp"
#include "tarsil/support/bytes.hpp"

namespace tarsil::detail {

/// A port's requests: one is pending (sent, waiting for its response or its time-out), the others wait. All
/// work is done on the port's own serial queue.
class RequestQueue : public std::enable_shared_from_this<RequestQueue> {
 public:
  using Request = std::shared_ptr<ORSSerialRequest>;

  /// What the requests need of their port. Called on the port's own queue.
  class Port {
   public:
    virtual ~Port() = default;
    virtual bool write(ByteView data) = 0;
    virtual void receivedResponse(Bytes response, const Request& toRequest) = 0;
    /// Tells on the main thread that the request timed out, and does `afterwards` there when the call has
    /// returned. False, with nothing done, when nobody wants to know.
    virtual bool requestDidTimeout(const Request& request, Work afterwards) = 0;
    /// An observable property has another value.
    virtual void changed(std::string_view key) = 0;
  };

  RequestQueue(DispatchQueue queue, std::unique_ptr<Port> port);
  ~RequestQueue();
  RequestQueue(const RequestQueue&) = delete;
  RequestQueue& operator=(const RequestQueue&) = delete;

  /// Sends the request, or lets it wait behind the pending one; false when writing failed. Waits for the
  /// queue. Any other thread.
  bool send(const Request& request);
  /// Takes the request off the waiting list, however often it stands there; the pending one is left alone.
  /// Any thread; done later.
  void cancel(const Request& request);
  /// Empties the list of waiting requests. Any thread; done later.
  void cancelAll();
  /// A point between what was sent until now and what will be. Any thread.
  using Mark = std::uint64_t;
  Mark mark() { return ++marks_; }
  /// Forgets what was sent before the mark: waiting requests and the pending one, but not its time-out. What
  /// was sent since then goes on. Any thread; done later.
  void forgetBefore(Mark mark);
  /// Hands a received byte to the pending request. On the queue only.
  void append(std::uint8_t byte);
  /// How many of the first bytes no response can begin with, so that they need not be appended. On the queue
  /// only.
  std::size_t useless(ByteView bytes) const;
  /// True when no request is pending, waits, or is being sent. Any thread.
  bool isIdle() const { return isIdle_; }

  /// Any thread; never waits for the line.
  std::vector<Request> waiting() const;
  Request pending() const;

 private:
  enum class Sent { failed, awaitingResponse, complete };

  /// With the last mark before it was sent.
  struct Entry {
    Request request;
    Mark after = 0;
  };

  bool sendOrWait(const Entry& entry);
  Sent transmit(const Entry& entry);
  void goOn();
  void startTimeout(double seconds);
  void timedOut();
  void setTimeoutTimer(std::shared_ptr<DispatchSource> timer);

  void setPending(Entry entry);
  template <class Change>
  void changeWaiting(Change change);
  Entry takeFirstWaiting();

  DispatchQueue queue_;
  std::unique_ptr<Port> port_;
  std::unique_ptr<PacketMatcher> response_;
  std::shared_ptr<DispatchSource> timeoutTimer_;
  // Changed on the queue only, so that only others need the lock to look.
  mutable std::mutex mutex_;
  std::deque<Entry> waiting_;
  Entry pending_;
  std::atomic<Mark> marks_ = 0;
  std::atomic<bool> isIdle_ = true;
};

}  // namespace tarsil::detail
