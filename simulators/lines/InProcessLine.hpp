#pragma once

#include <memory>
#include <string>

#include "doubles/ScriptedTerminal.hpp"
#include "simulators/SimulatedDevice.hpp"
#include "simulators/lines/CableBehaviour.hpp"
#include "simulators/lines/CabledDevice.hpp"
#include "tarsil/platform/SerialDevice.hpp"

namespace tarsil::simulators {

/// Lets a simulated device live in the program that drives it, as a port of
/// `VirtualDeviceRegistry::shared()`, in the library's time: on virtual time twenty minutes of exercise take
/// moments. Main thread.
class InProcessLine {
 public:
  /// The port appears under `terminalName`, at "/dev/" + `terminalName`. `device` must outlive the line.
  InProcessLine(SimulatedDevice& device, const std::string& terminalName,
                const CableBehaviour& behaviour = usualCable());
  ~InProcessLine();
  InProcessLine(const InProcessLine&) = delete;
  InProcessLine& operator=(const InProcessLine&) = delete;

  /// Where the port is, or was before it was unplugged.
  const std::string& path() const { return path_; }
  /// What its adapter says of itself, under whatever name it comes.
  const UsbIdentity& identity() const { return identity_; }
  Cable& cable() { return device_.cable(); }

  /// The plug is pulled: the port vanishes, and what is under way is lost. The device goes on by itself.
  void unplug();
  /// The same adapter comes back, as another port of this name. Throws std::invalid_argument for the name of
  /// a port that is there.
  void plugIn(const std::string& terminalName);

 private:
  void appear(const std::string& terminalName);
  void forgetThePast();

  CabledDevice device_;
  UsbIdentity identity_;
  std::string path_;
  /// A new one each time that it is plugged in: who held the old one open holds nothing any more.
  std::shared_ptr<doubles::ScriptedTerminal> terminal_;
  /// Lets calls that are queued when the line goes come to nothing.
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace tarsil::simulators
