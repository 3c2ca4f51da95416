#include "tarsil/runtime/detail/succeeded.hpp"

#include <cerrno>
#include <string>
#include <system_error>

#include "tarsil/support/process.hpp"

namespace tarsil::detail {

int succeeded(int result, std::string_view what) {
  if (result >= 0) return result;
  fatalError(std::string(what) + ": " + std::generic_category().message(errno));
}

}  // namespace tarsil::detail
