#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tarsil/core/DeviceModel.hpp"
#include "tarsil/core/StressDeviceType.hpp"
#include "tarsil/guard/GuardedStation.hpp"
#include "tarsil/runtime/Timer.hpp"

namespace tarsil::cli {

/// What a person types, done on a guarded station, and what the station tells, as lines. Main thread; it goes
/// before the station.
class Console {
 public:
  Console(GuardedStation& station, DeviceModel model, std::function<void(const std::string&)> print);
  ~Console();
  Console(const Console&) = delete;
  Console& operator=(const Console&) = delete;

  /// Lines are done one after another; those after a `wait` wait.
  void take(const std::string& line);
  void hear(const Event& event);
  /// Nothing waits to be done.
  bool isIdle() const { return lines_.empty() && !waiting_; }
  /// `quit` was typed.
  bool isLeft() const { return isLeft_; }
  /// What the device says now, each value with its age: "2.7 km/h 10.0 % (0.3 s)".
  std::string values() const;

 private:
  struct Word {
    const char* name;
    std::string usage;
    std::function<void(const std::vector<std::string>&)> act;
  };

  std::vector<Word> words();
  void doNext();
  void act(const std::string& line);
  void answer(const Answer& answer);
  void setLoad(const std::vector<std::string>& words);
  void setTraffic(const std::vector<std::string>& words);
  void wait(const std::vector<std::string>& words);
  void help();
  void tellValues();
  bool isTreadmill() const { return model_.kind == DeviceKind::treadmill; }

  GuardedStation& station_;
  const DeviceModel model_;
  const std::function<void(const std::string&)> print_;
  const Clock::Instant start_ = Clock::now();
  const std::vector<Word> words_;
  std::deque<std::string> lines_;
  std::shared_ptr<Timer> waiting_;
  bool showsTraffic_ = false;
  bool isLeft_ = false;
};

}  // namespace tarsil::cli
