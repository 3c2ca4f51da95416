// What a port's client hears when a call of the system fails on a real terminal: each call that a port makes,
// with each error that can plausibly come. That a call comes on the main thread, and that an error is the
// system's own, with the port's path, its delegate checks.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <system_error>
#include <utility>

#include "simulators/lines/PseudoTerminal.hpp"
#include "tarsil/platform/SystemPlatform.hpp"
#include "tarsil/runtime/VirtualTime.hpp"
#include "tarsil/serial/ORSSerialPort.hpp"
#include "tests/faults/FailingCalls.hpp"
#include "tests/helpers/PrintedLines.hpp"
#include "tests/helpers/RecordingPortDelegate.hpp"
#include "tests/helpers/hex.hpp"

namespace tarsil {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

/// A device that is gone has one name, whatever its driver says.
int reported(int error) {
  return error == EIO || error == ENODEV ? ENXIO : error;
}

class PortErrorsTest : public testing::Test {
 protected:
  PortErrorsTest() { port_->setDelegate(client_); }
  ~PortErrorsTest() override {
    FailingCalls::disarm();
    port_->close();
    time_.settle();
  }

  void open() {
    port_->open();
    time_.settle();
    client_.takeCalls();
  }

  /// What the client hears when the call with this number, from now on, fails.
  RecordedCalls heard(const Fault& fault, const std::function<void()>& action) {
    FailingCalls::arm(fault);
    action();
    time_.settle();
    EXPECT_TRUE(FailingCalls::hasFailed()) << text(fault);
    FailingCalls::disarm();
    return client_.takeCalls();
  }
  /// The same on another port on the same line.
  RecordedCalls heardAtOpening(const Fault& fault) {
    renew();
    return heard(fault, [this] { port_->open(); });
  }
  RecordedCalls heardAtClosing(const Fault& fault) {
    renew();
    open();
    return heard(fault, [this] { port_->close(); });
  }

  void renew() {
    port_->close();
    time_.settle();
    port_ = portAt(line_.path());
    port_->setDelegate(client_);
    client_.takeCalls();
  }

  static std::shared_ptr<ORSSerialPort> portAt(const std::string& path) {
    SerialDevice device;
    device.calloutPath = path;
    device.terminalName = path;
    device.terminal = systemTerminal();
    return ORSSerialPort::serialPortWithDevice(std::make_shared<SerialDevice>(std::move(device)));
  }

