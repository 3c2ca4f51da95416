#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace tarsil {

/// One call of a delegate, written as the test writes it: `treadmillLoad(50.0, 25.0)`. Calls are equal when
/// their texts are; a float's text tells every float from every other.
struct RecordedCall {
  std::string text;

  bool operator==(const RecordedCall&) const = default;
  friend void PrintTo(const RecordedCall& call, std::ostream* stream) { *stream << call.text; }
};

using RecordedCalls = std::vector<RecordedCall>;

/// The shortest text that reads back as the same value, with a fraction.
std::string floatText(float value);

}  // namespace tarsil
