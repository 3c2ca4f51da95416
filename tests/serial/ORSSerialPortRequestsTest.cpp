#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "doubles/ScriptedTerminal.hpp"
#include "doubles/scriptedDevice.hpp"
#include "tarsil/runtime/DispatchQueue.hpp"
#include "tarsil/runtime/RunLoop.hpp"
#include "tarsil/serial/ORSSerialPort.hpp"
#include "tarsil/serial/ORSSerialRequest.hpp"
#include "tests/helpers/RecordingPortDelegate.hpp"
#include "tests/helpers/ScriptedPort.hpp"
#include "tests/helpers/hex.hpp"

namespace tarsil {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::IsNull;
using Descriptor = std::shared_ptr<ORSSerialPacketDescriptor>;
using Request = std::shared_ptr<ORSSerialRequest>;
using Selector = ORSSerialPortDelegate::Selector;

Descriptor fixed(const char* bytes) {
  return std::make_shared<ORSSerialPacketDescriptor>(
      ORSSerialPacketDescriptor::FixedPacket{.packetData = hex(bytes)});
}

Descriptor between(const char* prefix, const char* suffix) {
  return std::make_shared<ORSSerialPacketDescriptor>(ORSSerialPacketDescriptor::PrefixAndSuffix{
      .prefix = hex(prefix), .suffix = hex(suffix), .maximumPacketLength = 10});
}

Request request(const char* data, const char* expectedResponse, double timeout = 0) {
  return ORSSerialRequest::requestWithDataToSend(hex(data), {}, timeout, fixed(expectedResponse));
}

Request withoutResponse(const char* data) {
  return ORSSerialRequest::requestWithDataToSend(hex(data), {}, 0, nullptr);
}

class ORSSerialPortRequestsTest : public testing::Test {
 protected:
  ORSSerialPortRequestsTest() {
    port->setDelegate(client);
    client.answerAllBut({Selector::serialPortDidReceiveData, Selector::serialPortWasOpened});
  }

