// A guarded station whose port another program wants: one that looks for modems, as desktops have it. It
// opens every serial port that appears, asks "AT", listens, and goes after some seconds. On pseudo-terminals,
// where the kernel keeps openers apart as on any line, and on virtual time.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "simulators/devices/simulatedDevices.hpp"
#include "simulators/lines/PseudoTerminalLine.hpp"
#include "simulators/physics/Patient.hpp"
#include "tarsil/guard/GuardedStation.hpp"
#include "tarsil/platform/VirtualDeviceRegistry.hpp"
#include "tarsil/station/standardCatalogue.hpp"
#include "tarsil/support/FileDescriptor.hpp"
#include "tests/guard/GuardedSession.hpp"
#include "tests/guard/StationRules.hpp"
#include "tests/guard/eventsOf.hpp"
#include "tests/helpers/PrintedLines.hpp"
#include "tests/helpers/plugInAdapter.hpp"

namespace tarsil {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using Code = Answer::Code;
using State = GuardedStation::State;

/// In this process: the kernel tells openings apart, not programs.
class ModemSeeker {
 public:
  enum class Manners { heedsLocks, heedsNothing };

  explicit ModemSeeker(const std::string& path, Manners manners = Manners::heedsLocks)
      : line_(::open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC)) {
    if (manners == Manners::heedsNothing || !hasPort()) return;
    if (flock(line_.get(), LOCK_EX | LOCK_NB) != 0 || ioctl(line_.get(), TIOCEXCL) != 0) line_ = {};
  }
  ~ModemSeeker() { leave(); }
  ModemSeeker(const ModemSeeker&) = delete;
  ModemSeeker& operator=(const ModemSeeker&) = delete;

  bool hasPort() const { return line_.get() >= 0; }
  void ask() const {
    constexpr std::string_view question = "AT\r";
    EXPECT_EQ(write(line_.get(), question.data(), question.size()), 3);
  }
  /// From now on nobody hears fewer bytes than these, and the line sends back what it hears.
  void waitForMuch() const {
    termios modes{};
    EXPECT_EQ(tcgetattr(line_.get(), &modes), 0);
    modes.c_lflag |= ECHO;
    modes.c_cc[VMIN] = 255;
    modes.c_cc[VTIME] = 0;
    EXPECT_EQ(tcsetattr(line_.get(), TCSANOW, &modes), 0);
  }
  void leave() {
    if (!hasPort()) return;
    ioctl(line_.get(), TIOCNXCL);
    line_ = {};
  }

 private:
  FileDescriptor line_;
};

struct Way {
  std::string model;
  Load load;
};

class OtherProgramTest : public testing::TestWithParam<Way> {
 protected:
  OtherProgramTest() { appear(); }
  ~OtherProgramTest() override {
    station_.reset();
    run(200ms);
    VirtualDeviceRegistry::shared()->remove(path());
    time_.settle();
  }

  std::string path() { return line_.hostEnd().path(); }
  void appear() { plugInAdapter(path(), "wanted-" + model()); }

  void open() {
    auto opening = GuardedStation::open(
        {.exercise = {model(), path()}, .watcher = std::nullopt, .journal = std::nullopt});
    ASSERT_TRUE(opening) << opening.answer().reason();
    station_ = opening.station();
    station_->onEvent([this](const Event& event) {
      rules_.hear(event);
      events_.push_back(event);
    });
  }
  void run(Duration duration) {
    for (Duration passed{}; passed < duration; passed += 100ms) {
      if (station_) station_->alive();
      time_.advance(100ms);
      if (station_) rules_.check(*station_);
    }
  }
  /// It does what it is asked for, and then stands.
  void begin() {
    ASSERT_TRUE(station_->start().isAccepted()) << station_->readiness().reason();
    ASSERT_TRUE(station_->setLoad(load()).isAccepted());
    run(25s);
    EXPECT_EQ(station_->state(), State::running);
    expectLoad(load());
    events_.clear();
  }
  void end() {
    EXPECT_TRUE(station_->stop().isAccepted());
    run(30s);
    EXPECT_THAT(all<StandstillSeen>(), SizeIs(1));
    expectLoad({});
    EXPECT_THAT(station_->alarms(), IsEmpty());
  }

  static const std::string& model() { return GetParam().model; }
  static const Load& load() { return GetParam().load; }
  static Load more() {
    Load more = load();
    (more.speed > 0 ? more.speed : more.power) += more.speed > 0 ? 1.0F : 20.0F;
    return more;
  }
  void expectLoad(const Load& load) const {
    const auto truth = device_->truth().actual;
    EXPECT_NEAR(truth.speed, load.speed, 0.1);
    EXPECT_NEAR(truth.power, load.power, 1);
  }

  template <class What>
  std::vector<What> all() const {
    return eventsOf<What>(events_);
  }

  VirtualTime& time_ = GuardedSession::time();  // before all that lives in it
  /// There has to be one.
  template <class What>
  std::pair<Clock::Instant, What> first() const {
    const auto event = std::find_if(events_.begin(), events_.end(), [](const Event& told) {
      return std::holds_alternative<What>(told.what);
    });
    if (event == events_.end()) throw std::logic_error("no such event");
    return {event->at, std::get<What>(event->what)};
  }

  simulators::Patient patient_;
  const std::unique_ptr<simulators::SimulatedDevice> device_ =
      simulators::makeSimulatedDevice(model(), patient_);
  simulators::PseudoTerminalLine line_{*device_};
  const PrintedLines printed_;
  StationRules rules_{*standardCatalogue().modelNamed(model()), Limits{},
                      [](const std::string& what) { ADD_FAILURE() << what; }};
  std::shared_ptr<GuardedStation> station_;
  std::vector<Event> events_;
};

