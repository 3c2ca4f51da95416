#import <Foundation/Foundation.h>

/// Lets the host's run loop drive the library.
@interface TarsilRunLoop : NSObject
/// From now on the main thread's NSRunLoop delivers what the library has for it, whenever it waits: timers,
/// and the calls of delegates. In the default mode, and in those of AppKit's modal panels and mouse tracking,
/// so that a menu that is held open stops no station. Once is enough, more adds nothing. On the main thread,
/// the one that started the process; raises NSInternalInconsistencyException on any other.
+ (void)attach;
@end
