#include "tests/guest/serial/SerialGuest.hpp"

#include <filesystem>

#include "tarsil/runtime/RunLoop.hpp"
#include "tarsil/runtime/Timer.hpp"
#include "tests/helpers/ChildProcess.hpp"

namespace tarsil {
namespace {

using namespace std::chrono_literals;

// The guest's files are those of a changed root, where the daemon's tools would do nothing.
int run(const std::vector<std::string>& command) {
  std::vector<std::string> all{"env", "SYSTEMD_IGNORE_CHROOT=1"};
  all.insert(all.end(), command.begin(), command.end());
  return ChildProcess(all).wait();
}

}  // namespace

SerialPrograms& serialPrograms() {
  static SerialPrograms programs;
  return programs;
}

bool until(const std::function<bool()>& condition, Duration timeout) {
  const auto look = Timer::scheduled(10ms, true, [](Timer&) {});
  const bool holds = RunLoop::main().runUntil(condition, timeout);
  look->invalidate();
  return holds;
}

DeviceDaemon::DeviceDaemon() {
  run({"/usr/lib/systemd/systemd-udevd", "--daemon"});
  run({"udevadm", "trigger", "--action=add", "--subsystem-match=tty"});
  run({"udevadm", "settle"});
}

DeviceDaemon::~DeviceDaemon() {
  run({"udevadm", "control", "--exit"});
  std::filesystem::remove_all("/run/udev");
}

std::vector<std::string> otherProgram(const std::string& path, const std::string& user,
                                      const std::string& way) {
  return {serialPrograms().otherProgram, path, user, way};
}

}  // namespace tarsil
