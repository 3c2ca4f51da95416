#include "tarsil/serial/detail/RequestQueue.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tarsil/runtime/DispatchQueue.hpp"
#include "tarsil/runtime/VirtualTime.hpp"
#include "tests/helpers/hex.hpp"

namespace tarsil::detail {
namespace {

using std::chrono::days;
using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using std::chrono::seconds;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::IsNull;
using Request = RequestQueue::Request;

/// What happened, in order: "write 01", "response 05 to 01", "time-out of 01". A request is named after its
/// bytes.
struct Log {
  std::vector<std::string> entries;
  std::vector<std::string> changes;
  bool writingFails = false;
  bool wantsTimeouts = true;
  std::function<void()> duringTimeout;
};

class LoggingPort final : public RequestQueue::Port {
 public:
  LoggingPort(Log& log, const DispatchQueue& queue) : log_(log), queue_(queue) {}

  bool write(ByteView data) override {
    EXPECT_TRUE(queue_.isCurrent());
    log_.entries.push_back("write " + hexText(data));
    return !log_.writingFails;
  }
  void receivedResponse(Bytes response, const Request& toRequest) override {
    EXPECT_TRUE(queue_.isCurrent());
    log_.entries.push_back("response " + hexText(response) + " to " + hexText(toRequest->dataToSend()));
  }
  bool requestDidTimeout(const Request& request, Work afterwards) override {
    EXPECT_TRUE(queue_.isCurrent());
    if (!log_.wantsTimeouts) return false;
    DispatchQueue::main().async([&log = log_, request, afterwards = std::move(afterwards)] {
      log.entries.push_back("time-out of " + hexText(request->dataToSend()));
      if (log.duringTimeout) log.duringTimeout();
      afterwards();
    });
    return true;
  }
  void changed(std::string_view key) override {
    EXPECT_TRUE(queue_.isCurrent());
    log_.changes.emplace_back(key);
  }

 private:
  Log& log_;
  DispatchQueue queue_;
};

class RequestQueueTest : public testing::Test {
 protected:
  static Request request(const char* data, const char* response, double timeout = 0) {
    return ORSSerialRequest::requestWithDataToSend(
        hex(data), {}, timeout,
        std::make_shared<ORSSerialPacketDescriptor>(
            ORSSerialPacketDescriptor::FixedPacket{.packetData = hex(response)}));
  }
  static Request withoutResponse(const char* data, double timeout = 0) {
    return ORSSerialRequest::requestWithDataToSend(hex(data), {}, timeout, nullptr);
  }

  void receive(const char* bytes) {
    queue_.sync([&] {
      for (const std::uint8_t byte : hex(bytes)) requests_->append(byte);
    });
  }

  void forgetAll() { requests_->forgetBefore(requests_->mark()); }

  std::vector<std::string> takeEntries() { return std::exchange(log_.entries, {}); }

