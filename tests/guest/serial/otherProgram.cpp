// Another program that wants a serial port: opens it once, says in one line what came of it, and has it until
// its input ends.
// usage: other-program PATH USER WAY
//   USER  root; operator, who may use serial ports; or guest, who may not
//   WAY   plain   opens it and does nothing else
//         locked  takes the advisory lock, too
//         marked  marks it exclusive, too, and asks for a modem, as the desktop's watcher of modems does
//         fast    sets it to 115,200 bit/s
//         port    opens it through the library

#include <fcntl.h>
#include <grp.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <string>
#include <string_view>
#include <system_error>

#include "tarsil/runtime/DispatchSource.hpp"
#include "tarsil/runtime/RunLoop.hpp"
#include "tarsil/serial/ORSSerialPort.hpp"
#include "tests/helpers/RecordingPortDelegate.hpp"

namespace tarsil {
namespace {

void say(const std::string& line) {
  std::puts(line.c_str());
  std::fflush(stdout);
}

bool become(std::string_view user) {
  if (user == "root") return true;
  constexpr uid_t nobody = 65534;
  const group* dialout = getgrnam("dialout");
  if (dialout == nullptr) return false;
  const std::size_t groups = user == "operator" ? 1 : 0;
  return setgroups(groups, &dialout->gr_gid) == 0 && setgid(nobody) == 0 && setuid(nobody) == 0;
}

void sayFailure() {
  say("failed(" + std::to_string(errno) + ": " + std::generic_category().message(errno) + ")");
}

bool setSpeed(int line, speed_t speed) {
  termios modes{};
  return tcgetattr(line, &modes) == 0 && cfsetspeed(&modes, speed) == 0 &&
         tcsetattr(line, TCSANOW, &modes) == 0;
}

void open(const std::string& path, std::string_view way) {
  const int line = ::open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  if (line < 0) return sayFailure();
  if (way == "locked" && flock(line, LOCK_EX | LOCK_NB) != 0) return sayFailure();
  if (way == "marked") {
    constexpr std::string_view question = "AT\r";
    if (ioctl(line, TIOCEXCL) != 0 || write(line, question.data(), question.size()) < 0) return sayFailure();
  }
  if (way == "fast" && !setSpeed(line, B115200)) return sayFailure();
  say("opened()");
}

int run(const std::string& path, const std::string& user, const std::string& way) {
  if (!become(user)) return 1;
  RecordingPortDelegate client;
  std::shared_ptr<ORSSerialPort> port;
  if (way == "port") {
    port = ORSSerialPort::serialPortWithPath(path);
    if (!port) return 1;
    client.onCall([](ORSSerialPort&, const RecordedCall& call) { say(call.text); });
    port->setDelegate(client);
    port->open();
  } else {
    open(path, way);
  }
  const auto input = DispatchSource::read(STDIN_FILENO, DispatchQueue::main());
  input->setEventHandler([] { RunLoop::main().stop(); });
  input->resume();
  RunLoop::main().run();
  return 0;
}

}  // namespace
}  // namespace tarsil

int main(int argc, char** argv) {
  if (argc != 4) {
    std::fputs("usage: other-program PATH USER WAY\n", stderr);
    return 2;
  }
  return tarsil::run(argv[1], argv[2], argv[3]);
}
