#pragma once

#include <concepts>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "tarsil/core/KivStressDevice.hpp"
#include "tarsil/core/ReplyFraming.hpp"
#include "tarsil/runtime/Clock.hpp"

namespace tarsil {

/// A fact that has to be stated: a list of facts that leaves out a member of this type does not compile.
template <class Value>
class Stated {
 public:
  template <class Given>
  requires std::convertible_to<Given, Value>
  constexpr Stated(const Given& given) : value_(static_cast<Value>(given)) {}
  constexpr operator const Value&() const { return value_; }

 private:
  Value value_;
};

/// The values that a model's command frames can carry so that the machine reads back what was meant. What is
/// beyond goes out garbled, as another value or not at all, and the host is told of it by few drivers.
class CarriedRange {
 public:
  struct Bounds {
    /// The slowest, flattest or weakest load that is not 0, and the largest one.
    Stated<float> lowest;
    Stated<float> highest;
    /// Values go out in multiples of this; what a value has beyond is dropped.
    Stated<float> step;
    Stated<bool> carriesZero;
  };

  explicit CarriedRange(const Bounds& bounds) : bounds_(bounds) {}
  /// No frame carries any value; not even 0 reaches the machine, which keeps what it has.
  static CarriedRange none() { return {}; }

  /// False for the range that carries nothing; the bounds are those of any other.
  bool carriesAnything() const { return bounds_.has_value(); }
  float lowest() const { return bounds_.value().lowest; }
  float highest() const { return bounds_.value().highest; }
  float step() const { return bounds_.value().step; }
  bool carriesZero() const { return bounds_ && bounds_->carriesZero; }

  /// Whether the machine can be asked for the value. False for what is no number.
  bool carries(float value) const;
  /// For people, in the unit named: "0 and 0.7 to 19 km/h", "16 to 255 %", "nothing".
  std::string text(const std::string& unit) const;

 private:
  CarriedRange() = default;

  std::optional<Bounds> bounds_;
};

/// What a host learns of the load through a driver that is fed with what the port delivers.
enum class LoadReport {
  /// Nothing: the driver discards whatever the machine answers.
  none,
  /// The value of the machine's first answer, again and again, whatever it answers later.
  firstOnly,
  /// What the machine answered last.
  current
};

/// What a treadmill or an ergometer can be asked and what it tells, beside its line settings.
struct ExerciseFacts {
  /// km/h; none for an ergometer.
  CarriedRange speed;
  /// Percent; none for an ergometer, and for a treadmill that keeps the grade that it has.
  CarriedRange grade;
  /// Watts; none for a treadmill.
  CarriedRange power;
  Stated<LoadReport> loadReport;
  /// What a reported number is divided by to give km/h, or percent.
  Stated<float> speedUnit;
  Stated<float> gradeUnit;
  Stated<bool> reportsPedalRate;
  /// It tells that it accepted a command with `successfully`.
  Stated<bool> reportsAcknowledgements;
  /// It answers `deviceState()` with `deviceIsReadyWithIsReady`.
  Stated<bool> reportsReadiness;
  /// It tells that it refused a command with `onErrorWithCode`.
  Stated<bool> reportsRefusals;
  /// It has a cuff of its own, and its driver hands over the result of `requestBP()`.
  Stated<bool> answersPressure;
  /// Load requests that follow each other faster are dropped by the driver or overtake each other.
  Stated<Duration> shortestPoll;

  /// It can be given a load. One that cannot is started and stopped at most.
  bool canBeDriven() const { return speed.carriesAnything() || power.carriesAnything(); }
};

/// What a model is.
enum class DeviceKind { treadmill, ergometer, bloodPressureMonitor, oximeter };

/// "Treadmill", "Ergometer", "BP" or "SpO2". Any thread.
std::string_view kindName(DeviceKind kind);

/// One model: what people call it, what a host has to know about it, and how a device of it is made. Made by
/// the functions named `modelOf`, which ask for everything. Reading it: any thread.
struct DeviceModel {
  /// As the catalogue lists it. The blood-pressure monitor and the Bluetooth oximeter, whose devices get no
  /// name, have the one that people use.
  std::string name;
  /// Of its driver, as it is written in C++.
  std::string className;
  DeviceKind kind;
  /// None for what is no exercise device.
  std::optional<ExerciseFacts> exercise;
  /// A new device, never null. Main thread, as everything that touches a device.
  std::function<std::shared_ptr<KivStressDevice>()> makeDevice;
  /// Cuts what its line delivers into its replies. Never null; empty for a model without a line.
  std::function<std::unique_ptr<ReplyFraming>()> makeFraming;

  /// What nobody but the people in the room can see while an exercise runs on this model, as a sentence for
  /// the host's user; empty when the model reports what it does.
  std::string unseen() const;
};

/// A treadmill or an ergometer whose driver class is `Device`; its framing is the class's own.
template <class Device>
DeviceModel modelOf(const std::string& className, const ExerciseDeviceSettings& settings,
                    const ExerciseFacts& facts) {
  return {.name = settings.name,
          .className = className,
          .kind = settings.Treadmill == 1 ? DeviceKind::treadmill : DeviceKind::ergometer,
          .exercise = facts,
          .makeDevice = [settings] { return std::make_shared<Device>(settings); },
          .makeFraming = Device::makeFraming};
}

/// A blood-pressure monitor, whose devices get no name.
template <class Device>
DeviceModel modelOf(const std::string& className, const BPDeviceSettings& settings, const std::string& name) {
  return {.name = name,
          .className = className,
          .kind = DeviceKind::bloodPressureMonitor,
          .exercise = std::nullopt,
          .makeDevice = [settings] { return std::make_shared<Device>(settings); },
          .makeFraming = Device::makeFraming};
}

/// A pulse oximeter on a serial port.
template <class Device>
DeviceModel modelOf(const std::string& className, const SpO2DeviceSettings& settings) {
  return {.name = settings.SpO2,
          .className = className,
          .kind = DeviceKind::oximeter,
          .exercise = std::nullopt,
          .makeDevice = [settings] { return std::make_shared<Device>(settings); },
          .makeFraming = Device::makeFraming};
}

/// A pulse oximeter without a port: its host finds it under its name.
template <class Device>
DeviceModel wirelessModelOf(const std::string& className, const std::string& name) {
  return {.name = name,
          .className = className,
          .kind = DeviceKind::oximeter,
          .exercise = std::nullopt,
          .makeDevice = [] { return std::make_shared<Device>(); },
          .makeFraming = {}};
}

}  // namespace tarsil
