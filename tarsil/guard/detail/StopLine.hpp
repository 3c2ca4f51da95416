#pragma once

#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "tarsil/guard/detail/GuardedStationImplementation.hpp"
#include "tarsil/serial/ORSSerialPort.hpp"

namespace tarsil {

/// The way to the exercise device for those who cannot wait for the main thread. Any thread.
struct GuardedStation::Implementation::StopLine {
  explicit StopLine(std::vector<Bytes> stop) : frames(std::move(stop)) {}

  /// Null: there is no line now.
  void set(std::shared_ptr<ORSSerialPort> newPort) {
    const std::lock_guard lock(mutex);
    port = std::move(newPort);
  }

  void send() {
    std::shared_ptr<ORSSerialPort> current;
    {
      const std::lock_guard lock(mutex);
      current = port;
    }
    if (!current) return;
    for (const Bytes& frame : frames) current->sendData(frame);
  }

  const std::vector<Bytes> frames;
  std::mutex mutex;
  std::shared_ptr<ORSSerialPort> port;
};

}  // namespace tarsil
