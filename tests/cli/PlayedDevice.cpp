#include "tests/cli/PlayedDevice.hpp"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <utility>

namespace tarsil::cli {

PlayedDevice::PlayedDevice(Answer answer)
    : answer_(std::move(answer)), wake_(eventfd(0, EFD_CLOEXEC)), thread_([this] { play(); }) {}

PlayedDevice::~PlayedDevice() {
  finish();
  close(wake_);
}

void PlayedDevice::finish() {
  if (!thread_.joinable()) return;
  eventfd_write(wake_, 1);
  thread_.join();
}

void PlayedDevice::play() {
  std::string received;
  pollfd line{.fd = terminal_.descriptor(), .events = POLLIN, .revents = 0};
  pollfd end{.fd = wake_, .events = POLLIN, .revents = 0};
  for (bool isOver = false; !isOver;) {
    std::array waits{line, end};
    poll(waits.data(), waits.size(), -1);
    isOver = waits[0].revents == 0 && waits[1].revents != 0;
    const Bytes bytes = terminal_.read();
    received.append(bytes.begin(), bytes.end());
    for (auto reply = answer_(received); reply; reply = answer_(received)) {
      terminal_.write(Bytes(reply->begin(), reply->end()));
    }
  }
}

}  // namespace tarsil::cli
