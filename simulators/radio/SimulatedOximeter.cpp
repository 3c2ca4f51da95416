#include "simulators/radio/SimulatedOximeter.hpp"

#include <chrono>

#include "simulators/devices/medxingFrame.hpp"

namespace tarsil::simulators {
namespace {

constexpr std::uint16_t genericAccess = 0x1800;
constexpr std::uint16_t deviceName = 0x2A00;
constexpr std::uint16_t oximeterService = 0xFFB0;
constexpr std::uint16_t commandCharacteristic = 0xFFB1;
constexpr std::uint16_t measurementCharacteristic = 0xFFB2;
constexpr std::size_t timePosition = 12;
// A saturation that walks down from a healthy one and starts anew.
constexpr unsigned highestSaturation = 99;
constexpr unsigned saturations = 20;

std::uint64_t steadyNanoseconds() {
  return static_cast<std::uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count());
}

}  // namespace

SimulatedOximeter::SimulatedOximeter(std::function<void(const std::string&)> said) : said_(std::move(said)) {
  radio_->address = {0x55, 0x44, 0x33, 0x22, 0x11, 0xC0};
  radio_->name = "MEDXING-SpO2";
  radio_->service = oximeterService;
  radio_->advertises = true;
  AttributeServer& table = radio_->attributes;
  table.addService(genericAccess);
  table.addCharacteristic(deviceName, AttributeServer::mayBeRead,
                          Bytes(radio_->name.begin(), radio_->name.end()));
  table.addService(oximeterService);
  table.addCharacteristic(commandCharacteristic, AttributeServer::mayBeWritten, {});
  valueHandle_ = table.addCharacteristic(measurementCharacteristic,
                                         AttributeServer::mayBeRead | AttributeServer::notifies, {});
  setInterval(std::chrono::milliseconds(100));
}

SimulatedOximeter::~SimulatedOximeter() {
  timer_->invalidate();
}

void SimulatedOximeter::setInterval(Duration interval) {
  if (timer_) timer_->invalidate();
  timer_ = Timer::scheduled(interval, true, [this](Timer&) { tick(); });
}

void SimulatedOximeter::measure(int count) {
  left_ = count;
}

Bytes SimulatedOximeter::frame(std::uint8_t saturation, std::uint64_t time) {
  Bytes frame = medxingFrame(saturation);
  for (unsigned byte = 0; byte < 8; ++byte) frame.push_back(static_cast<std::uint8_t>(time >> (8 * byte)));
  return frame;
}

std::uint64_t SimulatedOximeter::timeIn(ByteView frame) {
  if (frame.size() < timePosition + 8) return 0;
  std::uint64_t time = 0;
  for (unsigned byte = 0; byte < 8; ++byte) {
    time |= std::uint64_t{frame[timePosition + byte]} << (8 * byte);
  }
  return time;
}

void SimulatedOximeter::tick() {
  if (left_ == 0 || controller_ == nullptr || controller_->connected() != radio_) return;
  const unsigned step = sent_ / static_cast<unsigned>(repetitions_) % saturations;
  const auto saturation = static_cast<std::uint8_t>(highestSaturation - step);
  if (!controller_->notify(valueHandle_, frame(saturation, steadyNanoseconds()))) return;
  ++sent_;
  if (left_ > 0 && --left_ == 0) said_("measured");
}

}  // namespace tarsil::simulators
