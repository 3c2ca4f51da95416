#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "simulators/SimulatedDevice.hpp"
#include "simulators/lines/PseudoTerminalLine.hpp"
#include "tarsil/runtime/DispatchSource.hpp"

namespace tarsil::simulators {

/// Orders to a simulated device, one a line from a descriptor (standard input, say): "silence on", "silence
/// off", "noise on", "noise off", "drop", "refuse CODE", "accept", "effort METS", "status", "quit"; and to
/// its cable: "disconnect", "connect", "mute WAY", "unmute WAY", and "lose WAY", "double WAY", "change WAY",
/// "add WAY" for one byte of the next message, where WAY is "replies", "commands" or "both". "status" is
/// answered with one line on standard output, and so is "connect", with the path of the terminal that the
/// device is at now; an order that is not understood with one on standard error. The end of the orders, or
/// "quit", stops the main run loop.
class Orders {
 public:
  /// The descriptor must not block its writer for ever and stays the caller's; everything else must outlive
  /// this object.
  Orders(int descriptor, SimulatedDevice& device, Patient& patient, PseudoTerminalLine& line);
  ~Orders();
  Orders(const Orders&) = delete;
  Orders& operator=(const Orders&) = delete;

 private:
  void read();
  void obeyLine(const std::string& line);
  bool obey(const std::string& order, const std::string& argument);
  bool obeyOnCable(const std::string& order, const std::string& argument);
  bool obeyOnDevice(const std::string& order, const std::string& argument);

  int descriptor_;
  SimulatedDevice& device_;
  Patient& patient_;
  PseudoTerminalLine& line_;
  std::string pending_;
  std::shared_ptr<DispatchSource> source_;
};

}  // namespace tarsil::simulators
