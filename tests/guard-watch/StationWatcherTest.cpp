// A guarded station and its watcher, in real processes: what the host hears when the watcher goes.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "simulators/devices/simulatedDevices.hpp"
#include "simulators/lines/PseudoTerminalLine.hpp"
#include "simulators/physics/Patient.hpp"
#include "tarsil/guard/GuardedStation.hpp"
#include "tarsil/guard/watch/detail/watcherProgram.hpp"
#include "tarsil/platform/SystemPlatform.hpp"
#include "tarsil/platform/TerminalWrapper.hpp"
#include "tarsil/platform/VirtualDeviceRegistry.hpp"
#include "tarsil/runtime/RunLoop.hpp"
#include "tarsil/support/FileDescriptor.hpp"
#include "tests/helpers/TemporaryUserFolders.hpp"
#include "tests/helpers/plugInAdapter.hpp"

namespace tarsil {
namespace {

using namespace std::chrono_literals;

class StationWatcherTest : public testing::Test {
 protected:
  StationWatcherTest() {
    // A watcher has left its parent; this gives it back to us, so that we can find it.
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    std::filesystem::copy_file(detail::watcherProgram(), program());
    plugIn();
  }
  ~StationWatcherTest() override {
    unplug();
    while (wait(nullptr) > 0) continue;
    prctl(PR_SET_CHILD_SUBREAPER, 0);
  }

  void SetUp() override {
    const auto opening = GuardedStation::open({.exercise = {"LodeTreadmill", path_},
                                               .heartbeat = 5s,
                                               .watcher = program().string(),
                                               .journal = std::nullopt});
    ASSERT_TRUE(opening) << opening.answer().reason();
    station_ = opening.station();
    station_->onEvent([this](const Event& event) { events_.push_back(event); });
    // Refused until the treadmill has answered.
    ASSERT_TRUE(runUntil([this] { return station_->start().isAccepted(); }));
    ASSERT_TRUE(station_->setLoad({.speed = 2}).isAccepted());
    ASSERT_TRUE(runUntil([this] { return treadmill_->truth().actual.speed > 1; }));
  }
  void TearDown() override {
    static_cast<void>(station_->stop());
    station_->close();
    EXPECT_TRUE(runUntil([this] { return station_->isClosed(); }));
    station_.reset();
  }

  std::filesystem::path program() const { return folders_.home() / "watcher"; }

  void plugIn() {
    path_ = line_.hostEnd().path();
    plugInAdapter(path_, "watched-" + std::to_string(getpid()));
  }
  void unplug() { VirtualDeviceRegistry::shared()->remove(path_); }

  /// The watcher; none when there is none.
  static std::optional<pid_t> watcher() {
    std::ifstream children("/proc/self/task/" + std::to_string(getpid()) + "/children");
    pid_t child = -1;
    if (!(children >> child)) return std::nullopt;
    return child;
  }

  /// True when it came true, within a time that only a fault needs. The host lives meanwhile.
  bool runUntil(const std::function<bool()>& condition) {
    return RunLoop::main().runUntil(
        [&] {
          if (station_) station_->alive();
          return condition();
        },
        30s);
  }

  std::optional<std::string> alarm(AlarmKind kind) const {
    for (const Event& event : events_) {
      const auto* raised = std::get_if<AlarmRaised>(&event.what);
      if (raised != nullptr && raised->kind == kind) return raised->text;
    }
    return std::nullopt;
  }

