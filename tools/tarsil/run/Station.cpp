#include "tools/tarsil/run/Station.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <set>
#include <utility>

#include "tarsil/bluetooth/BluetoothCentral.hpp"
#include "tarsil/core/StressECGDeviceManager.hpp"
#include "tarsil/drivers/vitals/MEDXINGSpO2.hpp"
#include "tarsil/serial/ORSSerialPort.hpp"
#include "tools/tarsil/CommandFailure.hpp"

namespace tarsil::cli {
namespace {

using Kind = Entry::Kind;

/// Statuses of a Tango record.
constexpr std::int64_t initialised = 3;

}  // namespace

/// Hears one role's device, or the manager where drivers report there.
class Station::Host final : public KivStressPortDelegate {
 public:
  Host(Station& station, Role role) : station_(&station), role_(role) {}

  /// The station is going; nothing is heard any more.
  void retire() { station_ = nullptr; }

  void portWasOpened() override {
    if (station_) station_->opened(role_);
  }

  void portWasRemovedFromSystem() override {
    if (!station_) return;
    station_->journal_.note(role_, Kind::failure, "removed", {}, "the port has vanished");
    if (station_->onRemoved) station_->onRemoved(role_);
  }

  void onReceivedTreadmillLoadWithSpeed(float speed, float grade) override {
    if (!station_) return;
    const Load load{speed / station_->traits_.speedUnit, grade / station_->traits_.gradeUnit};
    station_->load_ = {load, Clock::now()};
    answered("load", {load.load, load.grade}, fmt::format("{:.1f} km/h, {:.1f} %", load.load, load.grade));
  }

  void onReceivedErgometerPowerWithPower(float power) override {
    if (!station_) return;
    station_->load_ = {Load{power, 0}, Clock::now()};
    answered("power", {power}, fmt::format("{:.0f} W", power));
  }

  void onReceivedErgometerRpmWithRpm(float rpm) override {
    if (!station_) return;
    station_->pedalRate_ = {rpm, Clock::now()};
    answered("rpm", {rpm}, fmt::format("{:.0f} rpm", rpm));
  }

  void onReceivedBPWithSysBP(float sysBP, float diaBP, std::int64_t status) override {
    if (!station_) return;
    if (status == initialised && sysBP == 0 && diaBP == 0 && !station_->monitorIsReady_) {
      station_->monitorIsReady_ = true;
      return answered("pressureReady", {}, "blood-pressure monitor initialised");
    }
    station_->pressure_ = {Pressure{sysBP, diaBP}, Clock::now()};
    answered("pressure", {sysBP, diaBP, static_cast<float>(status)},
             fmt::format("{:.0f}/{:.0f} mmHg, status {}", sysBP, diaBP, status));
  }

  void onReceivedSpO2WithSpO2(float SpO2, std::int64_t status) override {
    if (!station_) return;
    station_->saturation_ = {SpO2, Clock::now()};
    const std::string text = SpO2 < 0 ? "no saturation" : fmt::format("{:.0f} %", SpO2);
    answered("saturation", {SpO2, static_cast<float>(status)}, text);
  }

  void onErrorWithCode(const std::string& code, const std::string& details) override {
    if (!station_) return;
    station_->journal_.note(role_, Kind::failure, "error", {}, fmt::format("error {}: {}", code, details));
  }

  void successfully() override {
    if (station_) answered("accepted", {}, "command accepted");
  }

 private:
  void answered(std::string what, std::vector<float> values, std::string text) {
    station_->journal_.note(role_, Kind::answered, std::move(what), std::move(values), std::move(text));
  }

