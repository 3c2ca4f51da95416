#include "tarsil/serial/detail/OpenLine.hpp"

#include <poll.h>

#include <utility>

namespace tarsil::detail {

OpenLine::OpenLine(std::shared_ptr<Terminal> terminal, int descriptor)
    : terminal_(std::move(terminal)), descriptor_(descriptor) {}

OpenLine::~OpenLine() {
  restoreAttributes();
  close();
}

template <class Call>
ssize_t OpenLine::use(Call call) {
  const std::shared_lock lock(inUse_);
  if (const int end = ended_) return -end;
  const ssize_t answer = call();
  if (answer >= 0) return answer;
  const int error = errno;
  if (error == ENXIO) vanished_ = true;
  return -error;
}

int OpenLine::clearStatusFlags() {
  return static_cast<int>(-use([&] { return terminal_->clearStatusFlags(descriptor_); }));
}

int OpenLine::saveAttributes() {
  TerminalAttributes attributes;
  const int error = getAttributes(attributes);
  if (error == 0) saved_ = attributes;
  return error;
}

int OpenLine::getAttributes(TerminalAttributes& attributes) {
  return static_cast<int>(-use([&] { return terminal_->getAttributes(descriptor_, attributes); }));
}

// Whoever asked for settings when restoring had begun would leave them behind: once restored, the old ones
// stay.
template <class Call>
int OpenLine::change(Call call) {
  const std::lock_guard lock(changing_);
  return isRestored() ? closedMeanwhile : static_cast<int>(-use(call));
}

int OpenLine::setAttributes(const TerminalAttributes& attributes) {
  return change([&] { return terminal_->setAttributes(descriptor_, Terminal::Apply::now, attributes); });
}

int OpenLine::setSpecialSpeed(const TerminalAttributes& attributes) {
  return change([&] { return terminal_->setSpecialSpeed(descriptor_, attributes); });
}

int OpenLine::getModemLines(int& lines) {
  return static_cast<int>(-use([&] { return terminal_->getModemLines(descriptor_, lines); }));
}

int OpenLine::setModemLines(int lines) {
  return static_cast<int>(-use([&] { return terminal_->setModemLines(descriptor_, lines); }));
}

ssize_t OpenLine::read(void* buffer, std::size_t size) {
  return use([&] { return terminal_->read(descriptor_, buffer, size); });
}

bool OpenLine::hasInput() {
  pollfd input{descriptor_, POLLIN, 0};
  return use([&] { return ::poll(&input, 1, 0); }) > 0;
}

ssize_t OpenLine::write(ByteView bytes) {
  // It would go out at another speed.
  if (isRestored()) return -closedMeanwhile;
  return use([&] { return terminal_->write(descriptor_, bytes.data(), bytes.size()); });
}

int OpenLine::duplicate() {
  return static_cast<int>(use([&] { return terminal_->duplicate(descriptor_); }));
}

std::vector<int> OpenLine::restoreAttributes() {
  std::vector<int> failures;
  std::call_once(restored_, [&] {
    beginRestoring();
    // A device that is gone has no attributes.
    if (vanished_) return;
    if (const int error = switchFlowControlOff()) failures.push_back(error);
    if (vanished_) return;
    if (const int error = putSavedAttributesBack()) failures.push_back(error);
  });
  return failures;
}

void OpenLine::beginRestoring() {
  const std::lock_guard lock(changing_);
  restoring_ = true;
}

int OpenLine::switchFlowControlOff() {
  TerminalAttributes attributes;
  if (const int error = getAttributes(attributes)) return error;
  attributes.rtsCtsFlowControl = false;
  attributes.dtrDsrFlowControl = false;
  attributes.dcdOutputFlowControl = false;
  // Without attributes to put back, there is no later call that waits for the output.
  const auto when = saved_ ? Terminal::Apply::now : Terminal::Apply::afterOutputDrains;
  return static_cast<int>(-use([&] { return terminal_->setAttributes(descriptor_, when, attributes); }));
}

int OpenLine::putSavedAttributesBack() {
  if (!saved_) return 0;
  return static_cast<int>(-use(
      [&] { return terminal_->setAttributes(descriptor_, Terminal::Apply::afterOutputDrains, *saved_); }));
}

int OpenLine::close() {
  // New calls are turned away from here on, so that there is an end to those that are on their way.
  int usable = 0;
  if (!ended_.compare_exchange_strong(usable, closedMeanwhile)) return 0;
  const std::unique_lock lock(inUse_);
  if (terminal_->close(descriptor_) >= 0) return 0;
  const int error = errno;
  ended_ = EBADF;
  return error;
}

}  // namespace tarsil::detail
