#include "tarsil/guard/watch/Watcher.hpp"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <limits>
#include <string>
#include <thread>

#include "tarsil/guard/watch/detail/WatchPage.hpp"
#include "tarsil/guard/watch/detail/watchNames.hpp"
#include "tarsil/guard/watch/detail/watcherProgram.hpp"
#include "tarsil/guard/watch/lastWatch.hpp"
#include "tarsil/support/FileDescriptor.hpp"
#include "tests/guard-watch/WatchedLine.hpp"

namespace tarsil {
namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::IsEmpty;
using Outcome = WatchReport::Outcome;
using State = Watcher::State;

const Bytes oneStop{0x02, 0x20, 0x02};
// Long enough that no busy machine makes this host late.
constexpr Duration patient = 1min;
constexpr Duration shortest = 50ms;

/// True when it came true, within a time that only a fault needs.
bool eventually(const std::function<bool()>& isTrue) {
  const auto end = std::chrono::steady_clock::now() + 20s;
  while (!isTrue()) {
    if (std::chrono::steady_clock::now() > end) return false;
    poll(nullptr, 0, 5);
  }
  return true;
}

class WatcherTest : public testing::Test {
 protected:
  WatcherTest() {
    // A watcher has left its parent; this gives it back to us, so that we can find it.
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    std::string folder = std::filesystem::temp_directory_path() / "watcher-test-XXXXXX";
    records = mkdtemp(folder.data());
  }
  ~WatcherTest() override {
    watcher.reset();
    line = FileDescriptor();
    treadmill.readToTheEnd();
    while (wait(nullptr) > 0) {
    }
    prctl(PR_SET_CHILD_SUBREAPER, 0);
    std::filesystem::remove_all(records);
  }

  Watcher::Plan plan(Duration heartbeat = patient) const {
    return {.line = name,
            .stop = {{.bytes = oneStop, .every = 10ms, .times = 3}},
            .heartbeat = heartbeat,
            .records = records};
  }
  /// A stop that goes on until somebody ends it.
  Watcher::Plan endless() const {
    auto endless = plan();
    endless.stop[0].times = 10'000;
    return endless;
  }
  Answer start(const Watcher::Plan& withPlan) {
    auto [answer, started] = Watcher::start(line.get(), withPlan);
    watcher = std::move(started);
    return answer;
  }
  void letGoOfTheLine() { line = FileDescriptor(); }
  static pid_t process() {
    std::ifstream children("/proc/self/task/" + std::to_string(getpid()) + "/children");
    pid_t child = -1;
    children >> child;
    return child;
  }
  /// Never anybody else: to kill(), -1 means everybody.
  static void signalWatcher(int number) {
    const pid_t watching = process();
    ASSERT_GT(watching, 1);
    kill(watching, number);
  }

