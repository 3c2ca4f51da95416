#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tarsil/platform/SerialDevice.hpp"
#include "tarsil/runtime/Observable.hpp"
#include "tarsil/serial/ORSSerialPortDelegate.hpp"
#include "tarsil/support/bytes.hpp"

namespace tarsil {

/// Parity of the line. A raw value above 2 is stored as None.
enum class ORSSerialPortParity : std::uint64_t { None = 0, Odd = 1, Even = 2 };

/// One serial device of the machine. It is read on worker threads; every call of its delegate comes on the
/// main thread.
///
/// Properties are set, and the port opened, closed and released, on the thread that owns it (the main thread
/// as a rule); `sendData`, `sendRequest` and the listening calls may be made on any thread. Every property
/// can be observed under its own name ("baudRate", "isOpen", "CTS", ...); observers are called where it
/// changes: "isOpen" on the thread that opens and on the worker thread that closes, "CTS", "DSR" and "DCD" on
/// the main thread. All properties may be read on any thread.
///
/// Settings are stored on a closed port and applied when it opens; on an open one they are applied at once. A
/// setting that is the same again does nothing.
///
/// Two ports are equal when their paths are: several port objects may stand for one device.
class ORSSerialPort : public Observable, public std::enable_shared_from_this<ORSSerialPort> {
 public:
  using Device = std::shared_ptr<const SerialDevice>;
  using Descriptor = std::shared_ptr<ORSSerialPacketDescriptor>;
  using Request = std::shared_ptr<ORSSerialRequest>;

  /// The port of the device with this call-out or dial-in path; null when there is no such device.
  static std::shared_ptr<ORSSerialPort> serialPortWithPath(const std::string& path);
  /// A new port for the device.
  static std::shared_ptr<ORSSerialPort> serialPortWithDevice(const Device& device);
  /// Every port object alive at this moment, in the order of their creation.
  static std::vector<std::shared_ptr<ORSSerialPort>> livePorts();

  /// Properties of a registry's device; none when the device lacks them.
  static std::optional<std::string> bsdCalloutPathFromDevice(const SerialDevice& device);
  static std::optional<std::string> bsdDialinPathFromDevice(const SerialDevice& device);
  static std::optional<std::string> baseNameFromDevice(const SerialDevice& device);
  static std::optional<std::string> serviceTypeFromDevice(const SerialDevice& device);
  static std::optional<std::string> modemNameFromDevice(const SerialDevice& device);
  static std::optional<std::string> suffixFromDevice(const SerialDevice& device);

  ~ORSSerialPort();
  ORSSerialPort(const ORSSerialPort&) = delete;
  ORSSerialPort& operator=(const ORSSerialPort&) = delete;

  /// The device's call-out path, e.g. "/dev/ttyUSB0"; empty when it has none.
  const std::string& path() const;
  /// The device's terminal name, e.g. "ttyUSB0"; empty when it has none.
  const std::string& name() const;
  /// The name.
  const std::string& description() const;
  /// Of the path.
  std::size_t hash() const;
  bool operator==(const ORSSerialPort& other) const;
  /// The registry's device that this port was made for.
  const Device& device() const;

  /// Held weakly. Without a delegate, and for a method that it does not override, calls are left out and what
  /// they would tell is lost; all else goes on. A call on its way goes to the delegate of the moment when it
  /// is made.
  void setDelegate(ORSSerialPortDelegateRef delegate);
  ORSSerialPortDelegateRef delegate() const;

  /// Opens the device with the stored settings. Success comes as `serialPortWasOpened`, failure as
  /// `serialPortDidEncounterError` (EAGAIN or EBUSY: somebody else has the device open; EILSEQ: the path is
  /// not ASCII). A setting that cannot be applied is reported and leaves the port open. Does nothing when the
  /// port is open, or still closing.
  void open();
  /// Begins to close; the port is closed when its descriptor is, some moments later, on a worker thread: when
  /// its output has gone out and no `sendData` is under way; output that stands still for 3 s is given up,
  /// with the `sendData` that waits for it. Always true.
  bool close();
  /// True from `open` until the descriptor is closed.
  bool isOpen() const;

  /// Writes all bytes before it returns, on the calling thread; it waits for a device that takes them slowly.
  /// False when the port is closed, when it was closed meanwhile, or when the write failed (the delegate then
  /// hears of it); what was left of the bytes stays unsent.
  bool sendData(ByteView data);

