#include "tarsil/guard/Journal.hpp"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cmath>
#include <csignal>
#include <filesystem>
#include <future>
#include <limits>
#include <variant>

#include "tarsil/runtime/RunLoop.hpp"
#include "tarsil/runtime/Timer.hpp"
#include "tests/cli-report/ScratchFolder.hpp"

namespace tarsil {
namespace {

using namespace std::chrono_literals;
using cli::ScratchFolder;
using cli::textOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

const JournalHead head{.began = std::chrono::system_clock::time_point(1709301909123ms),
                       .facts = {{"model", "LodeTreadmill"}, {"note", "line\nend \"quoted\" é"}}};

/// An event of every kind, with all its fields set.
const std::vector<Event::What> everyKind{
    Asked{.command = Command::setLoad, .load = {.speed = 2.7F, .grade = 10}},
    Refused{.command = Command::start, .code = Answer::Code::latched, .reason = "reset first"},
    Sent{{0x02, 0xff}},
    Received{{0x00}},
    Discarded{.bytes = 7, .badChecks = 2},
    LoadMeasured{{.power = 75}},
    PedalRateMeasured{.rate = 61},
    PressureMeasured{.pressure = {131, 78.5F}, .status = -4},
    SaturationMeasured{.saturation = 97},
    Implausible{.what = "0 %"},
    Acknowledged{},
    MonitorReady{},
    DeviceRefused{.code = "04", .details = "emergency stop"},
    LineOpened{.port = "/dev/ttyUSB0"},
    LineClosed{.port = "/dev/ttyUSB0"},
    LineFailed{.port = "ttyUSB0", .reason = LineFailed::Reason::busy, .error = 16, .text = "held by 12"},
    LineVanished{.port = "ttyUSB0"},
    LineReturned{.port = "ttyUSB1"},
    DriverReplaced{.reason = "no number"},
    Printed{.text = "打开成功"},
    AlarmRaised{.kind = AlarmKind::unseenStop, .text = "nobody sees it"},
    AlarmCleared{.kind = AlarmKind::notSeenToStop},
    ProtectiveStop{.cause = AlarmKind::hostFrozen},
    Started{},
    Stopping{},
    StandstillSeen{},
    StandstillUnseen{},
    WasReset{},
    HostReturned{},
    WatcherActed{.text = "sent the stop"},
    PhaseBegan{.index = 3, .name = "stage 2 of 7", .target = {.speed = 4.02F, .grade = 12}},
    PhaseHeld{.held = true},
    Marked{.word = "angina"},
    Noted{.word = "over", .text = "the session is over"},
};

std::vector<Event> eventsOf(const std::vector<Event::What>& all) {
  std::vector<Event> events;
  for (std::size_t i = 0; i < all.size(); ++i) {
    events.push_back({.at = Clock::Instant(1500ms * static_cast<int>(i)),
                      .source = static_cast<Source>(i % 4),
                      .what = all[i]});
  }
  return events;
}

/// The lines of events, as a journal would have them: two that are equal say the same in every field.
std::vector<std::string> linesOf(const std::vector<Event>& events) {
  std::vector<std::string> lines;
  for (const Event& event : events) lines.push_back(journalLine(event, event.at - Clock::Instant()));
  return lines;
}

class JournalTest : public testing::Test {
 protected:
  Journal readBack() const { return readJournal(textOf(file_)).value(); }

