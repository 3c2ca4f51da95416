#pragma once

#include <deque>
#include <memory>
#include <string>

#include "simulators/lines/Cable.hpp"
#include "simulators/lines/PseudoTerminal.hpp"
#include "tarsil/runtime/DispatchSource.hpp"
#include "tarsil/runtime/Timer.hpp"

namespace tarsil::simulators {

/// The host's end of a cable, a pseudo-terminal: a program opens it as a serial port. What arrives while no
/// program has it open is lost, as on a real line. Main thread.
class PseudoTerminalEnd {
 public:
  /// `cable` must outlive it, and hand what arrives for the host to `deliver`.
  explicit PseudoTerminalEnd(Cable& cable);
  ~PseudoTerminalEnd();
  PseudoTerminalEnd(const PseudoTerminalEnd&) = delete;
  PseudoTerminalEnd& operator=(const PseudoTerminalEnd&) = delete;

  /// What a program opens to talk to the device; what it opened before the plug was pulled.
  const std::string& path() const { return path_; }
  Cable& cable() { return cable_; }
  void deliver(const Bytes& bytes);

  /// The plug is pulled: who has the terminal open sees it vanish, and what is under way is lost. The device
  /// goes on by itself.
  void unplug();
  /// It is plugged in again, as another terminal.
  void plugIn();

 private:
  void appear();
  void writeNext();

  Cable& cable_;
  /// Null while the plug is pulled. Who listens to it keeps it until the last call has come.
  std::shared_ptr<PseudoTerminal> terminal_;
  std::string path_;
  /// The path before the plug was pulled last stays nobody's: a host may still look there.
  std::shared_ptr<const void> lastPath_;
  std::shared_ptr<DispatchSource> bytes_;
  std::shared_ptr<DispatchSource> openings_;
  /// On a gentle line: what waits until the host has read what came before it, and what looks whether it has.
  std::deque<Bytes> waiting_;
  std::shared_ptr<Timer> look_;
};

}  // namespace tarsil::simulators