TEST_P(OtherProgramTest, ThatHasThePortFirstIsNamedAndWaitedFor) {
  ModemSeeker seeker(path());
  ASSERT_TRUE(seeker.hasPort());
  open();
  run(3s);
  ASSERT_THAT(all<LineFailed>(), SizeIs(1));
  EXPECT_EQ(all<LineFailed>()[0].reason, LineFailed::Reason::busy);
  EXPECT_THAT(station_->alarms(), ElementsAre(AlarmKind::portNotOpened));
  EXPECT_EQ(station_->start().code(), Code::notOpen);
  EXPECT_THAT(all<Sent>(), IsEmpty());

  // Whatever answers comes to the next one who has the port.
  seeker.ask();
  run(1s);
  seeker.ask();
  seeker.leave();
  run(6s);
  EXPECT_THAT(all<LineFailed>(), SizeIs(1));
  EXPECT_THAT(all<LineOpened>(), SizeIs(1));
  EXPECT_THAT(station_->alarms(), IsEmpty());
  begin();
  end();
}

TEST_P(OtherProgramTest, ThatComesDuringAnExerciseIsKeptOut) {
  open();
  run(6s);
  begin();
  const ModemSeeker seeker(path());
  EXPECT_FALSE(seeker.hasPort());
  run(5s);
  EXPECT_THAT(station_->alarms(), IsEmpty());
  EXPECT_EQ(station_->state(), State::running);
  expectLoad(load());
  end();
}

TEST_P(OtherProgramTest, ThatHeedsNoLockCostsReportsAndRaisesNothing) {
  if (geteuid() != 0) GTEST_SKIP() << "only root gets past the mark of an open port";
  open();
  run(6s);
  begin();
  ModemSeeker seeker(path(), ModemSeeker::Manners::heedsNothing);
  ASSERT_TRUE(seeker.hasPort());
  seeker.waitForMuch();
  seeker.ask();
  run(4s);
  EXPECT_THAT(station_->alarms(), ElementsAre(AlarmKind::exerciseSilent));
  EXPECT_TRUE(station_->setLoad(more()).isAccepted());
  run(1s);
  expectLoad(load());
  // The station opens its line anew, and has its settings again.
  seeker.ask();
  seeker.leave();
  run(20s);
  EXPECT_THAT(station_->alarms(), IsEmpty());
  EXPECT_THAT(all<ProtectiveStop>(), IsEmpty());
  expectLoad(more());
  end();
}

TEST_P(OtherProgramTest, ThatTakesASilentLineBetweenItsOpeningsDoesNotPutTheStopOff) {
  open();
  run(6s);
  begin();
  line_.hostEnd().cable().replies().mute(true);
  while (all<LineClosed>().empty()) run(100ms);
  ModemSeeker seeker(path());
  ASSERT_TRUE(seeker.hasPort());
  line_.hostEnd().cable().replies().mute(false);
  run(6s);
  ASSERT_THAT(all<ProtectiveStop>(), SizeIs(1));
  EXPECT_EQ(all<ProtectiveStop>()[0].cause, AlarmKind::exerciseSilent);
  EXPECT_EQ(station_->state(), State::stopping);
  seeker.leave();
  run(30s);
  EXPECT_THAT(all<StandstillSeen>(), SizeIs(1));
  expectLoad({});
  EXPECT_TRUE(station_->reset().isAccepted());
}

TEST_P(OtherProgramTest, ThatTakesAnAdapterThatComesBackHoldsTheStopUpNoLongerThanItself) {
  open();
  run(6s);
  begin();
  VirtualDeviceRegistry::shared()->remove(path());
  line_.hostEnd().unplug();
  run(1s);
  ASSERT_THAT(all<ProtectiveStop>(), SizeIs(1));
  line_.hostEnd().plugIn();
  ModemSeeker seeker(path());
  ASSERT_TRUE(seeker.hasPort());
  seeker.ask();
  appear();
  events_.clear();
  run(2s);
  ASSERT_THAT(all<LineFailed>(), SizeIs(1));
  EXPECT_EQ(all<LineFailed>()[0].reason, LineFailed::Reason::busy);
  EXPECT_THAT(all<Sent>(), IsEmpty());
  seeker.ask();
  seeker.leave();

  run(30s);
  EXPECT_THAT(all<LineReturned>(), SizeIs(1));
  EXPECT_EQ(first<Asked>().second.command, Command::stop);
  EXPECT_EQ(first<Asked>().first, first<LineReturned>().first);
  EXPECT_THAT(all<StandstillSeen>(), SizeIs(1));
  expectLoad({});
  EXPECT_TRUE(station_->reset().isAccepted());
  events_.clear();
  run(2s);
  begin();
  end();
}

INSTANTIATE_TEST_SUITE_P(Models, OtherProgramTest,
                         testing::Values(Way{"LodeTreadmill", {.speed = 3, .grade = 2}},
                                         Way{"LodeOEMTreadmill", {.speed = 3, .grade = 16}},
                                         Way{"TrackMaster", {.speed = 3, .grade = 2}},
                                         Way{"ErgolineK2.4P10", {.power = 60}},
                                         Way{"ErgosanaK4.8P10", {.power = 60}}),
                         [](const auto& way) {
                           return standardCatalogue().modelNamed(way.param.model)->className;
                         });

}  // namespace
}  // namespace tarsil