  ScriptedPort port;
  RecordingPortDelegate client;
};

TEST_F(ORSSerialPortRequestsTest, ReportsAPacketWhenItsLastByteArrives) {
  const auto line = between("24", "0d 0a");
  port->startListeningForPacketsMatchingDescriptor(line);
  port.deliver(hex("24 41 42 0d"));
  EXPECT_THAT(client.calls(), IsEmpty());
  port.deliver(hex("0a"));
  EXPECT_THAT(client.takeCalls(), ElementsAre(packet(hex("24 41 42 0d 0a"), line)));
  // The buffer starts empty afterwards.
  port.deliver(hex("43 0d 0a"));
  EXPECT_THAT(client.calls(), IsEmpty());
}

TEST_F(ORSSerialPortRequestsTest, AChunkIsHandedOnWholeBeforeItsPackets) {
  client.answerAllBut({});
  const auto one = fixed("01");
  port->startListeningForPacketsMatchingDescriptor(one);
  port.deliver(hex("01 02 01"));
  EXPECT_THAT(client.takeCalls(),
              ElementsAre(received(hex("01 02 01")), packet(hex("01"), one), packet(hex("01"), one)));
}

TEST_F(ORSSerialPortRequestsTest, PacketsComeInTheOrderOfListeningAndResponsesAfterThem) {
  const auto first = between("01", "02");
  const auto second = fixed("02");
  const auto query = request("77", "02");
  port->startListeningForPacketsMatchingDescriptor(first);
  port->startListeningForPacketsMatchingDescriptor(second);
  EXPECT_THAT(port->packetDescriptors(), ElementsAre(first, second));
  EXPECT_TRUE(port->sendRequest(query));
  port.deliver(hex("01 02"));
  EXPECT_THAT(client.takeCalls(), ElementsAre(packet(hex("01 02"), first), packet(hex("02"), second),
                                              response(hex("02"), query)));
}

TEST_F(ORSSerialPortRequestsTest, StopsListening) {
  const auto one = fixed("01");
  port->startListeningForPacketsMatchingDescriptor(one);
  port->stopListeningForPacketsMatchingDescriptor(one);
  EXPECT_THAT(port->packetDescriptors(), IsEmpty());
  port.deliver(hex("01"));
  EXPECT_THAT(client.calls(), IsEmpty());
}

TEST_F(ORSSerialPortRequestsTest, WithoutADescriptorNothingIsListenedFor) {
  port->startListeningForPacketsMatchingDescriptor(nullptr);
  port->stopListeningForPacketsMatchingDescriptor(nullptr);
  EXPECT_THAT(port->packetDescriptors(), IsEmpty());
}

TEST_F(ORSSerialPortRequestsTest, AnnouncesWhatIsListenedFor) {
  std::vector<std::string> changes;
  const auto note = [&](const KeyChange& change) { changes.push_back(change.key); };
  const auto inner = port->observe("packetDescriptorsAndBuffers", note);
  const auto outer = port->observe("packetDescriptors", note);
  const auto one = fixed("01");
  port->startListeningForPacketsMatchingDescriptor(one);
  EXPECT_THAT(std::exchange(changes, {}), ElementsAre("packetDescriptorsAndBuffers", "packetDescriptors"));
  port->startListeningForPacketsMatchingDescriptor(one);
  EXPECT_THAT(changes, IsEmpty());
  port->stopListeningForPacketsMatchingDescriptor(one);
  EXPECT_THAT(std::exchange(changes, {}), ElementsAre("packetDescriptorsAndBuffers", "packetDescriptors"));
  // Stopping says so, whether or not there was something to stop.
  port->stopListeningForPacketsMatchingDescriptor(one);
  EXPECT_THAT(std::exchange(changes, {}), ElementsAre("packetDescriptorsAndBuffers", "packetDescriptors"));
}

TEST_F(ORSSerialPortRequestsTest, AnnouncesItsRequests) {
  std::vector<std::string> changes;
  const auto note = [&](const KeyChange& change) { changes.push_back(change.key); };
  const auto pending = port->observe("pendingRequest", note);
  const auto queued = port->observe("queuedRequests", note);
  port->sendRequest(request("01", "a1"));
  port->sendRequest(request("02", "a2"));
  EXPECT_THAT(std::exchange(changes, {}), ElementsAre("pendingRequest", "queuedRequests"));
}

TEST_F(ORSSerialPortRequestsTest, SendsOneRequestAfterTheOther) {
  const auto one = request("01", "a1");
  const auto two = request("02", "a2");
  EXPECT_TRUE(port->sendRequest(one));
  EXPECT_TRUE(port->sendRequest(two));
  EXPECT_EQ(port->pendingRequest(), one);
  EXPECT_THAT(port->queuedRequests(), ElementsAre(two));
  EXPECT_THAT(port.takeSent(), ElementsAre(hex("01")));
  port.deliver(hex("a1"));
  EXPECT_THAT(client.takeCalls(), ElementsAre(response(hex("a1"), one)));
  EXPECT_THAT(port.takeSent(), ElementsAre(hex("02")));
  EXPECT_EQ(port->pendingRequest(), two);
}

TEST_F(ORSSerialPortRequestsTest, ARequestWithoutResponseMakesWayAtOnce) {
  const auto last = request("03", "a3");
  port->sendRequest(request("01", "a1"));
  port->sendRequest(withoutResponse("02"));
  port->sendRequest(last);
  port.deliver(hex("a1"));
  EXPECT_THAT(port.takeSent(), ElementsAre(hex("01"), hex("02"), hex("03")));
  EXPECT_EQ(port->pendingRequest(), last);
}

TEST_F(ORSSerialPortRequestsTest, ARequestWithNothingToWriteIsSentAllTheSame) {
  EXPECT_TRUE(port->sendRequest(request("", "a1")));
  port.deliver(hex("a1"));
  EXPECT_THAT(client.calls(), testing::SizeIs(1));
  EXPECT_THAT(port.sent(), IsEmpty());
}

TEST_F(ORSSerialPortRequestsTest, NoRequestCannotBeSent) {
  EXPECT_FALSE(port->sendRequest(nullptr));
}

TEST_F(ORSSerialPortRequestsTest, TellsOfATimeoutAndThenSendsTheNext) {
  const auto one = request("01", "a1", 1.0);
  const auto two = request("02", "a2");
  port->sendRequest(one);
  port->sendRequest(two);
  client.onCall([&](ORSSerialPort& sender, const RecordedCall&) {
    EXPECT_EQ(sender.pendingRequest(), one);
    EXPECT_THAT(port.sent(), ElementsAre(hex("01")));
  });
  port.advance(milliseconds(999));
  EXPECT_THAT(client.calls(), IsEmpty());
  port.advance(milliseconds(1));
  EXPECT_THAT(client.takeCalls(), ElementsAre(timedOut(one)));
  EXPECT_THAT(port.sent(), ElementsAre(hex("01"), hex("02")));
  EXPECT_EQ(port->pendingRequest(), two);
}

TEST_F(ORSSerialPortRequestsTest, ATimeoutThatNobodyHearsMakesWayToo) {
  client.answerAllBut({Selector::serialPortRequestDidTimeout});
  port->sendRequest(request("01", "a1", 1.0));
  port->sendRequest(withoutResponse("02"));
  port.advance(seconds(1));
  EXPECT_THAT(port.sent(), ElementsAre(hex("01"), hex("02")));
  EXPECT_THAT(client.calls(), IsEmpty());
}

TEST_F(ORSSerialPortRequestsTest, TheNextRequestMayBeSentFromWithinACall) {
  const auto two = withoutResponse("02");
  client.onCall([&](ORSSerialPort& sender, const RecordedCall&) { sender.sendRequest(two); });
  port->sendRequest(request("01", "a1"));
  port.deliver(hex("a1"));
  EXPECT_THAT(port.sent(), ElementsAre(hex("01"), hex("02")));
}

TEST_F(ORSSerialPortRequestsTest, CancelsWaitingRequests) {
  const auto one = request("01", "a1");
  const auto two = request("02", "a2");
  const auto three = request("03", "a3");
  port->sendRequest(one);
  port->sendRequest(two);
  port->sendRequest(three);
  port->sendRequest(two);
  port->cancelQueuedRequest(two);
  port->cancelQueuedRequest(one);
  port->cancelQueuedRequest(nullptr);
  port.time().settle();
  EXPECT_EQ(port->pendingRequest(), one);
  EXPECT_THAT(port->queuedRequests(), ElementsAre(three));
  port->cancelAllQueuedRequests();
  port.time().settle();
  EXPECT_EQ(port->pendingRequest(), one);
  EXPECT_THAT(port->queuedRequests(), IsEmpty());
}

TEST_F(ORSSerialPortRequestsTest, AWriteThatFailsLeavesTheRequestPendingUntilItsTimeout) {
  const auto one = request("01", "a1", 1.0);
  port.terminal().failNext(doubles::ScriptedTerminal::Call::write, EIO);
  EXPECT_FALSE(port->sendRequest(one));
  EXPECT_EQ(port->pendingRequest(), one);
  EXPECT_TRUE(port->sendRequest(withoutResponse("02")));
  EXPECT_THAT(port.sent(), IsEmpty());
  port.advance(seconds(1));
  EXPECT_THAT(client.takeCalls(), ElementsAre(failed(EIO), timedOut(one)));
  EXPECT_THAT(port.sent(), ElementsAre(hex("02")));
}

TEST_F(ORSSerialPortRequestsTest, AClosedPortKeepsARequestPending) {
  port.close();
  const auto one = request("01", "a1");
  EXPECT_FALSE(port->sendRequest(one));
  EXPECT_EQ(port->pendingRequest(), one);
}

TEST_F(ORSSerialPortRequestsTest, ClosingForgetsTheRequestsOfAClientThatHearsOfIt) {
  port->sendRequest(request("01", "a1", 1.0));
  port->sendRequest(request("02", "a2"));
  port.close();
  EXPECT_THAT(port->pendingRequest(), IsNull());
  EXPECT_THAT(port->queuedRequests(), IsEmpty());
  // The time-out goes on, and finds nothing to report.
  port.advance(seconds(2));
  EXPECT_THAT(client.takeCalls(), ElementsAre(closed()));
}

TEST_F(ORSSerialPortRequestsTest, ATimeoutFromBeforeClosingHitsTheRequestThatIsPendingThen) {
  port->sendRequest(request("01", "a1", 1.0));
  port.close();
  port.open();
  const auto two = request("02", "a2");
  port->sendRequest(two);
  port.advance(seconds(1));
  EXPECT_THAT(client.takeCalls(), ElementsAre(closed(), timedOut(two)));
}

TEST_F(ORSSerialPortRequestsTest, ARequestSentWhileTheClientHearsOfTheEndIsKept) {
  const auto two = request("02", "a2");
  port->sendRequest(request("01", "a1"));
  client.onCall([&](ORSSerialPort& sender, const RecordedCall&) { sender.sendRequest(two); });
  port.close();
  EXPECT_EQ(port->pendingRequest(), two);
  EXPECT_THAT(port->queuedRequests(), IsEmpty());
}

// The end is told on the main thread, some moments after the port is closed; an observer hears of it first.
TEST_F(ORSSerialPortRequestsTest, ARequestSentAfterReopeningIsKeptThoughTheEndIsStillToBeTold) {
  const auto two = request("02", "a2");
  const auto three = request("03", "a3");
  port->sendRequest(request("01", "a1"));
  const auto observation = port->observe("isOpen", [&](const KeyChange&) {
    if (port->isOpen()) return;
    port->open();
    port->sendRequest(two);
    port->sendRequest(three);
  });
  port.close();
  EXPECT_EQ(port->pendingRequest(), two);
  EXPECT_THAT(port->queuedRequests(), ElementsAre(three));
  port.deliver(hex("a2 a3"));
  EXPECT_THAT(port.sent(), ElementsAre(hex("01"), hex("02"), hex("03")));
  EXPECT_THAT(client.takeCalls(),
              ElementsAre(closed(), response(hex("a2"), two), response(hex("a3"), three)));
}

TEST_F(ORSSerialPortRequestsTest, ClosingKeepsTheRequestsOfAClientThatDoesNotHearOfIt) {
  client.answerAllBut({Selector::serialPortWasClosed});
  const auto one = request("01", "a1");
  const auto two = request("02", "a2");
  port->sendRequest(one);
  port->sendRequest(two);
  port.close();
  EXPECT_EQ(port->pendingRequest(), one);
  EXPECT_THAT(port->queuedRequests(), ElementsAre(two));
  port.open();
  port.deliver(hex("a1"));
  EXPECT_THAT(client.calls(), Contains(response(hex("a1"), one)));
  EXPECT_THAT(port.sent(), ElementsAre(hex("01"), hex("02")));
}

TEST_F(ORSSerialPortRequestsTest, ClosingKeepsWhatIsListenedForWithItsBytes) {
  const auto one = fixed("01 02");
  port->startListeningForPacketsMatchingDescriptor(one);
  port.deliver(hex("01"));
  port.close();
  port.open();
  port.deliver(hex("02"));
  EXPECT_THAT(client.takeCalls(), ElementsAre(closed(), packet(hex("01 02"), one)));
}

TEST_F(ORSSerialPortRequestsTest, APortWithoutADelegateKeepsWorking) {
  port->setDelegate(nullptr);
  port->startListeningForPacketsMatchingDescriptor(fixed("01"));
  port->sendRequest(request("01", "a1", 1.0));
  port->sendRequest(request("02", "a2"));
  port->sendRequest(withoutResponse("03"));
  port.deliver(hex("01"));
  port.advance(seconds(1));
  port.deliver(hex("a2"));
  EXPECT_THAT(port.sent(), ElementsAre(hex("01"), hex("02"), hex("03")));
}

// On real threads and the real clock.
class ORSSerialPortRequestsOnThreadsTest : public testing::Test {
 protected:
  ORSSerialPortRequestsOnThreadsTest() {
    // What changes on other threads is news for the test's own loop.
    for (const char* key : {"isOpen", "pendingRequest"}) {
      observations.push_back(
          port->observe(key, [](const KeyChange&) { DispatchQueue::main().async([] {}); }));
    }
    port->setDelegate(client);
    port->open();
    run([&] { return !client.calls().empty(); });
    client.takeCalls();
    client.answerAllBut({Selector::serialPortDidReceiveData});
  }
  ~ORSSerialPortRequestsOnThreadsTest() override {
    port->close();
    run([&] { return !port->isOpen(); });
    port.reset();
  }