  std::string records;
  const std::string name = "/dev/serial/by-id/usb-adapter " + std::to_string(getpid());
  WatchedLine treadmill;
  FileDescriptor line{openLine(treadmill.path(), B4800)};
  std::unique_ptr<Watcher> watcher;
};

TEST_F(WatcherTest, SendsNothingAndLetsGoOfTheLineAfterAnOrderlyEnd) {
  ASSERT_TRUE(start(plan()).isAccepted());
  EXPECT_EQ(watcher->alive(), State::watching);
  EXPECT_EQ(watcher->disarm(), State::disarmed);
  letGoOfTheLine();
  EXPECT_THAT(treadmill.readToTheEnd(), IsEmpty());
  EXPECT_TRUE(treadmill.isLetGo());
}

TEST_F(WatcherTest, StaysDisarmedWhateverTheHostDoesThen) {
  ASSERT_TRUE(start(plan()).isAccepted());
  watcher->disarm();
  EXPECT_EQ(watcher->alive(), State::disarmed);
  EXPECT_EQ(watcher->stopNow(), State::disarmed);
  EXPECT_EQ(watcher->disarm(), State::disarmed);
  watcher.reset();
  letGoOfTheLine();
  EXPECT_THAT(treadmill.readToTheEnd(), IsEmpty());
}

TEST_F(WatcherTest, StopsWhenNoHeartbeatComes) {
  ASSERT_TRUE(start(plan(shortest)).isAccepted());
  EXPECT_EQ(treadmill.read(9), (Bytes{2, 0x20, 2, 2, 0x20, 2, 2, 0x20, 2}));
  EXPECT_EQ(watcher->alive(), State::tookOver);
}

TEST_F(WatcherTest, SendsThePartsOfAStopInTheirOrderAndThenLetsGo) {
  auto ramp = plan();
  ramp.stop = {{.bytes = {0xA3, 0x30, 0xA4}, .every = 10ms, .times = 2},
               {.bytes = {0xA2}, .every = 10ms, .times = 3}};
  ASSERT_TRUE(start(ramp).isAccepted());
  watcher.reset();
  letGoOfTheLine();
  EXPECT_EQ(treadmill.readToTheEnd(), (Bytes{0xA3, 0x30, 0xA4, 0xA3, 0x30, 0xA4, 0xA2, 0xA2, 0xA2}));
  EXPECT_TRUE(treadmill.isLetGo());
}

TEST_F(WatcherTest, AHeartbeatAfterTheTakeOverChangesNothing) {
  ASSERT_TRUE(start(plan(shortest)).isAccepted());
  ASSERT_TRUE(eventually([&] { return watcher->state() == State::tookOver; }));
  EXPECT_EQ(watcher->alive(), State::tookOver);
  EXPECT_EQ(treadmill.read(9).size(), 9U);
  EXPECT_EQ(watcher->alive(), State::tookOver);
  EXPECT_EQ(watcher->disarm(), State::tookOver);
}

TEST_F(WatcherTest, ALateHeartbeatIsNoneEvenBeforeTheWatcherKnows) {
  ASSERT_TRUE(start(plan(shortest)).isAccepted());
  signalWatcher(SIGSTOP);
  poll(nullptr, 0, 60);  // more than a heartbeat of the watcher's own, real time
  EXPECT_EQ(watcher->alive(), State::tookOver);
  signalWatcher(SIGCONT);
  EXPECT_EQ(treadmill.read(9).size(), 9U);
  ASSERT_TRUE(eventually([&] { return lastWatch(name, records)->outcome == Outcome::stopSent; }));
  EXPECT_EQ(lastWatch(name, records)->cause, WatchReport::Cause::hostSilent);
}

TEST_F(WatcherTest, TheHostThatCameBackHasTheBeltAgainAfterDisarm) {
  ASSERT_TRUE(start(endless()).isAccepted());
  watcher->stopNow();
  treadmill.read(3);
  EXPECT_EQ(watcher->disarm(), State::tookOver);
  EXPECT_EQ(lastWatch(name, records)->outcome, Outcome::handedOver);
  treadmill.read();
  ASSERT_EQ(write(line.get(), "!", 1), 1);
  letGoOfTheLine();
  EXPECT_EQ(treadmill.readToTheEnd(), Bytes{'!'});
}

TEST_F(WatcherTest, StopsAtOnceWhenTheHostAsksForIt) {
  ASSERT_TRUE(start(plan()).isAccepted());
  EXPECT_EQ(watcher->stopNow(), State::tookOver);
  EXPECT_EQ(treadmill.read(9).size(), 9U);
  ASSERT_TRUE(eventually([&] { return lastWatch(name, records)->outcome == Outcome::stopSent; }));
  EXPECT_EQ(lastWatch(name, records)->cause, WatchReport::Cause::hostAsked);
}

TEST_F(WatcherTest, StopsAtOnceWhenTheHostDropsIt) {
  ASSERT_TRUE(start(plan()).isAccepted());
  watcher.reset();
  EXPECT_EQ(treadmill.read(9).size(), 9U);
}

TEST_F(WatcherTest, SendsAtTheSpeedThatWasInForceWhenItBegan) {
  ASSERT_TRUE(start(endless()).isAccepted());
  setSpeed(line.get(), B115200);
  watcher.reset();
  treadmill.read(3);
  EXPECT_EQ(treadmill.speed(), speed_t{B4800});
  setSpeed(line.get(), B115200);
  treadmill.read();
  treadmill.read(6);
  EXPECT_EQ(treadmill.speed(), speed_t{B4800});
  takeLineFromWatcher(name, records);
}

TEST_F(WatcherTest, DiscardsOutputThatStandsStill) {
  ASSERT_TRUE(start(plan()).isAccepted());
  fcntl(line.get(), F_SETFL, O_NONBLOCK);
  const Bytes load(4096, 'x');
  // The kernel makes room a few times, while it moves bytes on.
  pollfd room{.fd = line.get(), .events = POLLOUT, .revents = 0};
  while (poll(&room, 1, 100) == 1) {
    if (write(line.get(), load.data(), load.size()) < 0) continue;
  }
  fcntl(line.get(), F_SETFL, 0);
  watcher->stopNow();
  ASSERT_TRUE(eventually([&] { return lastWatch(name, records)->outcome == Outcome::stopSent; }));
  EXPECT_EQ(lastWatch(name, records)->stopsSent, 3U);
  letGoOfTheLine();
  const Bytes all = treadmill.readToTheEnd();
  ASSERT_GE(all.size(), 9U);
  EXPECT_EQ(Bytes(all.end() - 9, all.end()), (Bytes{2, 0x20, 2, 2, 0x20, 2, 2, 0x20, 2}));
}

TEST_F(WatcherTest, SendsAlsoWhereTheLineWasOnHold) {
  ASSERT_TRUE(start(plan()).isAccepted());
  tcflow(line.get(), TCOOFF);
  watcher.reset();
  EXPECT_EQ(treadmill.read(9), (Bytes{2, 0x20, 2, 2, 0x20, 2, 2, 0x20, 2}));
}

TEST_F(WatcherTest, LeavesTheLinesFlagsAsTheyWere) {
  ASSERT_TRUE(start(plan()).isAccepted());
  watcher->stopNow();
  ASSERT_TRUE(eventually([&] { return lastWatch(name, records)->outcome == Outcome::stopSent; }));
  EXPECT_EQ(fcntl(line.get(), F_GETFL) & O_NONBLOCK, 0);
}

TEST_F(WatcherTest, GoesOnTryingOnALineThatFails) {
  auto gone = std::make_unique<WatchedLine>();
  line = FileDescriptor(openLine(gone->path(), B4800));
  ASSERT_TRUE(start(plan()).isAccepted());
  gone.reset();
  watcher->stopNow();
  ASSERT_TRUE(eventually([&] { return lastWatch(name, records)->outcome == Outcome::stopSent; }));
  const auto report = lastWatch(name, records);
  EXPECT_EQ(report->stopsSent, 0U);
  EXPECT_EQ(report->stopsFailed, 3U);
  EXPECT_EQ(report->lastError, EIO);
  EXPECT_EQ(report->firstStopAt, std::nullopt);
}

TEST(WatchReportTest, TellsPeopleWhatWasDone) {
  const std::string watcher = "the watcher process of an earlier host ";
  const auto told = [](std::uint32_t sent, std::uint32_t failed) {
    WatchReport report;
    report.outcome = Outcome::stopSent;
    report.stopsSent = sent;
    report.stopsFailed = failed;
    report.lastError = failed > 0 ? EIO : 0;
    return textOf(report);
  };
  EXPECT_EQ(textOf({}), "an earlier host and its watcher process ended without a word");
  EXPECT_EQ(told(0, 0), watcher + "has not sent the stop");
  EXPECT_EQ(told(1, 0), watcher + "has sent the stop once");
  EXPECT_EQ(told(60, 0), watcher + "has sent the stop 60 times");
  EXPECT_EQ(told(0, 60), watcher + "could not send the stop (Input/output error)");
  EXPECT_EQ(told(2, 1), watcher + "has sent the stop 2 times and failed once (Input/output error)");
}

TEST_F(WatcherTest, AWatcherThatWasKilledIsLost) {
  ASSERT_TRUE(start(plan()).isAccepted());
  signalWatcher(SIGKILL);
  EXPECT_TRUE(eventually([&] { return watcher->alive() == State::lost; }));
  EXPECT_EQ(lastWatch(name, records)->outcome, Outcome::unknown);
  letGoOfTheLine();
  EXPECT_THAT(treadmill.readToTheEnd(), IsEmpty());
}

TEST_F(WatcherTest, AWatcherThatDoesNotRunIsLost) {
  // Long enough that it is stopped before it takes the belt from this host, which says nothing.
  ASSERT_TRUE(start(plan(2s)).isAccepted());
  signalWatcher(SIGSTOP);
  EXPECT_TRUE(eventually([&] { return watcher->state() == State::lost; }));
  signalWatcher(SIGKILL);
}

TEST_F(WatcherTest, AWatcherThatRunsIsNotLost) {
  constexpr Duration heartbeat = 1s;
  ASSERT_TRUE(start(plan(heartbeat)).isAccepted());
  // Longer than a watcher is given that says nothing.
  const auto end = std::chrono::steady_clock::now() + 2 * heartbeat + 500ms;
  while (std::chrono::steady_clock::now() < end) {
    ASSERT_NE(watcher->alive(), State::lost);
    poll(nullptr, 0, 20);
  }
}

TEST_F(WatcherTest, NoSignalEndsIt) {
  ASSERT_TRUE(start(plan()).isAccepted());
  for (int number = 1; number <= SIGRTMAX; ++number) {
    const bool isUnstoppable = number == SIGKILL || number == SIGSTOP;
    if (!isUnstoppable) signalWatcher(number);
  }
  EXPECT_EQ(watcher->alive(), State::watching);
  EXPECT_EQ(watcher->disarm(), State::disarmed);
}

TEST_F(WatcherTest, LeavesTheHostsSessionFolderAndChildren) {
  prctl(PR_SET_CHILD_SUBREAPER, 0);
  ASSERT_TRUE(start(plan()).isAccepted());
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "the host has no child to wait for";
  watcher->disarm();
  prctl(PR_SET_CHILD_SUBREAPER, 1);

  ASSERT_TRUE(start(plan()).isAccepted());
  EXPECT_NE(getsid(process()), getsid(0));
  EXPECT_NE(getsid(process()), process()) << "a session's leader could get a terminal that signals it";
  EXPECT_EQ(std::filesystem::read_symlink("/proc/" + std::to_string(process()) + "/cwd"), "/");
}

TEST_F(WatcherTest, InheritsNothingButItsOwn) {
  const FileDescriptor other(open("/dev/zero", O_RDONLY | O_CLOEXEC));
  // Far from the numbers that the watcher gives to its own.
  const FileDescriptor inheritable(fcntl(other.get(), F_DUPFD, 100));
  ASSERT_TRUE(start(plan()).isAccepted());
  std::vector<std::string> open;
  for (const auto& entry :
       std::filesystem::directory_iterator("/proc/" + std::to_string(process()) + "/fd")) {
    open.push_back(std::filesystem::read_symlink(entry.path()).string());
  }
  EXPECT_THAT(open, testing::UnorderedElementsAre("/dev/null", "/dev/null", "/dev/null", treadmill.path(),
                                                  HasSubstr("memfd"), HasSubstr("socket"),
                                                  HasSubstr("socket"), HasSubstr(records)));
}

TEST_F(WatcherTest, TellsTheNextHostWhatItDid) {
  EXPECT_EQ(lastWatch(name, records), std::nullopt);
  const auto before = std::chrono::system_clock::now();
  ASSERT_TRUE(start(plan()).isAccepted());
  EXPECT_EQ(lastWatch(name, records)->outcome, Outcome::watching);
  EXPECT_EQ(lastWatch("another line", records), std::nullopt);
  watcher.reset();
  ASSERT_TRUE(eventually([&] { return lastWatch(name, records)->outcome == Outcome::stopSent; }));

  const auto report = *lastWatch(name, records);
  EXPECT_EQ(report.cause, WatchReport::Cause::hostGone);
  EXPECT_EQ(report.host, getpid());
  EXPECT_EQ(report.stopsSent, 3U);
  EXPECT_EQ(report.stopsFailed, 0U);
  EXPECT_LE(before, report.startedAt);
  EXPECT_LE(report.startedAt, *report.lastBeatAt);
  EXPECT_LE(*report.lastBeatAt, *report.firstStopAt);
  EXPECT_LT(*report.firstStopAt, *report.lastStopAt);
  EXPECT_LT(*report.lastStopAt, *report.endedAt);
}

TEST_F(WatcherTest, TheRecordOfTheLastWatchStaysUntilTheNextOneBegins) {
  ASSERT_TRUE(start(plan()).isAccepted());
  watcher.reset();
  ASSERT_TRUE(eventually([&] { return lastWatch(name, records)->outcome == Outcome::stopSent; }));
  auto impossible = plan();
  impossible.program = "/bin/false";
  EXPECT_FALSE(start(impossible).isAccepted());
  EXPECT_EQ(lastWatch(name, records)->outcome, Outcome::stopSent);
  ASSERT_TRUE(start(plan()).isAccepted());
  watcher->disarm();
  EXPECT_EQ(lastWatch(name, records)->outcome, Outcome::disarmed);
}

TEST_F(WatcherTest, KeepsTheLineOfADeadHostLockedAndHandsItOver) {
  ASSERT_TRUE(start(endless()).isAccepted());
  watcher.reset();
  letGoOfTheLine();
  treadmill.read(3);
  EXPECT_EQ(openLine(treadmill.path(), B4800), -1);

  // Where there is no record, it is the watcher that answers.
  const auto report = takeLineFromWatcher(name, records + "/none");
  ASSERT_TRUE(report);
  EXPECT_EQ(report->outcome, Outcome::handedOver);
  EXPECT_GE(report->stopsSent, 1U);
  line = FileDescriptor(openLine(treadmill.path(), B4800));
  EXPECT_GE(line.get(), 0);
  // Asked again, the record answers for it.
  EXPECT_EQ(takeLineFromWatcher(name, records), report);
  ASSERT_TRUE(start(plan()).isAccepted());
}

TEST_F(WatcherTest, SleepsBetweenTheStopsOfADeadHost) {
  auto slow = plan();
  slow.stop[0].every = 1min;
  ASSERT_TRUE(start(slow).isAccepted());
  watcher.reset();
  treadmill.read(3);
  EXPECT_TRUE(eventually([] {
    std::ifstream stat("/proc/" + std::to_string(process()) + "/stat");
    stat.ignore(std::numeric_limits<std::streamsize>::max(), ')');
    char state = 0;
    stat >> state;
    return state == 'S';
  }));
  signalWatcher(SIGKILL);
}

TEST_F(WatcherTest, WhatIsForgottenIsNotToldAgain) {
  forgetWatch(name, records);
  EXPECT_EQ(lastWatch(name, records), std::nullopt);
  ASSERT_TRUE(start(endless()).isAccepted());
  watcher.reset();
  treadmill.read(3);
  takeLineFromWatcher(name, records);
  // The watcher still answers for itself until its process has ended.
  EXPECT_TRUE(eventually([&] {
    forgetWatch(name, records);
    return !lastWatch(name, records);
  }));
}

TEST_F(WatcherTest, NobodyTakesTheLineOfALivingHost) {
  ASSERT_TRUE(start(plan()).isAccepted());
  EXPECT_EQ(takeLineFromWatcher(name, records)->outcome, Outcome::watching);
  EXPECT_EQ(watcher->alive(), State::watching);
}

TEST_F(WatcherTest, AnswersNobodyButItsUserAndRoot) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can be somebody else";
  ASSERT_TRUE(start(endless()).isAccepted());
  watcher->stopNow();
  treadmill.read(3);
  const pid_t stranger = fork();
  if (stranger == 0) _exit(setuid(65534) == 0 && !takeLineFromWatcher(name, records) ? 0 : 1);
  int status = 0;
  waitpid(stranger, &status, 0);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(lastWatch(name, records)->outcome, Outcome::stopping);
  watcher->disarm();
}

