#include "tarsil/support/Error.hpp"

#include <system_error>
#include <utility>

namespace tarsil {

Error Error::posix(int errorNumber, std::string filePath) {
  // generic_category() gives strerror's text without strerror's shared buffer.
  return {posixDomain, errorNumber, std::generic_category().message(errorNumber), std::move(filePath)};
}

std::string Error::description() const {
  return domain + " error " + std::to_string(code) + ": " + localizedDescription + " (" + filePath + ")";
}

}  // namespace tarsil
