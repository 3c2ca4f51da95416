#pragma once

#include <deque>
#include <memory>
#include <string>

#include "simulators/SimulatedDevice.hpp"
#include "simulators/scripted/ScriptedTerminal.hpp"
#include "tarsil/runtime/Clock.hpp"
#include "tarsil/runtime/Timer.hpp"

namespace tarsil::simulators {

/// Lets a simulated device live in the program that drives it, as a port of
/// `VirtualDeviceRegistry::shared()`, in the library's time: on virtual time twenty minutes of exercise take
/// moments. Bytes travel at the device's line speed. Main thread.
class InProcessHost {
 public:
  /// The port appears under `terminalName`, at "/dev/" + `terminalName`. `device` must outlive the host.
  InProcessHost(SimulatedDevice& device, const std::string& terminalName);
  ~InProcessHost();
  InProcessHost(const InProcessHost&) = delete;
  InProcessHost& operator=(const InProcessHost&) = delete;

  /// The cable is pulled, for good.
  void disconnect();

 private:
  void receive(const Bytes& bytes);
  void tick();
  void sendNextPiece();

  SimulatedDevice& device_;
  std::string path_;
  std::shared_ptr<ScriptedTerminal> terminal_ = std::make_shared<ScriptedTerminal>();
  /// Pieces that wait for their turn on the line.
  std::deque<Bytes> line_;
  std::shared_ptr<Timer> clock_;
  Clock::Instant lastTick_ = Clock::now();
  /// Runs while the line is busy with a piece.
  std::shared_ptr<Timer> pace_;
  /// Lets calls that are queued when the host goes come to nothing.
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace tarsil::simulators