  Station* station_;
  Role role_;
};

Station::Station(Plan plan, Journal& journal)
    : plan_(std::move(plan)), journal_(journal), manager_(StressECGDeviceManager::share()) {}

Station::~Station() {
  for (const auto& host : hosts_) host->retire();
  manager_.delegate = nullptr;
  if (!oximeter_) return;
  manager_.SpO2D = nullptr;
  manager_.btManager = nullptr;
}

void Station::connect() {
  std::shared_ptr<KivStressDevice> device;
  for (const std::string& kind : manager_.getDeivceType()) {
    const auto devices = *manager_.getDeviceByType(kind);
    const auto isWanted = [&](const auto& candidate) { return candidate->name == plan_.model; };
    if (std::none_of(devices.begin(), devices.end(), isWanted)) continue;
    traits_ = traitsOf(plan_.model, *stressDeviceTypeFromRawValue(kind));
    device = manager_.getSelected(plan_.model, PortType::device);
    break;
  }
  if (!device) {
    throw CommandFailure(
        badInput, fmt::format("no exercise device is called \"{}\"; see `tarsil devices`", plan_.model));
  }

  manager_.getPort(false);
  manager_.port();  // the list may be older than this session
  const auto exerciseHost = hosts_.emplace_back(std::make_shared<Host>(*this, Role::exercise));
  device->kiv_delegate = exerciseHost;
  manager_.delegate = exerciseHost;
  choose(Role::exercise, PortType::device, plan_.port);
  if (plan_.pressurePort) {
    choose(Role::pressure, PortType::BP, *plan_.pressurePort);
    manager_.BPD->kiv_delegate = hosts_.emplace_back(std::make_shared<Host>(*this, Role::pressure));
  }
  if (plan_.oximeterPort) {
    manager_.getSelected("MEDXINGPort", PortType::SpO2)->kiv_delegate =
        hosts_.emplace_back(std::make_shared<Host>(*this, Role::oximeter));
    choose(Role::oximeter, PortType::SpO2, *plan_.oximeterPort);
  }
  if (usesBluetooth()) lookForOximeter();
  for (const Place& place : places_) {
    asked(place.role, "openPort", {}, fmt::format("open {}", place.port));
    manager_.openPort(place.type);
  }
}

void Station::choose(Role role, PortType type, const std::string& port) {
  const auto names = manager_.getPort(type == PortType::SpO2);
  if (std::find(names.begin(), names.end(), port) == names.end()) {
    throw CommandFailure(badInput, fmt::format("there is no port \"{}\"; see `tarsil ports`", port));
  }
  if (std::any_of(places_.begin(), places_.end(), [&](const Place& place) { return place.port == port; })) {
    throw CommandFailure(badInput, fmt::format("the port \"{}\" cannot serve two devices", port));
  }
  manager_.selectedPort(port, type);
  places_.push_back({role, type, port});
}

void Station::lookForOximeter() {
  asked(Role::oximeter, "scan", {}, "look for the Bluetooth oximeter");
  central_ = plan_.makeCentral();
  oximeter_ = std::make_shared<MEDXINGSpO2>();
  oximeter_->kiv_delegate = hosts_.emplace_back(std::make_shared<Host>(*this, Role::oximeter));
  oximeter_->btManager = central_;
  oximeter_->handleDisconnect = false;  // connects at once, and again after a lost link
  central_->setDelegate(oximeter_);
  manager_.SpO2D = oximeter_;
  manager_.btManager = central_;
}

void Station::opened(Role role) {
  for (const Place& place : places_) {
    if (place.role == role)
      journal_.note(role, Kind::event, "opened", {}, fmt::format("{} is open", place.port));
  }
}

// The port itself is asked: a device that no software drives hears of nothing.
bool Station::isOpen(const Place& place) const {
  const auto& port = place.type == PortType::device ? manager_.devicePort
                     : place.type == PortType::BP   ? manager_.BPPort
                                                    : manager_.SpO2Port;
  return port && port->isOpen();
}

bool Station::allOpened() const {
  return std::all_of(places_.begin(), places_.end(), [this](const Place& place) { return isOpen(place); });
}

std::string Station::unopened() const {
  std::string names;
  for (const Place& place : places_) {
    if (!isOpen(place))
      names += fmt::format("{}{} ({})", names.empty() ? "" : ", ", place.port, nameOf(place.role));
  }
  return names;
}

void Station::close() {
  asked(Role::exercise, "closePort", {}, "close the ports");
  // The manager closes the exercise device's port only.
  manager_.closePort();
  for (const auto& port : {manager_.BPPort, manager_.SpO2Port}) {
    if (port) port->close();
  }
  if (!oximeter_) return;
  oximeter_->handleDisconnect = true;
  central_->stopScan();
  if (oximeter_->peripheral) central_->cancelPeripheralConnection(oximeter_->peripheral);
}

bool Station::isClosed() const {
  const std::array ports{manager_.devicePort, manager_.BPPort, manager_.SpO2Port};
  return std::none_of(ports.begin(), ports.end(), [](const auto& port) { return port && port->isOpen(); });
}

void Station::start() {
  asked(Role::exercise, "startStressDevice", {}, "start");
  manager_.startStressDevice();
}

void Station::stop() {
  asked(Role::exercise, "stopStressDevice", {}, "stop");
  manager_.stopStressDevice();
}

void Station::setLoad(Load load) {
  const bool isTreadmill = traits_.kind == StressDeviceType::Treadmill;
  asked(Role::exercise, "setLoad", {load.load, load.grade},
        isTreadmill ? fmt::format("set {:.2f} km/h, {:.1f} %", load.load, load.grade)
                    : fmt::format("set {:.0f} W", load.load));
  manager_.setLoad(load.load, load.grade);
}

void Station::requestLoad() {
  asked(Role::exercise, "requestLoad", {}, "request load");
  manager_.requestLoad();
}

void Station::startPressure() {
  asked(hasMonitor() ? Role::pressure : Role::exercise, "startBP", {}, "start blood pressure");
  manager_.startBP(hasMonitor());
}

void Station::requestPressure() {
  asked(hasMonitor() ? Role::pressure : Role::exercise, "requestBP", {}, "request blood pressure");
  manager_.requestBP(hasMonitor());
}

void Station::breakPressure() {
  asked(hasMonitor() ? Role::pressure : Role::exercise, "breakBP", {}, "abort blood pressure");
  manager_.breakBP(hasMonitor());
}

void Station::asked(Role role, std::string what, std::vector<float> values, std::string text) {
  journal_.note(role, Kind::asked, std::move(what), std::move(values), std::move(text));
}

}  // namespace tarsil::cli
