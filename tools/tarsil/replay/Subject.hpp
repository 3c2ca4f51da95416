#pragma once

#include "tarsil/runtime/VirtualTime.hpp"
#include "tools/tarsil/replay/Events.hpp"
#include "tools/tarsil/replay/Operation.hpp"

namespace tarsil::cli {

/// What all subjects of a replay live in.
struct ReplayWorld {
  VirtualTime& time;
  Events& events;
};

/// What a script's operations act on, from one "new" to the next.
class Subject {
 public:
  virtual ~Subject() = default;

  /// Throws ScriptError when it has no such operation or cannot read it.
  virtual void perform(const Operation& operation) = 0;
};

/// For an operation that the subject does not know.
[[noreturn]] void refuse(const Operation& operation, const std::string& subject);

}  // namespace tarsil::cli
