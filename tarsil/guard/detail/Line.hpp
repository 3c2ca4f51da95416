#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "tarsil/core/KivStressDevice.hpp"
#include "tarsil/guard/Event.hpp"
#include "tarsil/platform/SerialDevice.hpp"
#include "tarsil/serial/ORSSerialPort.hpp"
#include "tarsil/serial/ORSSerialPortDelegate.hpp"

namespace tarsil::detail {

/// One serial line of the station: it opens the port, tells what goes over it and what becomes of it, and
/// opens it again when the same adapter comes back, by whatever name. It stands between the port and its
/// driver as the port's delegate. Main thread.
class Line final : public ORSSerialPortDelegate, public std::enable_shared_from_this<Line> {
 public:
  /// Whom it tells. Set before `open`.
  struct Listener {
    std::function<void(Clock::Instant, Event::What)> event;
    /// These bytes went over the line just now. Called on the thread that wrote them, before `event` tells of
    /// it.
    std::function<void(Clock::Instant, const Bytes&)> written;
    /// A new port object is open; a driver that sends is bound to it now.
    std::function<void(const std::shared_ptr<ORSSerialPort>&)> opened;
    std::function<void(const Bytes&)> received;
    /// It was open, and is no more, without `close`.
    std::function<void()> lost;
  };

  /// The device with this name, path or stable path; null when there is none.
  static std::shared_ptr<const SerialDevice> deviceNamed(const std::string& name);

  /// At the speed, and with the stop bits, of this driver.
  Line(std::shared_ptr<const SerialDevice> device, const KivStressDevice& driver);

  void setListener(Listener listener) { listener_ = std::move(listener); }
  /// Opens the port, now or, when it cannot be opened yet, with a later `tick`.
  void open();
  /// Closes and opens it.
  void reopen();
  void close();
  /// Once a second: looks for what is missing.
  void tick();

  /// The port was opened and has said so.
  bool isOpen() const { return isOpen_; }
  /// Its port object is closed, too, or cannot be closed.
  bool isClosed() const;
  /// Null while it is not open.
  std::shared_ptr<ORSSerialPort> port() const { return isOpen_ ? port_ : nullptr; }
  /// Name of the port as the system lists it.
  const std::string& name() const { return name_; }
  /// Stays the same when the adapter comes back under another name.
  std::string identity() const;

  void serialPortWasOpened(ORSSerialPort& port) override;
  void serialPortWasClosed(ORSSerialPort& port) override;
  void serialPortWasRemovedFromSystem(ORSSerialPort& port) override;
  void serialPortDidEncounterError(ORSSerialPort& port, const Error& error) override;
  void serialPortDidReceiveData(ORSSerialPort& port, const Bytes& data) override;

 private:
  bool isCurrent(const ORSSerialPort& port) const { return &port == port_.get(); }
  std::shared_ptr<const SerialDevice> findAgain() const;
  void tryToOpen();
  void becomeLost();
  void fail(int error);
  void tell(Event::What what) const { listener_.event(Clock::now(), std::move(what)); }

  std::shared_ptr<const SerialDevice> device_;
  const std::int64_t baud_;
  const std::int64_t stopbits_;
  Listener listener_;
  std::string name_;
  std::shared_ptr<ORSSerialPort> port_;
  bool isWanted_ = false;
  bool isOpen_ = false;
  bool vanished_ = false;
  /// When the present port object was last seen, or told, to close.
  std::optional<Clock::Instant> closingSince_;
  /// Told since the last time that it was open.
  std::optional<int> lastFailure_;
};

}  // namespace tarsil::detail
