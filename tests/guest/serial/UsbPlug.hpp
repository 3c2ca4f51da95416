#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>

#include "tarsil/runtime/DispatchSource.hpp"
#include "tarsil/support/bytes.hpp"

namespace tarsil {

/// A USB device that exists in software only, plugged into the kernel's virtual host controller as long as
/// this object lives: to the kernel and its drivers it is a device like any other. The kernel speaks USB/IP
/// through a socket. Needs root and the module vhci_hcd; keep it in a process of its own, because the kernel
/// waits for its answers while a program closes the device. Main thread.
class UsbPlug {
 public:
  /// A request to the device itself, in USB's own fields.
  struct Request {
    std::uint8_t type = 0;
    std::uint8_t number = 0;
    std::uint16_t value = 0;
    std::uint16_t index = 0;
  };
  using Transfer = std::uint32_t;

  /// What the device does.
  struct Device {
    /// Answers a request; none refuses it.
    std::function<std::optional<Bytes>(const Request&)> answer;
    /// The host waits for input.
    std::function<void()> wanted;
    /// The host has sent bytes, and sends no more than a few further ones until they are `taken`.
    std::function<void(Transfer, const Bytes&)> sent;
    /// The host does no longer wait for them to be taken.
    std::function<void(Transfer)> withdrawn;
  };

  /// Plugs it into this socket (0 to 7) of the controller. Throws std::system_error, with EBUSY while a
  /// device that was pulled out of the socket has not quite gone.
  UsbPlug(unsigned socket, Device device);
  /// Pulls it out.
  ~UsbPlug();
  UsbPlug(const UsbPlug&) = delete;
  UsbPlug& operator=(const UsbPlug&) = delete;

  bool isInputWanted() const { return !wanted_.empty(); }
  /// Hands the host what it waits for longest; it must wait for something.
  void give(ByteView input);
  void taken(Transfer transfer, std::size_t count);

 private:
  struct Header;
  /// False when nothing came.
  bool read(int flags);
  /// False when not all of the next message is there.
  bool takeMessage();
  void submit(const Header& header, ByteView output);
  void unlink(const Header& header);
  void complete(Transfer transfer, std::int32_t status, ByteView input, std::size_t count);

  const unsigned socket_;
  const Device device_;
  bool isGone_ = false;
  int connection_ = -1;
  std::shared_ptr<DispatchSource> source_;
  Bytes received_;
  std::deque<Transfer> wanted_;
  std::deque<Transfer> untaken_;
};

}  // namespace tarsil
