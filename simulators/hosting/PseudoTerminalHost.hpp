#pragma once

#include <deque>
#include <memory>
#include <string>

#include "simulators/SimulatedDevice.hpp"
#include "simulators/hosting/PseudoTerminal.hpp"
#include "tarsil/runtime/Clock.hpp"
#include "tarsil/runtime/DispatchSource.hpp"
#include "tarsil/runtime/Timer.hpp"

namespace tarsil::simulators {

/// Lets a simulated device live on a pseudo-terminal, in the time of the calling thread's run loop (the main
/// one). Its bytes leave one at a time, no faster than its line speed allows and each only after the one
/// before it was read: so a program on a busy machine still gets every piece by itself. What nobody reads is
/// lost, as on a real line.
class PseudoTerminalHost {
 public:
  /// `device` must outlive the host.
  explicit PseudoTerminalHost(SimulatedDevice& device);
  ~PseudoTerminalHost();
  PseudoTerminalHost(const PseudoTerminalHost&) = delete;
  PseudoTerminalHost& operator=(const PseudoTerminalHost&) = delete;

  /// What a program opens to talk to the device.
  const std::string& path() const { return terminal_->path(); }
  /// The cable is pulled, for good.
  void disconnect();

 private:
  void receive();
  void tick();
  void sendNextPiece();

  SimulatedDevice& device_;
  std::shared_ptr<PseudoTerminal> terminal_ = std::make_shared<PseudoTerminal>();
  /// Pieces that wait for their turn on the line.
  std::deque<Bytes> line_;
  /// When the piece before them was written.
  Clock::Instant lastWrite_;
  std::shared_ptr<DispatchSource> source_;
  std::shared_ptr<Timer> clock_;
  Clock::Instant lastTick_ = Clock::now();
  /// Runs while the line is busy with a piece.
  std::shared_ptr<Timer> pace_;
};

}  // namespace tarsil::simulators
