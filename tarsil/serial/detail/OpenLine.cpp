#include "tarsil/serial/detail/OpenLine.hpp"

#include <poll.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <utility>

namespace tarsil::detail {

OpenLine::OpenLine(std::shared_ptr<Terminal> terminal, int descriptor)
    : terminal_(std::move(terminal)), descriptor_(descriptor) {}

OpenLine::~OpenLine() {
  restoreAttributes();
  // Nobody is left to hear of a failure.
  static_cast<void>(close());
}

template <class Call>
auto OpenLine::use(Call call) -> decltype(call()) {
  const std::shared_lock lock(inUse_);
  if (const int end = ended_) return Failure{end};
  const auto result = call();
  if (result.error() == ENXIO) vanished_ = true;
  return result;
}

Result<> OpenLine::clearStatusFlags() {
  return use([&] { return terminal_->clearStatusFlags(descriptor_); });
}

Result<> OpenLine::saveAttributes() {
  const auto attributes = getAttributes();
  if (attributes) saved_ = *attributes;
  return attributes;
}

Result<TerminalAttributes> OpenLine::getAttributes() {
  return use([&] { return terminal_->getAttributes(descriptor_); });
}

// Whoever asked for settings when restoring had begun would leave them behind: once restored, the old ones
// stay.
Result<> OpenLine::change(const std::function<Result<>()>& call) {
  const std::lock_guard lock(changing_);
  if (isRestored()) return Failure{closedMeanwhile};
  return use(call);
}

Result<> OpenLine::setAttributes(const TerminalAttributes& attributes) {
  return change([&] { return terminal_->setAttributes(descriptor_, Terminal::Apply::now, attributes); });
}

Result<> OpenLine::setSpecialSpeed(const TerminalAttributes& attributes) {
  return change([&] { return terminal_->setSpecialSpeed(descriptor_, attributes); });
}

Result<int> OpenLine::getModemLines() {
  return use([&] { return terminal_->getModemLines(descriptor_); });
}

Result<> OpenLine::setModemLines(int lines) {
  return use([&] { return terminal_->setModemLines(descriptor_, lines); });
}

Result<std::size_t> OpenLine::read(void* buffer, std::size_t size) {
  return use([&] { return terminal_->read(descriptor_, buffer, size); });
}

std::size_t OpenLine::heldInput() {
  const auto held = use([&] {
    int count = 0;
    if (::ioctl(descriptor_, FIONREAD, &count) == 0 && count > 0) return Result(count);
    // What has come, but is not readable yet, poll waits for.
    pollfd input{descriptor_, POLLIN, 0};
    return Result(::poll(&input, 1, 0));
  });
  return static_cast<std::size_t>(std::max(*held, 0));
}

Result<std::size_t> OpenLine::write(ByteView bytes) {
  // It would go out at another speed.
  if (isRestored()) return Failure{closedMeanwhile};
  return use([&] { return terminal_->write(descriptor_, bytes.data(), bytes.size()); });
}

Result<int> OpenLine::duplicate() {
  return use([&] { return terminal_->duplicate(descriptor_); });
}

std::vector<int> OpenLine::restoreAttributes() {
  std::vector<int> failures;
  std::call_once(restored_, [&] {
    beginRestoring();
    // A device that is gone has no attributes.
    if (vanished_) return;
    if (const auto off = switchFlowControlOff(); !off) failures.push_back(off.error());
    if (vanished_) return;
    if (const auto back = putSavedAttributesBack(); !back) failures.push_back(back.error());
  });
  return failures;
}

void OpenLine::beginRestoring() {
  const std::lock_guard lock(changing_);
  restoring_ = true;
}

Result<> OpenLine::switchFlowControlOff() {
  const auto present = getAttributes();
  if (!present) return present;
  TerminalAttributes attributes = *present;
  attributes.rtsCtsFlowControl = false;
  attributes.dtrDsrFlowControl = false;
  attributes.dcdOutputFlowControl = false;
  // Without attributes to put back, there is no later call that waits for the output.
  const auto when = saved_ ? Terminal::Apply::now : Terminal::Apply::afterOutputDrains;
  return use([&] { return terminal_->setAttributes(descriptor_, when, attributes); });
}

Result<> OpenLine::putSavedAttributesBack() {
  if (!saved_) return {};
  return use(
      [&] { return terminal_->setAttributes(descriptor_, Terminal::Apply::afterOutputDrains, *saved_); });
}

Result<> OpenLine::close() {
  // New calls are turned away from here on, so that there is an end to those that are on their way.
  int usable = 0;
  if (!ended_.compare_exchange_strong(usable, closedMeanwhile)) return {};
  const std::unique_lock lock(inUse_);
  const auto closed = terminal_->close(descriptor_);
  if (!closed) ended_ = EBADF;
  return closed;
}

}  // namespace tarsil::detail
