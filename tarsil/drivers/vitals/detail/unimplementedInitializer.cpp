#include "tarsil/drivers/vitals/detail/unimplementedInitializer.hpp"

#include <string>

#include "tarsil/support/process.hpp"

namespace tarsil {

void unimplementedInitializer(std::string_view className, std::string_view initializer) {
  fatalError("use of unimplemented initializer '" + std::string(initializer) + "' for class '" +
             std::string(className) + "'");
}

}  // namespace tarsil
