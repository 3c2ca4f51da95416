#pragma once

#include <map>
#include <string>

#include "tarsil/core/StressDeviceType.hpp"
#include "tarsil/guard/Event.hpp"
#include "tarsil/runtime/Clock.hpp"

namespace tarsil::cli {

/// Shows a session as lines of a table on standard output: time, whom it is about, what was asked, what came
/// back. Bytes, requests that repeat every second, and
/// answers that say the same again, are left out.
class PlainView {
 public:
  explicit PlainView(StressDeviceType kind);

  void show(const Event& event);
  /// True once, when nobody takes the lines any longer.
  bool hasJustFailed();

 private:
  const StressDeviceType kind_;
  const Clock::Instant start_ = Clock::now();
  std::map<std::string, std::string> lastAnswers_;
  bool hasFailed_ = false;
};

}  // namespace tarsil::cli
