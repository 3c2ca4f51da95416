#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "simulators/radio/RadioPeripheral.hpp"
#include "tarsil/runtime/DispatchSource.hpp"
#include "tarsil/runtime/Timer.hpp"
#include "tarsil/support/bytes.hpp"

namespace tarsil::simulators {

/// A Bluetooth LE adapter that exists in software only, with the peripherals that its radio hears. To the
/// kernel it is a controller like any other, plugged in while this object exists; the kernel's Host
/// Controller Interface is served through a descriptor of /dev/vhci. One connection at a time. Main thread.
class VirtualController {
 public:
  /// Why a link ended, in the controller's codes.
  enum Reason : std::uint8_t { supervisionTimeout = 0x08, endedByPeripheral = 0x13, endedByHost = 0x16 };

  /// `said` is told what happens on the radio, in one line each. Takes the descriptor over.
  VirtualController(int descriptor, std::vector<std::shared_ptr<RadioPeripheral>> air,
                    std::function<void(const std::string&)> said);
  ~VirtualController();
  VirtualController(const VirtualController&) = delete;
  VirtualController& operator=(const VirtualController&) = delete;

  /// Null while there is no connection.
  const std::shared_ptr<RadioPeripheral>& connected() const { return connected_; }
  /// Sends a notification over the connection. False when there is none, or nobody has subscribed.
  bool notify(std::uint16_t valueHandle, ByteView value);
  /// The link is gone, now.
  void endLink(Reason reason);
  /// Nothing comes through the air any more; a link dies of it when its supervision time-out has passed.
  void setSilent(bool silent);
  /// Whether connection attempts stay unanswered.
  void setUnreachable(bool unreachable) { unreachable_ = unreachable; }

 private:
  void readPackets();
  void command(std::uint16_t opcode, ByteView parameters);
  Bytes reply(std::uint16_t opcode, ByteView parameters) const;
  void createConnection(ByteView parameters);
  void cancelConnection();
  void establish();
  void data(ByteView packet);

  void advertise();
  void advertise(const RadioPeripheral& peripheral);

  void send(ByteView packet) const;
  void event(std::uint8_t code, ByteView parameters) const;
  void complete(std::uint16_t opcode, ByteView parameters) const;
  void accept(std::uint16_t opcode, std::uint8_t status = 0) const;
  void meta(std::uint8_t code, ByteView parameters) const;
  void connectionComplete(std::uint8_t status) const;
  void l2cap(std::uint16_t channel, ByteView payload) const;

  int descriptor_;
  std::vector<std::shared_ptr<RadioPeripheral>> air_;
  std::function<void(const std::string&)> said_;
  std::shared_ptr<DispatchSource> source_;
  std::shared_ptr<Timer> advertising_;
  std::shared_ptr<Timer> supervision_;

  bool scanning_ = false;
  bool silent_ = false;
  bool unreachable_ = false;
  /// Whom the kernel wants to connect to, and the supervision time-out that it asks for, in units of 10 ms.
  std::shared_ptr<RadioPeripheral> wanted_;
  std::uint16_t supervisionTimeout_ = 0;
  std::shared_ptr<RadioPeripheral> connected_;
};

}  // namespace tarsil::simulators
