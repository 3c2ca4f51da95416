#include "tarsil/drivers/vitals/Tango_Type.hpp"

#include <array>
#include <cstddef>

namespace tarsil {
namespace {

// In the order of the cases.
constexpr std::array<std::string_view, 8> rawValues = {"",     "init",   "start", "break",
                                                       "last", "finish", "clear", "SPO2"};

}  // namespace

std::string_view rawValue(Tango_Type type) {
  return rawValues[static_cast<std::size_t>(type)];
}

std::optional<Tango_Type> tangoTypeFromRawValue(std::string_view rawValue) {
  for (std::size_t i = 0; i < rawValues.size(); ++i) {
    if (rawValues[i] == rawValue) return static_cast<Tango_Type>(i);
  }
  return std::nullopt;
}

}  // namespace tarsil
