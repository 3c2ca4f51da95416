#import <Foundation/Foundation.h>

struct TarsilTwinState;

/// What the objects of this library have in common: each is the Objective-C side of one object of the C++
/// library. There is one twin per object for as long as either side holds it: release it, ask the library for
/// the object again, and the same twin comes back. Retaining, releasing: any thread; everything else as the
/// class says.
@interface TarsilTwin : NSObject {
 @private
  struct TarsilTwinState* _state;
}
@end