  VirtualTime time_;
  Log log_;
  DispatchQueue queue_ = DispatchQueue::serial("requests");
  std::shared_ptr<RequestQueue> requests_ =
      std::make_shared<RequestQueue>(queue_, std::make_unique<LoggingPort>(log_, queue_));
};

TEST_F(RequestQueueTest, SendsARequestAndReportsItsResponse) {
  const auto one = request("01", "a1 a2");
  EXPECT_TRUE(requests_->send(one));
  EXPECT_EQ(requests_->pending(), one);
  EXPECT_THAT(requests_->waiting(), IsEmpty());
  receive("a0 a1");
  EXPECT_THAT(takeEntries(), ElementsAre("write 01"));
  receive("a2");
  EXPECT_THAT(takeEntries(), ElementsAre("response a1 a2 to 01"));
  EXPECT_THAT(requests_->pending(), IsNull());
}

TEST_F(RequestQueueTest, RequestsWaitForThePendingOne) {
  const auto one = request("01", "a1");
  const auto two = request("02", "a2");
  const auto three = request("03", "a3");
  EXPECT_TRUE(requests_->send(one));
  EXPECT_TRUE(requests_->send(two));
  EXPECT_TRUE(requests_->send(three));
  EXPECT_THAT(requests_->waiting(), ElementsAre(two, three));
  receive("a3 a2 a1");
  EXPECT_THAT(takeEntries(), ElementsAre("write 01", "response a1 to 01", "write 02"));
  EXPECT_EQ(requests_->pending(), two);
  EXPECT_THAT(requests_->waiting(), ElementsAre(three));
  receive("a2 a3");
  EXPECT_THAT(takeEntries(), ElementsAre("response a2 to 02", "write 03", "response a3 to 03"));
}

TEST_F(RequestQueueTest, TheBytesBeforeARequestAreNoResponseToIt) {
  requests_->send(request("01", "a1"));
  requests_->send(request("02", "a1 a2"));
  receive("a1 a2");
  EXPECT_THAT(takeEntries(), ElementsAre("write 01", "response a1 to 01", "write 02"));
}

TEST_F(RequestQueueTest, ARequestThatExpectsNoResponseIsCompleteOnceWritten) {
  EXPECT_TRUE(requests_->send(withoutResponse("01")));
  EXPECT_THAT(requests_->pending(), IsNull());
  requests_->send(request("02", "a2"));
  requests_->send(withoutResponse("03"));
  requests_->send(withoutResponse("04"));
  requests_->send(request("05", "a5"));
  receive("a2");
  EXPECT_THAT(takeEntries(),
              ElementsAre("write 01", "write 02", "response a2 to 02", "write 03", "write 04", "write 05"));
}

TEST_F(RequestQueueTest, AnyNumberOfRequestsMayExpectNoResponse) {
  requests_->send(request("01", "a1"));
  const auto silent = withoutResponse("02");
  for (int i = 0; i < 200'000; ++i) requests_->send(silent);
  receive("a1");
  EXPECT_EQ(takeEntries().size(), 200'002U);
  EXPECT_THAT(requests_->pending(), IsNull());
}

TEST_F(RequestQueueTest, AResponseIsNeverEmpty) {
  requests_->send(ORSSerialRequest::requestWithDataToSend(hex("01"), {}, 0, [](ByteView) { return true; }));
  receive("a1");
  EXPECT_THAT(takeEntries(), ElementsAre("write 01", "response a1 to 01"));
}

TEST_F(RequestQueueTest, WithoutATimeoutARequestWaitsForEver) {
  for (const double never : {0.0, -1.0, std::numeric_limits<double>::quiet_NaN()}) {
    const auto one = request("01", "a1", never);
    requests_->send(one);
    time_.advance(days(1000));
    EXPECT_EQ(requests_->pending(), one);
    receive("a1");
  }
}

TEST_F(RequestQueueTest, ATimeoutIsReportedAndTheNextRequestSentAfterTheCall) {
  const auto one = request("01", "a1", 1.0);
  const auto two = request("02", "a2");
  requests_->send(one);
  requests_->send(two);
  time_.advance(seconds(1) - nanoseconds(1));
  EXPECT_THAT(takeEntries(), ElementsAre("write 01"));
  log_.duringTimeout = [&] { EXPECT_EQ(requests_->pending(), one); };
  time_.advance(nanoseconds(1));
  EXPECT_THAT(takeEntries(), ElementsAre("time-out of 01", "write 02"));
  EXPECT_EQ(requests_->pending(), two);
  time_.advance(seconds(10));
  EXPECT_THAT(takeEntries(), IsEmpty());
}

TEST_F(RequestQueueTest, WhenNobodyWantsToKnowOfATimeoutTheNextRequestIsSentAtOnce) {
  log_.wantsTimeouts = false;
  const auto two = request("02", "a2");
  requests_->send(request("01", "a1", 0.5));
  requests_->send(two);
  time_.advance(milliseconds(500));
  EXPECT_THAT(takeEntries(), ElementsAre("write 01", "write 02"));
  EXPECT_EQ(requests_->pending(), two);
}

TEST_F(RequestQueueTest, AResponseEndsTheTimeout) {
  requests_->send(request("01", "a1", 1.0));
  time_.advance(milliseconds(999));
  receive("a1");
  time_.advance(seconds(10));
  EXPECT_THAT(takeEntries(), ElementsAre("write 01", "response a1 to 01"));
}

TEST_F(RequestQueueTest, AResponseEndsTheTimeoutForTheRequestBehindToo) {
  const auto two = request("02", "a2");
  requests_->send(request("01", "a1", 1.0));
  requests_->send(two);
  receive("a1");
  time_.advance(seconds(10));
  EXPECT_THAT(takeEntries(), ElementsAre("write 01", "response a1 to 01", "write 02"));
  EXPECT_EQ(requests_->pending(), two);
}

TEST_F(RequestQueueTest, EachRequestHasATimeoutOfItsOwn) {
  requests_->send(request("01", "a1", 1.0));
  requests_->send(request("02", "a2", 1.0));
  time_.advance(milliseconds(800));
  receive("a1");
  time_.advance(milliseconds(999));
  EXPECT_THAT(takeEntries(), ElementsAre("write 01", "response a1 to 01", "write 02"));
  time_.advance(milliseconds(1));
  EXPECT_THAT(takeEntries(), ElementsAre("time-out of 02"));
  EXPECT_THAT(requests_->pending(), IsNull());
}

TEST_F(RequestQueueTest, ALateResponseCountsUntilTheTimeoutWasToldAndThenTheRequestBehindIsPassedOver) {
  const auto two = request("02", "a2");
  const auto three = request("03", "a3");
  requests_->send(request("01", "a1", 1.0));
  requests_->send(two);
  requests_->send(three);
  log_.duringTimeout = [&] {
    receive("a1");
    EXPECT_EQ(requests_->pending(), two);
  };
  time_.advance(seconds(1));
  EXPECT_THAT(takeEntries(),
              ElementsAre("write 01", "time-out of 01", "response a1 to 01", "write 02", "write 03"));
  EXPECT_EQ(requests_->pending(), three);
}

TEST_F(RequestQueueTest, TheTimeoutOfARequestWithoutResponseOutlivesIt) {
  requests_->send(withoutResponse("01", 1.0));
  time_.advance(seconds(2));
  // Nothing was pending any more.
  EXPECT_THAT(takeEntries(), ElementsAre("write 01"));

  const auto three = request("03", "a3");
  requests_->send(withoutResponse("02", 1.0));
  requests_->send(three);
  time_.advance(seconds(1));
  EXPECT_THAT(takeEntries(), ElementsAre("write 02", "write 03", "time-out of 03"));
  EXPECT_THAT(requests_->pending(), IsNull());
}

TEST_F(RequestQueueTest, ANewTimeoutReplacesTheOneBefore) {
  requests_->send(withoutResponse("01", 1.0));
  time_.advance(milliseconds(600));
  requests_->send(request("02", "a2", 1.0));
  time_.advance(milliseconds(999));
  EXPECT_THAT(takeEntries(), ElementsAre("write 01", "write 02"));
  time_.advance(milliseconds(1));
  EXPECT_THAT(takeEntries(), ElementsAre("time-out of 02"));
}

TEST_F(RequestQueueTest, AFailedWriteLeavesTheRequestPending) {
  log_.writingFails = true;
  const auto one = request("01", "a1", 1.0);
  EXPECT_FALSE(requests_->send(one));
  EXPECT_EQ(requests_->pending(), one);
  log_.writingFails = false;
  EXPECT_TRUE(requests_->send(request("02", "a2")));
  EXPECT_THAT(takeEntries(), ElementsAre("write 01"));
  time_.advance(seconds(1));
  EXPECT_THAT(takeEntries(), ElementsAre("time-out of 01", "write 02"));
}

TEST_F(RequestQueueTest, ARequestThatWasNotWrittenMayStillGetItsResponse) {
  log_.writingFails = true;
  requests_->send(request("01", "a1"));
  receive("a1");
  EXPECT_THAT(takeEntries(), ElementsAre("write 01", "response a1 to 01"));
}

TEST_F(RequestQueueTest, WithoutResponseAndTimeoutAFailedWriteBlocksTheQueue) {
  log_.writingFails = true;
  const auto one = withoutResponse("01");
  EXPECT_FALSE(requests_->send(one));
  log_.writingFails = false;
  requests_->send(withoutResponse("02"));
  receive("a1 a2");
  time_.advance(days(1));
  EXPECT_EQ(requests_->pending(), one);
  EXPECT_THAT(takeEntries(), ElementsAre("write 01"));
}

TEST_F(RequestQueueTest, AFailedWriteOfAWaitingRequestLeavesItPending) {
  const auto two = request("02", "a2");
  requests_->send(request("01", "a1"));
  requests_->send(two);
  requests_->send(request("03", "a3"));
  log_.writingFails = true;
  receive("a1");
  EXPECT_EQ(requests_->pending(), two);
  EXPECT_THAT(takeEntries(), ElementsAre("write 01", "response a1 to 01", "write 02"));
}

TEST_F(RequestQueueTest, CancelsAWaitingRequestWhereverItStands) {
  const auto one = request("01", "a1");
  const auto two = request("02", "a2");
  requests_->send(one);
  requests_->send(two);
  requests_->send(one);
  requests_->send(two);
  requests_->cancel(two);
  time_.settle();
  EXPECT_THAT(requests_->waiting(), ElementsAre(one));
}

TEST_F(RequestQueueTest, ThePendingRequestCannotBeCancelled) {
  const auto one = request("01", "a1");
  requests_->send(one);
  requests_->send(one);
  requests_->cancel(one);
  requests_->cancel(nullptr);
  requests_->cancel(request("02", "a2"));
  time_.settle();
  EXPECT_EQ(requests_->pending(), one);
  EXPECT_THAT(requests_->waiting(), ElementsAre(one));
}

TEST_F(RequestQueueTest, CancellingAllLeavesThePendingRequest) {
  const auto one = request("01", "a1", 1.0);
  requests_->send(one);
  requests_->send(request("02", "a2"));
  requests_->send(request("03", "a3"));
  requests_->cancelAll();
  time_.settle();
  EXPECT_EQ(requests_->pending(), one);
  EXPECT_THAT(requests_->waiting(), IsEmpty());
  time_.advance(seconds(1));
  EXPECT_THAT(takeEntries(), ElementsAre("write 01", "time-out of 01"));
}

TEST_F(RequestQueueTest, CancellingDoesNotWait) {
  requests_->send(request("01", "a1"));
  const auto two = request("02", "a2");
  requests_->send(two);
  requests_->cancel(two);
  EXPECT_THAT(requests_->waiting(), ElementsAre(two));
  time_.settle();
  EXPECT_THAT(requests_->waiting(), IsEmpty());
}

TEST_F(RequestQueueTest, ForgettingAllLeavesTheTimeoutRunning) {
  requests_->send(request("01", "a1", 1.0));
  requests_->send(request("02", "a2"));
  forgetAll();
  time_.advance(milliseconds(400));
  EXPECT_THAT(requests_->pending(), IsNull());
  EXPECT_THAT(requests_->waiting(), IsEmpty());
  receive("a1");

  // The old time-out ends the wait of a request that has none itself.
  requests_->send(request("03", "a3"));
  time_.advance(milliseconds(599));
  EXPECT_THAT(takeEntries(), ElementsAre("write 01", "write 03"));
  time_.advance(milliseconds(1));
  EXPECT_THAT(takeEntries(), ElementsAre("time-out of 03"));
}

TEST_F(RequestQueueTest, ATimeoutWithNothingPendingReportsNothing) {
  requests_->send(request("01", "a1", 1.0));
  forgetAll();
  time_.advance(seconds(10));
  EXPECT_THAT(takeEntries(), ElementsAre("write 01"));
}

TEST_F(RequestQueueTest, ForgettingAllWhileATimeoutIsToldLeavesNothingToSend) {
  requests_->send(request("01", "a1", 1.0));
  requests_->send(request("02", "a2"));
  log_.duringTimeout = [&] { forgetAll(); };
  time_.advance(seconds(1));
  EXPECT_THAT(takeEntries(), ElementsAre("write 01", "time-out of 01"));
  EXPECT_THAT(requests_->pending(), IsNull());
}

TEST_F(RequestQueueTest, ForgetsOnlyWhatWasSentBeforeTheMark) {
  const auto three = request("03", "a3");
  const auto four = request("04", "a4");
  requests_->send(request("01", "a1"));
  requests_->send(request("02", "a2"));
  const auto mark = requests_->mark();
  requests_->send(three);
  requests_->send(four);
  requests_->forgetBefore(mark);
  time_.settle();
  EXPECT_EQ(requests_->pending(), three);
  EXPECT_THAT(requests_->waiting(), ElementsAre(four));
  receive("a3 a4");
  EXPECT_THAT(takeEntries(),
              ElementsAre("write 01", "write 03", "response a3 to 03", "write 04", "response a4 to 04"));
}

TEST_F(RequestQueueTest, ForgettingLeavesARequestThatIsPendingSinceTheMark) {
  const auto mark = requests_->mark();
  const auto one = request("01", "a1");
  requests_->send(one);
  requests_->forgetBefore(mark);
  time_.settle();
  EXPECT_EQ(requests_->pending(), one);
}

TEST_F(RequestQueueTest, AnExtremeTimeoutIsNoMoreThanLongOrShort) {
  requests_->send(request("01", "a1", std::numeric_limits<double>::infinity()));
  time_.advance(days(365 * 50));
  receive("a1");
  requests_->send(request("02", "a2", std::numeric_limits<double>::max()));
  receive("a2");
  EXPECT_THAT(takeEntries(), ElementsAre("write 01", "response a1 to 01", "write 02", "response a2 to 02"));
  requests_->send(request("03", "a3", std::numeric_limits<double>::denorm_min()));
  time_.advance(nanoseconds(1));
  EXPECT_THAT(takeEntries(), ElementsAre("write 03", "time-out of 03"));
}

TEST_F(RequestQueueTest, ADroppedQueueTimesNothingOut) {
  requests_->send(request("01", "a1", 1.0));
  requests_.reset();
  time_.advance(seconds(10));
  EXPECT_THAT(takeEntries(), ElementsAre("write 01"));
}

TEST_F(RequestQueueTest, AQueueDroppedWhileATimeoutIsToldSendsNothingMore) {
  requests_->send(request("01", "a1", 1.0));
  requests_->send(request("02", "a2"));
  log_.duringTimeout = [&] { requests_.reset(); };
  time_.advance(seconds(1));
  EXPECT_THAT(takeEntries(), ElementsAre("write 01", "time-out of 01"));
}

TEST_F(RequestQueueTest, TellsWhatChanged) {
  requests_->send(request("01", "a1"));
  EXPECT_THAT(std::exchange(log_.changes, {}), ElementsAre("pendingRequest"));
  const auto two = request("02", "a2");
  requests_->send(two);
  EXPECT_THAT(std::exchange(log_.changes, {}), ElementsAre("queuedRequests"));
  receive("a1");
  EXPECT_THAT(std::exchange(log_.changes, {}),
              ElementsAre("pendingRequest", "queuedRequests", "pendingRequest"));
  requests_->cancel(two);
  requests_->cancelAll();
  time_.settle();
  EXPECT_THAT(log_.changes, IsEmpty());
  forgetAll();
  time_.settle();
  EXPECT_THAT(std::exchange(log_.changes, {}), ElementsAre("pendingRequest"));
}

}  // namespace
}  // namespace tarsil::detail
