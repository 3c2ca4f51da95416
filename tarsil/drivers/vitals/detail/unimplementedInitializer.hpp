#pragma once

#include <string_view>

namespace tarsil {

/// Full names of the ways to make a device.
inline constexpr std::string_view plainInitializer = "init()";
inline constexpr std::string_view exerciseDeviceInitializer =
    "init(Treadmill:name:baud:databits:stopbits:parity:getWithBP_SpO2:setWithBP_SpO2:canStopBP:autoSend:"
    "actualLoad:)";
inline constexpr std::string_view bloodPressureInitializer =
    "init(BP:databits:stopbits:parity:autoSend:canStopBP:)";

/// Stops the process: the class cannot be made in this way.
[[noreturn]] void unimplementedInitializer(std::string_view className, std::string_view initializer);

}  // namespace tarsil
