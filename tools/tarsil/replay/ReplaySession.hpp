#pragma once

#include <memory>
#include <utility>

#include "tarsil/runtime/VirtualTime.hpp"
#include "tools/tarsil/replay/Events.hpp"
#include "tools/tarsil/replay/Operation.hpp"
#include "tools/tarsil/replay/ReplayHooks.hpp"
#include "tools/tarsil/replay/StationPorts.hpp"
#include "tools/tarsil/replay/Subject.hpp"
#include "tools/tarsil/replay/TrafficLogReader.hpp"

namespace tarsil::cli {

/// Runs the operations of a script, one after another, against real drivers and ports on a clock that only
/// the script moves. Main thread; one session in a process.
class ReplaySession {
 public:
  explicit ReplaySession(Events::Listener listener);
  ~ReplaySession();
  ReplaySession(const ReplaySession&) = delete;
  ReplaySession& operator=(const ReplaySession&) = delete;

  /// Everything that the operation sets off without the clock moving has happened when this returns. Throws
  /// ScriptError when the operation cannot be read. After an operation in which the process would have
  /// stopped, nothing happens any more until the next "new".
  void perform(const Operation& operation);

 private:
  void carryOut(const Operation& operation);
  void advance(double seconds);
  void begin(const Operation& operation);
  void endSubject();
  void addLogRecords();

  TrafficLogReader log_;
  Events events_;
  ReplayHooks hooks_;
  VirtualTime time_;
  StationPorts ports_;
  std::unique_ptr<Subject> subject_;
  bool stopped_ = false;
  /// How far the clock has moved, in seconds.
  double elapsed_ = 0;
};

}  // namespace tarsil::cli
