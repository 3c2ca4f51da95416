#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "doubles/ScriptedTerminal.hpp"
#include "tarsil/runtime/VirtualTime.hpp"
#include "tarsil/serial/ORSSerialPort.hpp"
#include "tarsil/support/bytes.hpp"

namespace tarsil {

/// A real port whose device is the test, on virtual time: bytes in, bytes out, and everything that they set
/// off has happened when a call returns.
///
///     ScriptedPort port;                       // open
///     treadmill->setSerialPort(port);
///     port.deliver(hex("02 80"));              // one chunk from the device
///     EXPECT_THAT(port.sent(), ElementsAre(hex("02 05 02 00 32 59 19 03")));   // one entry a write
///
/// Declare it before the driver under test. Several ports of one test share a `VirtualTime`.
class ScriptedPort {
 public:
  enum class Start { open, closed };

  explicit ScriptedPort(Start start = Start::open);
  explicit ScriptedPort(VirtualTime& time, const std::string& terminalName = "ttyScripted0",
                        Start start = Start::open);
  ~ScriptedPort();
  ScriptedPort(const ScriptedPort&) = delete;
  ScriptedPort& operator=(const ScriptedPort&) = delete;

  const std::shared_ptr<ORSSerialPort>& port() const { return port_; }
  operator const std::shared_ptr<ORSSerialPort>&() const { return port_; }
  ORSSerialPort* operator->() const { return port_.get(); }
  doubles::ScriptedTerminal& terminal() { return *terminal_; }
  VirtualTime& time() { return *time_; }

  /// What was written so far.
  std::vector<Bytes> sent() const;
  /// What was written so far, which is then forgotten.
  std::vector<Bytes> takeSent();

  void deliver(ByteView chunk);
  /// One chunk a byte.
  void deliverByteByByte(ByteView bytes);

  void open();
  void close();
  /// The device is unplugged, and the port finds out.
  void remove();
  void advance(Duration duration);

 private:
  std::optional<VirtualTime> ownTime_;
  VirtualTime* time_;
  std::shared_ptr<doubles::ScriptedTerminal> terminal_;
  std::shared_ptr<ORSSerialPort> port_;
};

}  // namespace tarsil
