// Centrals whose oximeters never stop notifying, whose BlueZ does what it likes, and whose host never stops
// asking: everything that a host can do, in an order that nobody planned, and the end of each object at every
// moment. On the machine's own clock, with a BlueZ on threads of its own.

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "simulators/devices/medxingFrame.hpp"
#include "tarsil/bluetooth/bluez/makeBluezCentral.hpp"
#include "tarsil/drivers/vitals/MEDXINGSpO2.hpp"
#include "tarsil/runtime/RunLoop.hpp"
#include "tarsil/support/process.hpp"
#include "tests/bluez/FakeBluez.hpp"
#include "tests/bluez/PrivateBus.hpp"
#include "tests/faults/runUntil.hpp"

namespace tarsil {
namespace {

using namespace std::chrono_literals;

using Peripheral = std::shared_ptr<BluetoothPeripheral>;
using Characteristic = std::shared_ptr<BluetoothCharacteristic>;
using Error = std::optional<BluetoothError>;

constexpr const char* serviceUUID = "0000ffb0-0000-1000-8000-00805f9b34fb";
constexpr const char* characteristicUUID = "0000ffb2-0000-1000-8000-00805f9b34fb";
constexpr const char* oximeterName = "MEDXING-SpO2";
constexpr const char* deviceInterface = "org.bluez.Device1";

/// A BlueZ with two adapters and an oximeter in the reach of each. The oximeters notify without end; a
/// restless one also does everything else that BlueZ and the air can do.
class RestlessBluez {
 public:
  explicit RestlessBluez(bool isRestless) : isRestless_(isRestless) {
    queue_.sync([this] {
      start();
      beat_ = DispatchSource::timer(0s, 1ms, 0s, queue_);
      beat_->setEventHandler([this] { beat(); });
      beat_->resume();
    });
  }
  ~RestlessBluez() {
    queue_.sync([this] {
      beat_->cancel();
      bluez_ = nullptr;
    });
  }
  RestlessBluez(const RestlessBluez&) = delete;
  RestlessBluez& operator=(const RestlessBluez&) = delete;

  /// From now on everything works.
  void calmDown() {
    queue_.sync([this] {
      isRestless_ = false;
      if (!bluez_) start();
      bluez_->relent();
      for (const auto& adapter : adapters) {
        plugIn(adapter);
        bluez_->setPowered(path(adapter), true);
        bluez_->setFlag(device(adapter), "Connected", true);
        bluez_->setFlag(device(adapter), "ServicesResolved", true);
        bluez_->announce(device(adapter), deviceInterface, {{"RSSI", sdbus::Variant(std::int16_t{-50})}});
        rename(adapter, oximeterName);
      }
    });
  }

 private:
  static constexpr std::array<const char*, 2> adapters{"hci0", "hci1"};

  static std::string path(const std::string& adapter) { return "/org/bluez/" + adapter; }
  static std::string device(const std::string& adapter) { return path(adapter) + "/dev_C0_11_22_33_44_55"; }
  static std::string service(const std::string& adapter) { return device(adapter) + "/service0010"; }
  static std::string characteristic(const std::string& adapter) { return service(adapter) + "/char0011"; }

  void start() {
    bluez_ = std::make_unique<FakeBluez>(FakeBluez::Objects::handedOut, queue_);
    for (const auto& adapter : adapters) plugIn(adapter);
  }

  /// Whatever is missing of the adapter and its oximeter.
  void plugIn(const std::string& adapter) {
    if (!bluez_->has(path(adapter))) bluez_->addAdapter(adapter, true);
    if (!bluez_->has(device(adapter))) {
      bluez_->addDevice(
          path(adapter),
          {.name = oximeterName, .RSSI = -57, .servicesResolved = !isRestless_, .connected = !isRestless_});
    }
    if (!bluez_->has(service(adapter))) bluez_->addService(device(adapter), "service0010", serviceUUID);
    if (!bluez_->has(characteristic(adapter))) {
      bluez_->addCharacteristic(service(adapter), "char0011", characteristicUUID);
    }
  }

