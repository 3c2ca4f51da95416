#include "tarsil/serial/detail/RequestQueue.hpp"

#include <algorithm>
#include <chrono>
#include <utility>

namespace tarsil::detail {
namespace {

// A double's seconds can be too long or too short for the clock to count.
Duration durationOf(double seconds) {
  constexpr Duration shortest = std::chrono::nanoseconds(1);
  constexpr Duration longest = std::chrono::years(100);
  const std::chrono::duration<double> duration(seconds);
  if (duration >= longest) return longest;
  if (duration <= shortest) return shortest;
  return std::chrono::duration_cast<Duration>(duration);
}

}  // namespace

RequestQueue::RequestQueue(DispatchQueue queue, std::unique_ptr<Port> port)
    : queue_(std::move(queue)), port_(std::move(port)) {}

RequestQueue::~RequestQueue() {
  setTimeoutTimer(nullptr);
}

bool RequestQueue::send(const Request& request) {
  return queue_.sync([&] { return sendOrWait(request); });
}

void RequestQueue::cancel(const Request& request) {
  queue_.async([self = shared_from_this(), request] {
    if (!request || request == self->pending_) return;
    self->changeWaiting([&](std::deque<Request>& waiting) {
      const auto found = std::find(waiting.begin(), waiting.end(), request);
      if (found != waiting.end()) waiting.erase(found);
    });
  });
}

void RequestQueue::cancelAll() {
  queue_.async([self = shared_from_this()] {
    self->changeWaiting([](std::deque<Request>& waiting) { waiting.clear(); });
  });
}

void RequestQueue::forgetAll() {
  queue_.async([self = shared_from_this()] {
    self->changeWaiting([](std::deque<Request>& waiting) { waiting.clear(); });
    // The pending request's timer runs on; when it fires there is nothing left to report.
    self->setPending(nullptr);
  });
}

void RequestQueue::append(std::uint8_t byte) {
  if (!pending_ || !response_) return;
  auto response = response_->append(byte);
  if (!response) return;
  setTimeoutTimer(nullptr);
  port_->receivedResponse(*std::move(response), pending_);
  goOn();
}

std::vector<RequestQueue::Request> RequestQueue::waiting() const {
  const std::lock_guard lock(mutex_);
  return {waiting_.begin(), waiting_.end()};
}

RequestQueue::Request RequestQueue::pending() const {
  const std::lock_guard lock(mutex_);
  return pending_;
}

bool RequestQueue::sendOrWait(const Request& request) {
  if (pending_) {
    changeWaiting([&](std::deque<Request>& waiting) { waiting.push_back(request); });
    return true;
  }
  const Sent sent = transmit(request);
  if (sent == Sent::complete) goOn();
  return sent != Sent::failed;
}

RequestQueue::Sent RequestQueue::transmit(const Request& request) {
  const auto& descriptor = request->responseDescriptor();
  response_ = descriptor ? PacketMatcher::make(descriptor) : nullptr;
  setPending(request);
  if (request->timeoutInterval() > 0) startTimeout(request->timeoutInterval());
  // After a failed write the request stays pending; only its time-out, if it has one, makes way for the next.
  if (!port_->write(request->dataToSend())) return Sent::failed;
  return descriptor ? Sent::awaitingResponse : Sent::complete;
}

// A loop, because any number of waiting requests may expect no response.
void RequestQueue::goOn() {
  for (;;) {
    setPending(nullptr);
    const Request next = takeFirstWaiting();
    if (!next || transmit(next) != Sent::complete) return;
  }
}

// Only a response, a firing and a newer timer stop it. So it outlives a request that is complete once
// written, and may time out a later request that has no time-out of its own.
void RequestQueue::startTimeout(double seconds) {
  const Duration interval = durationOf(seconds);
  // It repeats, but its first firing ends it.
  auto timer = DispatchSource::timer(interval, interval, interval / 10, queue_);
  timer->setEventHandler([weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->timedOut();
  });
  setTimeoutTimer(timer);
  timer->resume();
}

void RequestQueue::timedOut() {
  setTimeoutTimer(nullptr);
  if (!pending_) return;
  // Until the call has returned the request stays pending: a late response still counts, and then it is the
  // request behind this one that is passed over.
  const bool willGoOn = port_->requestDidTimeout(pending_, [weak = weak_from_this()] {
    const auto self = weak.lock();
    if (self) self->queue_.async([self] { self->goOn(); });
  });
  if (!willGoOn) goOn();
}

void RequestQueue::setTimeoutTimer(std::shared_ptr<DispatchSource> timer) {
  if (timeoutTimer_) timeoutTimer_->cancel();
  timeoutTimer_ = std::move(timer);
}

void RequestQueue::setPending(Request request) {
  if (request == pending_) return;
  {
    const std::lock_guard lock(mutex_);
    pending_ = std::move(request);
  }
  port_->changed("pendingRequest");
}

template <class Change>
void RequestQueue::changeWaiting(Change change) {
  const std::size_t before = waiting_.size();
  {
    const std::lock_guard lock(mutex_);
    change(waiting_);
  }
  if (waiting_.size() != before) port_->changed("queuedRequests");
}

RequestQueue::Request RequestQueue::takeFirstWaiting() {
  if (waiting_.empty()) return nullptr;
  Request first = waiting_.front();
  changeWaiting([](std::deque<Request>& waiting) { waiting.pop_front(); });
  return first;
}

}  // namespace tarsil::detail