TEST_F(WatcherTest, OneLineHasOneWatcher) {
  ASSERT_TRUE(start(plan()).isAccepted());
  const auto [answer, second] = Watcher::start(line.get(), plan());
  EXPECT_EQ(answer.code(), Answer::Code::noWatcher);
  EXPECT_EQ(answer.reason(), "another watcher still watches over " + name);
  EXPECT_EQ(second, nullptr);
  EXPECT_EQ(watcher->alive(), State::watching);
}

TEST_F(WatcherTest, HeartbeatsOfSeveralThreadsCount) {
  ASSERT_TRUE(start(plan()).isAccepted());
  std::thread other([&] {
    for (int beat = 0; beat < 1000; ++beat) EXPECT_EQ(watcher->alive(), State::watching);
  });
  for (int beat = 0; beat < 1000; ++beat) EXPECT_EQ(watcher->alive(), State::watching);
  other.join();
  EXPECT_EQ(watcher->disarm(), State::disarmed);
}

TEST_F(WatcherTest, AnAnswerOfAnotherLayoutIsNone) {
  const FileDescriptor mail(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  const detail::MailAddress address(name);
  ASSERT_EQ(bind(mail.get(), address.get(), address.length()), 0);
  const auto answerWith = [&](const detail::WatchRecord& record) {
    std::thread otherVersion([&] {
      char wish = 0;
      sockaddr_un asker{};
      socklen_t length = sizeof asker;
      recvfrom(mail.get(), &wish, 1, 0, reinterpret_cast<sockaddr*>(&asker), &length);
      sendto(mail.get(), &record, sizeof record, 0, reinterpret_cast<const sockaddr*>(&asker), length);
    });
    auto heard = lastWatch(name, records);
    otherVersion.join();
    return heard;
  };
  detail::WatchRecord record;
  EXPECT_TRUE(answerWith(record));
  ++record.layout;
  EXPECT_FALSE(answerWith(record));
}

TEST(WatcherProgramTest, BelongsToRootOrToTheOwnerOfTheHost) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can give a file away";
  namespace files = std::filesystem;
  std::string folder = files::temp_directory_path() / "watcher-program-XXXXXX";
  ASSERT_NE(mkdtemp(folder.data()), nullptr);
  const std::string host = folder + "/host";
  const std::string program = folder + "/libexec/tarsil/tarsil-watcher";
  files::create_directories(folder + "/libexec/tarsil");
  files::copy_file(FINDING_HOST, host);
  files::copy_file(detail::watcherProgram(), program);
  const auto findsIt = [&](uid_t hostOwner, uid_t programOwner) {
    EXPECT_EQ(chown(host.c_str(), hostOwner, 0) | chown(program.c_str(), programOwner, 0), 0);
    return std::system((host + " " + program).c_str()) == 0;
  };
  constexpr uid_t user = 65534;
  EXPECT_TRUE(findsIt(0, 0));
  EXPECT_TRUE(findsIt(user, 0));
  EXPECT_TRUE(findsIt(user, user));
  EXPECT_FALSE(findsIt(0, user));
  EXPECT_FALSE(findsIt(user, user - 1));
  files::remove_all(folder);
}

