#include "tarsil/core/PortType.hpp"

namespace tarsil {

std::optional<PortType> portTypeFromRawValue(std::int64_t rawValue) {
  if (rawValue < 0 || rawValue > 2) return std::nullopt;
  return static_cast<PortType>(rawValue);
}

}  // namespace tarsil
