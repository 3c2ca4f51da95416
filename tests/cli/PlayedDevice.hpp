#pragma once

#include <functional>
#include <optional>
#include <string>
#include <thread>

#include "simulators/lines/PseudoTerminal.hpp"

namespace tarsil::cli {

/// A device that a test plays by itself, on a pseudo-terminal: it answers each command as the test says. Its
/// thread ends with it.
class PlayedDevice {
 public:
  /// Takes the first command off the bytes received and gives the answer, which may be empty; none while no
  /// command is complete. Called on the device's own thread.
  using Answer = std::function<std::optional<std::string>(std::string& received)>;

  explicit PlayedDevice(Answer answer);
  ~PlayedDevice();
  PlayedDevice(const PlayedDevice&) = delete;
  PlayedDevice& operator=(const PlayedDevice&) = delete;

  const std::string& path() const { return terminal_.path(); }
  /// Takes in what was sent until now, and ends.
  void finish();

 private:
  void play();

  simulators::PseudoTerminal terminal_;
  Answer answer_;
  int wake_;
  std::thread thread_;
};

}  // namespace tarsil::cli