class WatcherPlanTest : public WatcherTest {
 protected:
  void expectRefused(const Watcher::Plan& bad, const std::string& reason) {
    const Answer answer = start(bad);
    EXPECT_EQ(answer.code(), Answer::Code::noWatcher);
    EXPECT_THAT(answer.reason(), HasSubstr(reason));
    EXPECT_EQ(watcher, nullptr);
  }
};

TEST_F(WatcherPlanTest, RefusesWhatItCannotHold) {
  auto bad = plan();
  bad.line = "";
  expectRefused(bad, "the line of the watcher has no name");
  bad = plan();
  bad.stop.clear();
  expectRefused(bad, "a stop has 1 to 8 parts");
  bad.stop.assign(9, {.bytes = oneStop});
  expectRefused(bad, "a stop has 1 to 8 parts");
  for (const Duration heartbeat : {0ns, Duration(49ms), Duration(61s), Duration(-1s)}) {
    expectRefused(plan(heartbeat), "the heartbeat of a watcher is 50 ms to a minute");
  }
}

TEST_F(WatcherPlanTest, RefusesPartsThatItCannotHold) {
  auto bad = plan();
  bad.stop[0].bytes.clear();
  expectRefused(bad, "a part of the stop has 1 to 112 bytes");
  bad.stop[0].bytes.assign(113, 0);
  expectRefused(bad, "a part of the stop has 1 to 112 bytes");
  bad = plan();
  bad.stop[0].every = 9ms;
  expectRefused(bad, "the pauses of a stop last 10 ms to a minute");
  bad = plan();
  bad.stop[0].times = 0;
  expectRefused(bad, "a part of the stop is sent 1 to 10000 times");
}

