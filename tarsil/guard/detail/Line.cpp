#include "tarsil/guard/detail/Line.hpp"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <functional>
#include <utility>

#include "tarsil/platform/PortAccess.hpp"
#include "tarsil/platform/SerialDeviceRegistry.hpp"
#include "tarsil/platform/TerminalWrapper.hpp"
#include "tarsil/runtime/DispatchQueue.hpp"
#include "tarsil/support/Error.hpp"

namespace tarsil::detail {
namespace {

using namespace std::chrono_literals;
using Device = std::shared_ptr<const SerialDevice>;

/// A port that has not closed by then never will.
constexpr Duration longestClosing = 10s;

/// Another terminal, which tells what was written to it, whoever wrote it: at once, on the writer's thread,
/// and again on the main thread. Any thread.
class TellingTerminal final : public TerminalWrapper {
 public:
  using Teller = std::function<void(Clock::Instant at, const Bytes& bytes)>;

  TellingTerminal(std::shared_ptr<Terminal> terminal, Teller atOnce, Teller onMain)
      : TerminalWrapper(std::move(terminal)),
        atOnce_(std::move(atOnce)),
        onMain_(std::make_shared<const Teller>(std::move(onMain))) {}

  Result<std::size_t> write(int descriptor, const void* bytes, std::size_t size) override {
    const auto count = TerminalWrapper::write(descriptor, bytes, size);
    if (*count > 0) tell(static_cast<const std::uint8_t*>(bytes), *count);
    return count;
  }

 private:
  void tell(const std::uint8_t* bytes, std::size_t count) {
    const Clock::Instant at = Clock::now();
    Bytes written(bytes, bytes + count);
    atOnce_(at, written);
    DispatchQueue::main().async(
        [teller = onMain_, at, written = std::move(written)] { (*teller)(at, written); });
  }

