#import "Tarsil/ORSSerialPortManager.h"

#include <any>
#include <array>

#include "tarsil/runtime/NotificationCenter.hpp"
#include "tarsil/serial/ORSSerialPortManager.hpp"

#import <Tarsil/ORSSerialPort.h>
#import "Tarsil/detail/convert.h"
#import "Tarsil/detail/notifications.h"
#import "Tarsil/detail/raise.h"

using namespace tarsil::objc;

NSString* const ORSSerialPortWasConnectedNotification = @"ORSSerialPortWasConnectedNotification";
NSString* const ORSSerialPortWasDisconnectedNotification = @"ORSSerialPortWasDisconnectedNotification";
NSString* const ORSConnectedSerialPortsKey = @"ORSConnectedSerialPortsKey";
NSString* const ORSDisconnectedSerialPortsKey = @"ORSDisconnectedSerialPortsKey";

namespace {

using Manager = tarsil::ORSSerialPortManager;

tarsil::Observation forward(const char* name, const char* key) {
  return tarsil::NotificationCenter::defaultCenter().addObserver(
      name, [key](const tarsil::Notification& posted) {
        if (posted.object != &Manager::sharedSerialPortManager()) return;
        inPool([&] {
          NSArray* const ports =
              twinsOf(std::any_cast<const Manager::Ports&>(posted.userInfo.at(key)), [ORSSerialPort class]);
          [[NSNotificationCenter defaultCenter]
              postNotificationName:stringOf(posted.name)
                            object:[ORSSerialPortManager sharedSerialPortManager]
                          userInfo:[NSDictionary dictionaryWithObject:ports
                                                               forKey:stringOf(std::string(key))]];
        });
      });
}

std::vector<std::size_t> indexList(NSIndexSet* indexes) {
  std::vector<std::size_t> list;
  for (NSUInteger index = [indexes firstIndex]; index != NSNotFound;
       index = [indexes indexGreaterThanIndex:index])
    list.push_back(index);
  return list;
}

}  // namespace

namespace tarsil::objc {

void forwardNotifications() {
  static const std::array forwarded{
      forward(Manager::wasConnectedNotification, Manager::connectedPortsKey),
      forward(Manager::wasDisconnectedNotification, Manager::disconnectedPortsKey)};
  static_cast<void>(forwarded);
}

}  // namespace tarsil::objc

namespace {

Manager& manager() {
  return Manager::sharedSerialPortManager();
}

std::shared_ptr<tarsil::ORSSerialPort> shared(ORSSerialPort* port) {
  return sharedOf<tarsil::ORSSerialPort>(port);
}

tarsil::Notification notification(NSNotification* posted) {
  return {.name = textOf([posted name])};
}

}  // namespace

@implementation ORSSerialPortManager

+ (ORSSerialPortManager*)sharedSerialPortManager {
  static id const shared =
      adopt(NSAllocateObject([ORSSerialPortManager class], 0, nullptr),
            // The shared manager of the C++ library ends with the process, and so does its twin.
            std::shared_ptr<Manager>(&manager(), [](Manager*) {}));
  forwardNotifications();
  return shared;
}
+ (id)allocWithZone:(NSZone*)zone {
  static_cast<void>(zone);
  return [[self sharedSerialPortManager] retain];
}
- (instancetype)init {
  return self;
}
- (id)copyWithZone:(NSZone*)zone {
  static_cast<void>(zone);
  return [self retain];
}

- (NSArray*)availablePorts {
  return twinsOf(manager().availablePorts(), [ORSSerialPort class]);
}
- (NSUInteger)countOfAvailablePorts {
  return manager().countOfAvailablePorts();
}
- (ORSSerialPort*)objectInAvailablePortsAtIndex:(NSUInteger)index {
  std::shared_ptr<tarsil::ORSSerialPort> port;
  raising([&] { port = manager().objectInAvailablePortsAtIndex(index); });
  return twinOf(port, [ORSSerialPort class]);
}
- (void)insertObject:(ORSSerialPort*)port inAvailablePortsAtIndex:(NSUInteger)index {
  raising([&] { manager().insertObjectInAvailablePortsAtIndex(shared(port), index); });
}
- (void)insertAvailablePorts:(NSArray*)ports atIndexes:(NSIndexSet*)indexes {
  raising([&] {
    manager().insertAvailablePortsAtIndexes(objectsOf<tarsil::ORSSerialPort>(ports), indexList(indexes));
  });
}
- (void)removeObjectFromAvailablePortsAtIndex:(NSUInteger)index {
  raising([&] { manager().removeObjectFromAvailablePortsAtIndex(index); });
}
- (void)removeAvailablePortsAtIndexes:(NSIndexSet*)indexes {
  raising([&] { manager().removeAvailablePortsAtIndexes(indexList(indexes)); });
}

- (void)systemWillSleep:(NSNotification*)posted {
  manager().systemWillSleep(notification(posted));
}
- (void)systemDidWake:(NSNotification*)posted {
  manager().systemDidWake(notification(posted));
}

- (tarsil::Observable*)tarsilObservable {
  return &manager();
}
// The C++ manager announces its key itself, whoever changes the list.
+ (BOOL)automaticallyNotifiesObserversForKey:(NSString*)key {
  return truth([key isEqualToString:@"availablePorts"] == NO);
}

@end
