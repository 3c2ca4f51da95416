#pragma once

#include <array>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tarsil/core/KivStressPortDelegate.hpp"
#include "tarsil/core/PortType.hpp"
#include "tarsil/runtime/Clock.hpp"
#include "tools/tarsil/run/Journal.hpp"
#include "tools/tarsil/run/ModelTraits.hpp"

namespace tarsil {
class BluetoothCentral;
class MEDXINGSpO2;
class ORSSerialPort;
class StressECGDeviceManager;
}  // namespace tarsil

namespace tarsil::cli {

/// A value that a device reported, and when.
template <class Value>
struct Dated {
  Value value;
  Clock::Instant at;
};

struct Load {
  /// km/h or watts
  float load = 0;
  /// percent
  float grade = 0;
};

struct Pressure {
  /// mmHg
  float systolic = 0;
  float diastolic = 0;
};

/// The equipment of one session, reached through the facade: what is asked and answered goes into the
/// journal, the last values stay here. Main thread.
class Station {
 public:
  struct Plan {
    std::string model;
    /// Names of ports as the library lists them.
    std::string port;
    std::optional<std::string> pressurePort = {};
    std::optional<std::string> oximeterPort = {};
    /// Makes the central of a Bluetooth oximeter; empty without one.
    std::function<std::shared_ptr<BluetoothCentral>()> makeCentral = {};
  };

  /// A place of the station that has a port.
  struct Place {
    Role role;
    PortType type;
    std::string port;
  };

  Station(Plan plan, Journal& journal);
  ~Station();
  Station(const Station&) = delete;
  Station& operator=(const Station&) = delete;

  /// Chooses devices and ports and asks to open them. Throws CommandFailure for a model or a port that is not
  /// there.
  void connect();
  /// Asks to close every port.
  void close();
  bool isClosed() const;

  const ModelTraits& traits() const { return traits_; }
  bool hasMonitor() const { return plan_.pressurePort.has_value(); }
  bool hasOximeter() const { return plan_.oximeterPort || usesBluetooth(); }
  bool usesBluetooth() const { return plan_.makeCentral != nullptr; }
  /// Whether anything can measure blood pressure, and answer.
  bool answersPressure() const { return hasMonitor() || traits_.answersPressure; }
  bool allOpened() const;
  /// "ttyUSB0 (exercise)" for the ports that have not opened.
  std::string unopened() const;

  void start();
  void stop();
  void setLoad(Load load);
  void requestLoad();
  void startPressure();
  void requestPressure();
  void breakPressure();

  const std::optional<Dated<Load>>& load() const { return load_; }
  const std::optional<Dated<float>>& pedalRate() const { return pedalRate_; }
  /// The last plausible pressure.
  const std::optional<Dated<Pressure>>& pressure() const { return pressure_; }
  const std::optional<Dated<float>>& saturation() const { return saturation_; }
  /// The Tango monitor has answered its initialisation.
  bool monitorIsReady() const { return monitorIsReady_; }

  /// A port vanished.
  std::function<void(Role)> onRemoved;

 private:
  class Host;

  void lookForOximeter();
  bool isOpen(const Place& place) const;
  void choose(Role role, PortType type, const std::string& port);
  void opened(Role role);
  void asked(Role role, std::string what, std::vector<float> values, std::string text);

  Plan plan_;
  Journal& journal_;
  StressECGDeviceManager& manager_;
  ModelTraits traits_;
  std::vector<Place> places_;
  std::vector<std::shared_ptr<Host>> hosts_;
  std::optional<Dated<Load>> load_;
  std::optional<Dated<float>> pedalRate_;
  std::optional<Dated<Pressure>> pressure_;
  std::optional<Dated<float>> saturation_;
  bool monitorIsReady_ = false;
  /// Of the Bluetooth oximeter.
  std::shared_ptr<BluetoothCentral> central_;
  std::shared_ptr<MEDXINGSpO2> oximeter_;
};

}  // namespace tarsil::cli
