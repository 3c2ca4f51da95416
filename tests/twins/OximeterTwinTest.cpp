// The Bluetooth oximeter's driver and a slow transcription of its rules live in two worlds that are alike,
// get the same operations, chosen by a seed, and must do the same.

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "doubles/ScriptedCentral.hpp"
#include "tarsil/drivers/vitals/MEDXINGSpO2.hpp"
#include "tarsil/runtime/VirtualTime.hpp"
#include "tarsil/support/process.hpp"
#include "tests/helpers/RecordingHost.hpp"
#include "tests/helpers/ScriptedPort.hpp"
#include "tests/twins/Twin.hpp"
#include "tests/twins/slowCodecs.hpp"

namespace tarsil::twins {
namespace {

using namespace std::chrono_literals;

using Text = std::optional<std::string>;
using Error = std::optional<BluetoothError>;
using Peripheral = std::shared_ptr<BluetoothPeripheral>;
using Service = std::shared_ptr<BluetoothService>;
using Characteristic = std::shared_ptr<BluetoothCharacteristic>;

/// Its fields are the driver's. Of a serial device it has the fields only: what is asked of one is ignored.
class OximeterTwin final : public KivStressDevice,
                           public BluetoothCentralDelegate,
                           public BluetoothPeripheralDelegate {
 public:
  std::string peripheralName = "MEDXING-SpO2";
  std::shared_ptr<BluetoothCentral> btManager;
  Peripheral peripheral;
  Service SpO2service;
  std::string serviceid = "FFB0";
  std::string characteristicid = "FFB2";
  std::string befoSpO2Value;
  std::optional<bool> handleDisconnect;

  void centralManagerDidUpdateState(BluetoothCentral& central) override {
    if (central.state() == BluetoothState::poweredOff) {
      printLine("蓝牙关闭，请先打开蓝牙", PrintedText::fixed);
    } else if (central.state() == BluetoothState::poweredOn) {
      if (btManager) btManager->scanForPeripherals();
      printLine("蓝牙已打开, 请扫描外设!", PrintedText::fixed);
    }
  }

  void centralManagerDidDiscoverPeripheral(BluetoothCentral&, const Peripheral& seen,
                                           const BluetoothAdvertisement&, std::optional<int>) override {
    if (!seen->name().has_value()) return;
    if (seen->name().value() != peripheralName) return;
    if (peripheral) {
      if (btManager) btManager->connect(peripheral);
    } else {
      peripheral = seen;
      name = seen->name();
      if (btManager && looksAfterTheConnection()) btManager->connect(peripheral);
    }
    if (btManager) btManager->stopScan();
  }

  void centralManagerDidConnectPeripheral(BluetoothCentral&, const Peripheral&) override {
    if (!peripheral) return;
    peripheral->setDelegate(std::static_pointer_cast<OximeterTwin>(shared_from_this()));
    peripheral->discoverServices();
  }

  void centralManagerDidDisconnectPeripheral(BluetoothCentral&, const Peripheral&, const Error&) override {
    if (btManager && looksAfterTheConnection()) btManager->scanForPeripherals();
  }

  void peripheralDidDiscoverServices(const Peripheral& answering, const Error&) override {
    for (const Service& service : answering->services()) {
      if (service->UUID() != serviceid) continue;
      SpO2service = service;
      answering->discoverCharacteristics(service);
    }
  }

  void peripheralDidDiscoverCharacteristicsForService(const Peripheral& answering, const Service& service,
                                                      const Error&) override {
    for (const Characteristic& characteristic : service->characteristics()) {
      if (characteristic->UUID() == characteristicid) answering->setNotifyValue(true, characteristic);
    }
  }

  void peripheralDidUpdateValueForCharacteristic(const Peripheral&, const Characteristic& characteristic,
                                                 const Error&) override {
    if (characteristic->UUID() != characteristicid || !characteristic->value()) return;
    const std::string digits = lowerHexText(characteristic->value().value());
    if (digits.size() < 9 || digits.substr(8, 4) != "2395") return;
    const bool hasSaturation = digits.size() >= 18;
    const std::string saturation = hasSaturation ? digits.substr(16, 2) : "范围越界";
    if (saturation == befoSpO2Value) return;
    befoSpO2Value = saturation;
    // A frame that ends before its saturation measures none.
    const std::int64_t percent = hasSaturation ? numberOf(saturation) : -1;
    kiv_delegate.onReceivedSpO2WithSpO2(percent > 100 ? -1 : static_cast<float>(percent), 1);
  }

 private:
  bool looksAfterTheConnection() const { return handleDisconnect.has_value() && !handleDisconnect.value(); }

  static std::string lowerHexText(const Bytes& bytes) {
    std::string digits;
    for (const std::uint8_t byte : bytes) digits += (byte < 16 ? "0" : "") + lowerHex(byte);
    return digits;
  }
};

/// Two centrals, three peripherals, a port and a host, for one of the two oximeters.
template <class Oximeter>
struct World {
  using Note = std::function<void(const std::string&)>;

