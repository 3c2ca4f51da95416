#include "simulators/devices/SimulatedCentral.hpp"

#include <chrono>
#include <utility>

#include "simulators/devices/medxingFrame.hpp"
#include "tarsil/runtime/DispatchQueue.hpp"

namespace tarsil::simulators {
namespace {

using namespace std::chrono_literals;

constexpr const char* oximeter = "C0:11:22:33:44:55";
constexpr auto timeToBeHeard = 300ms;
constexpr auto timeToConnect = 200ms;
constexpr auto timeToAnswer = 50ms;
constexpr auto measuringInterval = 1s;

}  // namespace

std::shared_ptr<SimulatedCentral> SimulatedCentral::create(std::function<std::uint8_t()> saturation) {
  return std::shared_ptr<SimulatedCentral>(new SimulatedCentral(std::move(saturation)));
}

SimulatedCentral::SimulatedCentral(std::function<std::uint8_t()> saturation)
    : saturation_(std::move(saturation)),
      air_([this](const doubles::BluetoothCall& call) { respond(call); }) {}

SimulatedCentral::~SimulatedCentral() {
  if (measuring_) measuring_->invalidate();
}

void SimulatedCentral::setDelegate(std::weak_ptr<BluetoothCentralDelegate> delegate) {
  air_.setDelegate(std::move(delegate));
  DispatchQueue::main().async([weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->air_.updateState(BluetoothState::poweredOn);
  });
}

void SimulatedCentral::loseLink() {
  if (isConnected())
    end(BluetoothError{BluetoothError::Code::connectionTimeout, "the simulated link is lost"});
}

void SimulatedCentral::respond(const doubles::BluetoothCall& call) {
  if (call.name == "scan") {
    scanning_ = true;
    after(timeToBeHeard, &SimulatedCentral::discover);
  }
  if (call.name == "stopScan") scanning_ = false;
  if (call.name == "connect") connectOximeter();
  if (call.name == "cancelConnection") cancelConnection();
  if (call.name == "discoverServices") after(timeToAnswer, &SimulatedCentral::answerServices);
  if (call.name == "discoverCharacteristics") after(timeToAnswer, &SimulatedCentral::answerCharacteristics);
  if (call.name == "setNotify") after(timeToAnswer, &SimulatedCentral::startMeasuring);
}

std::shared_ptr<Timer> SimulatedCentral::after(Duration delay, void (SimulatedCentral::*event)()) {
  return Timer::scheduled(delay, false, [weak = weak_from_this(), event](Timer&) {
    if (const auto self = weak.lock()) (*self.*event)();
  });
}

void SimulatedCentral::discover() {
  if (scanning_) air_.discover(oximeter, "MEDXING-SpO2");
}

void SimulatedCentral::connectOximeter() {
  auto& state = air_.peripheral(oximeter)->connectionState;
  wantedAgain_ = state == BluetoothPeripheralState::disconnecting;
  if (wantedAgain_ || state == BluetoothPeripheralState::connecting) return;
  if (state == BluetoothPeripheralState::disconnected) state = BluetoothPeripheralState::connecting;
  connecting_ = after(timeToConnect, &SimulatedCentral::didConnect);
}

void SimulatedCentral::didConnect() {
  air_.didConnect(oximeter);
}

void SimulatedCentral::cancelConnection() {
  auto& state = air_.peripheral(oximeter)->connectionState;
  wantedAgain_ = false;
  if (state == BluetoothPeripheralState::disconnected || state == BluetoothPeripheralState::disconnecting)
    return;
  state = BluetoothPeripheralState::disconnecting;
  if (connecting_) connecting_->invalidate();
  DispatchQueue::main().async([weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->end(std::nullopt);
  });
}

void SimulatedCentral::answerServices() {
  if (isConnected()) air_.peripheral(oximeter)->answerServices({"1800", "FFB0"});
}

void SimulatedCentral::answerCharacteristics() {
  if (isConnected()) air_.peripheral(oximeter)->answerCharacteristics("FFB0", {"FFB1", "FFB2"});
}

void SimulatedCentral::startMeasuring() {
  if (!isConnected()) return;
  air_.peripheral(oximeter)->answerNotificationState("FFB2", true);
  if (measuring_) measuring_->invalidate();
  measuring_ = Timer::scheduled(measuringInterval, true, [weak = weak_from_this()](Timer&) {
    if (const auto self = weak.lock()) self->measure();
  });
}

void SimulatedCentral::measure() {
  if (!isConnected()) return;
  air_.peripheral(oximeter)->notify("FFB2", medxingFrame(saturation_()));
}

void SimulatedCentral::end(const std::optional<BluetoothError>& error) {
  if (connecting_) connecting_->invalidate();
  if (measuring_) measuring_->invalidate();
  measuring_ = nullptr;
  air_.didDisconnect(oximeter, error);
  if (std::exchange(wantedAgain_, false)) connectOximeter();
}

bool SimulatedCentral::isConnected() {
  return air_.peripheral(oximeter)->state() == BluetoothPeripheralState::connected;
}

}  // namespace tarsil::simulators
