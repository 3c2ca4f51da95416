#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "simulators/lines/SimulatedStation.hpp"
#include "tarsil/exercise/ExerciseTest.hpp"
#include "tarsil/guard/GuardedStation.hpp"
#include "tarsil/guard/Journal.hpp"
#include "tarsil/runtime/Timer.hpp"
#include "tarsil/runtime/VirtualTime.hpp"
#include "tools/tarsil/report/SessionRecord.hpp"

namespace tarsil::cli {

/// A session on virtual time with a simulated exercise device, monitor and oximeter, and a host that is
/// alive. One in a process: the station behind it is the process's own.
class SimulatedSession {
 public:
  SimulatedSession(const std::string& model, const std::string& protocol)
      : model_(model), protocol_(readProtocol(protocol, "test")) {
    simulated.emplace();
    simulated->add(model, "exercise");
    simulated->add("Tango", "bp");
    simulated->add("MEDXINGPort", "spo2");
    time.settle();
    journal.head = {.began = Clock::wallNow(),
                    .facts = {{fact::protocol, protocolText(protocol_)},
                              {fact::model, model},
                              {fact::port, "exercise"},
                              {fact::simulated, "yes"},
                              {fact::reportsLoad, "yes"}}};
    const auto opened = GuardedStation::open({.exercise = {.model = model, .port = "exercise"},
                                              .monitor = "bp",
                                              .oximeter = "spo2",
                                              .watcher = std::nullopt,
                                              .journal = std::nullopt});
    station = opened.station();
    station->onEvent([this, start = Clock::now()](Event event) {
      event.at = Clock::Instant(event.at - start);
      journal.events.push_back(std::move(event));
    });
    test.emplace(station, protocol_);
    heartbeat_ = Timer::scheduled(std::chrono::milliseconds(100), true, [this](Timer&) { station->alive(); });
  }

  ~SimulatedSession() {
    heartbeat_->invalidate();
    test.reset();
    station.reset();
    simulated.reset();
  }
  SimulatedSession(const SimulatedSession&) = delete;
  SimulatedSession& operator=(const SimulatedSession&) = delete;

  void begin() { test->begin(); }

  /// Runs it to its end; false when it has none.
  bool finish() {
    using namespace std::chrono_literals;
    for (Duration passed{}; passed < 1h && !test->isOver(); passed += 1s) time.advance(1s);
    return test->isOver();
  }

  const Protocol& protocol() const { return protocol_; }
  const std::string& model() const { return model_; }

  VirtualTime& time = theTime();
  Journal journal;
  std::optional<simulators::SimulatedStation> simulated;
  std::shared_ptr<GuardedStation> station;
  std::optional<ExerciseTest> test;

 private:
  // Never gone: the station's own timers live as long as the process.
  static VirtualTime& theTime() {
    static VirtualTime& time = *new VirtualTime;
    return time;
  }

  const std::string model_;
  const Protocol protocol_;
  std::shared_ptr<Timer> heartbeat_;
};

}  // namespace tarsil::cli
