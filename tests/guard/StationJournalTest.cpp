// What stands in a station's journal: everything.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "tarsil/platform/UserFolders.hpp"
#include "tests/cli-report/ScratchFolder.hpp"
#include "tests/guard/GuardedSession.hpp"
#include "tests/helpers/hex.hpp"

namespace tarsil {
namespace {

using namespace std::chrono_literals;
using cli::ScratchFolder;
using cli::textOf;
using testing::AllOf;
using testing::Contains;
using testing::IsSupersetOf;
using testing::Key;
using testing::Pair;

class StationJournalTest : public testing::Test {
 protected:
  GuardedSession::Setting setting() const {
    return {.monitor = true,
            .oximeter = true,
            .journal = JournalFile{.path = file_, .facts = {{"patient", "4711"}}}};
  }
  Journal readBack() const { return readJournal(textOf(file_)).value(); }

  const ScratchFolder folder_;
  const std::filesystem::path file_ = folder_ / "journal.jsonl";
};

std::vector<std::string> linesOf(const std::vector<Event>& events, Clock::Instant start) {
  std::vector<std::string> lines;
  for (const Event& event : events) lines.push_back(journalLine(event, event.at - start));
  return lines;
}

TEST_F(StationJournalTest, EndsWithTheCloseOfAStationThatIsDropped) {
  GuardedSession session(setting());
  session.run(5s);
  session.station().reset();
  const auto events = readBack().events;
  const auto isClose = [](const Event& event) {
    const auto* asked = std::get_if<Asked>(&event.what);
    return asked && asked->command == Command::close;
  };
  EXPECT_EQ(std::count_if(events.begin(), events.end(), isClose), 1);
}

TEST_F(StationJournalTest, HasEverythingThatTheHostHeard) {
  GuardedSession session(setting());
  session.begin({.speed = 3, .grade = 4});
  static_cast<void>(session->setLoad({.speed = 99}));
  EXPECT_TRUE(session->measurePressure().isAccepted());
  session.run(60s);
  session.line().cable().replies().cue(simulators::ByteFault::change);
  session.run(3s);
  session.line("spo2").unplug();
  session.run(3s);
  session.line().unplug();
  session.run(3s);
  const auto heard = session.events();
  const Clock::Instant start = heard.front().at;
  session.station().reset();

  const Journal journal = readBack();
  EXPECT_THAT(journal.head.facts,
              AllOf(Contains(Pair("patient", "4711")), Contains(Pair("model", "LodeTreadmill")),
                    Contains(Key("port")), Contains(Key("monitorPort")), Contains(Key("oximeterPort"))));
  // In the order of the file, which has what was sent a moment earlier than the host hears of it.
  EXPECT_THAT(linesOf(journal.events, Clock::Instant()), IsSupersetOf(linesOf(heard, start)));
  std::set<std::string_view> kinds;
  for (const Event& event : journal.events) {
    std::visit([&](const auto& what) { kinds.insert(typeid(what).name()); }, event.what);
  }
  const auto has = [&](const std::type_info& kind) { return kinds.contains(kind.name()); };
  EXPECT_TRUE(has(typeid(Asked)));
  EXPECT_TRUE(has(typeid(Sent)));
  EXPECT_TRUE(has(typeid(Received)));
  EXPECT_TRUE(has(typeid(Discarded)));
  EXPECT_TRUE(has(typeid(LoadMeasured)));
  EXPECT_TRUE(has(typeid(PressureMeasured)));
  EXPECT_TRUE(has(typeid(SaturationMeasured)));
  EXPECT_TRUE(has(typeid(Refused)));
  EXPECT_TRUE(has(typeid(AlarmRaised)));
  EXPECT_TRUE(has(typeid(ProtectiveStop)));
}

TEST_F(StationJournalTest, HasEveryByteThatWentOverTheLine) {
  GuardedSession session({.journal = JournalFile{.path = file_}});
  session.begin({.speed = 3});
  session.run(20s);
  const Bytes sent = session.sent();
  session.station().reset();
  Bytes written;
  for (const Event& event : readBack().events) {
    if (const auto* chunk = std::get_if<Sent>(&event.what))
      written.insert(written.end(), chunk->bytes.begin(), chunk->bytes.end());
  }
  ASSERT_GE(written.size(), sent.size());
  EXPECT_TRUE(std::equal(sent.begin(), sent.end(), written.begin()));
  // The stop of a station that is dropped is heard by nobody else.
  EXPECT_GT(written.size(), sent.size());
}

TEST_F(StationJournalTest, HasTheStopThatAFrozenHostNeverHearsOf) {
  GuardedSession session({.journal = JournalFile{.path = file_}});
  session.begin({.speed = 3});
  session.run(10s);
  session.forgetEvents();
  session->stopNow();
  // Another thread's: the main one has not come round yet.
  EXPECT_EQ(session.count<Sent>(), 0U);
  session.station().reset();
  const auto events = readBack().events;
  EXPECT_GE(std::count_if(events.begin(), events.end(),
                          [](const Event& event) {
                            const auto* sent = std::get_if<Sent>(&event.what);
                            return sent && sent->bytes == hex("02 03 00 A1 30 03");
                          }),
            1);
}

int descriptorOf(const std::filesystem::path& file) {
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code gone;
    if (std::filesystem::read_symlink(entry, gone) == file) return std::stoi(entry.path().filename());
  }
  return -1;
}

TEST_F(StationJournalTest, AFullDiskIsAnAlarmAndTheExerciseGoesOn) {
  GuardedSession session(setting());
  session.begin({.speed = 3});
  session.run(10s);
  const int full = ::open("/dev/full", O_WRONLY | O_CLOEXEC);
  ASSERT_GE(dup2(full, descriptorOf(file_)), 0);
  ::close(full);
  session.run(2s);
  EXPECT_TRUE(session.hasAlarm(AlarmKind::journalFailed));
  EXPECT_EQ(priorityOf(AlarmKind::journalFailed), Priority::medium);
  session.run(60s);
  EXPECT_EQ(session->state(), GuardedStation::State::running);
  EXPECT_EQ(session->commanded().speed, 3);
  EXPECT_EQ(session.count<ProtectiveStop>(), 0U);

  // What runs goes on; nothing new begins that nobody could account for.
  EXPECT_TRUE(session->stop().isAccepted());
  session.run(20s);
  EXPECT_EQ(session->start().code(), Answer::Code::alarmActive);
  EXPECT_FALSE(readBack().isTorn);
}

TEST_F(StationJournalTest, IsWholeWhenTheStationIsClosed) {
  GuardedSession session(setting());
  session.run(5s);
  session->close();
  session.run(3s);
  ASSERT_TRUE(session->isClosed());
  session->note(Noted{.word = "over", .text = "the end"});
  const Journal journal = readBack();
  ASSERT_FALSE(journal.events.empty());
  EXPECT_EQ(std::get<Noted>(journal.events.back().what).word, "over");
}

TEST_F(StationJournalTest, RefusesToOpenWithoutIt) {
  const GuardedSession devices;
  const auto refusal = [](const std::filesystem::path& path) {
    return GuardedStation::open({.exercise = {"LodeTreadmill", "exercise"},
                                 .watcher = std::nullopt,
                                 .journal = JournalFile{.path = path}})
        .answer();
  };
  const auto nowhere = folder_ / "missing/journal.jsonl";
  EXPECT_EQ(refusal(nowhere).code(), Answer::Code::noJournal);
  EXPECT_EQ(refusal(nowhere).reason(), "cannot create " + nowhere.string() + ": No such file or directory");
  std::ofstream(file_) << "an earlier one";
  EXPECT_EQ(refusal(file_).reason(), "cannot create " + file_.string() + ": File exists");
  EXPECT_EQ(textOf(file_), "an earlier one");
}

TEST_F(StationJournalTest, LiesInTheUsersHomeWhenThePlanNamesNoFile) {
  class Home final : public UserFolders {
   public:
    explicit Home(std::string path) : path_(std::move(path)) {}
    std::string home() override { return path_; }
    std::string documents() override { return path_; }

   private:
    const std::string path_;
  };
  const auto before = UserFolders::exchangeShared(std::make_shared<Home>(folder_.path()));
  GuardedSession::time().advance(1s - Clock::wallNow().time_since_epoch() % 1s);
  {
    GuardedSession first({.journal = JournalFile()});
    EXPECT_EQ(first->journal().parent_path(), folder_ / ".local/state/tarsil/journals");
    EXPECT_TRUE(std::filesystem::exists(first->journal()));
    const auto path = first->journal();
    EXPECT_EQ(GuardedStation::open({.exercise = {"nothing", ""}}).answer().code(), Answer::Code::noSuchModel);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(path.parent_path()), {}), 1);
    // Two more of the same second.
    for (const std::string number : {" (2)", " (3)"}) {
      first.openAgain();
      EXPECT_EQ(first->journal(), path.parent_path() / (path.stem().string() + number + ".jsonl"));
    }
  }
  UserFolders::exchangeShared(before);
}

}  // namespace
}  // namespace tarsil
