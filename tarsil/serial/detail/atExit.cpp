#include "tarsil/serial/detail/atExit.hpp"

#include <cstdlib>
#include <utility>

namespace tarsil::detail {
namespace {

AtExit registration = [](void (*handler)()) { return std::atexit(handler); };

}  // namespace

AtExit atExit() {
  return registration;
}

AtExit exchangeAtExit(AtExit other) {
  return std::exchange(registration, other);
}

}  // namespace tarsil::detail
