#pragma once

#include <functional>
#include <string>

namespace tarsil::objc {

/// What a piece of work threw.
struct Thrown {
  enum class Kind { nothing, outOfRange, invalidArgument, logicError };

  Kind kind = Kind::nothing;
  std::string what;
};

/// Does the work. Anything but a logic error passes out.
Thrown thrownBy(const std::function<void()>& work);

}  // namespace tarsil::objc