  const ScratchFolder folder_;
  const std::filesystem::path file_ = folder_ / "journal.jsonl";
};

TEST_F(JournalTest, ReadsBackEveryKindOfEvent) {
  ASSERT_THAT(everyKind, SizeIs(std::variant_size_v<Event::What>));
  const auto events = eventsOf(everyKind);
  for (std::size_t i = 0; i < everyKind.size(); ++i) ASSERT_EQ(everyKind[i].index(), i);
  JournalWriter writer(file_, head, Clock::Instant());
  for (const Event& event : events) writer.write(event);
  writer.flush();

  const Journal journal = readBack();
  EXPECT_EQ(journal.head.began, head.began);
  EXPECT_EQ(journal.head.facts, head.facts);
  EXPECT_EQ(linesOf(journal.events), linesOf(events));
  for (std::size_t i = 0; i < journal.events.size(); ++i) EXPECT_EQ(journal.events[i].what.index(), i);
  EXPECT_THAT(journal.unreadableLines, IsEmpty());
  EXPECT_FALSE(journal.isTorn);
}

TEST_F(JournalTest, ALineIsPlainJson) {
  EXPECT_EQ(
      journalLine({.source = Source::exercise, .what = LoadMeasured{{.speed = 2.5F, .grade = 10}}}, 61250ms),
      "{\"t\":61.250000,\"source\":\"exercise\",\"event\":\"loadMeasured\",\"speed\":2.5,\"grade\":10.0,"
      "\"power\":0.0}\n");
  EXPECT_EQ(journalLine({.what = Printed{"a \"\\\n\x01\xC3"}}, 0s),
            "{\"t\":0.000000,\"source\":\"station\",\"event\":\"printed\","
            "\"text\":\"a \\\"\\\\\\u000a\\u0001\xEF\xBF\xBD\"}\n");
}

TEST_F(JournalTest, WhatIsNotFiniteReadsBackAsNoNumber) {
  JournalWriter writer(file_, head, Clock::Instant());
  writer.write({.at = Clock::Instant(), .what = PedalRateMeasured{std::numeric_limits<float>::infinity()}});
  writer.flush();
  const Journal journal = readBack();
  ASSERT_THAT(journal.events, SizeIs(1));
  EXPECT_TRUE(std::isnan(std::get<PedalRateMeasured>(journal.events[0].what).rate));
}

TEST_F(JournalTest, AKilledProcessHasLostNothingThatWasFlushed) {
  const pid_t child = fork();
  if (child == 0) {
    JournalWriter writer(file_, head, Clock::Instant());
    for (const Event& event : eventsOf(everyKind)) writer.write(event);
    writer.flush();
    std::raise(SIGKILL);
  }
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_EQ(linesOf(readBack().events), linesOf(eventsOf(everyKind)));
}

TEST_F(JournalTest, ATornLastLineIsLeftOutWhereverItWasTorn) {
  const auto events = eventsOf({Started{}, Marked{.word = "angina"}});
  std::string text;
  {
    JournalWriter writer(file_, head, Clock::Instant());
    for (const Event& event : events) writer.write(event);
  }
  text = textOf(file_);
  const std::size_t lastLine = text.rfind('\n', text.size() - 2) + 1;
  for (std::size_t size = lastLine + 1; size < text.size(); ++size) {
    const auto journal = readJournal(std::string_view(text).substr(0, size));
    ASSERT_TRUE(journal) << size;
    EXPECT_TRUE(journal->isTorn) << size;
    EXPECT_THAT(journal->events, SizeIs(1)) << size;
    EXPECT_THAT(journal->unreadableLines, IsEmpty()) << size;
  }
}

TEST_F(JournalTest, ADamagedLineIsNamedAndTheOthersAreRead) {
  { const JournalWriter writer(file_, head); }
  const std::string event = "{\"t\":1,\"source\":\"exercise\",\"event\":\"pedalRateMeasured\",\"rate\":60}\n";
  const std::vector<std::string> damaged{
      "",
      "nothing",
      "{\"t\":1,\"source\":\"exercise\",\"event\":\"pedalRateMeasured\"}",
      "{\"t\":1,\"source\":\"exercise\",\"event\":\"pedalRateMeasured\",\"rate\":\"60\"}",
      "{\"t\":1,\"source\":\"exercise\",\"event\":\"pedalRateMeasured\",\"rate\":60",
      "{\"t\":1,\"source\":\"exercise\",\"event\":\"pedalRateMeasured\",\"rate\":60}}",
      "{\"t\":1,\"source\":\"exercise\",\"event\":\"pedalRateMeasured\",\"rate\":60,\"rate\":61}",
      "{\"t\":1e300,\"source\":\"exercise\",\"event\":\"pedalRateMeasured\",\"rate\":60}",
      "{\"t\":1,\"source\":\"nobody\",\"event\":\"started\"}",
      "{\"t\":1,\"source\":\"exercise\",\"event\":\"unheardOf\"}",
      "{\"t\":1,\"source\":\"exercise\",\"event\":\"alarmCleared\",\"kind\":\"\"}",
      "{\"t\":1,\"source\":\"exercise\",\"event\":\"alarmCleared\",\"kind\":\"no such alarm\"}",
      "{\"t\":1,\"source\":\"exercise\",\"event\":\"discarded\",\"count\":-1,\"badChecks\":0}",
      "{\"t\":1,\"source\":\"exercise\",\"event\":\"sent\",\"bytes\":\"xy\"}",
      "{\"t\":1,\"source\":\"exercise\",\"event\":\"marked\",\"word\":\"\\u12\"}",
      "{\"t\":1,\"source\":\"exercise\",\"event\":\"marked\",\"word\":\"\\q\"}",
      "{\"t\":1,\"source\":\"exercise\",\"event\":\"marked\",\"word\":\"\xFF\"}",
  };
  for (const std::string& line : damaged) {
    const auto journal = readJournal(textOf(file_) + event + line + "\n" + event);
    ASSERT_TRUE(journal);
    EXPECT_THAT(journal->events, SizeIs(2)) << line;
    EXPECT_THAT(journal->unreadableLines, ElementsAre(3)) << line;
  }
}

TEST_F(JournalTest, WhatIsNoJournalIsNone) {
  for (const char* text :
       {"", "\n", "{}\n", "{\"tarsil-journal\":2,\"began\":1}\n", "{\"tarsil-journal\":1}\n",
        "{\"tarsil-journal\":1,\"began\":1}", "{\"tarsil-journal\":1,\"began\":9223372036855}\n",
        "{\"tarsil-journal\":1,\"began\":-9223372036855}\n"}) {
    EXPECT_FALSE(readJournal(text)) << text;
  }
}

TEST_F(JournalTest, NeverWritesOverAJournal) {
  { const JournalWriter first(file_, head); }
  const std::string before = textOf(file_);
  EXPECT_THAT([this] { const JournalWriter second(file_, head); },
              testing::ThrowsMessage<JournalError>("cannot create " + file_.string() + ": File exists"));
  EXPECT_EQ(textOf(file_), before);
}

/// The descriptor of a file that this process has open.
int descriptorOf(const std::filesystem::path& file) {
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code gone;  // the folder's own
    if (std::filesystem::read_symlink(entry, gone) == file) return std::stoi(entry.path().filename());
  }
  return -1;
}

/// Puts another file in the place of one that is open.
void replaceFile(const std::filesystem::path& file, const char* other, int mode) {
  const int replacement = ::open(other, mode | O_CLOEXEC);
  ASSERT_GE(dup2(replacement, descriptorOf(file)), 0);
  ::close(replacement);
}

Event angina() {
  return {.at = Clock::Instant(), .what = Marked{.word = "angina"}};
}

TEST_F(JournalTest, AFullDiskEndsItAfterWholeLines) {
  JournalWriter writer(file_, head, Clock::Instant());
  writer.write(angina());
  writer.flush();
  EXPECT_EQ(writer.trouble(), std::nullopt);
  replaceFile(file_, "/dev/full", O_WRONLY);
  writer.write(angina());
  writer.flush();
  EXPECT_EQ(writer.trouble(), "cannot write " + file_.string() + ": No space left on device");
  writer.write(angina());
  writer.flush();
  EXPECT_THAT(readBack().events, SizeIs(1));
}

TEST_F(JournalTest, AFileThatIsTakenAwayEndsIt) {
  JournalWriter writer(file_, head, Clock::Instant());
  replaceFile(file_, "/dev/null", O_RDONLY);
  writer.write(angina());
  writer.flush();
  EXPECT_EQ(writer.trouble(), "cannot write " + file_.string() + ": Bad file descriptor");
}

TEST_F(JournalTest, TheLastLineThatHasNoRoomIsTakenBack) {
  std::signal(SIGXFSZ, SIG_IGN);
  rlimit before{};
  getrlimit(RLIMIT_FSIZE, &before);
  JournalWriter writer(file_, head, Clock::Instant());
  rlimit small = before;
  small.rlim_cur = std::filesystem::file_size(file_) + 150;
  setrlimit(RLIMIT_FSIZE, &small);
  for (int i = 0; i < 9; ++i) writer.write(angina());
  writer.flush();
  setrlimit(RLIMIT_FSIZE, &before);

  EXPECT_EQ(writer.trouble(), "cannot write " + file_.string() + ": File too large");
  EXPECT_THAT(readBack().events, SizeIs(2));
  EXPECT_FALSE(readBack().isTorn);
  EXPECT_THAT(textOf(file_), EndsWith("}\n"));
}

TEST_F(JournalTest, AFileThatTakesNothingHoldsUpNobodyAndIsTold) {
  JournalWriter writer(file_, head, Clock::Instant());
  // A pipe that nobody reads stands for a disk that hangs.
  std::array<int, 2> ends{};
  ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
  const int journal = descriptorOf(file_);
  ASSERT_GE(dup2(ends[1], journal), 0);
  ::close(ends[1]);
  const int size = fcntl(journal, F_SETPIPE_SZ, 4096);
  for (int i = 0; i < size / 64; ++i) writer.write(angina());
  const auto looking = Timer::scheduled(20ms, true, [](Timer&) {});
  EXPECT_TRUE(RunLoop::main().runUntil([&] { return writer.trouble().has_value(); }, 30s));
  looking->invalidate();
  EXPECT_EQ(writer.trouble(), file_.string() + " takes nothing just now");

  std::string taken(static_cast<std::size_t>(size), '\0');
  const auto drain = std::async(std::launch::async, [&] {
    while (::read(ends[0], taken.data(), taken.size()) > 0) continue;
  });
  writer.flush();
  EXPECT_EQ(writer.trouble(), std::nullopt);
  // So that the pipe ends.
  const int nothing = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
  ASSERT_GE(dup2(nothing, journal), 0);
  ::close(nothing);
  drain.wait();
  ::close(ends[0]);
}

}  // namespace
}  // namespace tarsil
