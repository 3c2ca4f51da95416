#include "simulators/lines/CabledDevice.hpp"

#include <chrono>
#include <utility>

namespace tarsil::simulators {
namespace {

using namespace std::chrono_literals;

/// How often the device's time moves.
constexpr Duration step = 20ms;

}  // namespace

CabledDevice::CabledDevice(SimulatedDevice& device, const CableBehaviour& behaviour, CableWay::End host)
    : device_(device),
      cable_(behaviour, device.baudRate(), std::move(host),
             [this](const Bytes& bytes) {
               device_.receive(bytes);
               carryReplies();
             }),
      clock_(Timer::scheduled(step, true, [this](Timer&) { tick(); })) {}

CabledDevice::~CabledDevice() {
  clock_->invalidate();
}

void CabledDevice::tick() {
  const Clock::Instant now = Clock::now();
  device_.advance(now - lastTick_);
  lastTick_ = now;
  carryReplies();
}

void CabledDevice::carryReplies() {
  for (const SimulatedDevice::Message& message : device_.takeOutput()) {
    cable_.putReply(message.bytes, message.inOnePiece);
  }
}

}  // namespace tarsil::simulators