  void beat() {
    if (isRestless_ && below(4) == 0) disturb(adapters[below(2)]);
    if (!bluez_) return;
    for (const auto& call : bluez_->takeCalls()) obey(call);
    // No faster than the main thread: what waits for it must not grow.
    if (!mainTurned_->exchange(false)) return;
    DispatchQueue::main().async([turned = mainTurned_] { *turned = true; });
    for (const auto& adapter : adapters) {
      if (!bluez_->has(characteristic(adapter))) continue;
      for (int i = 0; i < 4; ++i) {
        bluez_->notify(characteristic(adapter),
                       simulators::medxingFrame(static_cast<std::uint8_t>(90 + below(10))));
      }
    }
  }

  /// What BlueZ says when it has done what it was asked for.
  void obey(const std::string& call) {
    const std::string device = call.substr(call.find(' ') + 1);
    const bool connects = call.starts_with("Connect ");
    if (!bluez_->has(device) || (!connects && !call.starts_with("Disconnect "))) return;
    bluez_->setFlag(device, "Connected", connects);
    bluez_->setFlag(device, "ServicesResolved", connects);
  }

  void disturb(const std::string& adapter) {
    if (!bluez_) return start();
    if (!bluez_->has(characteristic(adapter))) return plugIn(adapter);
    switch (below(16)) {
      case 0:
        return bluez_->setPowered(path(adapter), below(3) != 0);
      case 1:
      case 2:
        return bluez_->setFlag(device(adapter), "Connected", below(2) == 0);
      case 3:
      case 4:
        return bluez_->setFlag(device(adapter), "ServicesResolved", below(2) == 0);
      case 5:
        return bluez_->announce(device(adapter), deviceInterface,
                                {{"RSSI", sdbus::Variant(std::int16_t{-50})}});
      case 6:
        return bluez_->announce(device(adapter), deviceInterface, {}, {"RSSI"});
      case 7:
        return rename(adapter, below(2) == 0 ? "another" : oximeterName);
      case 8:
        return bluez_->tellReason(device(adapter), "org.bluez.Reason.Timeout", "as the test says");
      case 9:
        return bluez_->removeInterface(device(adapter), "org.bluez.Battery1");
      case 10:
        return bluez_->remove(
            std::array{path(adapter), device(adapter), service(adapter), characteristic(adapter)}[below(4)]);
      case 11:
      case 12:
        return bluez_->failNext(method(),
                                {below(2) == 0 ? "org.bluez.Error.InProgress" : "org.bluez.Error.Failed"});
      case 13:
        return bluez_->hold(method());
      case 14:
        return bluez_->relent();
      default:
        if (below(4) == 0) bluez_ = nullptr;
    }
  }

  void rename(const std::string& adapter, const std::string& name) {
    bluez_->announce(device(adapter), deviceInterface, {{"Name", sdbus::Variant(name)}});
  }

  std::string method() {
    return std::array{
        "Connect", "Disconnect", "StartDiscovery", "StopDiscovery", "StartNotify", "StopNotify"}[below(6)];
  }
  std::size_t below(std::size_t bound) { return random_() % bound; }

