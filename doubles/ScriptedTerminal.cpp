#include "doubles/ScriptedTerminal.hpp"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

namespace tarsil::doubles {
namespace {

// A port reads at most this many bytes at once, and the socket drops what one read leaves of a message.
constexpr std::size_t longestMessage = 1024;

}  // namespace

ScriptedTerminal::ScriptedTerminal(const TerminalAttributes& initial) : attributes_(initial) {}

ScriptedTerminal::~ScriptedTerminal() {
  closeDeviceEnd();
  arrivals_.reset();
  if (portEnd_ != closed) ::close(portEnd_);
}

void ScriptedTerminal::deliver(ByteView bytes) {
  const std::lock_guard lock(mutex_);
  if (deviceEnd_ == closed) return;
  for (; !bytes.empty(); bytes = bytes.subspan(std::min(longestMessage, bytes.size()))) {
    const ByteView message = bytes.first(std::min(longestMessage, bytes.size()));
    backlog_.emplace_back(message.begin(), message.end());
  }
  feedSocket();
}

// The socket takes a few hundred messages; a single-threaded program may deliver more before it reads.
void ScriptedTerminal::feedSocket() {
  while (!backlog_.empty() && deviceEnd_ != closed) {
    const Bytes& message = backlog_.front();
    if (::send(deviceEnd_, message.data(), message.size(), MSG_DONTWAIT | MSG_NOSIGNAL) < 0) return;
    arrivals_->announce();
    backlog_.pop_front();
  }
}

std::vector<Bytes> ScriptedTerminal::written() const {
  const std::lock_guard lock(mutex_);
  return written_;
}

void ScriptedTerminal::forgetWritten() {
  const std::lock_guard lock(mutex_);
  written_.clear();
}

void ScriptedTerminal::onWrite(std::function<void(const Bytes&)> device) {
  const std::lock_guard lock(mutex_);
  device_ = std::move(device);
}

void ScriptedTerminal::setInputLines(int lines) {
  const std::lock_guard lock(mutex_);
  inputLines_ = lines;
}

int ScriptedTerminal::outputLines() const {
  const std::lock_guard lock(mutex_);
  return outputLines_;
}

void ScriptedTerminal::vanish() {
  const std::lock_guard lock(mutex_);
  vanished_ = true;
  std::array<std::uint8_t, longestMessage> lost{};
  while (portEnd_ != closed && ::recv(portEnd_, lost.data(), lost.size(), MSG_DONTWAIT) > 0) {
  }
  closeDeviceEnd();
}

void ScriptedTerminal::comeBack() {
  const std::lock_guard lock(mutex_);
  vanished_ = false;
}

void ScriptedTerminal::closeDeviceEnd() {
  backlog_.clear();
  if (deviceEnd_ == closed) return;
  ::close(std::exchange(deviceEnd_, closed));
  arrivals_->announce();
}

void ScriptedTerminal::failNext(Call call, int errorNumber) {
  const std::lock_guard lock(mutex_);
  failNext_[call].push_back(errorNumber);
}

void ScriptedTerminal::failAlways(Call call, int errorNumber) {
  const std::lock_guard lock(mutex_);
  failAlways_[call] = errorNumber;
}

void ScriptedTerminal::succeed(Call call) {
  const std::lock_guard lock(mutex_);
  failNext_.erase(call);
  failAlways_.erase(call);
}

void ScriptedTerminal::takeNextWrite(std::size_t atMost) {
  const std::lock_guard lock(mutex_);
  takeNextWrite_.push_back(atMost);
}

bool ScriptedTerminal::isOpen() const {
  const std::lock_guard lock(mutex_);
  return portEnd_ != closed;
}

std::string ScriptedTerminal::openedPath() const {
  const std::lock_guard lock(mutex_);
  return openedPath_;
}

TerminalAttributes ScriptedTerminal::attributes() const {
  const std::lock_guard lock(mutex_);
  return attributes_;
}

std::vector<ScriptedTerminal::Applied> ScriptedTerminal::applied() const {
  const std::lock_guard lock(mutex_);
  return applied_;
}

std::vector<ScriptedTerminal::Call> ScriptedTerminal::calls() const {
  const std::lock_guard lock(mutex_);
  return calls_;
}

std::size_t ScriptedTerminal::count(Call call) const {
  const std::lock_guard lock(mutex_);
  return static_cast<std::size_t>(std::count(calls_.begin(), calls_.end(), call));
}

void ScriptedTerminal::forgetCalls() {
  const std::lock_guard lock(mutex_);
  calls_.clear();
}

std::size_t ScriptedTerminal::strayCalls() const {
  const std::lock_guard lock(mutex_);
  return strayCalls_;
}

int ScriptedTerminal::begin(Call call) {
  calls_.push_back(call);
  if (auto cues = failNext_.find(call); cues != failNext_.end() && !cues->second.empty()) {
    const int errorNumber = cues->second.front();
    cues->second.pop_front();
    return errorNumber;
  }
  const auto always = failAlways_.find(call);
  return always == failAlways_.end() ? 0 : always->second;
}

int ScriptedTerminal::beginOn(int descriptor, Call call) {
  const int cue = begin(call);
  if (isStray(descriptor)) return EBADF;
  return cue == 0 && vanished_ ? ENXIO : cue;
}

bool ScriptedTerminal::isStray(int descriptor) {
  if (descriptor == portEnd_ && descriptor != closed) return false;
  ++strayCalls_;
  return true;
}

Result<int> ScriptedTerminal::open(const std::string& path) {
  const std::lock_guard lock(mutex_);
  openedPath_ = path;
  if (const int error = begin(Call::open)) return Failure{error};
  if (vanished_) return Failure{ENOENT};
  if (portEnd_ != closed) return Failure{EAGAIN};
  std::array<int, 2> ends{};
  if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends.data()) != 0) {
    return Failure{errno};
  }
  portEnd_ = ends[0];
  deviceEnd_ = ends[1];
  arrivals_.emplace(portEnd_);
  return portEnd_;
}

