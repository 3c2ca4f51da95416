#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tarsil/guard/GuardedStation.hpp"
#include "tests/guard/StationRules.hpp"

namespace tarsil {

/// A host that wants one short exercise on a LodeTreadmill and does not give up: what is refused or stopped
/// is begun again, a protective stop is reset. It comes round ten times a second, on whatever clock. Main
/// thread.
class Walk {
 public:
  struct Plan {
    std::string exercise;
    /// Empty: none.
    std::string oximeter = {};
    /// Each station's goes to a file of its own there.
    std::filesystem::path journals;
    std::optional<std::string> watcher = std::nullopt;
    Duration heartbeat = std::chrono::milliseconds(500);
    /// Pulls the plug of the treadmill in the middle, and puts it back; empty: nobody does.
    std::function<void()> pullPlug = {};
    std::function<void()> putPlugBack = {};
  };

  explicit Walk(Plan plan);

  void goRound();
  /// From now on it only wants to close.
  void giveUp();
  bool isOver() const { return step_ == Step::over; }
  /// Drops the station, whatever it does.
  void drop() { station_.reset(); }

  /// What was done, one word each.
  const std::vector<std::string>& done() const { return done_; }
  /// What the station had to report of things that went wrong, with their counts.
  const std::map<std::string, int>& reports() const { return reports_; }
  const std::vector<std::string>& violations() const { return violations_; }
  /// The journals of its stations, the present one's last.
  const std::vector<std::filesystem::path>& journals() const { return journals_; }
  /// Since when a protective stop should make the machine stand; none when none should.
  std::optional<Clock::Instant> mustStandSince() const { return mustStandSince_; }

 private:
  enum class Step { walk, losePlug, walkAgain, stop, close, over };

  void open();
  void hear(const Event& event);
  void bringTo(const Load& load, const char* word, Step next);
  bool hasLostJournal() const;
  void losePlug();
  void stop();
  void close();
  void finish(const char* word, Step next);

  const Plan plan_;
  StationRules rules_;
  std::shared_ptr<GuardedStation> station_;
  Step step_ = Step::walk;
  int roundsOfStep_ = 0;
  std::vector<std::string> done_;
  std::map<std::string, int> reports_;
  std::vector<std::string> violations_;
  std::vector<std::filesystem::path> journals_;
  std::optional<Clock::Instant> mustStandSince_;
};

}  // namespace tarsil
