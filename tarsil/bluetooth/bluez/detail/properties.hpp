#pragma once

#include <sdbus-c++/Types.h>

#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace tarsil::bluez {

/// The properties of one interface of an object on the bus, by name.
using Properties = std::map<std::string, sdbus::Variant>;
/// What one object offers: its interfaces by name.
using Interfaces = std::map<std::string, Properties>;
/// All objects of a service by path.
using Objects = std::map<sdbus::ObjectPath, Interfaces>;

/// The property, unless it is missing or of another type than expected.
template <class T>
std::optional<T> property(const Properties& properties, const std::string& name) {
  const auto found = properties.find(name);
  if (found == properties.end() || !found->second.containsValueOfType<T>()) return std::nullopt;
  return found->second.get<T>();
}

}  // namespace tarsil::bluez
