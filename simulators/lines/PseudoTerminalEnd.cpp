#include "simulators/lines/PseudoTerminalEnd.hpp"

#include <chrono>

namespace tarsil::simulators {
namespace {

using namespace std::chrono_literals;

/// How often a gentle line looks whether the host has read.
constexpr Duration lookInterval = 250us;
/// As many bytes as the system itself keeps for a host that does not read.
constexpr std::size_t mostWaiting = 4096;

}  // namespace

PseudoTerminalEnd::PseudoTerminalEnd(Cable& cable) : cable_(cable) {
  appear();
}

PseudoTerminalEnd::~PseudoTerminalEnd() {
  unplug();
}

void PseudoTerminalEnd::appear() {
  terminal_ = std::make_shared<PseudoTerminal>();
  path_ = terminal_->path();
  bytes_ = DispatchSource::read(terminal_->descriptor(), DispatchQueue::main());
  bytes_->setEventHandler([this, terminal = terminal_] { cable_.putCommand(terminal->read()); });
  bytes_->resume();
  openings_ = DispatchSource::read(terminal_->openingsDescriptor(), DispatchQueue::main());
  openings_->setEventHandler([terminal = terminal_] { terminal->isOpenElsewhere(); });
  openings_->resume();
}

void PseudoTerminalEnd::unplug() {
  if (!cable_.isPluggedIn()) return;
  cable_.unplug();
  waiting_.clear();
  if (look_) look_->invalidate();
  look_.reset();
  bytes_->cancel();
  openings_->cancel();
  lastPath_ = terminal_->takenPath();
  // The sources let go of their handlers in their own time; the last one to go hangs up.
  terminal_.reset();
}

void PseudoTerminalEnd::plugIn() {
  if (cable_.isPluggedIn()) return;
  appear();
  cable_.plugIn();
}

void PseudoTerminalEnd::deliver(const Bytes& bytes) {
  if (!terminal_->isOpenElsewhere()) {
    waiting_.clear();
    terminal_->discardUnread();
  }
  if (!cable_.behaviour().gentle) return terminal_->write(bytes);
  if (waiting_.size() < mostWaiting) waiting_.push_back(bytes);
  if (!look_) writeNext();
}

void PseudoTerminalEnd::writeNext() {
  look_.reset();
  if (waiting_.empty()) return;
  if (!terminal_->hasUnread()) {
    terminal_->write(waiting_.front());
    waiting_.pop_front();
  }
  look_ = Timer::scheduled(lookInterval, false, [this](Timer&) { writeNext(); });
}

}  // namespace tarsil::simulators
