#include "simulators/hosting/PseudoTerminalHost.hpp"

#include <chrono>

namespace tarsil::simulators {
namespace {

using namespace std::chrono_literals;

/// How often the device's time moves.
constexpr Duration step = 20ms;

/// A byte that is not read for this long has no reader.
constexpr Duration patience = 500ms;

/// A start bit, eight data bits, a stop bit.
Duration timeOfOneByte(std::uint64_t baudRate) {
  return std::chrono::duration_cast<Duration>(
      std::chrono::duration<double>(10.0 / static_cast<double>(baudRate)));
}

}  // namespace

PseudoTerminalHost::PseudoTerminalHost(SimulatedDevice& device) : device_(device) {
  source_ = DispatchSource::read(terminal_->descriptor(), DispatchQueue::main());
  source_->setEventHandler([this] { receive(); });
  source_->setCancelHandler([terminal = terminal_] { terminal->hangUp(); });
  source_->resume();
  clock_ = Timer::scheduled(step, true, [this](Timer&) { tick(); });
}

PseudoTerminalHost::~PseudoTerminalHost() {
  disconnect();
}

void PseudoTerminalHost::disconnect() {
  clock_->invalidate();
  if (pace_) pace_->invalidate();
  source_->cancel();
}

void PseudoTerminalHost::receive() {
  device_.receive(terminal_->read());
  sendNextByte();
}

void PseudoTerminalHost::tick() {
  const Clock::Instant now = Clock::now();
  device_.advance(now - lastTick_);
  lastTick_ = now;
  sendNextByte();
}

void PseudoTerminalHost::sendNextByte() {
  const Bytes output = device_.takeOutput();
  line_.insert(line_.end(), output.begin(), output.end());
  if (line_.empty() || pace_) return;

  if (terminal_->unread() == 0) {
    terminal_->write(Bytes{line_.front()});
    line_.pop_front();
    lastWrite_ = Clock::now();
  } else if (Clock::now() - lastWrite_ > patience) {
    line_.clear();
    terminal_->discardUnread();
  }
  pace_ = Timer::scheduled(timeOfOneByte(device_.baudRate()), false, [this](Timer&) {
    pace_.reset();
    sendNextByte();
  });
}

}  // namespace tarsil::simulators
