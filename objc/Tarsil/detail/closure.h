#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tarsil/serial/ORSSerialPacketDescriptor.hpp"

#import <Tarsil/TarsilClosure.h>

// Closures of a host as functions of the library: blocks, and what `TarsilClosure` makes. nil is no function.
namespace tarsil::objc {

std::function<void(const std::vector<std::string>&)> namesFunction(id closure);
ORSSerialPacketDescriptor::ResponseEvaluator evaluatorFunction(id closure);

/// The closure that the function was made from; nil when it was made in C++.
id closureOf(const std::function<void(const std::vector<std::string>&)>& function);
id closureOf(const ORSSerialPacketDescriptor::ResponseEvaluator& function);

}  // namespace tarsil::objc