  World(VirtualTime& time, const Note& note) : port(time), note_(note) {
    oximeter->kiv_delegate = host;
    oximeter->btManager = centrals[0];
    centrals[0]->setDelegate(oximeter);
    host.onCall([this](const RecordedCall& call) {
      note_(call.text);
      if (const auto action = std::exchange(hostsAnswer, nullptr)) action(*this);
    });
  }

  std::shared_ptr<doubles::ScriptedCentral> central(const std::string& name) {
    return std::make_shared<doubles::ScriptedCentral>(
        [this, name](const doubles::BluetoothCall& call) { note_(name + " " + call.text()); });
  }
  std::shared_ptr<doubles::ScriptedPeripheral> peripheral(const std::string& name) {
    return std::make_shared<doubles::ScriptedPeripheral>(
        name, std::nullopt,
        [this, name](const doubles::BluetoothCall& call) { note_(name + " " + call.text()); });
  }

  /// What the host can see of the oximeter.
  std::vector<Text> fields() const {
    const auto& shown = *oximeter;
    const Text choice = shown.handleDisconnect ? Text(*shown.handleDisconnect ? "true" : "false") : Text();
    return {shown.peripheral ? Text(shown.peripheral->identifier()) : Text(),
            shown.SpO2service ? Text(shown.SpO2service->UUID()) : Text(),
            shown.befoSpO2Value,
            shown.name,
            choice,
            shown.protPath};
  }

  ScriptedPort port;
  RecordingHost host;
  std::array<std::shared_ptr<doubles::ScriptedCentral>, 2> centrals{central("first"), central("second")};
  std::array<std::shared_ptr<doubles::ScriptedPeripheral>, 3> peripherals{peripheral("p0"), peripheral("p1"),
                                                                          peripheral("p2")};
  std::shared_ptr<Oximeter> oximeter = std::make_shared<Oximeter>();
  /// What the host does within the next call that it gets.
  std::function<void(World&)> hostsAnswer;

