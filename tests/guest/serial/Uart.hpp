#pragma once

#include <string>

#include "tarsil/support/bytes.hpp"

namespace tarsil {

/// The guest's second serial port, a real 16550A as far as the kernel can tell, and what is at the far end of
/// its line: a device that the test plays. Main thread.
class Uart {
 public:
  Uart();
  ~Uart();
  Uart(const Uart&) = delete;
  Uart& operator=(const Uart&) = delete;

  static constexpr const char* path = "/dev/ttyS1";

  /// What the port has sent since the last call. The device stops reading when nobody calls.
  Bytes read();
  /// What the device sends.
  void write(ByteView bytes);
  /// The device holds the line in the state that means a zero for longer than any character.
  void sendBreak();
  /// What the hardware was set to last: "9600 8N1".
  static std::string settings();

 private:
  int line_;
};

}  // namespace tarsil
