#include "tests/helpers/FatalStop.hpp"

#include <string_view>

#include "tarsil/support/process.hpp"

namespace tarsil {
std::optional<std::string> fatalReason(const std::function<void()>& work) {
  const ScopedProcessHooks hooks(
      {.fatal = [](std::string_view reason) { throw FatalStop(std::string(reason)); }});
  try {
    work();
  } catch (const FatalStop& stop) {
    return stop.what();
  }
  return std::nullopt;
}

}  // namespace tarsil
