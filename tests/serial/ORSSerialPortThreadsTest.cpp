#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <future>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "doubles/ScriptedTerminal.hpp"
#include "doubles/scriptedDevice.hpp"
#include "tarsil/runtime/DispatchQueue.hpp"
#include "tarsil/runtime/RunLoop.hpp"
#include "tarsil/serial/ORSSerialPort.hpp"
#include "tarsil/serial/ORSSerialRequest.hpp"
#include "tests/helpers/RecordingPortDelegate.hpp"
#include "tests/helpers/hex.hpp"

namespace tarsil {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using Call = doubles::ScriptedTerminal::Call;

// A port on the machine's own clock and threads. The test is the main thread; the delegate checks that it is
// called there.
class ORSSerialPortThreadsTest : public ::testing::Test {
 protected:
  ORSSerialPortThreadsTest() { port->setDelegate(client); }

  ~ORSSerialPortThreadsTest() override {
    const std::weak_ptr<ORSSerialPort> last = port;
    if (port) port->close();
    port.reset();
    EXPECT_TRUE(runUntil([&] { return !terminal->isOpen() && last.expired(); }));
    EXPECT_EQ(terminal->strayCalls(), 0U);
  }

  // Other threads make conditions hold without waking the main loop, so it looks again every millisecond.
  static bool runUntil(const std::function<bool()>& condition) {
    const auto end = std::chrono::steady_clock::now() + 60s;
    while (!RunLoop::main().runUntil(condition, 1ms)) {
      if (std::chrono::steady_clock::now() > end) return false;
    }
    return true;
  }

  bool runUntilCalled(const RecordedCall& call) {
    return runUntil([&] {
      const RecordedCalls calls = client.calls();
      return std::find(calls.begin(), calls.end(), call) != calls.end();
    });
  }

  void open() {
    port->open();
    ASSERT_TRUE(runUntilCalled(opened()));
    client.takeCalls();
  }

