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
  // An observer of what changes may drop the port, and this with it.
  const auto self = shared_from_this();
  const Entry entry{request, marks_};
  return queue_.sync([&] { return self->sendOrWait(entry); });
}

void RequestQueue::cancel(const Request& request) {
  queue_.async([self = shared_from_this(), request] {
    if (!request || request == self->pending_.request) return;
    self->changeWaiting([&](std::deque<Entry>& waiting) {
      std::erase_if(waiting, [&](const Entry& entry) { return entry.request == request; });
    });
  });
}

void RequestQueue::cancelAll() {
  queue_.async([self = shared_from_this()] {
    self->changeWaiting([](std::deque<Entry>& waiting) { waiting.clear(); });
  });
}

void RequestQueue::forgetBefore(Mark mark) {
  queue_.async([self = shared_from_this(), mark] {
    const auto isOlder = [mark](const Entry& entry) { return entry.after < mark; };
    self->changeWaiting([&](std::deque<Entry>& waiting) { std::erase_if(waiting, isOlder); });
    // The pending request's timer runs on; when it fires there is nothing left to report.
    if (self->pending_.request && isOlder(self->pending_)) self->goOn();
  });
}

void RequestQueue::append(std::uint8_t byte) {
  if (!pending_.request || !response_) return;
  auto response = response_->append(byte);
  if (!response) return;
  setTimeoutTimer(nullptr);
  port_->receivedResponse(*std::move(response), pending_.request);
  goOn();
}

std::size_t RequestQueue::useless(ByteView bytes) const {
  return pending_.request && response_ ? response_->useless(bytes) : bytes.size();
}

std::vector<RequestQueue::Request> RequestQueue::waiting() const {
  const std::lock_guard lock(mutex_);
  std::vector<Request> requests;
  for (const Entry& entry : waiting_) requests.push_back(entry.request);
  return requests;
}

RequestQueue::Request RequestQueue::pending() const {
  const std::lock_guard lock(mutex_);
  return pending_.request;
}

bool RequestQueue::sendOrWait(const Entry& entry) {
  if (pending_.request) {
    changeWaiting([&](std::deque<Entry>& waiting) { waiting.push_back(entry); });
    return true;
  }
  isIdle_ = false;
  const Sent sent = transmit(entry);
  if (sent == Sent::complete) goOn();
  return sent != Sent::failed;
}

RequestQueue::Sent RequestQueue::transmit(const Entry& entry) {
  const Request& request = entry.request;
  const auto& descriptor = request->responseDescriptor();
  response_ = descriptor ? PacketMatcher::make(descriptor) : nullptr;
  setPending(entry);
  if (request->timeoutInterval() > 0) startTimeout(request->timeoutInterval());
  // After a failed write the request stays pending; only its time-out, if it has one, makes way for the next.
  if (!port_->write(request->dataToSend())) return Sent::failed;
  return descriptor ? Sent::awaitingResponse : Sent::complete;
}

// A loop, because any number of waiting requests may expect no response.
void RequestQueue::goOn() {
  for (;;) {
    setPending({});
    const Entry next = takeFirstWaiting();
    if (!next.request) {
      isIdle_ = true;
      return;
    }
    if (transmit(next) != Sent::complete) return;
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
  if (!pending_.request) return;
  // Until the call has returned the request stays pending: a late response still counts, and then it is the
  // request behind this one that is passed over.
  const bool willGoOn = port_->requestDidTimeout(pending_.request, [weak = weak_from_this()] {
    const auto self = weak.lock();
    if (self) self->queue_.async([self] { self->goOn(); });
  });
  if (!willGoOn) goOn();
}

void RequestQueue::setTimeoutTimer(std::shared_ptr<DispatchSource> timer) {
  if (timeoutTimer_) timeoutTimer_->cancel();
  timeoutTimer_ = std::move(timer);
}

void RequestQueue::setPending(Entry entry) {
  const bool isAnother = entry.request != pending_.request;
  {
    const std::lock_guard lock(mutex_);
    pending_ = std::move(entry);
  }
  if (isAnother) port_->changed("pendingRequest");
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

RequestQueue::Entry RequestQueue::takeFirstWaiting() {
  if (waiting_.empty()) return {};
  Entry first = waiting_.front();
  changeWaiting([](std::deque<Entry>& waiting) { waiting.pop_front(); });
  return first;
}

}  // namespace tarsil::detail
