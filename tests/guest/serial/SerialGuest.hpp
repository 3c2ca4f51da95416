#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "tarsil/runtime/Clock.hpp"

namespace tarsil {

/// Where the guest's programs are.
struct SerialPrograms {
  std::string otherProgram;
  std::string usbAdapter;
  std::string watcher;
  /// How often a plug is pulled in the middle of an exercise.
  int plugCycles = 0;
};

/// As the test program's arguments say.
SerialPrograms& serialPrograms();

/// Runs the main loop until the condition holds, which is asked a hundred times a second. False when it does
/// not come to hold in time.
bool until(const std::function<bool()>& condition, Duration timeout = std::chrono::seconds(60));

/// Opens the port as each model of the catalogue, as a host does, and compares what its hardware was set to
/// last ("9600 8N1") with the model's line settings; closed again, it has those from before.
void expectLineSettingsOfEveryModel(const std::string& port, const std::function<std::string()>& settings);

/// The daemon that names and prepares devices, with the rules that Debian gives it. It runs after
/// construction and has prepared what is there.
class DeviceDaemon {
 public:
  DeviceDaemon();
  ~DeviceDaemon();
  DeviceDaemon(const DeviceDaemon&) = delete;
  DeviceDaemon& operator=(const DeviceDaemon&) = delete;
};

/// The command that lets another program have the port; otherProgram.cpp has the words.
std::vector<std::string> otherProgram(const std::string& path, const std::string& user,
                                      const std::string& way);

}  // namespace tarsil
