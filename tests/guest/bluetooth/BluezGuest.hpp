#pragma once

#include <memory>
#include <string>
#include <vector>

#include "tests/helpers/ChildProcess.hpp"

namespace tarsil {

/// Where the guest's programs are.
struct GuestPrograms {
  std::string simulator;
  std::string bareClient;
  std::string busConfiguration;
};

/// The guest's Bluetooth: a bus, the real bluetoothd, and the simulated adapter and oximeter that it finds
/// through the kernel. Everything is running after construction.
class BluezGuest {
 public:
  explicit BluezGuest(const GuestPrograms& programs);

  /// What the simulated radio obeys and says.
  ChildProcess& radio() { return *radio_; }
  /// The same as the user's switch in the desktop: waits until it is done.
  void switchBluetooth(bool on);
  /// Whether bluetoothd scans, for whomever.
  bool isScanning();
  /// What another program does that connects the oximeter, and ends without ending the connection: waits
  /// until it is connected. bluetoothd must know the oximeter.
  void connectOximeter();
  void stopDaemon();
  void startDaemon();

 private:
  std::unique_ptr<ChildProcess> bus_;
  std::unique_ptr<ChildProcess> daemon_;
  std::unique_ptr<ChildProcess> radio_;
};

}  // namespace tarsil