  const DispatchQueue queue_ = DispatchQueue::serial("bluez");
  // All of it belongs to the queue.
  std::unique_ptr<FakeBluez> bluez_;
  bool isRestless_;
  std::mt19937 random_{1};
  std::shared_ptr<DispatchSource> beat_;
  /// Since the last notifications.
  const std::shared_ptr<std::atomic<bool>> mainTurned_ = std::make_shared<std::atomic<bool>>(true);
};

/// Checks that it is called as it was promised. One that is eager takes the next step to a subscription in
/// each of its calls.
class Listener : public BluetoothCentralDelegate,
                 public BluetoothPeripheralDelegate,
                 public std::enable_shared_from_this<Listener> {
 public:
  /// At the end of each call.
  std::function<void()> onCall = [] {};
  bool isEager = false;
  std::vector<std::shared_ptr<BluetoothPeripheral>> discovered;
  std::size_t calls = 0;

  void centralManagerDidUpdateState(BluetoothCentral& central) override {
    if (isEager) central.scanForPeripherals();
    called();
  }
  void centralManagerDidDiscoverPeripheral(BluetoothCentral& central, const Peripheral& peripheral,
                                           const BluetoothAdvertisement&, std::optional<int>) override {
    EXPECT_EQ(central.state(), BluetoothState::poweredOn);
    discovered.push_back(peripheral);
    if (isEager) central.connect(peripheral);
    called();
  }
  void centralManagerDidConnectPeripheral(BluetoothCentral&, const Peripheral& peripheral) override {
    EXPECT_EQ(peripheral->state(), BluetoothPeripheralState::connected);
    peripheral->setDelegate(weak_from_this());
    if (isEager) peripheral->discoverServices();
    called();
  }
  void centralManagerDidFailToConnectPeripheral(BluetoothCentral&, const Peripheral& peripheral,
                                                const Error& error) override {
    EXPECT_TRUE(error);
    ended(*peripheral);
  }
  void centralManagerDidDisconnectPeripheral(BluetoothCentral&, const Peripheral& peripheral,
                                             const Error&) override {
    ended(*peripheral);
  }
  void peripheralDidDiscoverServices(const Peripheral& peripheral, const Error& error) override {
    EXPECT_TRUE(error || peripheral->state() != BluetoothPeripheralState::disconnected);
    for (const auto& service : peripheral->services()) {
      if (isEager) peripheral->discoverCharacteristics(service);
    }
    called();
  }
  void peripheralDidDiscoverCharacteristicsForService(const Peripheral& peripheral,
                                                      const std::shared_ptr<BluetoothService>& service,
                                                      const Error&) override {
    EXPECT_NE(peripheral->state(), BluetoothPeripheralState::disconnected);
    for (const auto& characteristic : service->characteristics()) {
      if (isEager) peripheral->setNotifyValue(true, characteristic);
    }
    called();
  }
  void peripheralDidUpdateNotificationStateForCharacteristic(const Peripheral& peripheral,
                                                             const Characteristic&, const Error&) override {
    EXPECT_NE(peripheral->state(), BluetoothPeripheralState::disconnected);
    called();
  }
  void peripheralDidUpdateValueForCharacteristic(const Peripheral& peripheral,
                                                 const Characteristic& characteristic,
                                                 const Error&) override {
    EXPECT_NE(peripheral->state(), BluetoothPeripheralState::disconnected);
    EXPECT_TRUE(characteristic->value());
    called();
  }

 private:
  void ended(const BluetoothPeripheral& peripheral) {
    EXPECT_EQ(peripheral.state(), BluetoothPeripheralState::disconnected);
    EXPECT_TRUE(peripheral.services().empty());
    called();
  }
  void called() {
    EXPECT_TRUE(RunLoop::isMainThread());
    ++calls;
    onCall();
  }
};

/// What a host hears of its oximeter.
struct Patient : KivStressPortDelegate {
  void onReceivedSpO2WithSpO2(float SpO2, std::int64_t) override {
    EXPECT_TRUE(RunLoop::isMainThread());
    EXPECT_GE(SpO2, 90);
    ++values;
  }
  std::size_t values = 0;
};

std::shared_ptr<MEDXINGSpO2> oximeterOf(const std::shared_ptr<BluetoothCentral>& central,
                                        const std::shared_ptr<Patient>& patient) {
  auto oximeter = std::make_shared<MEDXINGSpO2>();
  oximeter->kiv_delegate = patient;
  oximeter->handleDisconnect = false;
  oximeter->btManager = central;
  central->setDelegate(oximeter);
  return oximeter;
}

/// A host that does everything, one thing after the other.
class Host {
 public:
  explicit Host(std::uint32_t seed) : random_(seed) { renewListener(); }

