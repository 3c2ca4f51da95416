#include "tarsil/runtime/detail/MachineReactor.hpp"

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

namespace tarsil::detail {
namespace {

using std::chrono::hours;
using std::chrono::milliseconds;
using testing::ElementsAre;

class Call final : public Alarm {
 public:
  explicit Call(std::function<void()> call) : call_(std::move(call)) {}
  void ring() override { call_(); }

 private:
  const std::function<void()> call_;
};

/// A reactor for several threads, which this one plays.
class MachineReactorTest : public testing::Test {
 protected:
  std::shared_ptr<Alarm> scheduled(std::function<void()> call, Clock::Instant at) {
    auto alarm = std::make_shared<Call>(std::move(call));
    reactor_.schedule(alarm, at);
    return alarm;
  }
  /// What a thread does that wakes once.
  void serveOnce() {
    const auto event = reactor_.wait(-1);
    ASSERT_TRUE(event);
    const Work due = reactor_.take(*event);
    ASSERT_TRUE(due);
    due();
  }
  bool isAtRest() { return !reactor_.wait(0); }

  MachineReactor reactor_{MachineReactor::Served::byManyThreads};
  std::vector<std::string> rang_;
  const Clock::Instant now_ = reactor_.now();
};

TEST_F(MachineReactorTest, AlarmsOfOneInstantWakeOneThread) {
  for (const char* name : {"first", "second", "third"}) {
    scheduled([this, name] { rang_.push_back(name); }, now_);
  }
  serveOnce();
  EXPECT_THAT(rang_, ElementsAre("first", "second", "third"));
  EXPECT_TRUE(isAtRest());
}

TEST_F(MachineReactorTest, AnotherThreadGoesOnWithTheRoundOfOneThatBlocks) {
  const auto blocked = [this] {
    serveOnce();
    rang_.push_back("blocked");
  };
  scheduled(blocked, now_);
  scheduled([this] { rang_.push_back("second"); }, now_);
  scheduled([this] { rang_.push_back("third"); }, now_);
  serveOnce();
  EXPECT_THAT(rang_, ElementsAre("second", "third", "blocked"));
}

TEST_F(MachineReactorTest, EveryAlarmOfARoundMayBlockItsThread) {
  scheduled(
      [this] {
        serveOnce();
        rang_.push_back("first");
      },
      now_);
  scheduled(
      [this] {
        serveOnce();
        rang_.push_back("second");
      },
      now_);
  scheduled([this] { rang_.push_back("third"); }, now_);
  serveOnce();
  EXPECT_THAT(rang_, ElementsAre("third", "second", "first"));
}

TEST_F(MachineReactorTest, ARoundThatBlocksKeepsNoOtherInstantWaiting) {
  const auto blocked = [this] {
    serveOnce();
    serveOnce();
    rang_.push_back("blocked");
  };
  scheduled(blocked, now_);
  scheduled([this] { rang_.push_back("same instant"); }, now_);
  scheduled([this] { rang_.push_back("a moment later"); }, now_ + std::chrono::nanoseconds(1));
  serveOnce();
  EXPECT_THAT(rang_, ElementsAre("same instant", "a moment later", "blocked"));
}

TEST_F(MachineReactorTest, AnAlarmThatIsScheduledInItsRoundWaitsForItsInstant) {
  std::shared_ptr<Alarm> repeated;
  repeated = scheduled(
      [&] {
        rang_.push_back("repeated");
        reactor_.schedule(repeated, now_ + hours(1));
      },
      now_);
  scheduled([this] { rang_.push_back("other"); }, now_);
  serveOnce();
  EXPECT_THAT(rang_, ElementsAre("repeated", "other"));
  EXPECT_EQ(reactor_.firstAlarm()->at, now_ + hours(1));
  reactor_.unschedule(*repeated);
}

TEST_F(MachineReactorTest, AnAlarmThatIsUnscheduledInItsRoundDoesNotRing) {
  std::shared_ptr<Alarm> second;
  scheduled([&] { reactor_.unschedule(*second); }, now_);
  second = scheduled([this] { rang_.push_back("second"); }, now_);
  scheduled([this] { rang_.push_back("third"); }, now_);
  serveOnce();
  EXPECT_THAT(rang_, ElementsAre("third"));
}

// As an instant may come again that a round had.
TEST_F(MachineReactorTest, AnAlarmAtTheInstantOfAPastRoundRings) {
  scheduled([this] { rang_.push_back("round"); }, now_);
  serveOnce();
  scheduled([this] { rang_.push_back("later"); }, now_);
  serveOnce();
  EXPECT_THAT(rang_, ElementsAre("round", "later"));
}

}  // namespace
}  // namespace tarsil::detail
