#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

#include "doubles/ScriptedCentral.hpp"
#include "tarsil/runtime/Timer.hpp"

namespace tarsil::simulators {

/// A central with a MEDXING oximeter in reach, without any radio: for demonstrations and whole-station tests
/// where there is no adapter. It is switched on; it finds the oximeter, connects to it and notifies a
/// measurement every second, each after the time that a real one takes. Main thread; also on virtual time.
class SimulatedCentral final : public BluetoothCentral,
                               public std::enable_shared_from_this<SimulatedCentral> {
 public:
  /// `saturation` is asked for each measurement, in percent; above 100 stands for "none".
  static std::shared_ptr<SimulatedCentral> create(std::function<std::uint8_t()> saturation);
  ~SimulatedCentral() override;

  BluetoothState state() const override { return BluetoothState::poweredOn; }
  void setDelegate(std::weak_ptr<BluetoothCentralDelegate> delegate) override;
  void scanForPeripherals() override { air_.scanForPeripherals(); }
  void stopScan() override { air_.stopScan(); }
  void connect(const std::shared_ptr<BluetoothPeripheral>& peripheral) override { air_.connect(peripheral); }
  void cancelPeripheralConnection(const std::shared_ptr<BluetoothPeripheral>& peripheral) override {
    air_.cancelPeripheralConnection(peripheral);
  }

  /// The link to the oximeter breaks.
  void loseLink();

 private:
  explicit SimulatedCentral(std::function<std::uint8_t()> saturation);
  void respond(const doubles::BluetoothCall& call);
  std::shared_ptr<Timer> after(Duration delay, void (SimulatedCentral::*event)());
  void discover();
  void connectOximeter();
  void didConnect();
  void cancelConnection();
  void answerServices();
  void answerCharacteristics();
  void startMeasuring();
  void measure();
  void end(const std::optional<BluetoothError>& error);
  bool isConnected();

  std::function<std::uint8_t()> saturation_;
  doubles::ScriptedCentral air_;
  bool scanning_ = false;
  /// Asked to connect while a connection ends.
  bool wantedAgain_ = false;
  std::shared_ptr<Timer> connecting_;
  std::shared_ptr<Timer> measuring_;
};

}  // namespace tarsil::simulators
