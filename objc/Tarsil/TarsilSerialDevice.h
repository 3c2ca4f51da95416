#import <Tarsil/TarsilTwin.h>

/// A serial device of the machine, or a virtual one that the program added: what ports are made for. A
/// property that the device lacks is nil. Any thread.
@interface TarsilSerialDevice : TarsilTwin
/// The devices present now.
+ (NSArray*)devices;
/// Makes the terminal at `path` (a pseudo-terminal's, say) a device that is found under the given name, as if
/// an adapter had been plugged in. Raises NSInvalidArgumentException when another device has that path.
+ (void)addTerminalAtPath:(NSString*)path name:(NSString*)name;
/// Takes such a device away again, as if its adapter had been pulled out. NO when there is none at that path.
+ (BOOL)removeTerminalAtPath:(NSString*)path;

/// The path to open it by, as "/dev/ttyUSB0", and the name that people read, as "ttyUSB0".
@property(readonly, copy) NSString* calloutPath;
@property(readonly, copy) NSString* terminalName;
/// A path that stays the same when the device comes back under another number.
@property(readonly, copy) NSString* stablePath;
@end
