#include "tarsil/serial/detail/ORSSerialPortImplementation.hpp"

#include <sys/ioctl.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <utility>

#include "tarsil/runtime/DispatchQueue.hpp"
#include "tarsil/runtime/RunLoop.hpp"
#include "tarsil/serial/detail/LivePorts.hpp"

namespace tarsil {

using detail::LineSettings;
using detail::ModemLines;
using detail::OpenLine;
using namespace std::chrono_literals;

namespace {

/// The most that one read takes.
constexpr std::size_t longestChunk = 1024;

/// How often a handler reads at most before it lets others have the thread.
constexpr int mostReads = 16;

bool isAscii(const std::string& text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

}  // namespace

ORSSerialPort::Implementation::Implementation(ORSSerialPort& port, Device device)
    : port_(port),
      device_(std::move(device)),
      path_(device_->calloutPath.value_or("")),
      name_(device_->terminalName.value_or("")) {}

ORSSerialPort::Implementation::~Implementation() {
  detail::LivePorts::shared().remove(&port_);
}

ORSSerialPortDelegateRef ORSSerialPort::Implementation::delegate() const {
  const std::lock_guard lock(mutex_);
  return delegate_;
}

void ORSSerialPort::Implementation::setDelegate(ORSSerialPortDelegateRef delegate) {
  const auto kept = port_.shared_from_this();
  {
    const std::lock_guard lock(mutex_);
    delegate_ = std::move(delegate);
  }
  port_.announce("delegate");
}

ORSSerialPort::Implementation::Line ORSSerialPort::Implementation::openLine() const {
  const std::lock_guard lock(mutex_);
  return line_;
}

void ORSSerialPort::Implementation::beginLine(const Line& line) {
  {
    const std::lock_guard lock(mutex_);
    line_ = line;
    lacksFlowControl_ = false;
  }
  port_.announce("isOpen");
}

detail::RequestQueue::Mark ORSSerialPort::Implementation::endLine() {
  detail::RequestQueue::Mark end = 0;
  {
    const std::lock_guard lock(mutex_);
    line_ = nullptr;
    readPollSource_ = nullptr;
    closeRequested_ = false;
    end = packets_->requests().mark();
  }
  port_.announce("isOpen");
  return end;
}

std::shared_ptr<ORSSerialPort> ORSSerialPort::Implementation::letGo() {
  const std::lock_guard lock(mutex_);
  return std::exchange(keptUntilClosed_, nullptr);
}

// Opening

void ORSSerialPort::Implementation::open() {
  if (isOpen()) return;
  const auto kept = port_.shared_from_this();
  const Line line = openTerminal();
  if (!line) return;
  report(line->clearStatusFlags().error());
  beginLine(line);
  report(line->saveAttributes().error());
  applySettings();
  updateModemLines();
  tell(Selector::serialPortWasOpened, Delivery::queued,
       [](ORSSerialPortDelegate& delegate, ORSSerialPort& port) { delegate.serialPortWasOpened(port); });
  startReading(line);
  startPolling(line);
}

ORSSerialPort::Implementation::Line ORSSerialPort::Implementation::openTerminal() {
  // Paths go to the system in ASCII; others have no such form.
  if (!isAscii(path_)) {
    report(EILSEQ);
    return nullptr;
  }
  const auto opened = device_->terminal->open(path_);
  if (!opened) {
    report(opened.error());
    return nullptr;
  }
  if (*opened != 0) return std::make_shared<OpenLine>(device_->terminal, *opened);
  // Descriptor 0 stands for a closed port. It comes to a process that has closed its standard input.
  static_cast<void>(device_->terminal->close(*opened));
  report(EBADF);
  return nullptr;
}

void ORSSerialPort::Implementation::startReading(const Line& line) {
  // The handlers must not keep the port alive, and whoever drops an open port still gets its line closed.
  const auto source = DispatchSource::read(line->descriptor(), DispatchQueue::global());
  source->setEventHandler([weak = port_.weak_from_this(), line] {
    if (const auto port = weak.lock()) port->implementation_->readAvailable(line);
  });
  source->setCancelHandler([weak = port_.weak_from_this(), line] {
    if (const auto port = weak.lock()) return port->implementation_->reallyClosePort(line);
    line->restoreAttributes();
    // Its port is gone, and its delegate with it.
    static_cast<void>(line->close());
  });
  bool closeAtOnce = false;
  {
    const std::lock_guard lock(mutex_);
    readPollSource_ = source;
    closeAtOnce = closeRequested_;
  }
  source->resume();
  if (closeAtOnce) source->cancel();
}

void ORSSerialPort::Implementation::startPolling(const Line& line) {
  const auto timer = DispatchSource::timer(0ms, 10ms, 5ms, DispatchQueue::global());
  timer->setEventHandler([weak = port_.weak_from_this(), line, weakTimer = std::weak_ptr(timer)] {
    if (const auto port = weak.lock()) port->implementation_->pollModemLines(line, weakTimer);
  });
  setPinPollTimer(timer);
  timer->resume();
}

void ORSSerialPort::Implementation::setPinPollTimer(std::shared_ptr<DispatchSource> timer) {
  {
    const std::lock_guard lock(mutex_);
    pinPollTimer_.swap(timer);
  }
  if (timer) timer->cancel();
}

// Settings

void ORSSerialPort::Implementation::setAllowsNonStandardBaudRates(bool allowed) {
  if (!exchange(settings_, &LineSettings::allowsNonStandardBaudRates, allowed)) return;
  const auto kept = port_.shared_from_this();
  port_.announce("allowsNonStandardBaudRates");
}

void ORSSerialPort::Implementation::setFlowControl(std::string_view key, bool LineSettings::*member,
                                                   bool uses) {
  if (setting(member) == uses) return;
  const auto kept = port_.shared_from_this();
  const bool wasOpen = isOpen();
  close();
  exchange(settings_, member, uses);
  applySettings();
  // Closing ends later, so as a rule the port is still open here and this does nothing. The order is the
  // interface's.
  if (wasOpen) open();
  port_.announce(key);
}

void ORSSerialPort::Implementation::applySettings() {
  const Line line = openLine();
  if (!line) return;
  LineSettings settings;
  {
    const std::lock_guard lock(mutex_);
    settings = settings_;
  }
  const auto current = line->getAttributes();
  if (!current) return report(current.error());
  const TerminalAttributes wanted = attributesFor(settings, *current);
  auto applied = line->setAttributes(wanted);
  if (!applied && settings.allowsNonStandardBaudRates) applied = line->setSpecialSpeed(wanted);
  // All else was applied. The system will not learn it while the port is open, so the next setting says
  // nothing new.
  if (applied.error() == ENOTSUP && lacksFlowControl_.exchange(true)) return;
  report(applied.error());
}

// Modem lines

bool ORSSerialPort::Implementation::modemLine(bool ModemLines::*line) const {
  const std::lock_guard lock(mutex_);
  return modemLines_.*line;
}

void ORSSerialPort::Implementation::setOutputLine(std::string_view key, bool ModemLines::*line, bool set) {
  if (!exchange(modemLines_, line, set)) return;
  const auto kept = port_.shared_from_this();
  updateModemLines();
  port_.announce(key);
}

void ORSSerialPort::Implementation::updateModemLines() {
  const Line line = openLine();
  if (!line) return;
  const auto present = line->getModemLines();
  if (!present) return report(present.error());
  int bits = *present & ~(TIOCM_RTS | TIOCM_DTR);
  if (modemLine(&ModemLines::RTS)) bits |= TIOCM_RTS;
  if (modemLine(&ModemLines::DTR)) bits |= TIOCM_DTR;
  report(line->setModemLines(bits).error());
}

void ORSSerialPort::Implementation::pollModemLines(const Line& line,
                                                   const std::weak_ptr<DispatchSource>& timer) {
  const auto cancelTimer = [timer] {
    if (const auto source = timer.lock()) source->cancel();
  };
  // The timer of a line that is gone ends by a turn of its own, not within its own handler.
  if (openLine() != line) return DispatchQueue::global().async(cancelTimer);

  const auto bits = line->getModemLines();
  if (!bits) {
    if (bits.error() != ENXIO) return report(bits.error());
    report(bits.error(), Delivery::waited);
    cleanupAfterSystemRemoval();
    // Closing cancels this timer too, but maybe only after its next beat, which would report the device
    // again.
    return cancelTimer();
  }
  setInputLine("CTS", &ModemLines::CTS, (*bits & TIOCM_CTS) != 0);
  setInputLine("DSR", &ModemLines::DSR, (*bits & TIOCM_DSR) != 0);
  setInputLine("DCD", &ModemLines::DCD, (*bits & TIOCM_CD) != 0);
}

void ORSSerialPort::Implementation::setInputLine(std::string_view key, bool ModemLines::*line, bool set) {
  if (modemLine(line) == set) return;
  DispatchQueue::main().sync([&] {
    if (exchange(modemLines_, line, set)) port_.announce(key);
  });
}

// Sending and receiving

bool ORSSerialPort::Implementation::sendData(ByteView data) {
  const Line line = openLine();
  if (!line) return false;
  const auto kept = port_.shared_from_this();
  while (!data.empty()) {
    const auto count = line->write(data);
    if (!count) {
      report(count.error());
      return false;
    }
    data = data.subspan(*count);
  }
  return true;
}

int ORSSerialPort::Implementation::duplicateDescriptor() {
  const Line line = openLine();
  if (!line) return -1;
  const auto kept = port_.shared_from_this();
  const auto descriptor = line->duplicate();
  if (descriptor) return *descriptor;
  report(descriptor.error());
  return -1;
}

void ORSSerialPort::Implementation::readAvailable(const Line& line) {
  std::array<std::uint8_t, longestChunk> buffer;
  std::size_t held = 0;
  for (int reads = 0; reads < mostReads && isReading(line); ++reads) {
    // A read that fails or finds nothing is no news: polling the modem lines tells when the device is gone.
    const auto count = line->read(buffer.data(), buffer.size());
    if (*count > 0) received(ByteView(buffer).first(*count));
    // A device that sends fast has more by now, and to be told of it costs more than to look. Where nothing
    // is left, a read would wait.
    if (*count < longestChunk) return;
    held = held > *count ? held - *count : line->heldInput();
    if (held == 0) return;
  }
}

bool ORSSerialPort::Implementation::isReading(const Line& line) const {
  const std::lock_guard lock(mutex_);
  return line_ == line && !closeRequested_;
}

void ORSSerialPort::Implementation::received(ByteView chunk) {
  tell(Selector::serialPortDidReceiveData, Delivery::queued,
       [data = Bytes(chunk.begin(), chunk.end())](ORSSerialPortDelegate& delegate, ORSSerialPort& port) {
         delegate.serialPortDidReceiveData(port, data);
       });
  packets_->received(chunk);
}

// Closing

void ORSSerialPort::Implementation::close() {
  std::shared_ptr<DispatchSource> source;
  {
    const std::lock_guard lock(mutex_);
    if (!line_ || closeRequested_) return;
    closeRequested_ = true;
    keptUntilClosed_ = port_.shared_from_this();
    source = readPollSource_;
  }
  // There is none yet when an error or an observer made the client close within `open`, which then does it.
  if (source) source->cancel();
}

void ORSSerialPort::Implementation::reallyClosePort(const Line& line) {
  const auto kept = letGo();
  setPinPollTimer(nullptr);
  for (const int error : line->restoreAttributes()) report(error);
  // The port then stays "open" with a dead line, and every call on it reports that.
  if (const auto closed = line->close(); !closed) return report(closed.error());
  const auto end = endLine();
  bool heard = false;
  tell(Selector::serialPortWasClosed, Delivery::waited,
       [&heard](ORSSerialPortDelegate& delegate, ORSSerialPort& port) {
         heard = true;
         delegate.serialPortWasClosed(port);
       });
  // A client that does not hear of the end keeps its requests, for the next time that it opens the port.
  if (heard) packets_->requests().forgetBefore(end);
}

void ORSSerialPort::Implementation::cleanupAfterSystemRemoval() {
  const auto kept = port_.shared_from_this();
  tell(Selector::serialPortWasRemovedFromSystem, Delivery::waited,
       [](ORSSerialPortDelegate& delegate, ORSSerialPort& port) {
         delegate.serialPortWasRemovedFromSystem(port);
       });
  close();
}

void ORSSerialPort::Implementation::cleanupBeforeExit() {
  const Line line = openLine();
  // Elsewhere the delegate would have to be waited for, and nobody may be left to run the main loop.
  if (RunLoop::isMainThread()) cleanupAfterSystemRemoval();
  // The process may end before a worker thread comes to it. The descriptor itself ends with the process.
  if (line) line->restoreAttributes();
}

// Telling the delegate

void ORSSerialPort::Implementation::report(int errorNumber, Delivery delivery) {
  if (errorNumber == 0 || errorNumber == OpenLine::closedMeanwhile) return;
  // On the main thread `waited` calls the delegate at once. Not so from the work of the port's own queue,
  // which that thread does while it waits for the queue: the delegate could not send a request then.
  if (RunLoop::isMainThread() && !packets_->isAtWork()) delivery = Delivery::waited;
  tell(Selector::serialPortDidEncounterError, delivery,
       [error = Error::posix(errorNumber, path_)](ORSSerialPortDelegate& delegate, ORSSerialPort& port) {
         delegate.serialPortDidEncounterError(port, error);
       });
}

}  // namespace tarsil