TEST_F(WatcherPlanTest, HoldsTheLargestStop) {
  auto large = plan();
  large.stop.assign(8, {.bytes = Bytes(112, 0x55), .every = 10ms, .times = 1});
  ASSERT_TRUE(start(large).isAccepted());
  watcher.reset();
  EXPECT_EQ(treadmill.read(8 * 112), Bytes(8 * 112, 0x55));
}

TEST_F(WatcherPlanTest, SaysWhyItCannotBegin) {
  auto bad = plan();
  bad.program = records + "/no-such-program";
  expectRefused(bad, "no-such-program: No such file or directory");
  bad.program = "/bin/false";
  expectRefused(bad, "the watcher did not begin");
  bad = plan();
  bad.records = "/proc/nobody";
  expectRefused(bad, "no record of the watcher in /proc/nobody: ");
  line = FileDescriptor(open("/dev/null", O_RDWR));
  expectRefused(plan(), "the line to watch over is no terminal");
  line = FileDescriptor();
  expectRefused(plan(), "no descriptor for the watcher: Bad file descriptor");
}

TEST_F(WatcherPlanTest, BeginsAlsoInAHostThatIgnoresItsChildren) {
  const auto before = signal(SIGCHLD, SIG_IGN);
  const Answer answer = start(plan());
  signal(SIGCHLD, before);
  EXPECT_TRUE(answer.isAccepted()) << answer.reason();
}

TEST_F(WatcherPlanTest, BeginsAlsoInAHostThatSignalsInterrupt) {
  struct sigaction interrupting {};
  interrupting.sa_handler = [](int) {};
  struct sigaction before {};
  sigaction(SIGALRM, &interrupting, &before);
  const itimerval often{.it_interval = {.tv_sec = 0, .tv_usec = 500},
                        .it_value = {.tv_sec = 0, .tv_usec = 500}};
  setitimer(ITIMER_REAL, &often, nullptr);
  const Answer answer = start(plan());
  const itimerval never{};
  setitimer(ITIMER_REAL, &never, nullptr);
  sigaction(SIGALRM, &before, nullptr);
  EXPECT_TRUE(answer.isAccepted()) << answer.reason();
}

}  // namespace
}  // namespace tarsil
