#pragma once

#include <algorithm>
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "simulators/lines/SimulatedStation.hpp"
#include "tarsil/guard/GuardedStation.hpp"
#include "tarsil/runtime/VirtualTime.hpp"
#include "tests/helpers/PrintedLines.hpp"

namespace tarsil {

/// A guarded station on simulated devices and virtual time, with a host that says that it lives, unless it is
/// told not to:
///
///     GuardedSession session({.exercise = "LodeTreadmill"});
///     session.run(5s);
///     EXPECT_TRUE(session->start().isAccepted());
///
/// The devices stand behind USB adapters unless the setting says otherwise.
class GuardedSession {
 public:
  struct Setting {
    std::string exercise = "LodeTreadmill";
    bool monitor = false;
    bool oximeter = false;
    simulators::CableBehaviour cable = simulators::CableBehaviour::adapter();
    Limits limits = {};
    bool auxiliariesAreVital = false;
    std::optional<JournalFile> journal = std::nullopt;
  };

  GuardedSession() : GuardedSession(Setting{}) {}
  explicit GuardedSession(Setting setting);
  ~GuardedSession();

  GuardedStation* operator->() { return station_.get(); }
  std::shared_ptr<GuardedStation>& station() { return station_; }
  /// Opens another station on the same devices.
  void openAgain();

  /// Lets time pass.
  void run(Duration duration);
  /// Lets it pass until the exercise device is ready, and starts.
  void begin(const Load& load = {});
  void freezeHost(bool frozen) { hostIsFrozen_ = frozen; }

  /// The device itself: what it really does.
  simulators::SimulatedDevice& device() { return *exercise_; }
  /// Of the exercise device, "bp" or "spo2".
  simulators::InProcessLine& line(const std::string& port = "exercise") { return simulated_->line(port); }
  Load truth() const;

  const std::vector<Event>& events() const { return events_; }
  void forgetEvents() { events_.clear(); }
  template <class What>
  std::size_t count() const {
    return static_cast<std::size_t>(std::count_if(events_.begin(), events_.end(), [](const Event& event) {
      return std::holds_alternative<What>(event.what);
    }));
  }
  /// The last event of this kind; there has to be one.
  template <class What>
  const What& last() const {
    for (auto event = events_.rbegin(); event != events_.rend(); ++event) {
      if (const auto* what = std::get_if<What>(&event->what)) return *what;
    }
    throw std::logic_error("no such event");
  }
  bool hasAlarm(AlarmKind kind) const;
  /// Bytes that were sent to the exercise device, all together.
  Bytes sent() const;

  /// The virtual time of every test of this program.
  static VirtualTime& time();

 private:
  const Setting setting_;
  PrintedLines printed_;
  std::unique_ptr<simulators::SimulatedStation> simulated_;
  simulators::SimulatedDevice* exercise_ = nullptr;
  std::shared_ptr<GuardedStation> station_;
  std::vector<Event> events_;
  bool hostIsFrozen_ = false;
};

}  // namespace tarsil
