#include "tarsil/guard/detail/StopFrames.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <memory>
#include <utility>

#include "tarsil/drivers/treadmill/TrackMaster.hpp"
#include "tarsil/platform/Terminal.hpp"
#include "tarsil/serial/ORSSerialPort.hpp"

namespace tarsil::detail {
namespace {

/// Takes every byte and gives none.
class Sink final : public Terminal {
 public:
  std::vector<Bytes> takeWritten() { return std::exchange(written_, {}); }

  Result<int> open(const std::string& /*path*/) override {
    // The reading end of a pipe is what a silent line looks like.
    std::array<int, 2> ends{};
    if (pipe(ends.data()) != 0) return Failure{errno};
    for (const int end : ends) fcntl(end, F_SETFD, FD_CLOEXEC);
    writingEnd_ = ends[1];
    return ends[0];
  }
  Result<> clearStatusFlags(int /*descriptor*/) override { return {}; }
  Result<TerminalAttributes> getAttributes(int /*descriptor*/) override { return attributes_; }
  Result<> setAttributes(int /*descriptor*/, Apply /*when*/, const TerminalAttributes& attributes) override {
    attributes_ = attributes;
    return {};
  }
  Result<> setSpecialSpeed(int /*descriptor*/, const TerminalAttributes& attributes) override {
    attributes_ = attributes;
    return {};
  }
  Result<int> getModemLines(int /*descriptor*/) override { return 0; }
  Result<> setModemLines(int /*descriptor*/, int /*lines*/) override { return {}; }
  Result<std::size_t> read(int descriptor, void* buffer, std::size_t size) override {
    const ssize_t count = ::read(descriptor, buffer, size);
    if (count < 0) return Failure{errno};
    return static_cast<std::size_t>(count);
  }
  Result<std::size_t> write(int /*descriptor*/, const void* bytes, std::size_t size) override {
    const auto* first = static_cast<const std::uint8_t*>(bytes);
    written_.emplace_back(first, first + size);
    return size;
  }
  Result<int> duplicate(int /*descriptor*/) override { return Failure{ENOTTY}; }
  Result<> close(int descriptor) override {
    ::close(writingEnd_);
    ::close(descriptor);
    return {};
  }

 private:
  int writingEnd_ = -1;
  TerminalAttributes attributes_;
  std::vector<Bytes> written_;
};

/// A stop command for a TrackMaster ends its ramp at once, so it may only leave when the belt stands.
std::vector<Bytes> commandForStandingBelt(TrackMaster& driver, Sink& sink) {
  if (driver.timer) driver.timer->invalidate();
  driver.isStop = true;
  driver.isStaticState = true;
  driver.stoping();
  return sink.takeWritten();
}

}  // namespace

StopFrames stopFramesOf(KivStressDevice& driver) {
  const auto sink = std::make_shared<Sink>();
  SerialDevice device;
  device.calloutPath = "/dev/sink";
  device.terminalName = "sink";
  device.terminal = sink;
  const auto port = ORSSerialPort::serialPortWithDevice(std::make_shared<SerialDevice>(std::move(device)));
  port->open();
  driver.setSerialPort(port);

  driver.stopStressDevice();
  StopFrames frames{.now = sink->takeWritten(), .standing = {}};
  if (auto* trackMaster = dynamic_cast<TrackMaster*>(&driver)) {
    frames.standing = commandForStandingBelt(*trackMaster, *sink);
  }
  driver.setSerialPort(nullptr);
  port->close();
  return frames;
}

}  // namespace tarsil::detail
