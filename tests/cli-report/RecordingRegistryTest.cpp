#include "tools/tarsil/run/RecordingRegistry.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>

#include "simulators/scripted/ScriptedTerminal.hpp"
#include "simulators/scripted/scriptedDevice.hpp"
#include "tarsil/platform/VirtualDeviceRegistry.hpp"
#include "tarsil/runtime/VirtualTime.hpp"

namespace tarsil::cli {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

class RecordingRegistryTest : public testing::Test {
 protected:
  RecordingRegistryTest() {
    devices_->add(scriptedDevice("tty0", terminal_));
    traffic_->setReader([this](const Chunk& chunk) { heard_.push_back(chunk); });
  }

  std::shared_ptr<Terminal> recorded() { return registry_->devices().at(0)->terminal; }

  VirtualTime time_;
  std::shared_ptr<ScriptedTerminal> terminal_ = std::make_shared<ScriptedTerminal>();
  std::shared_ptr<VirtualDeviceRegistry> devices_ = std::make_shared<VirtualDeviceRegistry>();
  std::shared_ptr<Traffic> traffic_ = std::make_shared<Traffic>();
  std::shared_ptr<RecordingRegistry> registry_ = std::make_shared<RecordingRegistry>(devices_, traffic_);
  std::vector<Chunk> heard_;
};

TEST_F(RecordingRegistryTest, TellsWhatIsReadAndWrittenWithItsTime) {
  const auto terminal = recorded();
  const int descriptor = terminal->open("/dev/tty0");
  const Clock::Instant start = Clock::now();
  const Bytes sent{1, 2, 3};
  EXPECT_EQ(terminal->write(descriptor, sent.data(), sent.size()), 3);
  EXPECT_THAT(heard_, IsEmpty()) << "news comes on the main queue";
  time_.advance(2s);
  terminal_->deliver(Bytes{7, 8});
  std::array<std::uint8_t, 16> buffer{};
  EXPECT_EQ(terminal->read(descriptor, buffer.data(), buffer.size()), 2);
  time_.settle();

  ASSERT_EQ(heard_.size(), 2U);
  EXPECT_EQ(heard_[0].port, "tty0");
  EXPECT_EQ(heard_[0].direction, Chunk::Direction::sent);
  EXPECT_EQ(heard_[0].bytes, sent);
  EXPECT_EQ(heard_[0].at, start);
  EXPECT_EQ(heard_[1].direction, Chunk::Direction::received);
  EXPECT_EQ(heard_[1].bytes, (Bytes{7, 8}));
  EXPECT_EQ(heard_[1].at, start + 2s);
  terminal->close(descriptor);
}

TEST_F(RecordingRegistryTest, TellsOnlyWhatTheTerminalTook) {
  const auto terminal = recorded();
  const int descriptor = terminal->open("/dev/tty0");
  terminal_->takeNextWrite(1);
  const Bytes sent{1, 2, 3};
  EXPECT_EQ(terminal->write(descriptor, sent.data(), sent.size()), 1);
  terminal_->failNext(ScriptedTerminal::Call::write, EIO);
  EXPECT_EQ(terminal->write(descriptor, sent.data(), sent.size()), -1);
  EXPECT_EQ(errno, EIO);
  time_.settle();
  ASSERT_EQ(heard_.size(), 1U);
  EXPECT_EQ(heard_[0].bytes, Bytes{1});
  terminal->close(descriptor);
}

TEST_F(RecordingRegistryTest, PassesEveryOtherCallOn) {
  using Call = ScriptedTerminal::Call;
  const auto terminal = recorded();
  const int descriptor = terminal->open("/dev/tty0");
  TerminalAttributes attributes;
  int lines = 0;
  EXPECT_EQ(terminal->clearStatusFlags(descriptor), 0);
  EXPECT_EQ(terminal->getAttributes(descriptor, attributes), 0);
  attributes.speed = 4800;
  EXPECT_EQ(terminal->setAttributes(descriptor, Terminal::Apply::afterOutputDrains, attributes), 0);
  EXPECT_EQ(terminal->setSpecialSpeed(descriptor, attributes), 0);
  EXPECT_EQ(terminal->getModemLines(descriptor, lines), 0);
  EXPECT_EQ(terminal->setModemLines(descriptor, TIOCM_RTS), 0);
  const int copy = terminal->duplicate(descriptor);
  EXPECT_GE(copy, 0);
  EXPECT_EQ(::close(copy), 0);
  EXPECT_EQ(terminal->close(descriptor), 0);
  EXPECT_THAT(terminal_->calls(), ElementsAre(Call::open, Call::clearStatusFlags, Call::getAttributes,
                                              Call::setAttributes, Call::setSpecialSpeed, Call::getModemLines,
                                              Call::setModemLines, Call::duplicate, Call::close));
  EXPECT_EQ(terminal_->openedPath(), "/dev/tty0");
  EXPECT_EQ(terminal_->applied().at(0).when, Terminal::Apply::afterOutputDrains);
  EXPECT_EQ(terminal_->outputLines(), TIOCM_RTS);
}

TEST_F(RecordingRegistryTest, GivesADeviceTheSameEntryForGood) {
  const auto device = registry_->devices().at(0);
  EXPECT_EQ(registry_->devices().at(0), device);
  EXPECT_EQ(device->terminalName, "tty0");
  EXPECT_EQ(device->calloutPath, "/dev/tty0");

  std::vector<std::shared_ptr<const SerialDevice>> arrived;
  std::vector<std::shared_ptr<const SerialDevice>> removed;
  const auto keepIn = [](auto& list) {
    return [&list](const SerialDeviceRegistry::Devices& news) {
      list.insert(list.end(), news.begin(), news.end());
    };
  };
  const auto watch = registry_->watch({.arrived = keepIn(arrived), .removed = keepIn(removed)});
  devices_->add(scriptedDevice("tty1", std::make_shared<ScriptedTerminal>()));
  devices_->remove("/dev/tty0");
  time_.settle();
  EXPECT_THAT(removed, ElementsAre(device));
  EXPECT_EQ(arrived, registry_->devices());
}

}  // namespace
}  // namespace tarsil::cli
