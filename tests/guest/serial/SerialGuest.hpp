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
};

/// As the test program's arguments say.
SerialPrograms& serialPrograms();

/// Runs the main loop until the condition holds, which is asked a hundred times a second. False when it does
/// not come to hold in time.
bool until(const std::function<bool()>& condition, Duration timeout = std::chrono::seconds(60));

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
