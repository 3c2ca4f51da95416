#include "tests/faults/FailingCalls.hpp"

#include <asm/termbits.h>
#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <spawn.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/timerfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>

namespace tarsil {
namespace {

using Errors = std::vector<int>;
const Errors noDescriptor{EMFILE, ENFILE, ENOMEM};

// What the system's manual says of each call, and what drivers answer besides.
const std::map<std::string, Errors>& plausible() {
  static const auto& errors = *new std::map<std::string, Errors>{
      {"access", {ENOENT, EACCES}},
      {"bind", {EADDRINUSE, EACCES}},
      {"close", {EINTR, EIO}},
      {"connect", {ECONNREFUSED, EINTR, EAGAIN}},
      {"epoll_create1", noDescriptor},
      {"epoll_ctl ADD", {ENOMEM, ENOSPC}},
      {"epoll_ctl MOD", {ENOMEM}},
      {"epoll_ctl DEL", {ENOENT}},
      {"epoll_wait", {EINTR}},
      {"eventfd", noDescriptor},
      {"eventfd_read", {EAGAIN}},
      {"eventfd_write", {EAGAIN}},
      {"fclose", {ENOSPC, EIO}},
      {"fcntl DUPFD", {EMFILE, EINTR}},
      {"fcntl SETFD", {EBADF}},
      {"fcntl SETFL", {EINTR, EIO}},
      {"fcntl ADD_SEALS", {EPERM}},
      {"fflush", {ENOSPC, EIO}},
      {"flock LOCK", {EWOULDBLOCK, EINTR, ENOLCK}},
      {"flock UNLOCK", {EINTR, EIO}},
      {"fopen", {EACCES, EMFILE, ENOSPC}},
      {"ftruncate", {EIO, EINTR}},
      {"fwrite", {ENOSPC, EIO}},
      {"getentropy", {EIO, ENOSYS}},
      {"getgrgid_r", {EIO, ERANGE}},
      {"ioctl TCGETS2", {EINTR, EIO, ENOTTY}},
      {"ioctl TCSETS2", {EINTR, EIO, EINVAL}},
      {"ioctl TCSETSW2", {EINTR, EIO, EINVAL}},
      {"ioctl TIOCMGET", {EINTR, EIO, ENODEV, EINVAL, ENOMEM}},
      {"ioctl TIOCMSET", {EINTR, EIO, EINVAL}},
      {"ioctl TIOCEXCL", {EINTR, EIO}},
      {"ioctl TIOCNXCL", {EINTR, EIO}},
      {"ioctl TIOCGEXCL", {EINTR, ENOTTY}},
      {"ioctl TIOCOUTQ", {EINTR, EIO}},
      {"ioctl TCFLSH", {EINTR, EIO}},
      {"ioctl FIONREAD", {EINTR, EIO, ENOTTY}},
      {"memfd_create", noDescriptor},
      {"memory", {ENOMEM}},
      {"mmap", {ENOMEM}},
      {"open", {EINTR, EACCES, EBUSY, ENOENT, ENXIO, EIO, EMFILE, ENFILE, ENOMEM, ENOSPC}},
      {"pipe", {EMFILE, ENFILE}},
      {"poll", {EINTR}},
      {"posix_spawn", {ENOENT, EACCES, ENOMEM, EAGAIN}},
      {"ppoll", {EINTR, ENOMEM}},
      {"read", {EINTR, EIO, EAGAIN, Fault::fewer}},
      {"recv", {EINTR, ECONNRESET}},
      {"send", {EPIPE, EAGAIN}},
      {"setsockopt", {ENOMEM}},
      {"socket", noDescriptor},
      {"socketpair", noDescriptor},
      {"stat", {ENOENT, EACCES}},
      {"thread", {EAGAIN}},
      {"timerfd_create", noDescriptor},
      {"timerfd_settime", {EINVAL}},
      {"unlink", {EACCES}},
      {"waitpid", {EINTR, ECHILD}},
      {"write", {EINTR, EIO, EAGAIN, ENOSPC, Fault::fewer}},
  };
  return errors;
}

/// What is counted and failed. Its own allocations are not.
struct Record {
  std::mutex mutex;
  bool isCounting = false;
  std::optional<Fault> fault;
  bool hasFailed = false;
  std::map<std::string, std::size_t> counts;
  std::vector<std::string> made;
};

Record& record() {
  static Record& record = *new Record;
  return record;
}

// For allocations, which come too often for a name and a lock.
std::atomic<std::size_t> allocations = 0;
constexpr auto never = static_cast<std::size_t>(-1);
std::atomic<std::size_t> failingAllocation = never;

/// 0: the call is to be made. Else how it fails.
int faultOf(const std::string& call) {
  Record& now = record();
  const std::lock_guard lock(now.mutex);
  if (!now.isCounting) return 0;
  const std::size_t number = now.counts[call]++;
  now.made.push_back(call);
  if (!now.fault) return 0;
  const Fault& fault = *now.fault;
  const bool isMeant = fault.call == call && fault.number == number;
  const auto errors = plausible().find(call);
  const bool alsoFails = fault.forGood && now.hasFailed && errors != plausible().end() &&
                         std::count(errors->second.begin(), errors->second.end(), fault.error) > 0;
  if (!isMeant && !alsoFails) return 0;
  now.hasFailed = true;
  return fault.error;
}

/// Makes the call unless it is to fail; `failed` is what it answers then.
template <class Answer, class Call>
Answer passed(const std::string& name, Answer failed, const Call& call) {
  const int error = faultOf(name);
  if (error == 0) return call();
  errno = error;
  return failed;
}

/// A transfer that may be cut short.
template <class Call>
ssize_t transferred(const char* name, std::size_t size, const Call& call) {
  const int error = faultOf(name);
  if (error == 0) return call(size);
  if (error == Fault::fewer) return call(std::min<std::size_t>(size, 1));
  errno = error;
  return -1;
}

std::string ioctlName(unsigned long request) {
  static const auto& names = *new std::map<unsigned long, const char*>{
      {TCGETS2, "ioctl TCGETS2"},   {TCSETS2, "ioctl TCSETS2"},     {TCSETSW2, "ioctl TCSETSW2"},
      {TIOCMGET, "ioctl TIOCMGET"}, {TIOCMSET, "ioctl TIOCMSET"},   {TIOCEXCL, "ioctl TIOCEXCL"},
      {TIOCNXCL, "ioctl TIOCNXCL"}, {TIOCGEXCL, "ioctl TIOCGEXCL"}, {TIOCOUTQ, "ioctl TIOCOUTQ"},
      {TCFLSH, "ioctl TCFLSH"},     {FIONREAD, "ioctl FIONREAD"},
  };
  const auto name = names.find(request);
  return name == names.end() ? "ioctl" : name->second;
}

std::string fcntlName(int command) {
  switch (command) {
    case F_DUPFD_CLOEXEC:
      return "fcntl DUPFD";
    case F_SETFD:
      return "fcntl SETFD";
    case F_SETFL:
      return "fcntl SETFL";
    case F_ADD_SEALS:
      return "fcntl ADD_SEALS";
    default:
      return "fcntl";
  }
}

std::string epollName(int operation) {
  if (operation == EPOLL_CTL_ADD) return "epoll_ctl ADD";
  return operation == EPOLL_CTL_MOD ? "epoll_ctl MOD" : "epoll_ctl DEL";
}

}  // namespace

std::string text(const Fault& fault) {
  return fault.call + " " + std::to_string(fault.number) + ": " +
         (fault.error == Fault::fewer ? "fewer bytes" : std::generic_category().message(fault.error)) +
         (fault.forGood ? ", for good" : "");
}

void FailingCalls::count() {
  disarm();
  Record& now = record();
  const std::lock_guard lock(now.mutex);
  now.counts.clear();
  now.made.clear();
  now.hasFailed = false;
  now.isCounting = true;
  allocations = 0;
}

void FailingCalls::arm(const Fault& fault) {
  count();
  Record& now = record();
  const std::lock_guard lock(now.mutex);
  now.fault = fault;
  if (fault.call == "memory") failingAllocation = fault.number;
}

void FailingCalls::disarm() {
  Record& now = record();
  const std::lock_guard lock(now.mutex);
  failingAllocation = never;
  now.isCounting = false;
  now.fault.reset();
}

std::vector<std::string> FailingCalls::made() {
  Record& now = record();
  const std::lock_guard lock(now.mutex);
  return now.made;
}

std::size_t FailingCalls::allocated() {
  return allocations;
}

bool FailingCalls::hasFailed() {
  Record& now = record();
  const std::lock_guard lock(now.mutex);
  return now.hasFailed;
}

std::vector<int> FailingCalls::faultsOf(const std::string& call) {
  const auto errors = plausible().find(call);
  return errors == plausible().end() ? Errors{} : errors->second;
}

void* FailingCalls::allocate(std::size_t size) {
  if (allocations++ == failingAllocation) {
    record().hasFailed = true;
    throw std::bad_alloc();
  }
  void* memory = std::malloc(std::max<std::size_t>(size, 1));
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

}  // namespace tarsil

using namespace tarsil;

// What a copy of the library calls in place of the C library (see failing.syms). Where the real one takes a
// varying number of arguments, an extra one does no harm on the systems that this runs on.
extern "C" {

int failing_access(const char* path, int mode) {
  return passed("access", -1, [&] { return access(path, mode); });
}
int failing_bind(int descriptor, const sockaddr* address, socklen_t length) {
  return passed("bind", -1, [&] { return bind(descriptor, address, length); });
}
int failing_close(int descriptor) {
  // It is closed all the same.
  const int error = faultOf("close");
  const int answer = close(descriptor);
  if (error == 0) return answer;
  errno = error;
  return -1;
}
int failing_connect(int descriptor, const sockaddr* address, socklen_t length) {
  return passed("connect", -1, [&] { return connect(descriptor, address, length); });
}
int failing_epoll_create1(int flags) {
  return passed("epoll_create1", -1, [&] { return epoll_create1(flags); });
}
int failing_epoll_ctl(int set, int operation, int descriptor, epoll_event* event) {
  return passed(epollName(operation), -1, [&] { return epoll_ctl(set, operation, descriptor, event); });
}
int failing_epoll_wait(int set, epoll_event* events, int most, int timeout) {
  return passed("epoll_wait", -1, [&] { return epoll_wait(set, events, most, timeout); });
}
int failing_eventfd(unsigned int count, int flags) {
  return passed("eventfd", -1, [&] { return eventfd(count, flags); });
}
int failing_eventfd_read(int descriptor, eventfd_t* value) {
  return passed("eventfd_read", -1, [&] { return eventfd_read(descriptor, value); });
}
int failing_eventfd_write(int descriptor, eventfd_t value) {
  return passed("eventfd_write", -1, [&] { return eventfd_write(descriptor, value); });
}
int failing_fclose(std::FILE* file) {
  const int error = faultOf("fclose");
  const int answer = std::fclose(file);
  if (error == 0) return answer;
  errno = error;
  return EOF;
}
int failing_fcntl(int descriptor, int command, long argument) {
  return passed(fcntlName(command), -1, [&] { return fcntl(descriptor, command, argument); });
}
int failing_fflush(std::FILE* file) {
  return passed("fflush", EOF, [&] { return std::fflush(file); });
}
int failing_flock(int descriptor, int operation) {
  return passed(operation == LOCK_UN ? "flock UNLOCK" : "flock LOCK", -1,
                [&] { return flock(descriptor, operation); });
}
std::FILE* failing_fopen(const char* path, const char* mode) {
  return passed<std::FILE*>("fopen", nullptr, [&] { return std::fopen(path, mode); });
}
int failing_ftruncate(int descriptor, off_t size) {
  return passed("ftruncate", -1, [&] { return ftruncate(descriptor, size); });
}
std::size_t failing_fwrite(const void* bytes, std::size_t size, std::size_t count, std::FILE* file) {
  return passed<std::size_t>("fwrite", 0, [&] { return std::fwrite(bytes, size, count, file); });
}
int failing_getentropy(void* buffer, std::size_t size) {
  return passed("getentropy", -1, [&] { return getentropy(buffer, size); });
}
int failing_getgrgid_r(gid_t id, group* entry, char* buffer, std::size_t size, group** found) {
  if (const int error = faultOf("getgrgid_r")) return error;
  return getgrgid_r(id, entry, buffer, size, found);
}
int failing_ioctl(int descriptor, unsigned long request, void* argument) {
  return passed(ioctlName(request), -1, [&] { return ioctl(descriptor, request, argument); });
}
int failing_memfd_create(const char* name, unsigned int flags) {
  return passed("memfd_create", -1, [&] { return memfd_create(name, flags); });
}
void* failing_mmap(void* address, std::size_t size, int protection, int flags, int descriptor, off_t offset) {
  return passed("mmap", MAP_FAILED,
                [&] { return mmap(address, size, protection, flags, descriptor, offset); });
}
int failing_open(const char* path, int flags, mode_t mode) {
  return passed("open", -1, [&] { return open(path, flags, mode); });
}
int failing_pipe(int* ends) {
  return passed("pipe", -1, [&] { return pipe(ends); });
}
int failing_poll(pollfd* descriptors, nfds_t count, int timeout) {
  return passed("poll", -1, [&] { return poll(descriptors, count, timeout); });
}
int failing_posix_spawn(pid_t* process, const char* path, const posix_spawn_file_actions_t* files,
                        const posix_spawnattr_t* attributes, char* const* arguments,
                        char* const* environment) {
  if (const int error = faultOf("posix_spawn")) return error;
  return posix_spawn(process, path, files, attributes, arguments, environment);
}
int failing_ppoll(pollfd* descriptors, nfds_t count, const timespec* timeout, const sigset_t* signals) {
  return passed("ppoll", -1, [&] { return ppoll(descriptors, count, timeout, signals); });
}
ssize_t failing_read(int descriptor, void* buffer, std::size_t size) {
  return transferred("read", size, [&](std::size_t count) { return read(descriptor, buffer, count); });
}
ssize_t failing_recv(int descriptor, void* buffer, std::size_t size, int flags) {
  return transferred("recv", size, [&](std::size_t count) { return recv(descriptor, buffer, count, flags); });
}
ssize_t failing_send(int descriptor, const void* bytes, std::size_t size, int flags) {
  return transferred("send", size, [&](std::size_t count) { return send(descriptor, bytes, count, flags); });
}
int failing_setsockopt(int descriptor, int level, int name, const void* value, socklen_t length) {
  return passed("setsockopt", -1, [&] { return setsockopt(descriptor, level, name, value, length); });
}
int failing_socket(int domain, int type, int protocol) {
  return passed("socket", -1, [&] { return socket(domain, type, protocol); });
}
int failing_socketpair(int domain, int type, int protocol, int* ends) {
  return passed("socketpair", -1, [&] { return socketpair(domain, type, protocol, ends); });
}
int failing_stat(const char* path, struct stat* status) {
  return passed("stat", -1, [&] { return stat(path, status); });
}
int failing_timerfd_create(int clock, int flags) {
  return passed("timerfd_create", -1, [&] { return timerfd_create(clock, flags); });
}
int failing_timerfd_settime(int descriptor, int flags, const itimerspec* next, itimerspec* before) {
  return passed("timerfd_settime", -1, [&] { return timerfd_settime(descriptor, flags, next, before); });
}
int failing_unlink(const char* path) {
  return passed("unlink", -1, [&] { return unlink(path); });
}
pid_t failing_waitpid(pid_t process, int* status, int options) {
  return passed("waitpid", -1, [&] { return waitpid(process, status, options); });
}
ssize_t failing_write(int descriptor, const void* bytes, std::size_t size) {
  return transferred("write", size, [&](std::size_t count) { return write(descriptor, bytes, count); });
}

void startThread(std::thread* thread, std::unique_ptr<std::thread::_State> state, void (*needed)()) asm(
    "_ZNSt6thread15_M_start_threadESt10unique_ptrINS_6_StateESt14default_deleteIS1_EEPFvvE");
void failing_start_thread(std::thread* thread, std::unique_ptr<std::thread::_State> state, void (*needed)()) {
  if (const int error = faultOf("thread")) throw std::system_error(error, std::generic_category());
  startThread(thread, std::move(state), needed);
}

}  // extern "C"

void* operator new(std::size_t size) {
  return FailingCalls::allocate(size);
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}