  const PrintedLines printed_;
  VirtualTime time_;
  simulators::PseudoTerminal line_;
  RecordingPortDelegate client_;
  std::shared_ptr<ORSSerialPort> port_ = portAt(line_.path());
};

/// Calls `check` with each error of a call that is no interruption, and what is reported of it.
void forEachError(const std::string& call, const std::function<void(int, int)>& check) {
  for (const int error : FailingCalls::faultsOf(call)) {
    if (error == EINTR || error == Fault::fewer) continue;
    SCOPED_TRACE(call + ": " + std::generic_category().message(error));
    check(error, reported(error));
  }
}

TEST_F(PortErrorsTest, APortThatCannotBeOpenedOrLockedIsNotOpen) {
  for (const char* call : {"open", "flock LOCK", "ioctl TIOCEXCL"}) {
    forEachError(call, [&](int error, int told) {
      EXPECT_THAT(heardAtOpening({call, 0, error}), ElementsAre(failed(told)));
      EXPECT_FALSE(port_->isOpen());
    });
  }
}

TEST_F(PortErrorsTest, WhatElseFailsAtOpeningLeavesThePortOpen) {
  for (const auto& [call, number] :
       {std::pair("fcntl SETFL", 0U), std::pair("ioctl TCGETS2", 0U), std::pair("ioctl TCGETS2", 1U),
        std::pair("ioctl TCSETS2", 0U), std::pair("ioctl TCGETS2", 2U), std::pair("ioctl TIOCMSET", 0U)}) {
    forEachError(call, [&, call = call, number = number](int error, int told) {
      const auto calls = heardAtOpening({call, number, error});
      EXPECT_THAT(calls, ElementsAre(failed(told), opened())) << number;
      EXPECT_TRUE(port_->isOpen());
    });
  }
}

TEST_F(PortErrorsTest, AWriteThatFailsIsToldWithItsOwnError) {
  forEachError("write", [&](int error, int told) {
    renew();
    open();
    EXPECT_THAT(heard({"write", 0, error}, [this] { EXPECT_FALSE(port_->sendData(hex("01"))); }),
                ElementsAre(failed(told)));
    EXPECT_TRUE(port_->sendData(hex("02")));
    EXPECT_THAT(client_.takeCalls(), IsEmpty());
  });
}

TEST_F(PortErrorsTest, ASettingThatFailsIsTold) {
  for (const char* call : {"ioctl TCGETS2", "ioctl TCSETS2"}) {
    forEachError(call, [&](int error, int told) {
      renew();
      open();
      EXPECT_THAT(heard({call, 0, error}, [this] { port_->setBaudRate(4800); }), ElementsAre(failed(told)));
      EXPECT_EQ(port_->baudRate(), 4800U);
    });
  }
}

TEST_F(PortErrorsTest, AnOutputLineThatFailsIsTold) {
  for (const char* call : {"ioctl TIOCMGET", "ioctl TIOCMSET"}) {
    forEachError(call, [&](int error, int told) {
      renew();
      open();
      EXPECT_THAT(heard({call, 0, error}, [this] { port_->setRTS(true); }), ElementsAre(failed(told)));
      EXPECT_TRUE(port_->RTS());
    });
  }
}

TEST_F(PortErrorsTest, APollThatFailsIsToldOnceAndOneThatFindsNoDeviceClosesThePort) {
  forEachError("ioctl TIOCMGET", [&](int error, int told) {
    renew();
    open();
    const auto calls = heard({"ioctl TIOCMGET", 0, error}, [this] { time_.advance(10ms); });
    if (told == ENXIO) {
      EXPECT_THAT(calls, ElementsAre(failed(ENXIO), removed(), closed()));
    } else {
      EXPECT_THAT(calls, ElementsAre(failed(told)));
    }
    EXPECT_EQ(port_->isOpen(), told != ENXIO);
  });
}

TEST_F(PortErrorsTest, AReadThatFailsIsNoNews) {
  forEachError("read", [&](int error, int) {
    renew();
    open();
    EXPECT_THAT(heard({"read", 0, error}, [this] { line_.write(hex("01 02")); }),
                ElementsAre(received(hex("01 02"))));
  });
}

TEST_F(PortErrorsTest, WhatFailsAtTheEndIsToldAndThePortCloses) {
  // The flow control, then what was there before.
  for (const auto& [call, number] :
       {std::pair("ioctl TCGETS2", 0U), std::pair("ioctl TCSETS2", 0U), std::pair("ioctl TCSETSW2", 0U)}) {
    forEachError(call, [&, call = call, number = number](int error, int told) {
      EXPECT_THAT(heardAtClosing({call, number, error}), ElementsAre(failed(told), closed()));
      EXPECT_FALSE(port_->isOpen());
    });
  }
}

TEST_F(PortErrorsTest, ACloseThatFailsLeavesADeadLine) {
  EXPECT_THAT(heardAtClosing({"close", 0, EIO}), ElementsAre(failed(ENXIO)));
  EXPECT_TRUE(port_->isOpen());
  EXPECT_FALSE(port_->sendData(hex("01")));
  EXPECT_THAT(client_.takeCalls(), ElementsAre(failed(EBADF)));
}

TEST_F(PortErrorsTest, NobodyHearsOfTheOutputOrTheMarksThatCannotBeAskedFor) {
  for (const char* call : {"ioctl TIOCOUTQ", "ioctl TIOCNXCL", "flock UNLOCK"}) {
    forEachError(call, [&](int error, int) {
      EXPECT_THAT(heardAtClosing({call, 0, error}), ElementsAre(closed()));
    });
  }
  forEachError("ioctl TIOCGEXCL", [&](int error, int) {
    EXPECT_THAT(heardAtOpening({"ioctl TIOCGEXCL", 0, error}), ElementsAre(opened()));
  });
}

TEST_F(PortErrorsTest, ADuplicateThatCannotBeHadIsTold) {
  open();
  EXPECT_THAT(heard({"fcntl DUPFD", 0, EMFILE}, [this] { EXPECT_EQ(port_->duplicateDescriptor(), -1); }),
              ElementsAre(failed(EMFILE)));
}

TEST_F(PortErrorsTest, ACallThatWasInterruptedIsMadeAgain) {
  for (const char* call : {"open", "flock LOCK", "ioctl TIOCEXCL", "fcntl SETFL", "ioctl TCGETS2",
                           "ioctl TCSETS2", "ioctl TIOCMGET", "ioctl TIOCMSET"}) {
    EXPECT_THAT(heardAtOpening({call, 0, EINTR}), ElementsAre(opened())) << call;
  }
  for (const char* call : {"ioctl TCGETS2", "ioctl TCSETS2", "ioctl TCSETSW2", "close"}) {
    EXPECT_THAT(heardAtClosing({call, 0, EINTR}), ElementsAre(closed())) << call;
  }
  renew();
  open();
  EXPECT_THAT(heard({"write", 0, EINTR}, [this] { EXPECT_TRUE(port_->sendData(hex("01"))); }), IsEmpty());
  EXPECT_THAT(heard({"read", 0, EINTR}, [this] { line_.write(hex("02")); }),
              ElementsAre(received(hex("02"))));
}

}  // namespace
}  // namespace tarsil
