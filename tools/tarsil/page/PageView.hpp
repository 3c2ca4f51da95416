#pragma once

#include <memory>
#include <optional>
#include <string>

#include "tarsil/exercise/ExerciseTest.hpp"
#include "tarsil/guard/GuardedStation.hpp"
#include "tarsil/runtime/Timer.hpp"
#include "tools/tarsil/page/PageServer.hpp"
#include "tools/tarsil/page/sessionJson.hpp"

namespace tarsil::cli {

/// A session on the live page: the values of this moment four times a second, a point of the chart once a
/// second, everything that happens; and orders from it, where the page takes them. Nothing of it reaches the
/// page while the main thread stands still, so that the page notices. Main thread; it goes before the test.
class PageView {
 public:
  PageView(PageServer& server, ExerciseTest& test, GuardedStation& station, SessionTitle title);
  ~PageView();
  PageView(const PageView&) = delete;
  PageView& operator=(const PageView&) = delete;

  /// The page shows nothing after it.
  void end(const SessionEnd& end);

 private:
  void look();
  void take(const PageServer::Order& order);
  Duration passed() const { return Clock::now() - start_; }

  PageServer& server_;
  ExerciseTest& test_;
  GuardedStation& station_;
  const SessionTitle title_;
  const Clock::Instant start_ = Clock::now();
  std::optional<Duration> lastSample_;
  /// The station keeps its listeners for good.
  const std::shared_ptr<bool> isAlive_ = std::make_shared<bool>(true);
  std::shared_ptr<Timer> timer_;
};

}  // namespace tarsil::cli
