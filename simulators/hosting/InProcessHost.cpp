#include "simulators/hosting/InProcessHost.hpp"

#include <chrono>
#include <utility>

#include "simulators/hosting/timeOnTheLine.hpp"
#include "simulators/scripted/scriptedDevice.hpp"
#include "tarsil/platform/VirtualDeviceRegistry.hpp"
#include "tarsil/runtime/DispatchQueue.hpp"

namespace tarsil::simulators {
namespace {

using namespace std::chrono_literals;

/// How often the device's time moves.
constexpr Duration step = 20ms;

}  // namespace

InProcessHost::InProcessHost(SimulatedDevice& device, const std::string& terminalName)
    : device_(device), path_("/dev/" + terminalName) {
  // A port may write on any thread; the device lives on the main one.
  terminal_->onWrite([this, alive = alive_](const Bytes& bytes) {
    DispatchQueue::main().async([this, alive, bytes] {
      if (*alive) receive(bytes);
    });
  });
  VirtualDeviceRegistry::shared()->add(scriptedDevice(terminalName, terminal_));
  clock_ = Timer::scheduled(step, true, [this](Timer&) { tick(); });
}

InProcessHost::~InProcessHost() {
  disconnect();
}

void InProcessHost::disconnect() {
  *alive_ = false;
  clock_->invalidate();
  if (pace_) pace_->invalidate();
  terminal_->vanish();
  VirtualDeviceRegistry::shared()->remove(path_);
}

void InProcessHost::receive(const Bytes& bytes) {
  device_.receive(bytes);
  sendNextPiece();
}

void InProcessHost::tick() {
  const Clock::Instant now = Clock::now();
  device_.advance(now - lastTick_);
  lastTick_ = now;
  sendNextPiece();
}

void InProcessHost::sendNextPiece() {
  for (Bytes& piece : device_.takeOutput()) line_.push_back(std::move(piece));
  if (line_.empty() || pace_) return;

  const Bytes piece = std::move(line_.front());
  line_.pop_front();
  pace_ = Timer::scheduled(timeOnTheLine(piece.size(), device_.baudRate()), false, [this, piece](Timer&) {
    pace_.reset();
    terminal_->deliver(piece);
    sendNextPiece();
  });
}

}  // namespace tarsil::simulators