Result<> ScriptedTerminal::clearStatusFlags(int descriptor) {
  const std::lock_guard lock(mutex_);
  if (const int error = beginOn(descriptor, Call::clearStatusFlags)) return Failure{error};
  return {};
}

Result<TerminalAttributes> ScriptedTerminal::getAttributes(int descriptor) {
  const std::lock_guard lock(mutex_);
  if (const int error = beginOn(descriptor, Call::getAttributes)) return Failure{error};
  return attributes_;
}

Result<> ScriptedTerminal::setAttributes(int descriptor, Apply when, const TerminalAttributes& attributes) {
  const std::lock_guard lock(mutex_);
  if (const int error = beginOn(descriptor, Call::setAttributes)) return Failure{error};
  apply(when, false, attributes);
  return {};
}

Result<> ScriptedTerminal::setSpecialSpeed(int descriptor, const TerminalAttributes& attributes) {
  const std::lock_guard lock(mutex_);
  if (const int error = beginOn(descriptor, Call::setSpecialSpeed)) return Failure{error};
  apply(Apply::now, true, attributes);
  return {};
}

void ScriptedTerminal::apply(Apply when, bool special, const TerminalAttributes& attributes) {
  attributes_ = attributes;
  applied_.push_back({when, special, attributes});
}

Result<int> ScriptedTerminal::getModemLines(int descriptor) {
  const std::lock_guard lock(mutex_);
  if (const int error = beginOn(descriptor, Call::getModemLines)) return Failure{error};
  return inputLines_ | outputLines_;
}

Result<> ScriptedTerminal::setModemLines(int descriptor, int lines) {
  const std::lock_guard lock(mutex_);
  if (const int error = beginOn(descriptor, Call::setModemLines)) return Failure{error};
  outputLines_ = lines & (TIOCM_RTS | TIOCM_DTR);
  return {};
}

// Never waits, although a real terminal's would: whoever reads was told that there is something to read.
Result<std::size_t> ScriptedTerminal::read(int descriptor, void* buffer, std::size_t size) {
  const std::lock_guard lock(mutex_);
  const int cue = begin(Call::read);
  if (isStray(descriptor)) return Failure{EBADF};
  if (vanished_) return std::size_t{0};
  if (cue != 0) return Failure{cue};
  const ssize_t count = ::recv(descriptor, buffer, size, 0);
  const int error = errno;
  feedSocket();
  if (count < 0) return Failure{error};
  return static_cast<std::size_t>(count);
}

Result<std::size_t> ScriptedTerminal::write(int descriptor, const void* bytes, std::size_t size) {
  Bytes taken;
  std::function<void(const Bytes&)> device;
  {
    const std::lock_guard lock(mutex_);
    if (const int error = beginOn(descriptor, Call::write)) return Failure{error};
    if (!takeNextWrite_.empty()) {
      size = std::min(size, takeNextWrite_.front());
      takeNextWrite_.pop_front();
    }
    const auto* first = static_cast<const std::uint8_t*>(bytes);
    taken.assign(first, first + size);
    written_.push_back(taken);
    device = device_;
  }
  if (device && !taken.empty()) device(taken);
  return taken.size();
}

Result<int> ScriptedTerminal::duplicate(int descriptor) {
  const std::lock_guard lock(mutex_);
  if (const int error = beginOn(descriptor, Call::duplicate)) return Failure{error};
  const int copy = ::fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  if (copy < 0) return Failure{errno};
  return copy;
}

Result<> ScriptedTerminal::close(int descriptor) {
  const std::lock_guard lock(mutex_);
  const int cue = begin(Call::close);
  if (isStray(descriptor)) return Failure{EBADF};
  closeDeviceEnd();
  arrivals_.reset();
  ::close(std::exchange(portEnd_, closed));
  if (cue != 0) return Failure{cue};
  return {};
}

const char* name(ScriptedTerminal::Call call) {
  using Call = ScriptedTerminal::Call;
  switch (call) {
    case Call::open:
      return "open";
    case Call::clearStatusFlags:
      return "clearStatusFlags";
    case Call::getAttributes:
      return "getAttributes";
    case Call::setAttributes:
      return "setAttributes";
    case Call::setSpecialSpeed:
      return "setSpecialSpeed";
    case Call::getModemLines:
      return "getModemLines";
    case Call::setModemLines:
      return "setModemLines";
    case Call::read:
      return "read";
    case Call::write:
      return "write";
    case Call::duplicate:
      return "duplicate";
    case Call::close:
      return "close";
  }
  return "unknown";
}

}  // namespace tarsil::doubles
