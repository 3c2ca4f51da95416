#import <Foundation/Foundation.h>

/// Hears of a changed list of port names.
typedef void (*TarsilNamesFunction)(NSArray* names, void* context);
/// Says whether bytes form a whole packet.
typedef BOOL (*TarsilEvaluatorFunction)(NSData* data, void* context);

// The types of closures: blocks where the compiler has them, and otherwise what `TarsilClosure` makes.
#ifdef __BLOCKS__
typedef void (^TarsilNamesClosure)(NSArray* names);
typedef BOOL (^TarsilEvaluatorClosure)(NSData* data);
#else
typedef id TarsilNamesClosure;
typedef id TarsilEvaluatorClosure;
#endif

/// A closure for compilers without blocks: a C function and the context that it is called with, which the
/// caller keeps alive as long as the closure. Immutable; any thread.
@interface TarsilClosure : NSObject {
 @private
  void (*_function)(void);
  void* _context;
}
+ (TarsilNamesClosure)namesFunction:(TarsilNamesFunction)function context:(void*)context;
+ (TarsilEvaluatorClosure)evaluatorFunction:(TarsilEvaluatorFunction)function context:(void*)context;
@end
