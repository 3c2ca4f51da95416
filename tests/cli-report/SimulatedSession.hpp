#pragma once

#include <memory>
#include <optional>
#include <string>

#include "simulators/hosting/SimulatedStation.hpp"
#include "tarsil/runtime/VirtualTime.hpp"
#include "tools/tarsil/run/Journal.hpp"
#include "tools/tarsil/run/RecordingRegistry.hpp"
#include "tools/tarsil/run/Session.hpp"
#include "tools/tarsil/run/Station.hpp"
#include "tools/tarsil/run/Traffic.hpp"

namespace tarsil::cli {

/// A session on virtual time with a simulated exercise device, monitor and oximeter. One in a process: the
/// station behind it is the process's own.
class SimulatedSession {
 public:
  SimulatedSession(const std::string& model, const std::string& protocol)
      : plan{model, "exercise", "bp", "spo2"}, protocol_(readProtocol(protocol, "test")) {
    // As the program does: before anything asks for a port.
    SerialDeviceRegistry::exchangeShared(
        std::make_shared<RecordingRegistry>(SerialDeviceRegistry::shared(), traffic));
    simulated.emplace();
    simulated->add(model, plan.port);
    simulated->add("Tango", *plan.pressurePort);
    simulated->add("MEDXINGPort", *plan.oximeterPort);
    time.settle();
  }

  ~SimulatedSession() {
    session.reset();
    station.reset();
    simulated.reset();
  }
  SimulatedSession(const SimulatedSession&) = delete;
  SimulatedSession& operator=(const SimulatedSession&) = delete;

  void begin() {
    station.emplace(plan, journal);
    session.emplace(protocol_, *station, journal);
    session->begin();
  }

  /// Runs it to its end; false when it has none.
  bool finish() {
    using namespace std::chrono_literals;
    for (Duration passed{}; passed < 1h && !session->isOver(); passed += 1s) time.advance(1s);
    return session->isOver();
  }

  const Protocol& protocol() const { return protocol_; }

  VirtualTime& time = theTime();
  const Station::Plan plan;
  std::shared_ptr<Traffic> traffic = std::make_shared<Traffic>();
  Journal journal;
  std::optional<simulators::SimulatedStation> simulated;
  std::optional<Station> station;
  std::optional<Session> session;

 private:
  // Never gone: the station's own timers live as long as the process.
  static VirtualTime& theTime() {
    static VirtualTime& time = *new VirtualTime;
    return time;
  }

  const Protocol protocol_;
};

}  // namespace tarsil::cli
