#include "tools/tarsil/replay/portError.hpp"

#include <cerrno>
#include <limits>

namespace tarsil::cli {

Error portError(const Operation& operation, const std::string& path) {
  const auto code = operation.find("code");
  const auto number = code ? code->integer(0, std::numeric_limits<int>::max()) : EIO;
  return Error::posix(static_cast<int>(number), path);
}

}  // namespace tarsil::cli
