#import <Foundation/Foundation.h>
#import <Tarsil/Tarsil.h>

/// Writes down what it is told: one text a call. It implements no delegate method itself: what its subclasses
/// implement is what they answer.
@interface Recorder : NSObject {
 @private
  NSMutableArray* _calls;
}
- (void)note:(NSString*)call;
/// The calls since it was asked last, one a line.
- (NSString*)takeCalls;
@end

/// Implements every method of the two protocols.
@interface EveryMethod : Recorder <KivStressPortDelegate, ORSSerialPortDelegate>
@end

/// Implements one method of each protocol.
@interface FewMethods : Recorder <KivStressPortDelegate>
@end

/// Raises an exception in every call.
@interface RaisingHost : NSObject <KivStressPortDelegate>
@end

/// What key-value observing told, one line a change: the key, and the old and the new
/// value, or what a list got or lost.
@interface KeyObserver : Recorder
@end