  void hit() {
    ask();
    if (below(3) == 0) RunLoop::main().runUntil([] { return false; }, 1ms);
  }

  /// From now on it does nothing within the calls that it gets.
  void rest() { isResting_ = true; }

  const std::shared_ptr<BluetoothCentral>& central() const { return central_; }
  std::size_t heard() const { return heard_ + listener_->calls + patient_->values; }

  /// Lets go of everything, and hands back what must not outlive that.
  std::vector<std::weak_ptr<void>> drop() {
    std::vector<std::weak_ptr<void>> dropped{central_, oximeter_, listener_};
    for (const auto& peripheral : listener_->discovered) dropped.emplace_back(peripheral);
    listener_->discovered.clear();
    listener_->onCall = [] {};
    service_ = nullptr;
    characteristic_ = nullptr;
    oximeter_ = nullptr;
    listener_ = nullptr;
    central_ = nullptr;
    return dropped;
  }

 private:
  void ask() {
    isAsking_ = true;
    askSomething();
    isAsking_ = false;
  }

  void askSomething() {
    switch (below(20)) {
      case 0:
      case 1:
        return central_->scanForPeripherals();
      case 2:
        return central_->stopScan();
      case 3:
      case 4:
      case 5:
        return central_->connect(peripheral());
      case 6:
        return central_->cancelPeripheralConnection(peripheral());
      case 7:
      case 8:
        if (const auto target = peripheral()) {
          target->setDelegate(listener_);
          target->discoverServices();
        }
        return;
      case 9:
      case 10:
        if (const auto target = peripheral()) {
          if (!target->services().empty()) service_ = target->services().front();
          target->discoverCharacteristics(service_);
        }
        return;
      case 11:
      case 12:
      case 13:
        if (service_ && !service_->characteristics().empty())
          characteristic_ = service_->characteristics().front();
        if (const auto target = peripheral()) target->setNotifyValue(below(4) != 0, characteristic_);
        return;
      case 14:
        return central_->setDelegate(listener_);
      case 15:
        oximeter_ = oximeterOf(central_, patient_);
        return;
      case 16:
        oximeter_ = nullptr;
        return;
      case 17:
        listener_->discovered.clear();
        return;
      case 18:
        return renewListener();
      default:
        // Seldom: what goes wrong for good shows in a central that has seen much.
        if (below(20) == 0) renewCentral();
    }
  }

  Peripheral peripheral() {
    const auto& known = listener_->discovered;
    return known.empty() ? nullptr : known[below(known.size())];
  }

  void renewListener() {
    if (listener_) heard_ += listener_->calls;
    auto before = std::exchange(listener_, std::make_shared<Listener>());
    if (before) listener_->discovered = before->discovered;
    listener_->onCall = [this] { answer(); };
    central_->setDelegate(listener_);
  }

  void renewCentral() {
    central_ = makeBluezCentral();
    central_->setDelegate(listener_);
  }

  /// Within a call, which never comes while the host is asking.
  void answer() {
    EXPECT_FALSE(isAsking_);
    if (isResting_) return;
    switch (below(64)) {
      case 0:
        // Not for ever deeper.
        if (std::exchange(runsLoop_, true)) return;
        RunLoop::main().runUntil([] { return false; }, 3ms);
        runsLoop_ = false;
        return;
      case 1:
        return below(8) == 0 ? renewCentral() : listener_->discovered.clear();
      default:
        if (below(4) == 0) ask();
    }
  }

  std::size_t below(std::size_t bound) { return random_() % bound; }

