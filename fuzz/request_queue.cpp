// A port's requests under any order of sending, cancelling, forgetting, bytes, failures and time, against the
// rules told one after the other. A byte is an operation.

#include "tarsil/serial/detail/RequestQueue.hpp"

#include <array>
#include <chrono>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "fuzz/expect.hpp"
#include "tarsil/runtime/VirtualTime.hpp"
#include "tarsil/support/hexText.hpp"

using namespace tarsil;
using namespace std::chrono_literals;
using detail::RequestQueue;
using Request = RequestQueue::Request;

namespace {

using Log = std::vector<std::string>;

struct Circumstances {
  bool writingFails = false;
  bool wantsTimeouts = true;
};

class LoggingPort final : public RequestQueue::Port {
 public:
  LoggingPort(Log& log, const Circumstances& circumstances) : log_(log), circumstances_(circumstances) {}

  bool write(ByteView data) override {
    log_.push_back("write " + upperHexText(data));
    return !circumstances_.writingFails;
  }
  void receivedResponse(Bytes response, const Request& toRequest) override {
    log_.push_back("response " + upperHexText(response) + " to " + upperHexText(toRequest->dataToSend()));
  }
  bool requestDidTimeout(const Request& request, Work afterwards) override {
    if (!circumstances_.wantsTimeouts) return false;
    DispatchQueue::main().async([&log = log_, request, afterwards = std::move(afterwards)] {
      log.push_back("time-out of " + upperHexText(request->dataToSend()));
      afterwards();
    });
    return true;
  }
  void changed(std::string_view /*key*/) override {}

 private:
  Log& log_;
  const Circumstances& circumstances_;
};

/// Three bytes of two values, or none for a request that expects no response.
Bytes responseOf(unsigned kind) {
  static const std::array<Bytes, 4> responses{Bytes{}, Bytes{0xA0}, Bytes{0xA0, 0xA1},
                                              Bytes{0xA1, 0xA0, 0xA1}};
  return responses[kind % 4];
}

Duration timeoutOf(unsigned kind) {
  return kind / 4 % 3 * 1s;
}

Request makeRequest(unsigned kind, std::uint8_t number) {
  const Bytes response = responseOf(kind);
  ORSSerialRequest::Descriptor descriptor;
  if (!response.empty()) {
    descriptor = std::make_shared<ORSSerialPacketDescriptor>(
        ORSSerialPacketDescriptor::FixedPacket{.packetData = response});
  }
  return ORSSerialRequest::requestWithDataToSend(
      {number}, {}, std::chrono::duration<double>(timeoutOf(kind)).count(), descriptor);
}

/// The rules, with nothing clever in them.
class SlowQueue {
 public:
  explicit SlowQueue(const Circumstances& circumstances) : circumstances_(circumstances) {}

  struct Entry {
    std::uint8_t number = 0;
    unsigned kind = 0;
  };

  bool send(const Entry& entry) {
    if (pending) {
      waiting.push_back(entry);
      return true;
    }
    const bool written = begin(entry);
    if (written && responseOf(entry.kind).empty()) next();
    return written;
  }

  void cancel(std::uint8_t number) {
    if (pending && pending->number == number) return;
    std::erase_if(waiting, [&](const Entry& entry) { return entry.number == number; });
  }

  /// Everything that was sent until now.
  void forget() {
    waiting.clear();
    pending.reset();
  }

  void receive(std::uint8_t byte) {
    if (!pending || responseOf(pending->kind).empty()) return;
    heard_.push_back(byte);
    const Bytes response = responseOf(pending->kind);
    if (heard_.size() < response.size() || !std::equal(response.rbegin(), response.rend(), heard_.rbegin()))
      return;
    timeout_.reset();
    log.push_back("response " + upperHexText(response) + " to " + upperHexText(Bytes{pending->number}));
    next();
  }

  void advance(Duration duration) {
    const Duration end = now_ + duration;
    while (timeout_ && *timeout_ <= end) {
      now_ = *timeout_;
      timeout_.reset();
      if (!pending) continue;
      if (circumstances_.wantsTimeouts) log.push_back("time-out of " + upperHexText(Bytes{pending->number}));
      next();
    }
    now_ = end;
  }

  Log log;
  std::optional<Entry> pending;
  std::deque<Entry> waiting;

 private:
  /// False when it could not be written; it is pending all the same.
  bool begin(const Entry& entry) {
    pending = entry;
    heard_.clear();
    if (timeoutOf(entry.kind) > Duration::zero()) timeout_ = now_ + timeoutOf(entry.kind);
    log.push_back("write " + upperHexText(Bytes{entry.number}));
    return !circumstances_.writingFails;
  }

  void next() {
    pending.reset();
    while (!pending && !waiting.empty()) {
      const Entry entry = waiting.front();
      waiting.pop_front();
      if (begin(entry) && responseOf(entry.kind).empty()) pending.reset();
    }
  }

  const Circumstances& circumstances_;
  Duration now_{};
  std::optional<Duration> timeout_;
  Bytes heard_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  VirtualTime time;
  Circumstances circumstances;
  Log log;
  const auto queue = DispatchQueue::serial("requests");
  const auto requests =
      std::make_shared<RequestQueue>(queue, std::make_unique<LoggingPort>(log, circumstances));
  SlowQueue slow(circumstances);
  std::vector<Request> sent;
  for (const std::uint8_t byte : ByteView(data, std::min<std::size_t>(size, 200))) {
    const unsigned choice = byte / 8U;
    switch (byte % 8) {
      case 0:
      case 1: {
        const auto number = static_cast<std::uint8_t>(sent.size());
        sent.push_back(makeRequest(choice, number));
        expect(requests->send(sent.back()) == slow.send({number, choice}));
        break;
      }
      case 2:
        if (sent.empty()) break;
        requests->cancel(sent[choice % sent.size()]);
        slow.cancel(static_cast<std::uint8_t>(choice % sent.size()));
        break;
      case 3:
        requests->forgetBefore(requests->mark());
        slow.forget();
        break;
      case 4:
      case 5: {
        const auto received = static_cast<std::uint8_t>(0xA0 + choice % 2);
        queue.sync([&] { requests->append(received); });
        slow.receive(received);
        break;
      }
      case 6:
        time.advance(choice * 250ms);
        slow.advance(choice * 250ms);
        break;
      default:
        if (choice % 4 == 0) circumstances.writingFails = !circumstances.writingFails;
        if (choice % 4 == 1) circumstances.wantsTimeouts = !circumstances.wantsTimeouts;
        if (choice % 4 == 2) {
          requests->cancelAll();
          slow.waiting.clear();
        }
    }
    time.settle();
    expect(log == slow.log);
    expect((requests->pending() == nullptr) == !slow.pending);
    if (slow.pending) expect(requests->pending() == sent[slow.pending->number]);
    const auto waiting = requests->waiting();
    expect(waiting.size() == slow.waiting.size());
    for (std::size_t i = 0; i < waiting.size(); ++i) expect(waiting[i] == sent[slow.waiting[i].number]);
    expect(requests->isIdle() == (!slow.pending && slow.waiting.empty()));
  }
  return 0;
}