 private:
  Note note_;
};

/// What both worlds go through.
struct Operation {
  std::string name;
  std::function<void(World<MEDXINGSpO2>&)> driver;
  std::function<void(World<OximeterTwin>&)> twin;
};

template <class Work>
Operation operation(std::string name, Work work) {
  return {std::move(name), work, work};
}

constexpr const char* oximeterName = "MEDXING-SpO2";

Error anError(Random& random) {
  if (random.oneIn(3)) return BluetoothError{BluetoothError::Code::unknown, "half of it"};
  return std::nullopt;
}

Text advertisedName(Random& random) {
  if (!random.oneIn(3)) return oximeterName;
  return random.oneOf(std::array<Text, 7>{std::nullopt, "", "MEDXING-SpO", "MEDXING-SpO2 ", "medxing-spo2",
                                          std::string("MEDXING-SpO2\0", 13), "another"});
}

std::string characteristicUUID(Random& random) {
  if (!random.oneIn(4)) return "FFB2";
  return random.oneOf(std::array<const char*, 5>{"FFB1", "ffb2", "FFB", "FFB22", ""});
}

std::vector<std::string> serviceUUIDs(Random& random) {
  std::vector<std::string> UUIDs;
  while (!random.oneIn(4)) {
    UUIDs.emplace_back(random.oneOf(std::array<const char*, 6>{"FFB0", "FFB0", "180A", "ffb0", "FFB00", ""}));
  }
  return UUIDs;
}

std::optional<Bytes> notifiedValue(Random& random) {
  if (random.oneIn(30)) return std::nullopt;
  static const std::array<unsigned, 4> most{9, 12, 20, 512};
  Bytes value(random.oneIn(4) ? random.below(24) : random.oneOf(most));
  for (std::size_t i = 0; i < value.size(); ++i) {
    value[i] = static_cast<std::uint8_t>(random.below(256));
    if (i == 4 && !random.oneIn(10)) value[i] = 0x23;
    if (i == 5 && !random.oneIn(10)) value[i] = 0x95;
    if (i == 8 && !random.oneIn(4)) value[i] = random.oneOf(hex("61 61 61 60 00 0A 64 65 FF"));
  }
  return value;
}

unsigned whichPeripheral(Random& random) {
  return random.oneIn(3) ? random.below(3) : 0;
}

/// What the central tells.
Operation centralEvent(Random& random) {
  const unsigned which = whichPeripheral(random);
  const Error error = anError(random);
  switch (random.below(6)) {
    case 0: {
      using enum BluetoothState;
      const auto state = random.oneOf(
          std::array{unknown, resetting, unsupported, unauthorized, poweredOff, poweredOn, poweredOn});
      return operation("state", [=](auto& world) { world.centrals[0]->updateState(state); });
    }
    case 1:
      return operation("disconnect", [=](auto& world) {
        world.peripherals[which]->setServices({});
        world.oximeter->centralManagerDidDisconnectPeripheral(*world.centrals[0], world.peripherals[which],
                                                              error);
      });
    case 2:
      return operation("fail to connect", [=](auto& world) {
        world.oximeter->centralManagerDidFailToConnectPeripheral(*world.centrals[0], world.peripherals[which],
                                                                 error);
      });
    case 3:
      return operation("connect", [=](auto& world) {
        world.oximeter->centralManagerDidConnectPeripheral(*world.centrals[0], world.peripherals[which]);
      });
    default: {
      const Text name = advertisedName(random);
      return operation("discover " + name.value_or("?"), [=](auto& world) {
        world.peripherals[which]->rename(name);
        world.oximeter->centralManagerDidDiscoverPeripheral(
            *world.centrals[0], world.peripherals[which],
            {.localName = oximeterName, .serviceUUIDs = {"FFB0"}}, -57);
      });
    }
  }
}

/// What a peripheral tells its delegate, asked or not.
Operation peripheralEvent(Random& random) {
  const unsigned which = whichPeripheral(random);
  const Error error = anError(random);
  const std::string UUID = characteristicUUID(random);
  switch (random.below(8)) {
    case 0: {
      const auto UUIDs = serviceUUIDs(random);
      return operation("services",
                       [=](auto& world) { world.peripherals[which]->answerServices(UUIDs, error); });
    }
    case 1: {
      const std::string service = random.oneIn(4) ? "180A" : "FFB0";
      const std::vector<std::string> UUIDs{"FFB1", UUID, characteristicUUID(random)};
      return operation("characteristics", [=](auto& world) {
        world.peripherals[which]->answerCharacteristics(service, UUIDs, error);
      });
    }
    case 2: {
      const bool notifies = random.oneIn(2);
      return operation("notification state", [=](auto& world) {
        world.peripherals[which]->answerNotificationState(UUID, notifies, error);
      });
    }
    default: {
      const auto value = notifiedValue(random);
      return operation("notify " + UUID + " " + (value ? hexText(*value) : "nothing"),
                       [=](auto& world) { world.peripherals[which]->notify(UUID, value, error); });
    }
  }
}

/// What a host stores in the oximeter's fields.
Operation hostStores(Random& random) {
  const unsigned which = random.below(4);
  switch (random.below(10)) {
    case 0:
    case 1: {
      const auto choice = random.oneOf(std::array<std::optional<bool>, 4>{std::nullopt, true, false, false});
      return operation("handleDisconnect", [=](auto& world) { world.oximeter->handleDisconnect = choice; });
    }
    case 2:
    case 3:
      return operation("peripheral", [=](auto& world) {
        world.oximeter->peripheral = which == 3 ? nullptr : world.peripherals[which];
      });
    case 4:
      return operation("btManager", [=](auto& world) {
        world.oximeter->btManager = which == 3 ? nullptr : world.centrals[which % 2];
      });
    case 5: {
      const Text before = random.oneOf(std::array<const char*, 4>{"", "61", "0a", "范围越界"});
      return operation("befoSpO2Value", [=](auto& world) { world.oximeter->befoSpO2Value = *before; });
    }
    case 6: {
      const Text name = random.oneIn(3) ? "another" : oximeterName;
      return operation("peripheralName", [=](auto& world) { world.oximeter->peripheralName = *name; });
    }
    case 7: {
      const Text service = random.oneIn(3) ? "180A" : "FFB0";
      const Text characteristic = random.oneIn(3) ? "FFB1" : "FFB2";
      return operation("UUIDs", [=](auto& world) {
        world.oximeter->serviceid = *service;
        world.oximeter->characteristicid = *characteristic;
      });
    }
    default: {
      const bool hasHost = random.oneIn(2);
      return operation("kiv_delegate", [=](auto& world) {
        world.oximeter->kiv_delegate = hasHost ? KivStressPortDelegateRef(world.host) : nullptr;
      });
    }
  }
}

/// What else a host, its port and its clock do.
Operation hostCalls(Random& random) {
  switch (random.below(5)) {
    case 0: {
      const bool isBound = random.oneIn(2);
      return operation("serial port", [=](auto& world) {
        world.oximeter->setSerialPort(isBound ? world.port.port() : nullptr);
      });
    }
    case 1: {
      const Bytes chunk = notifiedValue(random).value_or(Bytes{0});
      return operation("bytes of the port", [=](auto& world) { world.port.deliver(chunk); });
    }
    case 2:
      return operation("a second", [](auto& world) { world.port.advance(1s); });
    case 3: {
      const bool answers = random.oneIn(2);
      return operation("the host's selectors", [=](auto& world) {
        using enum KivStressPortDelegate::Selector;
        answers ? world.host.answerAllBut({}) : world.host.answerAllBut({onReceivedSpO2WithSpO2});
      });
    }
    default: {
      static const std::array<void (KivStressDevice::*)(), 9> commands{
          &KivStressDevice::startDeivce, &KivStressDevice::stopStressDevice, &KivStressDevice::requestLoad,
          &KivStressDevice::startBP,     &KivStressDevice::requestBP,        &KivStressDevice::startSpO2,
          &KivStressDevice::stopSpO2,    &KivStressDevice::requestSpO2,      &KivStressDevice::deviceState};
      const auto command = random.oneOf(commands);
      return operation("a command", [=](auto& world) { ((*world.oximeter).*command)(); });
    }
  }
}

Operation operation(Random& random) {
  if (random.oneIn(2)) return peripheralEvent(random);
  if (!random.oneIn(3)) return centralEvent(random);
  if (random.oneIn(4)) return hostCalls(random);
  const Operation stores = hostStores(random);
  if (!random.oneIn(4)) return stores;
  return {"at the next call, " + stores.name, [=](auto& world) { world.hostsAnswer = stores.driver; },
          [=](auto& world) { world.hostsAnswer = stores.twin; }};
}

class OximeterTwinTest : public testing::Test {
 protected:
  /// What happens in a world while it goes through an operation, in order.
  template <class Oximeter>
  std::vector<std::string> perform(const std::function<void(World<Oximeter>&)>& work,
                                   World<Oximeter>& world) {
    work(world);
    return std::exchange(happened_, {});
  }

  VirtualTime time_;
  std::vector<std::string> happened_;
  const std::function<void(const std::string&)> note_ = [this](const std::string& what) {
    happened_.push_back(what);
  };
  ScopedProcessHooks hooks_{
      {.print = [this](std::string_view line, PrintedText) { note_(std::string(line)); }}};
};

TEST_F(OximeterTwinTest, DoesTheSame) {
  const int operations = operationsWanted();
  int done = 0;
  for (unsigned seed = 1; done < operations; ++seed) {
    Random random(seed);
    World<MEDXINGSpO2> driver(time_, note_);
    World<OximeterTwin> twin(time_, note_);
    for (int i = 0; i < 200; ++i, ++done) {
      const Operation next = operation(random);
      SCOPED_TRACE("seed " + std::to_string(seed) + ", operation " + std::to_string(i) + ": " + next.name);
      ASSERT_EQ(perform(next.driver, driver), perform(next.twin, twin));
      ASSERT_EQ(driver.fields(), twin.fields());
    }
  }
}

}  // namespace
}  // namespace tarsil::twins
