#pragma once

#include <memory>
#include <string>

#include "tarsil/platform/SerialDevice.hpp"
#include "tests/helpers/ChildProcess.hpp"

namespace tarsil {

/// A USB adapter of the guest, driven by the kernel's own ftdi_sio; usbAdapter.cpp has its orders. Plugged in
/// after construction, with the port there. Main thread.
class UsbAdapter {
 public:
  /// In the socket with this number, with a simulated device of the model at its far end, or none.
  explicit UsbAdapter(unsigned socket, std::string serialNumber, const std::string& model = "");
  /// Pulls it out, too.
  ~UsbAdapter();
  UsbAdapter(const UsbAdapter&) = delete;
  UsbAdapter& operator=(const UsbAdapter&) = delete;

  /// Waits for the port.
  void plugIn();
  /// Waits until the port is gone.
  void pullOut();
  ChildProcess& program() { return program_; }
  /// The port that it makes now; null when it makes none.
  std::shared_ptr<const SerialDevice> device() const;
  /// What the driver set the line to last: "9600 8N1".
  std::string settings() const;
  /// What the driver said last of that which begins with this word.
  std::string last(const std::string& word) const;

 private:
  const std::string serialNumber_;
  ChildProcess program_;
};

}  // namespace tarsil
