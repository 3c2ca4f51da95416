#pragma once

#include <memory>
#include <vector>

#include "tarsil/core/KivStressDevice.hpp"

#import <Tarsil/KivStressDevice.h>

namespace tarsil::objc {

/// The twin of a device, of the class of its driver's name; nil for null.
id deviceTwin(const std::shared_ptr<KivStressDevice>& device);
NSArray* deviceTwins(const std::vector<std::shared_ptr<KivStressDevice>>& devices);

/// A new object of the driver that is the twin of `kind`, or of the nearest class above it.
std::shared_ptr<KivStressDevice> makeDevice(Class kind);
std::shared_ptr<KivStressDevice> makeDevice(Class kind, const ExerciseDeviceSettings& settings);
std::shared_ptr<KivStressDevice> makeDevice(Class kind, const BPDeviceSettings& settings);
std::shared_ptr<KivStressDevice> makeDevice(Class kind, const SpO2DeviceSettings& settings);

}  // namespace tarsil::objc
