#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "tarsil/runtime/DispatchQueue.hpp"
#include "tarsil/runtime/DispatchSource.hpp"
#include "tarsil/serial/ORSSerialPort.hpp"
#include "tarsil/serial/detail/LineSettings.hpp"
#include "tarsil/serial/detail/ORSSerialPortPackets.hpp"
#include "tarsil/serial/detail/OpenLine.hpp"

namespace tarsil {

namespace detail {

/// The modem lines as a port knows them: driven by it (RTS, DTR) or last polled (CTS, DSR, DCD).
struct ModemLines {
  bool RTS = false;
  bool DTR = false;
  bool CTS = false;
  bool DSR = false;
  bool DCD = false;
};

}  // namespace detail

/// What a port is made of, and how its line lives: opened, polled, read and closed. Its mutex guards plain
/// values only and is never held while a terminal, a delegate or an observer is called. Functions that go on
/// after such a call keep the port alive, because the client may drop it in there.
class ORSSerialPort::Implementation {
 public:
  using Selector = ORSSerialPortDelegate::Selector;
  enum class Delivery { queued, waited };

  Implementation(ORSSerialPort& port, Device device);
  /// Drops the sources, which cancels them; the read source's cancel handler then closes the line.
  ~Implementation();
  Implementation(const Implementation&) = delete;
  Implementation& operator=(const Implementation&) = delete;

  const Device& device() const { return device_; }
  const std::string& path() const { return path_; }
  const std::string& name() const { return name_; }

  ORSSerialPortDelegateRef delegate() const;
  void setDelegate(ORSSerialPortDelegateRef delegate);

  void open();
  void close();
  bool isOpen() const { return openLine() != nullptr; }
  bool sendData(ByteView data);
  int duplicateDescriptor();
  void cleanupAfterSystemRemoval();
  void cleanupBeforeExit();

  template <class Value>
  Value setting(Value detail::LineSettings::*member) const {
    const std::lock_guard lock(mutex_);
    return settings_.*member;
  }
  /// Stores, applies and announces a value that is another one.
  template <class Value>
  void set(std::string_view key, Value detail::LineSettings::*member, Value value) {
    if (!exchange(settings_, member, value)) return;
    const auto kept = port_.shared_from_this();
    applySettings();
    port_.announce(key);
  }
  void setAllowsNonStandardBaudRates(bool allowed);
  void setFlowControl(std::string_view key, bool detail::LineSettings::*member, bool uses);

  bool modemLine(bool detail::ModemLines::*line) const;
  void setOutputLine(std::string_view key, bool detail::ModemLines::*line, bool set);

  /// Once, when the port has its first owner: packets and requests refer to it weakly.
  void beginPackets() { packets_.emplace(port_.weak_from_this()); }
  Packets& packets() { return *packets_; }

  /// Calls the delegate on the main thread, if it answers the selector: `call(delegate, port)`.
  template <class Call>
  void tell(Selector selector, Delivery delivery, Call call) {
    if (!delegate().mayRespondTo(selector)) return;
    // Held on the main thread only, so that a delegate that is dropped there ends there. It may be another
    // one by then, or gone.
    Work work = [port = port_.shared_from_this(), selector, call = std::move(call)] {
      const auto delegate = port->delegate().respondingTo(selector);
      if (delegate) call(*delegate, *port);
    };
    if (delivery == Delivery::waited) return DispatchQueue::main().sync(work);
    DispatchQueue::main().async(std::move(work));
  }

 private:
  using Line = std::shared_ptr<detail::OpenLine>;

  /// Null while the port is closed.
  Line openLine() const;
  /// Opens the descriptor; null when that failed, which is then reported.
  Line openTerminal();
  void beginLine(const Line& line);
  /// What was sent before the mark belongs to this line.
  detail::RequestQueue::Mark endLine();
  void startReading(const Line& line);
  void startPolling(const Line& line);
  void setPinPollTimer(std::shared_ptr<DispatchSource> timer);

  void applySettings();
  void updateModemLines();

  /// False for a line that is closed, or is to be.
  bool isReading(const Line& line) const;

  // The handlers of the sources, on worker threads.
  void readAvailable(const Line& line);
  void received(ByteView chunk);
  void pollModemLines(const Line& line, const std::weak_ptr<DispatchSource>& timer);
  void setInputLine(std::string_view key, bool detail::ModemLines::*line, bool set);
  void reallyClosePort(const Line& line);
  /// Ends what `close` began to keep; hands over the reference.
  std::shared_ptr<ORSSerialPort> letGo();

  void report(int errorNumber, Delivery delivery = Delivery::queued);

  /// True when the value was another one.
  template <class Values, class Value>
  bool exchange(Values& values, Value Values::*member, Value value) {
    const std::lock_guard lock(mutex_);
    if (values.*member == value) return false;
    values.*member = value;
    return true;
  }

  ORSSerialPort& port_;
  const Device device_;
  const std::string path_;
  const std::string name_;

  mutable std::mutex mutex_;
  ORSSerialPortDelegateRef delegate_;
  detail::LineSettings settings_;
  detail::ModemLines modemLines_;
  Line line_;
  std::shared_ptr<DispatchSource> readPollSource_;
  std::shared_ptr<DispatchSource> pinPollTimer_;
  bool closeRequested_ = false;
  /// The client was told, in this opening, that the system lacks the flow control that it asked for.
  std::atomic<bool> lacksFlowControl_ = false;
  /// The port itself from `close` until it is closed: a client that lets go of it meanwhile still hears of
  /// the end.
  std::shared_ptr<ORSSerialPort> keptUntilClosed_;
  std::optional<Packets> packets_;
};

}  // namespace tarsil