  const std::shared_ptr<doubles::ScriptedTerminal> terminal = std::make_shared<doubles::ScriptedTerminal>();
  std::shared_ptr<ORSSerialPort> port =
      ORSSerialPort::serialPortWithDevice(doubles::scriptedDevice("ttyThreads0", terminal));
  RecordingPortDelegate client;
};

TEST_F(ORSSerialPortThreadsTest, TellsItsStoryInOrder) {
  port->open();
  ASSERT_TRUE(runUntilCalled(opened()));
  terminal->deliver(hex("01 02"));
  ASSERT_TRUE(runUntilCalled(received(hex("01 02"))));
  terminal->deliver(hex("03"));
  ASSERT_TRUE(runUntilCalled(received(hex("03"))));
  port->close();
  ASSERT_TRUE(runUntilCalled(closed()));
  EXPECT_THAT(client.calls(), ElementsAre(opened(), received(hex("01 02")), received(hex("03")), closed()));
}

TEST_F(ORSSerialPortThreadsTest, ReadsOffTheMainThread) {
  open();
  terminal->deliver(hex("01"));
  // The main thread runs nothing meanwhile.
  while (terminal->count(Call::read) == 0) std::this_thread::yield();
  EXPECT_TRUE(client.calls().empty());
  EXPECT_TRUE(runUntilCalled(received(hex("01"))));
}

TEST_F(ORSSerialPortThreadsTest, AnErrorOnAnotherThreadIsReportedLaterOnTheMainThread) {
  open();
  terminal->failNext(Call::write, EIO);
  const bool sent = std::async(std::launch::async, [this] { return port->sendData(hex("01")); }).get();
  EXPECT_FALSE(sent);
  EXPECT_TRUE(client.calls().empty());
  EXPECT_TRUE(runUntilCalled(failed(EIO)));
}

TEST_F(ORSSerialPortThreadsTest, AnErrorOnTheMainThreadIsReportedAtOnce) {
  open();
  terminal->failNext(Call::write, EIO);
  EXPECT_FALSE(port->sendData(hex("01")));
  EXPECT_THAT(client.calls(), ElementsAre(failed(EIO)));
}

TEST_F(ORSSerialPortThreadsTest, SendsOnTheCallersThread) {
  open();
  std::thread::id writer;
  terminal->onWrite([&](const Bytes&) { writer = std::this_thread::get_id(); });
  EXPECT_TRUE(port->sendData(hex("01")));
  EXPECT_EQ(writer, std::this_thread::get_id());
}

TEST_F(ORSSerialPortThreadsTest, AVanishedDeviceIsReportedThenRemovedThenClosedEachWaitedFor) {
  open();
  client.onCall([this](ORSSerialPort& that, const RecordedCall& call) {
    // Whoever told this waits: the next step has not begun.
    EXPECT_EQ(that.isOpen(), call != closed());
    EXPECT_EQ(terminal->count(Call::close), call == closed() ? 1U : 0U);
  });
  terminal->vanish();
  ASSERT_TRUE(runUntilCalled(closed()));
  EXPECT_THAT(client.calls(), ElementsAre(failed(ENXIO), removed(), closed()));
}

TEST_F(ORSSerialPortThreadsTest, AVanishedDeviceIsReportedOnceHoweverLongClosingTakes) {
  struct SlowToRead : doubles::ScriptedTerminal {
    Result<std::size_t> read(int descriptor, void* buffer, std::size_t size) override {
      reading.set_value();
      goOn.get_future().wait();
      return doubles::ScriptedTerminal::read(descriptor, buffer, size);
    }
    std::promise<void> reading;
    std::promise<void> goOn;
  };
  const auto slow = std::make_shared<SlowToRead>();
  const auto other = ORSSerialPort::serialPortWithDevice(doubles::scriptedDevice("ttySlow0", slow));
  other->setDelegate(client);
  other->open();
  ASSERT_TRUE(runUntilCalled(opened()));
  slow->deliver(hex("01"));
  slow->reading.get_future().wait();
  // Closing waits for the read; polls would come all the while.
  slow->vanish();
  ASSERT_TRUE(runUntilCalled(removed()));
  RunLoop::main().runFor(50ms);
  EXPECT_THAT(client.calls(), ElementsAre(opened(), failed(ENXIO), removed()));
  slow->goOn.set_value();
  ASSERT_TRUE(runUntilCalled(closed()));
  EXPECT_THAT(client.calls(), ElementsAre(opened(), failed(ENXIO), removed(), closed()));
}

TEST_F(ORSSerialPortThreadsTest, InputLinesChangeOnTheMainThreadOnly) {
  open();
  const auto observation =
      port->observe("CTS", [](const KeyChange&) { EXPECT_TRUE(RunLoop::isMainThread()); });
  terminal->setInputLines(TIOCM_CTS);
  const auto polls = terminal->count(Call::getModemLines);
  while (terminal->count(Call::getModemLines) == polls) std::this_thread::yield();
  EXPECT_FALSE(port->CTS());
  EXPECT_TRUE(runUntil([this] { return port->CTS(); }));
}

TEST_F(ORSSerialPortThreadsTest, AWriteOnItsWayKeepsTheDescriptorOpen) {
  open();
  std::promise<void> writing;
  std::promise<void> goOn;
  terminal->onWrite([&](const Bytes&) {
    terminal->onWrite(nullptr);
    writing.set_value();
    goOn.get_future().wait();
  });
  auto sent = std::async(std::launch::async, [this] { return port->sendData(hex("01 02")); });
  writing.get_future().wait();
  const auto settings = terminal->applied().size();
  port->close();
  // Closing has restored the attributes and waits for the writer.
  ASSERT_TRUE(runUntil([&] { return terminal->applied().size() == settings + 2; }));
  EXPECT_EQ(terminal->count(Call::close), 0U);
  EXPECT_TRUE(port->isOpen());
  goOn.set_value();
  EXPECT_TRUE(sent.get());
  EXPECT_TRUE(runUntilCalled(closed()));
}

TEST_F(ORSSerialPortThreadsTest, AWriterThatLosesAgainstClosingHearsItByTheAnswerAlone) {
  open();
  std::promise<void> writing;
  std::promise<void> goOn;
  terminal->takeNextWrite(1);
  terminal->onWrite([&](const Bytes&) {
    terminal->onWrite(nullptr);
    writing.set_value();
    goOn.get_future().wait();
  });
  auto sent = std::async(std::launch::async, [this] { return port->sendData(hex("01 02")); });
  writing.get_future().wait();
  port->close();
  goOn.set_value();
  const bool all = sent.get();
  ASSERT_TRUE(runUntilCalled(closed()));
  // Either the second byte still went out, or it met a closed port; neither is an error.
  EXPECT_EQ(terminal->written().size(), all ? 2U : 1U);
  EXPECT_THAT(client.calls(), ElementsAre(closed()));
}

TEST_F(ORSSerialPortThreadsTest, TheLastReferenceMayBeDroppedOnAnyThread) {
  open();
  std::thread([last = std::move(port)]() mutable { last.reset(); }).join();
  EXPECT_TRUE(runUntil([this] { return !terminal->isOpen(); }));
  EXPECT_EQ(terminal->applied().back().when, Terminal::Apply::afterOutputDrains);
}

TEST_F(ORSSerialPortThreadsTest, TheLastReferenceMayBeDroppedByAQueuedCall) {
  open();
  terminal->deliver(hex("01"));
  while (terminal->count(Call::read) == 0) std::this_thread::yield();
  port.reset();
  EXPECT_TRUE(runUntilCalled(received(hex("01"))));
  EXPECT_TRUE(runUntil([this] { return !terminal->isOpen(); }));
}

TEST_F(ORSSerialPortThreadsTest, DelegatesComeAndGoWhileBytesArrive) {
  open();
  std::atomic<bool> done = false;
  std::thread device([&] {
    while (!done) {
      terminal->deliver(hex("55"));
      std::this_thread::yield();
    }
  });
  for (int round = 0; round < 200; ++round) {
    auto passing = std::make_shared<RecordingPortDelegate>();
    port->setDelegate(*passing);
    if (round % 3 == 0) passing->drop();
    RunLoop::main().processDue();
    port->setDelegate(nullptr);
  }
  done = true;
  device.join();
  port->setDelegate(client);
}

// Everything at once, for the sanitizers: the port is opened, closed, written to, reconfigured, unplugged and
// asked from several threads, while its device talks. What must hold is in the destructor: the descriptor was
// closed once for each opening, and never used after.
// A worker asks whether there is a call to make; it may not be left with the last reference.
TEST_F(ORSSerialPortThreadsTest, ADelegateIsAskedAndEndsOnTheMainThreadOnly) {
  struct Passing final : ORSSerialPortDelegate {
    ~Passing() override { EXPECT_TRUE(RunLoop::isMainThread()); }
    bool respondsTo(Selector selector) const {
      EXPECT_TRUE(RunLoop::isMainThread());
      return selector != Selector::serialPortWasClosed;
    }
    void serialPortDidReceiveData(ORSSerialPort&, const Bytes&) override { ++chunks; }
    void serialPortRequestDidTimeout(ORSSerialPort&, const Request&) override { ++timeouts; }
    int chunks = 0;
    int timeouts = 0;
  };
  open();
  auto passing = std::make_shared<Passing>();
  port->setDelegate(passing);
  terminal->deliver(hex("55"));
  port->sendRequest(ORSSerialRequest::requestWithDataToSend(
      hex("01"), {}, 0.001,
      std::make_shared<ORSSerialPacketDescriptor>(
          ORSSerialPacketDescriptor::FixedPacket{.packetData = hex("a1")})));
  EXPECT_TRUE(runUntil([&] { return passing->chunks == 1 && passing->timeouts == 1; }));
  terminal->deliver(hex("56"));
  port->close();
  passing.reset();
  EXPECT_TRUE(runUntil([&] { return !port->isOpen(); }));
}

TEST_F(ORSSerialPortThreadsTest, StandsEverythingAtOnce) {
  client.answerAllBut({ORSSerialPortDelegate::Selector::serialPortDidReceiveData});
  std::atomic<bool> done = false;
  std::atomic<int> running = 0;
  std::vector<std::thread> threads;
  const auto repeat = [&](auto action) {
    const int seed = ++running;
    threads.emplace_back([&, action, seed] {
      std::minstd_rand random(static_cast<unsigned>(seed));
      for (int round = 0; round < 400 && !done; ++round) {
        action(random());
        std::this_thread::yield();
      }
      --running;
    });
  };
  repeat([&](auto) { port->open(); });
  repeat([&](auto) { port->close(); });
  repeat([&](auto) { port->sendData(hex("01 02 03")); });
  repeat([&](auto) { port->sendData(hex("04")); });
  repeat([&](auto random) { random % 8 == 0 ? terminal->vanish() : terminal->comeBack(); });
  repeat([&](auto) { terminal->deliver(hex("aa bb")); });
  repeat([&](auto random) { port->setBaudRate(random % 2 == 0 ? 9600 : 19200); });
  repeat([&](auto random) { port->setRTS(random % 2 == 0); });
  repeat([&](auto random) { terminal->setInputLines(random % 2 == 0 ? TIOCM_CTS : 0); });
  repeat([&](auto) { ORSSerialPort::livePorts(); });
  repeat([&](auto random) {
    if (random % 16 == 0) port->cleanupAfterSystemRemoval();
  });
  EXPECT_TRUE(runUntil([&] { return running == 0; }));
  done = true;
  for (std::thread& thread : threads) thread.join();
  terminal->comeBack();
  port->close();
  ASSERT_TRUE(runUntil([this] { return !port->isOpen(); }));

  open();
  terminal->deliver(hex("01"));
  client.answerAllBut({});
  terminal->deliver(hex("02"));
  EXPECT_TRUE(runUntilCalled(received(hex("02"))));
}

}  // namespace
}  // namespace tarsil
