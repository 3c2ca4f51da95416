#import <Tarsil/TarsilTwin.h>

@class ORSSerialPort;

/// Posted with the list of arrived, and of vanished, ports under the key; the object is the manager.
extern NSString* const ORSSerialPortWasConnectedNotification;
extern NSString* const ORSSerialPortWasDisconnectedNotification;
extern NSString* const ORSConnectedSerialPortsKey;
extern NSString* const ORSDisconnectedSerialPortsKey;

/// Knows which serial ports the machine has, and follows devices as they come and go. Notifications are
/// posted, and the list changes, on the thread that made it: make it on the main thread. Observers of
/// "availablePorts" see each insertion and removal.
@interface ORSSerialPortManager : TarsilTwin <NSCopying>
/// The one manager; `alloc` and `copy` give it too.
+ (ORSSerialPortManager*)sharedSerialPortManager;

/// The ports present now.
@property(readonly, copy) NSArray* availablePorts;
/// An index that is not in the list raises NSRangeException.
- (NSUInteger)countOfAvailablePorts;
- (ORSSerialPort*)objectInAvailablePortsAtIndex:(NSUInteger)index;
- (void)insertObject:(ORSSerialPort*)port inAvailablePortsAtIndex:(NSUInteger)index;
- (void)insertAvailablePorts:(NSArray*)ports atIndexes:(NSIndexSet*)indexes;
- (void)removeObjectFromAvailablePortsAtIndex:(NSUInteger)index;
- (void)removeAvailablePortsAtIndexes:(NSIndexSet*)indexes;

/// Closes every open port and remembers it; opens the remembered ones again. The host calls them: the library
/// does not ask the system.
- (void)systemWillSleep:(NSNotification*)notification;
- (void)systemDidWake:(NSNotification*)notification;
@end