  const Teller atOnce_;
  const std::shared_ptr<const Teller> onMain_;
};

bool isCalled(const SerialDevice& device, const std::string& name) {
  return device.terminalName == name || device.calloutPath == name || device.dialinPath == name ||
         device.stablePath == name;
}

/// A serial number tells one adapter from all others; without one, the socket it is plugged into does.
bool isSameAdapter(const SerialDevice& one, const SerialDevice& other) {
  if (one.usb && !one.usb->serialNumber.empty()) return one.usb == other.usb;
  if (one.stablePath) return one.stablePath == other.stablePath;
  return one.calloutPath == other.calloutPath;
}

/// Whether it can be told from another one that gets its name.
bool hasIdentity(const SerialDevice& device) {
  return (device.usb && !device.usb->serialNumber.empty()) || device.stablePath;
}

LineFailed::Reason reasonOf(int error) {
  using enum LineFailed::Reason;
  switch (error) {
    case ENOENT:
      return missing;
    case EACCES:
    case EPERM:
      return noRight;
    case EAGAIN:
    case EBUSY:
      return busy;
    case EINVAL:
      return badSetting;
    case ENXIO:
    case ENODEV:
    case EIO:
      return vanished;
    default:
      return other;
  }
}

std::string holders(const std::string& path) {
  std::string all;
  for (const std::string& program : programsHolding(path)) all += (all.empty() ? "" : ", ") + program;
  return all;
}

std::string reasonText(LineFailed::Reason reason, const std::string& path, const Error& error) {
  using enum LineFailed::Reason;
  switch (reason) {
    case missing:
      return "there is no such port now";
    case noRight: {
      const std::string group = groupOf(path);
      return "no right to open it" + (group.empty() ? "" : ": its user has to be in the group " + group);
    }
    case busy: {
      const std::string programs = holders(path);
      return "another program has it open" + (programs.empty() ? "" : ": " + programs);
    }
    case badSetting:
      return "it does not take the line settings of its model";
    case vanished:
      return "the device behind it is gone";
    case other:
      break;
  }
  return error.localizedDescription;
}

}  // namespace

Device Line::deviceNamed(const std::string& name) {
  for (const Device& device : SerialDeviceRegistry::shared()->devices()) {
    if (!name.empty() && isCalled(*device, name)) return device;
  }
  return nullptr;
}

Line::Line(Device device, const KivStressDevice& driver)
    : device_(std::move(device)),
      baud_(driver.baud),
      stopbits_(driver.stopbits.value_or(1)),
      name_(device_->terminalName.value_or(device_->calloutPath.value_or(""))) {}

std::string Line::identity() const {
  if (device_->usb && !device_->usb->serialNumber.empty()) {
    return device_->usb->vendorId + ":" + device_->usb->productId + ":" + device_->usb->serialNumber;
  }
  return device_->stablePath.value_or(device_->calloutPath.value_or(""));
}

void Line::open() {
  isWanted_ = true;
  tryToOpen();
}

void Line::reopen() {
  isOpen_ = false;
  tell(LineClosed{name_});
  closingSince_ = Clock::now();
  port_->close();  // the next tick opens another one
}

void Line::close() {
  isWanted_ = false;
  if (std::exchange(isOpen_, false)) tell(LineClosed{name_});
  closingSince_ = Clock::now();
  if (port_) port_->close();
}

// A port whose closing fails says that it is open for ever, with a line that is none. It ends when it is
// dropped.
bool Line::isClosed() const {
  if (!port_ || !port_->isOpen()) return true;
  return closingSince_ && Clock::now() - *closingSince_ > longestClosing;
}

void Line::tick() {
  if (isWanted_ && !isOpen_ && isClosed()) tryToOpen();
}

Device Line::findAgain() const {
  // What comes under the name of a device that went may be anybody's.
  if (vanished_ && !hasIdentity(*device_)) return nullptr;
  for (const Device& device : SerialDeviceRegistry::shared()->devices()) {
    if (isSameAdapter(*device_, *device)) return device;
  }
  return nullptr;
}

void Line::tryToOpen() {
  const Device found = findAgain();
  if (!found) return fail(ENOENT);
  device_ = found;
  name_ = found->terminalName.value_or(found->calloutPath.value_or(""));

  // The registry's own port objects may serve somebody else: this one is the station's.
  auto telling = std::make_shared<SerialDevice>(*found);
  telling->terminal = std::make_shared<TellingTerminal>(
      found->terminal, listener_.written, [weak = weak_from_this()](Clock::Instant at, const Bytes& bytes) {
        if (const auto line = weak.lock()) line->listener_.event(at, Sent{bytes});
      });
  port_ = ORSSerialPort::serialPortWithDevice(telling);
  closingSince_.reset();
  port_->setDelegate(shared_from_this());
  port_->setBaudRate(static_cast<std::uint64_t>(baud_));
  port_->setNumberOfStopBits(static_cast<std::uint64_t>(stopbits_));
  port_->open();
}

void Line::serialPortWasOpened(ORSSerialPort& port) {
  if (!isCurrent(port) || !isWanted_) return;
  isOpen_ = true;
  lastFailure_.reset();
  if (std::exchange(vanished_, false)) tell(LineReturned{name_});
  tell(LineOpened{name_});
  const auto opened = port_;
  listener_.opened(opened);
  // Whoever was bound to it became its delegate.
  opened->setDelegate(shared_from_this());
}

void Line::serialPortWasClosed(ORSSerialPort& port) {
  if (isCurrent(port)) becomeLost();
}

void Line::serialPortWasRemovedFromSystem(ORSSerialPort& port) {
  if (!isCurrent(port)) return;
  if (!std::exchange(vanished_, true)) tell(LineVanished{name_});
  becomeLost();
}

void Line::becomeLost() {
  closingSince_ = Clock::now();
  if (std::exchange(isOpen_, false)) listener_.lost();
}

void Line::serialPortDidEncounterError(ORSSerialPort& port, const Error& error) {
  // What this port has no flow control for was not asked for by the station.
  if (!isCurrent(port) || error.code == ENOTSUP) return;
  fail(error.code);
}

void Line::fail(int error) {
  if (lastFailure_ == error) return;  // tried again every second, told once
  lastFailure_ = error;
  const LineFailed::Reason reason = reasonOf(error);
  const std::string path = device_->calloutPath.value_or(name_);
  const std::string text = name_ + ": " + reasonText(reason, path, Error::posix(error, path));
  tell(LineFailed{name_, reason, error, text});
}

void Line::serialPortDidReceiveData(ORSSerialPort& port, const Bytes& data) {
  if (!isCurrent(port) || !isOpen_) return;
  tell(Received{data});
  listener_.received(data);
}

}  // namespace tarsil::detail
