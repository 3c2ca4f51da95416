#include "simulators/hosting/PseudoTerminalHost.hpp"

#include <chrono>

#include "simulators/hosting/timeOnTheLine.hpp"

namespace tarsil::simulators {
namespace {

using namespace std::chrono_literals;

/// How often the device's time moves.
constexpr Duration step = 20ms;

/// A piece that is not read for this long has no reader.
constexpr Duration patience = 500ms;

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
  sendNextPiece();
}

void PseudoTerminalHost::tick() {
  const Clock::Instant now = Clock::now();
  device_.advance(now - lastTick_);
  lastTick_ = now;
  sendNextPiece();
}

void PseudoTerminalHost::sendNextPiece() {
  for (Bytes& piece : device_.takeOutput()) line_.push_back(std::move(piece));
  if (line_.empty() || pace_) return;

  const Duration busy = timeOnTheLine(line_.front().size(), device_.baudRate());
  if (!terminal_->hasUnread()) {
    terminal_->write(line_.front());
    line_.pop_front();
    lastWrite_ = Clock::now();
  } else if (Clock::now() - lastWrite_ > patience) {
    line_.clear();
    terminal_->discardUnread();
  }
  pace_ = Timer::scheduled(busy, false, [this](Timer&) {
    pace_.reset();
    sendNextPiece();
  });
}

}  // namespace tarsil::simulators