  /// A further descriptor of the open line, closed on exec, for the caller to close; -1 when the port is
  /// closed, and when there is none to have (the delegate then hears of it). Any thread.
  ///
  /// It reaches the device past the port's locks: hand it to a process that must still write when this one
  /// has died. As long as a copy lives after such a death, the device stays locked and keeps its settings.
  /// Closing the port neither waits for copies nor is held up by them: attributes are restored, the locks
  /// end, and the next opener gets the device. Copies share the port's blocking mode (don't change it) and
  /// its received bytes (don't read). An adapter that is pulled out comes back under another name while one
  /// is open.
  int duplicateDescriptor() const;

  /// Tells the delegate that the device vanished, waits for it, and closes.
  void cleanupAfterSystemRemoval();
  /// Deprecated: prints a warning and does `cleanupAfterSystemRemoval()`.
  [[deprecated("was never intended to be called publicly")]] void cleanup();

  /// Line speed in bit/s; 19200 at first. EINVAL is reported when the terminal layer has no such speed, or
  /// the driver keeps another one.
  std::uint64_t baudRate() const;
  void setBaudRate(std::uint64_t baudRate);
  /// Whether a speed that the terminal layer rejects is tried through the driver's special request; false at
  /// first.
  bool allowsNonStandardBaudRates() const;
  void setAllowsNonStandardBaudRates(bool allowed);
  /// 1 or 2 (any larger number gives two stop bits); 1 at first.
  std::uint64_t numberOfStopBits() const;
  void setNumberOfStopBits(std::uint64_t bits);
  /// 7 or 8; every other number gives characters of 5 bits. 8 at first. EINVAL is reported when the driver
  /// keeps another number, as for stop bits and parity.
  std::uint64_t numberOfDataBits() const;
  void setNumberOfDataBits(std::uint64_t bits);
  /// None at first.
  ORSSerialPortParity parity() const;
  void setParity(ORSSerialPortParity parity);
  /// The terminal's local echo; false at first.
  bool shouldEchoReceivedData() const;
  void setShouldEchoReceivedData(bool echo);
  /// Flow control; false at first. What the system lacks (on Linux the latter two) is reported as ENOTSUP,
  /// once for each opening. Changing one on an open port closes it and asks to open it again; because closing
  /// ends later, that `open` usually comes too early and is ignored.
  bool usesRTSCTSFlowControl() const;
  void setUsesRTSCTSFlowControl(bool uses);
  bool usesDTRDSRFlowControl() const;
  void setUsesDTRDSRFlowControl(bool uses);
  bool usesDCDOutputFlowControl() const;
  void setUsesDCDOutputFlowControl(bool uses);
  /// Output modem lines, driven while the port is open; false at first.
  bool RTS() const;
  void setRTS(bool set);
  bool DTR() const;
  void setDTR(bool set);
  /// Input modem lines as last polled (every 10 ms while the port is open); false at first. They keep their
  /// values when the port closes.
  bool CTS() const;
  bool DSR() const;
  bool DCD() const;

  // Packets and requests. What waits for the port's own queue may not be called on it: not by a packet's
  // evaluator, nor by an observer of "pendingRequest", "queuedRequests" or "packetDescriptors", which are
  // called there. The properties never wait for the line.

  /// Sends the request, or queues it behind the pending one. False when writing failed, on a closed port too;
  /// the request is then pending all the same, until its time-out, if it has one. False also for null. Waits
  /// for the port's own queue.
  bool sendRequest(const Request& request);
  /// Takes a request off the queue of waiting ones, however often it stands there, some moments later. The
  /// pending one is not affected; null does nothing.
  void cancelQueuedRequest(const Request& request);
  /// Empties the queue of waiting requests, some moments later. The pending one is not affected.
  void cancelAllQueuedRequests();
  /// The requests that wait, first to last.
  std::vector<Request> queuedRequests() const;
  /// The request that was sent and waits for its response, or null.
  Request pendingRequest() const;

  /// Reports every packet that the descriptor matches, until listening is stopped. A descriptor that is
  /// listened for already keeps the bytes that it has. Null does nothing. Waits for the port's own queue.
  void startListeningForPacketsMatchingDescriptor(const Descriptor& descriptor);
  void stopListeningForPacketsMatchingDescriptor(const Descriptor& descriptor);
  /// The descriptors listened for, in the order in which listening began.
  std::vector<Descriptor> packetDescriptors() const;

 private:
  struct Key {};

 public:
  ORSSerialPort(Key, Device device);

 private:
  friend class ORSSerialPortManager;
  /// What `cleanupAfterSystemRemoval` can still do when the process ends: the terminal has its attributes
  /// back when this returns, and the delegate is told only where that needs no waiting for the main thread.
  void cleanupBeforeExit();

  class Implementation;
  class Packets;
  std::unique_ptr<Implementation> implementation_;
};

}  // namespace tarsil
