#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "simulators/radio/RadioPeripheral.hpp"
#include "simulators/radio/VirtualController.hpp"
#include "tarsil/runtime/Clock.hpp"
#include "tarsil/runtime/Timer.hpp"

namespace tarsil::simulators {

/// A MEDXING pulse oximeter in the air: notifies a measurement at a steady rate while somebody has
/// subscribed. Main thread.
class SimulatedOximeter {
 public:
  explicit SimulatedOximeter(std::function<void(const std::string&)> said);
  ~SimulatedOximeter();
  SimulatedOximeter(const SimulatedOximeter&) = delete;
  SimulatedOximeter& operator=(const SimulatedOximeter&) = delete;

  const std::shared_ptr<RadioPeripheral>& radio() const { return radio_; }
  /// Whose connection the measurements go through; null while the adapter is pulled out.
  void setController(VirtualController* controller) { controller_ = controller; }

  void setInterval(Duration interval);
  /// Measures `count` times, then falls quiet; a negative count measures for ever.
  void measure(int count);
  /// Each saturation is measured this many times in a row.
  void setRepetitions(int repetitions) { repetitions_ = repetitions; }

  /// One measurement: 23 95 (hexadecimal) at bytes 4 and 5, the saturation in percent at byte 8, and from
  /// byte 12 the time of sending in nanoseconds of the system's steady clock, low byte first.
  static Bytes frame(std::uint8_t saturation, std::uint64_t time);
  /// The time in a frame; 0 when it is none of ours.
  static std::uint64_t timeIn(ByteView frame);

 private:
  void tick();

  std::function<void(const std::string&)> said_;
  std::shared_ptr<RadioPeripheral> radio_ = std::make_shared<RadioPeripheral>();
  std::uint16_t valueHandle_ = 0;
  VirtualController* controller_ = nullptr;
  std::shared_ptr<Timer> timer_;
  int left_ = 0;
  int repetitions_ = 1;
  unsigned sent_ = 0;
};

}  // namespace tarsil::simulators
