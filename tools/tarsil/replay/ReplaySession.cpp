#include "tools/tarsil/replay/ReplaySession.hpp"

#include <chrono>
#include <stdexcept>

#include "tarsil/core/StressECGDeviceManager.hpp"
#include "tarsil/serial/ORSSerialPort.hpp"
#include "tools/tarsil/replay/DeviceSubject.hpp"
#include "tools/tarsil/replay/PortSubject.hpp"
#include "tools/tarsil/replay/ProcessStopped.hpp"
#include "tools/tarsil/replay/ScriptError.hpp"
#include "tools/tarsil/replay/StationSubject.hpp"
#include "tools/tarsil/replay/codec.hpp"

namespace tarsil::cli {

ReplaySession::ReplaySession(Events::Listener listener)
    : events_(std::move(listener)), hooks_(events_), ports_(ReplayWorld{time_, events_}) {
  events_.before([this] { addLogRecords(); });
}

ReplaySession::~ReplaySession() {
  endSubject();
  events_.mute(true);
}

void ReplaySession::perform(const Operation& operation) {
  if (stopped_ && operation.name() != "new") return;
  try {
    carryOut(operation);
    time_.settle();
  } catch (const std::out_of_range&) {
    events_.add(Json::array({"exception", "range"}));
    time_.settle();
  } catch (const ProcessStopped&) {
    endSubject();
    stopped_ = true;
  }
  addLogRecords();
}

void ReplaySession::carryOut(const Operation& operation) {
  const std::string& name = operation.name();
  if (name == "new") return begin(operation);
  if (name == "codec") return events_.add(Json::array({"return", codecResult(operation)}));
  if (name == "advance") return advance(operation["s"].seconds());
  if (!subject_) throw ScriptError('"' + name + "\" needs a \"new\" before it");
  subject_->perform(operation);
}

void ReplaySession::advance(double seconds) {
  if (seconds < 0) throw ScriptError("the clock cannot go back");
  elapsed_ += seconds;
  if (elapsed_ > Value::longestTime) throw ScriptError("the clock stops after a century");
  // To the nearest nanosecond: 0.1 s has no exact double.
  time_.advance(std::chrono::round<Duration>(std::chrono::duration<double>(seconds)));
}

void ReplaySession::begin(const Operation& operation) {
  const std::string device = operation["device"].text();
  endSubject();
  stopped_ = false;
  const ReplayWorld world{time_, events_};
  if (device == "manager") {
    subject_ = std::make_unique<StationSubject>(world, StressECGDeviceManager::share(), ports_);
  } else if (device == "Port") {
    subject_ = std::make_unique<PortSubject>(world, operation);
  } else {
    subject_ = std::make_unique<DeviceSubject>(world, operation);
  }
}

// Timers and queues may still hold the old subject's drivers and ports. They find every port closed and
// nobody to tell.
void ReplaySession::endSubject() {
  events_.mute(true);
  subject_.reset();
  // The next subject finds a station as new.
  StressECGDeviceManager::exchangeShared(nullptr);
  for (const auto& port : ORSSerialPort::livePorts()) {
    port->setDelegate(nullptr);
    port->close();
  }
  time_.settle();
  log_.newRecords();
  events_.mute(false);
}

void ReplaySession::addLogRecords() {
  for (const auto& record : log_.newRecords()) events_.add(Json::array({"log", record}));
}

}  // namespace tarsil::cli
