#pragma once

#include <atomic>
#include <chrono>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

#include "simulators/lines/PseudoTerminal.hpp"
#include "tarsil/support/bytes.hpp"

namespace tarsil {

/// Sends the same nine bytes or so again and again, as fast as a fast line carries them, 90,000 bit/s, and
/// reads what comes. One that is faster than the main thread would keep a port that is dropped without being
/// closed alive: what was read waits for the main queue, and holds it.
class StreamingDevice {
 public:
  explicit StreamingDevice(Bytes frames) : frames_(std::move(frames)), stream_([this] { stream(); }) {}
  ~StreamingDevice() {
    ends_ = true;
    stream_.join();
  }
  StreamingDevice(const StreamingDevice&) = delete;
  StreamingDevice& operator=(const StreamingDevice&) = delete;

  const std::string& path() const { return terminal_.path(); }

  void vanish() {
    const std::lock_guard lock(mutex_);
    terminal_.hangUp();
  }

 private:
  void stream() {
    while (!ends_) {
      {
        const std::lock_guard lock(mutex_);
        terminal_.read();
        terminal_.write(frames_);
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  }

  const Bytes frames_;
  std::mutex mutex_;
  simulators::PseudoTerminal terminal_;
  std::atomic<bool> ends_ = false;
  std::thread stream_;
};

}  // namespace tarsil
