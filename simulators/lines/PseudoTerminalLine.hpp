#pragma once

#include <deque>
#include <memory>
#include <string>

#include "simulators/SimulatedDevice.hpp"
#include "simulators/lines/CableBehaviour.hpp"
#include "simulators/lines/CabledDevice.hpp"
#include "simulators/lines/PseudoTerminal.hpp"
#include "tarsil/runtime/DispatchSource.hpp"
#include "tarsil/runtime/Timer.hpp"

namespace tarsil::simulators {

/// Lets a simulated device live on a pseudo-terminal, in the time of the main run loop. What arrives while no
/// program has it open is lost, as on a real line. Main thread.
class PseudoTerminalLine {
 public:
  /// `device` must outlive the line.
  explicit PseudoTerminalLine(SimulatedDevice& device, const CableBehaviour& behaviour = usualCable());
  ~PseudoTerminalLine();
  PseudoTerminalLine(const PseudoTerminalLine&) = delete;
  PseudoTerminalLine& operator=(const PseudoTerminalLine&) = delete;

  /// What a program opens to talk to the device; what it opened before the plug was pulled.
  const std::string& path() const { return path_; }
  Cable& cable() { return device_.cable(); }

  /// The plug is pulled: who has the terminal open sees it vanish, and what is under way is lost. The device
  /// goes on by itself.
  void unplug();
  /// It is plugged in again, as another terminal.
  void plugIn();

 private:
  void appear();
  void deliver(const Bytes& bytes);
  void writeNext();

  CabledDevice device_;
  /// Null while the plug is pulled. Who listens to it keeps it until the last call has come.
  std::shared_ptr<PseudoTerminal> terminal_;
  std::string path_;
  std::shared_ptr<DispatchSource> bytes_;
  std::shared_ptr<DispatchSource> openings_;
  /// On a gentle line: what waits until the host has read what came before it, and what looks whether it has.
  std::deque<Bytes> waiting_;
  std::shared_ptr<Timer> look_;
};

}  // namespace tarsil::simulators
