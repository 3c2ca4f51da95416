#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "simulators/SimulatedDevice.hpp"
#include "simulators/lines/PseudoTerminalLine.hpp"
#include "tarsil/runtime/DispatchSource.hpp"

namespace tarsil::simulators {

/// Orders to a simulated device, one a line from a descriptor (standard input, say). To the device: "silence
/// on", "silence off", "noise on", "noise off", "drop", "refuse CODE", "accept", "effort METS", "press
/// BUTTON", "release emergency", "unheard stop", "unheard go", "status", "history". To its cable:
/// "disconnect", "connect", "mute WAY", "unmute WAY", and for one byte of the next message "lose WAY",
/// "double WAY", "change WAY", "add WAY". BUTTON is "start", "stop" or "emergency", WAY is "replies",
/// "commands" or "both".
///
/// Standard output gets a line for "status", one with the path of its new terminal for "connect", and one for
/// each entry of "history" with an empty one after the last; an order that is not understood gets a line on
/// standard error. The end of the orders, or "quit", stops the main run loop.
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