  std::mt19937 random_;
  std::shared_ptr<BluetoothCentral> central_ = makeBluezCentral();
  std::shared_ptr<Patient> patient_ = std::make_shared<Patient>();
  std::shared_ptr<Listener> listener_;
  std::shared_ptr<MEDXINGSpO2> oximeter_;
  std::shared_ptr<BluetoothService> service_;
  Characteristic characteristic_;
  std::size_t heard_ = 0;
  bool isAsking_ = false;
  bool isResting_ = false;
  bool runsLoop_ = false;
};

bool expire(const std::vector<std::weak_ptr<void>>& objects) {
  for (const auto& object : objects) {
    if (!runUntil([&] { return object.expired(); })) return false;
  }
  return true;
}

class HammeredCentralTest : public testing::Test {
 protected:
  const ScopedProcessHooks hooks_{{.print = [](std::string_view, PrintedText) {}}};
  PrivateBus bus_;
};

TEST_F(HammeredCentralTest, StandsWhateverItsHostAndBluezDoWhileAnOximeterNotifies) {
  std::size_t heard = 0;
  for (std::uint32_t round = 0; round < 4; ++round) {
    RestlessBluez bluez(true);
    Host host(round);
    for (int hits = 0; hits < 1000; ++hits) host.hit();
    heard += host.heard();
    host.rest();
    bluez.calmDown();
    // Whatever it went through, an oximeter measures with it.
    const auto patient = std::make_shared<Patient>();
    auto oximeter = oximeterOf(host.central(), patient);
    EXPECT_TRUE(runUntil([&] { return patient->values > 1; })) << "round " << round;
    oximeter = nullptr;
    EXPECT_TRUE(expire(host.drop())) << "round " << round;
  }
  EXPECT_GT(heard, 100U);
}

TEST_F(HammeredCentralTest, EachObjectMayBeDroppedInEachOfItsCalls) {
  const RestlessBluez bluez(false);
  for (std::size_t call = 1; call < 12; ++call) {
    for (int kind = 0; kind < 4; ++kind) {
      auto central = makeBluezCentral();
      auto listener = std::make_shared<Listener>();
      std::vector<std::weak_ptr<void>> dropped{central, listener};
      bool isDropped = false;
      listener->isEager = true;
      listener->onCall = [&, heard = listener.get()] {
        isDropped = heard->calls == call;
        if (!isDropped) return;
        dropped.insert(dropped.end(), heard->discovered.begin(), heard->discovered.end());
        if (kind == 0 || kind == 3) central = nullptr;
        if (kind == 1 || kind == 3) heard->discovered.clear();
        if (kind == 2 || kind == 3) listener = nullptr;
      };
      central->setDelegate(listener);
      EXPECT_TRUE(runUntil([&] { return isDropped; }));
      central = nullptr;
      listener = nullptr;
      EXPECT_TRUE(expire(dropped)) << "dropped in call " << call;
    }
  }
}

TEST_F(HammeredCentralTest, EachObjectMayBeDroppedAtEachMoment) {
  const RestlessBluez bluez(true);
  for (int moment = 0; moment < 90; ++moment) {
    auto central = makeBluezCentral();
    auto oximeter = oximeterOf(central, std::make_shared<Patient>());
    for (int turns = 0; turns < moment; ++turns) RunLoop::main().processDue();
    auto peripheral = oximeter->peripheral;
    const std::vector<std::weak_ptr<void>> dropped{central, oximeter, peripheral};
    oximeter->btManager = nullptr;
    if (moment % 3 == 0) central = nullptr;
    if (moment % 3 == 1) oximeter = nullptr;
    if (moment % 3 == 2) peripheral = nullptr;
    RunLoop::main().processDue();
    // Without its central a peripheral does nothing.
    if (peripheral) peripheral->discoverServices();
    central = nullptr;
    oximeter = nullptr;
    peripheral = nullptr;
    EXPECT_TRUE(expire(dropped)) << "dropped after " << moment << " turns";
  }
}

}  // namespace
}  // namespace tarsil