  static void run(const std::function<bool()>& until) {
    ASSERT_TRUE(RunLoop::main().runUntil(until, seconds(60)));
  }

  std::shared_ptr<doubles::ScriptedTerminal> terminal = std::make_shared<doubles::ScriptedTerminal>();
  std::shared_ptr<ORSSerialPort> port =
      ORSSerialPort::serialPortWithDevice(doubles::scriptedDevice("ttyScripted0", terminal));
  RecordingPortDelegate client;
  std::vector<Observation> observations;
};

TEST_F(ORSSerialPortRequestsOnThreadsTest, SendingHasBeenDoneWhenItReturns) {
  const auto one = request("01", "a1");
  EXPECT_TRUE(port->sendRequest(one));
  EXPECT_THAT(terminal->written(), ElementsAre(hex("01")));
  EXPECT_EQ(port->pendingRequest(), one);
  terminal->deliver(hex("a1"));
  run([&] { return !client.calls().empty(); });
  EXPECT_THAT(client.calls(), ElementsAre(response(hex("a1"), one)));
}

TEST_F(ORSSerialPortRequestsOnThreadsTest, AFailedWriteOfARequestIsToldLaterSoThatTheClientMaySendAnother) {
  const auto one = request("01", "a1");
  const auto two = request("02", "a2");
  client.onCall([&](ORSSerialPort& sender, const RecordedCall&) { EXPECT_TRUE(sender.sendRequest(two)); });
  terminal->failNext(doubles::ScriptedTerminal::Call::write, EIO);
  EXPECT_FALSE(port->sendRequest(one));
  EXPECT_THAT(client.calls(), IsEmpty());
  run([&] { return !client.calls().empty(); });
  EXPECT_THAT(client.calls(), ElementsAre(failed(EIO)));
  EXPECT_EQ(port->pendingRequest(), one);
  EXPECT_THAT(port->queuedRequests(), ElementsAre(two));
  client.onCall(nullptr);
}

TEST_F(ORSSerialPortRequestsOnThreadsTest, PacketsAreLookedForWhileTheMainThreadStandsStill) {
  std::promise<bool> askedOnTheMainThread;
  port->startListeningForPacketsMatchingDescriptor(std::make_shared<ORSSerialPacketDescriptor>(
      ORSSerialPacketDescriptor::Evaluated{.maximumPacketLength = 1, .responseEvaluator = [&](ByteView) {
                                             askedOnTheMainThread.set_value(RunLoop::isMainThread());
                                             return true;
                                           }}));
  terminal->deliver(hex("01"));
  EXPECT_FALSE(askedOnTheMainThread.get_future().get());
  run([&] { return !client.calls().empty(); });
}

TEST_F(ORSSerialPortRequestsOnThreadsTest, ATimeoutIsTold) {
  const auto one = request("01", "a1", 0.001);
  port->sendRequest(one);
  run([&] { return !client.calls().empty(); });
  EXPECT_THAT(client.calls(), ElementsAre(timedOut(one)));
  run([&] { return !port->pendingRequest(); });
}

/// A client that no longer wants to hear of a time-out when its turn has come.
class DecliningClient final : public ORSSerialPortDelegate {
 public:
  bool respondsTo(Selector /*selector*/) const { return false; }
};

TEST_F(ORSSerialPortRequestsOnThreadsTest, AClientThatDoesNotHearOfATimeoutDoesNotBlockTheNextRequest) {
  const auto declining = std::make_shared<DecliningClient>();
  port->setDelegate(declining);
  port->sendRequest(request("01", "a1", 0.001));
  port->sendRequest(withoutResponse("02"));
  run([&] { return terminal->written().size() == 2; });
}

TEST_F(ORSSerialPortRequestsOnThreadsTest, ManyThreadsSendCancelAndListenAtOnce) {
  constexpr int perThread = 200;
  terminal->onWrite([&](const Bytes& bytes) { terminal->deliver(bytes); });
  std::vector<std::jthread> threads;
  for (int i = 0; i < 3; ++i) {
    threads.emplace_back([&] {
      for (int n = 0; n < perThread; ++n) {
        port->sendRequest(request("01", "01", 30.0));
        const auto cancelled = request("01", "01");
        const auto listened = fixed("01 01");
        port->startListeningForPacketsMatchingDescriptor(listened);
        port->cancelQueuedRequest(cancelled);
        port->queuedRequests();
        port->pendingRequest();
        port->stopListeningForPacketsMatchingDescriptor(listened);
      }
    });
  }
  const auto responses = [&] {
    const auto calls = client.calls();
    return std::count_if(calls.begin(), calls.end(),
                         [](const RecordedCall& call) { return call.text.starts_with("response"); });
  };
  run([&] { return responses() == 3 * perThread; });
  threads.clear();
  EXPECT_EQ(terminal->written().size(), 3U * perThread);
  EXPECT_THAT(port->pendingRequest(), IsNull());
  EXPECT_THAT(port->packetDescriptors(), IsEmpty());
}

}  // namespace
}  // namespace tarsil