  const TemporaryUserFolders folders_;
  simulators::Patient patient_;
  const std::unique_ptr<simulators::SimulatedDevice> treadmill_ =
      simulators::makeSimulatedDevice("LodeTreadmill", patient_);
  simulators::PseudoTerminalLine line_{*treadmill_};
  std::string path_;
  std::vector<Event> events_;
  std::shared_ptr<GuardedStation> station_;
};

TEST_F(StationWatcherTest, AKilledWatcherIsAnAlarmAndTheExerciseGoesOn) {
  ASSERT_TRUE(watcher());
  kill(*watcher(), SIGKILL);
  ASSERT_TRUE(runUntil([this] { return alarm(AlarmKind::watcherLost).has_value(); }));
  EXPECT_EQ(alarm(AlarmKind::watcherLost),
            "the watcher process is gone: nobody would stop the exercise if this host died");
  EXPECT_EQ(station_->state(), GuardedStation::State::running);
}

TEST_F(StationWatcherTest, ALineThatComesBackHasAWatcherOfItsOwn) {
  ASSERT_TRUE(watcher());
  const pid_t before = *watcher();
  line_.hostEnd().unplug();
  unplug();
  ASSERT_TRUE(runUntil([this] { return alarm(AlarmKind::lineLost).has_value(); }));
  line_.hostEnd().plugIn();
  plugIn();
  EXPECT_TRUE(runUntil([&] {
    while (waitpid(-1, nullptr, WNOHANG) > 0) continue;
    return watcher() && *watcher() != before;
  }));
  EXPECT_EQ(alarm(AlarmKind::watcherLost), std::nullopt);
}

TEST_F(StationWatcherTest, ALineThatComesBackWithoutAWatcherIsAnAlarm) {
  std::filesystem::remove(program());
  line_.hostEnd().unplug();
  unplug();
  ASSERT_TRUE(runUntil([this] { return alarm(AlarmKind::lineLost).has_value(); }));
  line_.hostEnd().plugIn();
  plugIn();
  ASSERT_TRUE(runUntil([this] { return alarm(AlarmKind::watcherLost).has_value(); }));
  EXPECT_EQ(alarm(AlarmKind::watcherLost),
            "no watcher for the new line: " + program().string() + ": No such file or directory");
}

/// Another opening of the line is always quicker to take its bytes, once they are there, than the read.
class RobbedTerminal final : public TerminalWrapper {
 public:
  explicit RobbedTerminal(std::string path) : TerminalWrapper(systemTerminal()), path_(std::move(path)) {}

  Result<std::size_t> read(int descriptor, void* buffer, std::size_t size) override {
    if (isRobbed) rob();
    return TerminalWrapper::read(descriptor, buffer, size);
  }

  void rob() {
    const FileDescriptor thief(::open(path_.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
    std::array<char, 256> taken{};
    while (isRobbed) {
      pollfd bytes{.fd = thief.get(), .events = POLLIN, .revents = 0};
      if (poll(&bytes, 1, 10) > 0 && ::read(thief.get(), taken.data(), taken.size()) <= 0) return;
    }
  }

  std::atomic<bool> isRobbed = false;

 private:
  const std::string path_;
};

/// Its read waits for the next byte, and its port cannot close until that comes.
class RobbedStationTest : public StationWatcherTest {
 protected:
  RobbedStationTest() {
    if (geteuid() != 0) return;
    auto robbed = *VirtualDeviceRegistry::shared()->devices().back();
    unplug();
    robbed.terminal = terminal_;
    VirtualDeviceRegistry::shared()->add(std::make_shared<const SerialDevice>(std::move(robbed)));
  }

  const std::shared_ptr<RobbedTerminal> terminal_ = std::make_shared<RobbedTerminal>(line_.hostEnd().path());
};

TEST_F(RobbedStationTest, IsStoppedThroughAPortThatCannotClose) {
  if (geteuid() != 0) GTEST_SKIP() << "only root gets past the mark of an open port";
  terminal_->isRobbed = true;
  const auto has = [this](auto isMeant) { return std::any_of(events_.begin(), events_.end(), isMeant); };
  ASSERT_TRUE(runUntil([&] {
    return has([](const Event& event) { return std::holds_alternative<LineClosed>(event.what); });
  }));
  terminal_->isRobbed = false;
  ASSERT_TRUE(runUntil([&] {
    return has([](const Event& event) { return std::holds_alternative<StandstillSeen>(event.what); });
  }));
  EXPECT_EQ(treadmill_->truth().actual.speed, 0);
}

}  // namespace
}  // namespace tarsil
