// Watches over one host for one open line, and stops the belt when the host fails: killed, crashed, frozen,
// or gone without a word. Everything that can fail or needs memory, a file or a name was done by the host or
// happens before the watch begins. From then on this program allocates nothing, locks nothing and opens
// nothing, so that neither a machine out of memory nor a full disk keeps it from its one duty.
//
// It reads nothing from the line: what the device answers belongs to hosts. So it cannot see the belt stand,
// and sends its stop as long as its plan says.

// The kernel's header, because a speed goes by its number there; <termios.h> defines the same names in
// another way.
#include <asm/termbits.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

#include "tarsil/guard/watch/detail/WatchPage.hpp"

using namespace tarsil::detail;

namespace {

WatchPage* page = nullptr;
/// Copies of our own: a host that writes astray must not change what we send.
StopPlan plan;
WatchRecord record;
termios2 lineSettings;

pollfd ears[] = {{.fd = bell, .events = POLLIN, .revents = 0}, {.fd = mail, .events = POLLIN, .revents = 0}};
bool isHostGone = false;
bool isHandOverWanted = false;
sockaddr_un nextHost;
socklen_t nextHostLength = 0;

std::int64_t now(clockid_t clock) {
  timespec time{};
  clock_gettime(clock, &time);
  return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

/// The time of day of a moment in the past; 0 for one that cannot have been.
std::int64_t timeOfDay(std::int64_t moment) {
  const std::int64_t present = now(CLOCK_BOOTTIME);
  return moment < 0 || moment > present ? 0 : now(CLOCK_REALTIME) - (present - moment);
}

// ---- before the watch

bool sharePage() {
  void* memory = mmap(nullptr, sizeof(WatchPage), PROT_READ | PROT_WRITE, MAP_SHARED, sharedPage, 0);
  if (memory == MAP_FAILED) return false;
  page = static_cast<WatchPage*>(memory);
  if (page->layout != WatchPage::currentLayout) return false;
  plan = page->plan;
  record = page->record;
  return plan.stepCount <= StopPlan::capacity;
}

/// Leaves the host's terminal, process group and parenthood: what is sent to all of these does not reach us,
/// and the host has no child to wait for.
bool detach() {
  sigset_t all;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, nullptr);
  if (setsid() < 0 || chdir("/") < 0) return false;
  const pid_t child = fork();
  if (child > 0) _exit(0);
  return child == 0;
}

/// As far as the system lets us: never the victim when memory runs out, never swapped out.
void holdOnToMemory() {
  const int badness = open("/proc/self/oom_score_adj", O_WRONLY | O_CLOEXEC);
  if (badness >= 0) {
    [[maybe_unused]] const ssize_t lowered = write(badness, "-1000", 5);
    close(badness);
  }
  mlockall(MCL_CURRENT);
}

/// Always of the same length, so that a disk that fills up later has room for the last word.
bool writeRecord() {
  return pwrite(recordFile, &record, sizeof record, 0) == sizeof record;
}

// ---- hearing host and next host

void hearHost() {
  char bytes[16];
  const ssize_t count = recv(bell, bytes, sizeof bytes, MSG_DONTWAIT);
  if (count > 0 || (count < 0 && (errno == EAGAIN || errno == EINTR))) return;
  isHostGone = true;
  ears[0].fd = -1;
}

void answer(const sockaddr_un& address, socklen_t length) {
  sendto(mail, &record, sizeof record, MSG_DONTWAIT | MSG_NOSIGNAL,
         reinterpret_cast<const sockaddr*>(&address), length);
}

bool isFromFriend(msghdr& message) {
  const cmsghdr* part = CMSG_FIRSTHDR(&message);
  if (part == nullptr || part->cmsg_level != SOL_SOCKET || part->cmsg_type != SCM_CREDENTIALS) return false;
  ucred sender{};
  std::memcpy(&sender, CMSG_DATA(part), sizeof sender);
  return sender.uid == geteuid() || sender.uid == 0;
}

/// The next host asks what happened, or for the line. Only a belt that is in our hands can be handed over:
/// nobody talks us out of watching a host that lives. False when nobody asks.
bool hearNextHost() {
  char wish = 0;
  sockaddr_un address{};
  alignas(cmsghdr) char control[CMSG_SPACE(sizeof(ucred))];
  iovec part{.iov_base = &wish, .iov_len = 1};
  msghdr message{};
  message.msg_name = &address;
  message.msg_namelen = sizeof address;
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  message.msg_control = control;
  message.msg_controllen = sizeof control;
  if (recvmsg(mail, &message, MSG_DONTWAIT | MSG_CMSG_CLOEXEC) <= 0) return false;
  if (!isFromFriend(message)) return true;

  const bool isHandOver = wish == static_cast<char>(WatcherMail::handOver);
  if (!isHandOver || record.outcome != WatchOutcome::stopping) {
    answer(address, message.msg_namelen);
    return true;
  }
  isHandOverWanted = true;
  nextHost = address;
  nextHostLength = message.msg_namelen;
  return true;
}

/// Listens for up to this long; comes back sooner when something was heard.
void listen(std::int64_t nanoseconds) {
  const timespec patience{.tv_sec = nanoseconds / 1'000'000'000, .tv_nsec = nanoseconds % 1'000'000'000};
  if (ppoll(ears, 2, &patience, nullptr) <= 0) return;
  if (ears[0].revents != 0) hearHost();
  if (ears[1].revents != 0) hearNextHost();
}

// ---- the watch

/// How long the host has been silent. The beat is read first, then the time: a beat from the future was no
/// beat.
std::int64_t silence() {
  const std::int64_t lastBeat = page->lastBeat;
  const std::int64_t present = now(CLOCK_BOOTTIME);
  return lastBeat < 0 || lastBeat > present ? INT64_MAX : present - lastBeat;
}

/// Returns when the host has failed, gave the belt away, or ended the watch.
void watch() {
  while (page->belt == Belt::hosts && !isHostGone) {
    page->watcherBeat = now(CLOCK_BOOTTIME);
    const std::int64_t silent = silence();
    if (silent >= plan.heartbeat) return;
    listen(plan.heartbeat - silent);
  }
}

WatchCause cause() {
  if (isHostGone) return WatchCause::hostGone;
  return silence() >= plan.heartbeat ? WatchCause::hostSilent : WatchCause::hostAsked;
}

/// False when the host ended the watch: then nothing is sent, however it ends itself afterwards. Decided in
/// one step, so that a host that was merely late knows by its next beat who has the belt.
bool takeOver() {
  Belt was = Belt::hosts;
  while (was != Belt::disarmed && !page->belt.compare_exchange_weak(was, Belt::watchers)) {
  }
  return was != Belt::disarmed;
}

// ---- the stop

/// A host that ends in order puts the line's old speed back, and lets others in: they stay out until we have
/// done.
void putLineSettingsBack() {
  termios2 present{};
  if (ioctl(watchedLine, TCGETS2, &present) == 0 &&
      std::memcmp(&present, &lineSettings, sizeof present) != 0) {
    ioctl(watchedLine, TCSETS2, &lineSettings);
  }
  ioctl(watchedLine, TIOCEXCL);
  flock(watchedLine, LOCK_EX | LOCK_NB);
}

bool writeWhole(const StopStep& step) {
  const ssize_t written = write(watchedLine, step.bytes, step.length);
  if (written >= 0 && written < step.length) errno = EAGAIN;
  return written == step.length;
}

/// Output that stands still would keep the stop behind it for ever: it is given up, and a hold that the
/// device or the host put on the line is lifted.
void setOutputFree() {
  ioctl(watchedLine, TCFLSH, TCOFLUSH);
  ioctl(watchedLine, TCXONC, TCOON);
}

void send(const StopStep& step) {
  putLineSettingsBack();
  bool isWritten = writeWhole(step);
  if (!isWritten && errno == EAGAIN) {
    setOutputFree();
    isWritten = writeWhole(step);
  }
  if (!isWritten) {
    record.lastError = errno;
    ++record.stopsFailed;
    return;
  }
  record.lastStopAt = now(CLOCK_REALTIME);
  if (record.stopsSent++ == 0) record.firstStopAt = record.lastStopAt;
}

/// False when somebody else wants the belt: the next host, or ours that came back.
bool pause(std::int64_t length) {
  const std::int64_t end = now(CLOCK_BOOTTIME) + length;
  for (std::int64_t present; (present = now(CLOCK_BOOTTIME)) < end;) {
    page->watcherBeat = present;
    if (isHandOverWanted || page->isDismissed != 0) return false;
    listen(end - present);
  }
  return true;
}

bool repeat(const StopStep& step) {
  for (std::uint32_t count = 0; count < step.times; ++count) {
    send(step);
    if (!pause(step.every)) return false;
  }
  return true;
}

bool sendWholePlan() {
  for (std::uint32_t index = 0; index < plan.stepCount; ++index) {
    if (!repeat(plan.steps[index])) return false;
  }
  return true;
}

void stopTheBelt() {
  record.outcome = WatchOutcome::stopping;
  record.tookOverAt = now(CLOCK_REALTIME);
  record.lastBeatAt = timeOfDay(page->lastBeat);

  // A write that waits would wait for ever on a line that holds its flow. The flags belong to the host as
  // well, which gets them back in case it lives.
  const int flags = fcntl(watchedLine, F_GETFL);
  fcntl(watchedLine, F_SETFL, flags | O_NONBLOCK);
  record.outcome = sendWholePlan() ? WatchOutcome::stopSent : WatchOutcome::handedOver;
  fcntl(watchedLine, F_SETFL, flags);
}

/// First the line: whoever hears of the end may open it.
void leave() {
  close(watchedLine);
  record.endedAt = now(CLOCK_REALTIME);
  writeRecord();
  Belt was = Belt::watchers;
  page->belt.compare_exchange_strong(was, Belt::nobodys);
  if (isHandOverWanted) answer(nextHost, nextHostLength);
  // From now on the record answers; those who asked before are not left waiting.
  shutdown(mail, SHUT_RD);
  while (hearNextHost()) {
  }
}

}  // namespace

int main() {
  syscall(SYS_close_range, firstUnused, ~0U, 0);
  if (!sharePage()) return cannotShare;
  if (ioctl(watchedLine, TCGETS2, &lineSettings) != 0) return isNoTerminal;
  if (!writeRecord()) return cannotRecord;
  if (!detach()) return cannotDetach;
  holdOnToMemory();
  page->watcherBeat = now(CLOCK_BOOTTIME);
  // The host waits for this byte; from here on nothing may fail.
  ::send(bell, "", 1, MSG_DONTWAIT | MSG_NOSIGNAL);

  watch();
  record.cause = cause();
  if (takeOver()) {
    stopTheBelt();
  } else {
    record.outcome = WatchOutcome::disarmed;
    record.cause = WatchCause::none;
  }
  leave();
}
