#pragma once

#include "tarsil/support/cpp20.hpp"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tarsil/core/DeviceCatalogue.hpp"
#include "tarsil/core/KivStressDevice.hpp"
#include "tarsil/core/KivStressPortDelegate.hpp"
#include "tarsil/core/PortType.hpp"
#include "tarsil/runtime/Timer.hpp"
#include "tarsil/serial/ORSSerialPortDelegate.hpp"

namespace tarsil {

class BluetoothCentral;
class BluetoothPeripheral;
class BluetoothService;
class ORSSerialPort;
class ORSSerialPortManager;

/// What a manager shares with others; null stands for the shared object of the process. Either must outlive
/// the manager, and the log the devices, too.
struct SharedByManagers {
  /// Knows the ports.
  ORSSerialPortManager* portManager = nullptr;
  /// The traffic log of the devices that the manager makes.
  FileManagerTool* log = nullptr;
};

/// What a host application talks to. It lists device models and serial ports, binds a model and a port to
/// each of the three roles of `PortType`, opens the ports, and passes the commands of a test on to the device
/// of their role.
///
/// The host calls, in this order: `delegate`; `getDeivceType()`, `getDeviceByType()` and, for an oximeter,
/// `getSpO2Devices()`; `getPort()`; `getSelected()`, and sets the `kiv_delegate` of the device that it gets
/// back; `selectedPort()`; `openPort()`; the commands; `closePort()`.
///
/// Commands return nothing: measurements and errors reach the `kiv_delegate` of the device. A command for a
/// role that has no device is dropped without a report. Everything here, fields included, belongs to the main
/// thread. When the process ends, ports are closed and no host is called; a belt that runs goes on running.
class StressECGDeviceManager : public ORSSerialPortDelegate,
                               public std::enable_shared_from_this<StressECGDeviceManager> {
 public:
  using Devices = std::vector<std::shared_ptr<KivStressDevice>>;
  using Names = std::vector<std::string>;

  /// A list of devices, or none. A temporary one hands out the list itself and no reference into it, so that
  /// `for (auto& device : *station.getDeviceByType("Treadmill"))` is good to the loop's end. Asked for a list
  /// that is none, it throws std::bad_optional_access.
  class OptionalDevices : public std::optional<Devices> {
   public:
    using std::optional<Devices>::optional;
    using std::optional<Devices>::operator*;
    using std::optional<Devices>::value;
    Devices operator*() && { return std::move(*this).value(); }
    Devices value() && { return std::move(std::optional<Devices>::value()); }
  };

  /// The one manager, made on first use with the catalogue of real devices; it lives as long as the process,
  /// unless `exchangeShared` takes it away.
  static StressECGDeviceManager& share();
  /// Puts another manager in the shared one's place (null: a new one at the next `share()`) and hands back
  /// the old one (null: there was none yet). For programs that need a station as new: not within a call of
  /// the old one or of its delegates. Main thread.
  static std::shared_ptr<StressECGDeviceManager> exchangeShared(
      std::shared_ptr<StressECGDeviceManager> manager);

  /// A manager of its own, for a program that brings another catalogue, other ports or another log. Drivers
  /// that report through the shared manager do not know it. It must live in a std::shared_ptr to become a
  /// port's delegate.
  explicit StressECGDeviceManager(DeviceCatalogue catalogue, SharedByManagers shared = {});
  ~StressECGDeviceManager() override;
  StressECGDeviceManager(const StressECGDeviceManager&) = delete;
  StressECGDeviceManager& operator=(const StressECGDeviceManager&) = delete;

  /// @name Devices and ports
  /// @{

  /// The kinds of exercise device: "Treadmill", "Ergometer".
  Names getDeivceType() const;
  /// New devices of that kind, in the catalogue's order, which become `devices`; none, and `devices` as they
  /// were, for a text that is not exactly a kind.
  OptionalDevices getDeviceByType(const std::string& type);
  /// New pulse oximeters for a serial port, which become `SpO2Devices`; never none.
  OptionalDevices getSpO2Devices();
  /// The names of the ports, as first read or last refreshed; an empty list when there is no port. `isSpO2`
  /// says for whom: while it is true, refreshes serve `getPortsNameWithSpO2` too. The first call also starts
  /// a refresh every 2.0 s on the calling thread's run loop; nothing ends it.
  Names getPort(bool isSpO2);
  /// One refresh: reads the port list anew and tells the closures when it changed.
  void port();
  /// Chooses the device with that name for the role, from the list last built; with none of that name the
  /// choice stays as it is. Returns the chosen device of the role, null when there is none and always for
  /// `BP`, whose device is made by `selectedPort`.
  std::shared_ptr<KivStressDevice> getSelected(const std::string& device, PortType type);
  /// Chooses the port with that name for the role; for `BP` also makes a new blood-pressure monitor, each
  /// time, whose `kiv_delegate` the host sets anew. Opens
  /// nothing. An unknown name changes nothing; an empty one, or one before the first `getPort`, only prints a
  /// text on standard output.
  void selectedPort(const std::string& port, PortType type);
  /// Binds the role's port to the role's device, applies the line settings (speed, stop bits, no parity) and
  /// opens. The answer says whether the role had its device and its port (an oximeter needs no port); that
  /// the port is open is reported later, to its delegate. A device without stop bits or parity leaves the
  /// port closed; a negative number of stop bits stops the process. Ignored while the port is still closing.
  bool openPort(PortType type);
  /// Closes the exercise device's port, if one was chosen. The other ports stay as they are. The port is
  /// closed some moments later, on a worker thread; until then `openPort` is ignored. To reopen, wait for the
  /// port's "isOpen".
  void closePort();

  /// @}
  /// @name Commands to the exercise device; without one they do nothing
  /// @{

  /// Starts the belt or the exercise test.
  void startStressDevice();
  /// Stops the belt or ends the exercise test.
  void stopStressDevice();
  /// Treadmill: km/h and percent. Ergometer: watts, grade ignored. Every value is passed on as it is: limits
  /// are the drivers' business, which may stop the process for what is no number of their protocol.
  void setLoad(float kmph_or_power, float grade);
  /// Asks for the current speed and grade, or power.
  void requestLoad();
  /// Asks for the device's state; `deviceIsReadyWithIsReady` is the answer, from the models that give one
  /// (`LodeOEMTreadmill`, `TrackMaster`): silence says nothing of the device.
  void deviceState();

  /// @}
  /// @name Blood pressure: the separate monitor (true) or the exercise device's own unit (false)
  /// A command to the separate monitor sets `isTango`, monitor or not, and binds `BPPort` to the monitor
  /// first. Without the device it does nothing else.
  /// @{

  /// Starts a measurement. The exercise device, too, is bound to its port first.
  void startBP(bool isPeripheral);
  /// Aborts a running measurement.
  void breakBP(bool isPeripheral);
  /// Asks for the last measurement's result.
  void requestBP(bool isPeripheral);
  /// Clears the stored measurement. The other way round than its neighbours: false clears the separate
  /// monitor, true does nothing.
  void clearBP(bool isPeripheral);

  /// @}
  /// @name Oxygen saturation
  /// @{

  /// Asks the role's device for its saturation. Does nothing without one; a type that is none of the three
  /// stops the process.
  void startSpO2(PortType type);
  /// For `BP` the same as `startSpO2`, for the other roles nothing at all; a type that is none of the three
  /// stops the process.
  void stopSpO2(PortType type);
  /// True when `peripheral` has a name and this is exactly it.
  bool isSpO2Bluetooth(const std::string& name) const;
  /// The name of `peripheral`; none without one, or while it has no name.
  std::optional<std::string> getSpO2BlueToothName() const;
  /// Asks `btManager` to connect `peripheral`; nothing happens unless both exist.
  void connectBluetoothSpO2();

  /// @}

  /// Reactions to a port whose delegate the host made this manager: opened and removed are passed on to
  /// `delegate`, an error is printed, bytes are ignored.
  void serialPortWasOpened(ORSSerialPort& port) override;
  void serialPortWasRemovedFromSystem(ORSSerialPort& port) override;
  void serialPortDidEncounterError(ORSSerialPort& port, const Error& error) override;
  void serialPortDidReceiveData(ORSSerialPort& port, const Bytes& data) override;

  /// Hears of the ports above, and of the measurements of drivers that say so.
  KivStressPortDelegateRef delegate;
  /// Port list last read; none before the first `getPort`.
  std::optional<std::vector<std::shared_ptr<ORSSerialPort>>> ports;
  /// List last built by `getDeviceByType`.
  Devices devices;
  /// Chosen ports of the roles.
  std::shared_ptr<ORSSerialPort> devicePort;
  std::shared_ptr<ORSSerialPort> BPPort;
  std::shared_ptr<ORSSerialPort> SpO2Port;
  /// Chosen devices of the roles.
  std::shared_ptr<KivStressDevice> currentDevice;
  std::shared_ptr<KivStressDevice> BPD;
  std::shared_ptr<KivStressDevice> SpO2D;
  /// List last built by `getSpO2Devices`.
  Devices SpO2Devices;
  /// Names last reported through the closure below it, which hears of changes of the port list.
  Names portNames;
  std::function<void(const Names&)> getPortsName;
  /// The same for the chooser of the oximeter's port; served only after `getPort(true)`.
  Names portNamesWithSpO2;
  std::function<void(const Names&)> getPortsNameWithSpO2;
  /// A blood-pressure command was meant for the separate monitor; never becomes false again.
  bool isTango = false;
  /// The refresh timer; null before the first `getPort`.
  std::shared_ptr<Timer> timer;
  /// The central and the oximeter that `connectBluetoothSpO2` uses; the host supplies both.
  std::shared_ptr<BluetoothCentral> btManager;
  std::shared_ptr<BluetoothPeripheral> peripheral;
  /// What the last `getPort` asked for.
  bool getPortIsSpO2 = false;
  /// The oximeter's Bluetooth service and characteristic.
  std::string serviceid = "FFB0";
  std::string characteristicid = "FFB2";

  /// Part of the interface; the manager does not use them.
  bool deviceType = false;
  std::shared_ptr<BluetoothService> SpO2service;
  std::string befoSpO2Value;
  bool isreceived = false;
  std::shared_ptr<Timer> act = Timer::unscheduled();

 private:
  Names currentNames() const;
  ORSSerialPortManager& portManager() const;
  /// Gives new devices the traffic log, where there is one of this manager's.
  Devices withLog(Devices made) const;
  /// Hands a command to the separate blood-pressure monitor, bound to its port anew.
  void commandMonitor(void (KivStressDevice::*command)());

  DeviceCatalogue catalogue_;
  SharedByManagers shared_;
};

}  // namespace tarsil
