#include "tests/helpers/FatalStop.hpp"

#include <string_view>

#include "tarsil/support/process.hpp"

namespace tarsil {
namespace {

/// Puts the hooks that were there back, also when an exception passes.
class ThrowingFatalHook {
 public:
  ThrowingFatalHook() : before_(exchangeProcessHooks({})) {
    ProcessHooks hooks = before_;
    hooks.fatal = [](std::string_view reason) { throw FatalStop(std::string(reason)); };
    exchangeProcessHooks(hooks);
  }
  ~ThrowingFatalHook() { exchangeProcessHooks(before_); }
  ThrowingFatalHook(const ThrowingFatalHook&) = delete;
  ThrowingFatalHook& operator=(const ThrowingFatalHook&) = delete;

 private:
  ProcessHooks before_;
};

}  // namespace

std::optional<std::string> fatalReason(const std::function<void()>& work) {
  const ThrowingFatalHook hook;
  try {
    work();
  } catch (const FatalStop& stop) {
    return stop.what();
  }
  return std::nullopt;
}

}  // namespace tarsil
