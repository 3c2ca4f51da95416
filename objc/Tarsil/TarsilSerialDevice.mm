#import "Tarsil/TarsilSerialDevice.h"

#include "tarsil/platform/SerialDevice.hpp"
#include "tarsil/platform/SerialDeviceRegistry.hpp"
#include "tarsil/platform/VirtualDeviceRegistry.hpp"

#import "Tarsil/detail/convert.h"
#import "Tarsil/detail/raise.h"

using namespace tarsil::objc;

namespace {

std::shared_ptr<tarsil::SerialDevice> device(TarsilSerialDevice* twin) {
  return sharedOf<tarsil::SerialDevice>(twin);
}

}  // namespace

@implementation TarsilSerialDevice

+ (NSArray*)devices {
  NSMutableArray* const twins = [NSMutableArray array];
  for (const auto& present : tarsil::SerialDeviceRegistry::shared()->devices())
    [twins addObject:twinOf(std::const_pointer_cast<tarsil::SerialDevice>(present), self)];
  return twins;
}
+ (void)addTerminalAtPath:(NSString*)path name:(NSString*)name {
  raising([&] { tarsil::VirtualDeviceRegistry::shared()->add(textOf(path), textOf(name)); });
}
+ (BOOL)removeTerminalAtPath:(NSString*)path {
  return truth(tarsil::VirtualDeviceRegistry::shared()->remove(textOf(path)));
}

- (NSString*)calloutPath {
  return stringOf(device(self)->calloutPath);
}
- (NSString*)terminalName {
  return stringOf(device(self)->terminalName);
}
- (NSString*)stablePath {
  return stringOf(device(self)->stablePath);
}

@end
