#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "tarsil/core/KivStressPortDelegate.hpp"

namespace tarsil {

class FileManagerTool;
class ORSSerialPort;

/// What a treadmill or an ergometer is made from. Each value is stored as it is, in the field of the device
/// that says what it means.
struct ExerciseDeviceSettings {
  /// 1 for a treadmill, 0 for an ergometer; becomes `Treadmill_or_Ergometer`.
  std::int64_t Treadmill;
  std::string name;
  std::int64_t baud;
  std::int64_t databits;
  std::int64_t stopbits;
  std::int64_t parity;
  std::int64_t getWithBP_SpO2;
  std::int64_t setWithBP_SpO2;
  bool canStopBP;
  bool autoSend;
  bool actualLoad;
};

/// What a blood-pressure monitor is made from; `BP` is its baud rate in bit/s. It gets no name.
struct BPDeviceSettings {
  std::int64_t BP;
  std::int64_t databits;
  std::int64_t stopbits;
  std::int64_t parity;
  bool autoSend;
  bool canStopBP;
};

/// What a pulse oximeter is made from; `SpO2` is its name.
struct SpO2DeviceSettings {
  std::string SpO2;
  std::int64_t baud;
  std::int64_t databits;
  std::int64_t stopbits;
  std::int64_t parity;
};

/// One configured device model: the base class of every driver. Its operations do nothing; a driver overrides
/// those that its model supports, and a call of one that it does not override is silently ignored.
///
/// Operations return nothing; what the device answers reaches `kiv_delegate`, and is dropped while that is
/// none. All of them, and the fields, belong to the main thread. A device without a port drops its commands
/// without a report; a device value or a load that no honest answer exists for stops the process where the
/// driver says so. Devices live in a std::shared_ptr.
class KivStressDevice : public std::enable_shared_from_this<KivStressDevice> {
 public:
  /// What a driver may have outstanding; part of the vocabulary, no driver of this library uses it.
  enum class CommandType { none, setLoad, requestPower, grade, startBP, breakBP, requestBP };

  /// Every field at its default.
  KivStressDevice();
  explicit KivStressDevice(const ExerciseDeviceSettings& settings);
  explicit KivStressDevice(const BPDeviceSettings& settings);
  explicit KivStressDevice(const SpO2DeviceSettings& settings);
  virtual ~KivStressDevice();
  KivStressDevice(const KivStressDevice&) = delete;
  KivStressDevice& operator=(const KivStressDevice&) = delete;

  /// The traffic log, at first the shared one; of the drivers only `TrackMaster` writes to it. Another one
  /// that is put in its place must outlive the device.
  std::reference_wrapper<FileManagerTool> fm;
  /// Where the driver reports results; the host sets it on the device that it chose.
  KivStressPortDelegateRef kiv_delegate;
  /// 1 for a treadmill, 0 for everything else.
  std::int64_t Treadmill_or_Ergometer = 0;
  /// Catalogue name of the model; none for the blood-pressure monitor.
  std::optional<std::string> name;
  /// What the model offers besides load: 0 nothing, 3 a built-in blood-pressure (and SpO2) unit.
  std::int64_t getWithBP_SpO2 = 0;
  /// The device reports its load by itself.
  bool autoSend = true;
  /// Name of the serial port chosen for this device; the library leaves it to the host.
  std::optional<std::string> port;
  /// A running blood-pressure measurement can be aborted on this device.
  std::optional<bool> canStopBP;
  /// The device reports the load actually reached, not only the target.
  std::optional<bool> actualLoad;
  /// Data bits of a character: 8 for every model of the catalogue. For the host to know; opening a port
  /// leaves the port's own number as it is.
  std::optional<std::int64_t> databits;
  /// 1, or any larger number for two stop bits. A negative number stops the process when the port is opened;
  /// without a number it is not opened.
  std::optional<std::int64_t> stopbits;
  /// 0 is none. The port is opened without parity whatever stands here, and not at all when nothing does.
  std::optional<std::int64_t> parity;
  /// Line speed in bit/s.
  std::int64_t baud = 0;
  /// Which built-in functions the host has switched on, coded as `getWithBP_SpO2`.
  std::int64_t setWithBP_SpO2 = 0;
  /// Path of the bound port; follows `serialPort()`.
  std::optional<std::string> protPath;
  /// A driver's own state flag; its driver says what it means.
  bool isState = false;
  /// The grade asked for last, in percent; -1 while none was.
  float requestGrade = -1.0F;
  /// The speed asked for last in km/h, or the power in watts; -1 while none was.
  float requestSpeed = -1.0F;

  /// The bound port, null when there is none.
  virtual const std::shared_ptr<ORSSerialPort>& serialPort() const;
  /// Binds the device to a port, or to none (null), and records the port's path in `protPath`. Drivers also
  /// become the port's delegate. Neither opens nor closes anything; a port that was bound before keeps its
  /// delegate.
  virtual void setSerialPort(std::shared_ptr<ORSSerialPort> port);

  /// Switches the built-in functions on or off. Does nothing unless a driver overrides it; none here does.
  virtual void setDeviceFunction(bool isBP, bool isSpO2);
  /// Treadmill: speed in km/h and grade in percent. Ergometer: power in watts, grade ignored.
  virtual void setLoad(float kmph_or_power, float grade);
  /// Asks for the current speed and grade, or power.
  virtual void requestLoad();
  /// Starts the belt or the exercise test.
  virtual void startDeivce();
  /// Stops the belt or ends the exercise test.
  virtual void stopStressDevice();
  /// Starts a blood-pressure measurement.
  virtual void startBP();
  /// Aborts a running measurement.
  virtual void breakBP();
  /// Asks for the last measurement's result.
  virtual void requestBP();
  /// Clears the stored measurement.
  virtual void clearBP();
  /// Starts SpO2 reporting. Does nothing unless a driver overrides it; none here does.
  virtual void startSpO2();
  /// Stops SpO2 reporting. Does nothing unless a driver overrides it; none here does.
  virtual void stopSpO2();
  /// Asks for an SpO2 value.
  virtual void requestSpO2();
  /// Stops at once. Does nothing unless a driver overrides it; none here does: a belt is stopped by
  /// `stopStressDevice()`, and at once only by the machine's own switch.
  virtual void emergencyStop();
  /// Leaves the emergency-stop state. Does nothing unless a driver overrides it; none here does.
  virtual void emergencyStopRecover();
  /// Asks for the device's status. Does nothing unless a driver overrides it; none here does.
  virtual void requestStatus();
  /// Reports the device's state; a driver that answers uses `deviceIsReadyWithIsReady`. Most never do:
  /// silence says nothing of the device.
  virtual void deviceState();

 private:
  std::shared_ptr<ORSSerialPort> serialPort_;
};

}  // namespace tarsil
