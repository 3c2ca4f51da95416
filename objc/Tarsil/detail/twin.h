#pragma once

#include <functional>
#include <memory>

#include "tarsil/runtime/Observable.hpp"

#import <Tarsil/TarsilTwin.h>

// Every class of the layer keeps one C++ object, as a pointer to the C++ class of its own name: a driver's
// twin to tarsil::KivStressDevice.

/// What a class adds to `TarsilTwin` for the others of the layer.
@interface TarsilTwin (Layer)
/// The C++ object whose keys observers of this twin hear of; null when it has none.
- (tarsil::Observable*)tarsilObservable;
@end

namespace tarsil::objc {

/// The twin of the object, autoreleased: the one that there is, else a new one of that class. nil for null.
/// Any thread.
id twinOf(const std::shared_ptr<void>& object, Class kind);
/// The twin that there is, else nil. Any thread.
id existingTwinOf(const void* object);
/// For initialisers: from now on `twin` is the object's. Hands the twin back, and releases it and hands back
/// nil when there is no object.
id adopt(TarsilTwin* twin, std::shared_ptr<void> object);
/// The twin's object; null for nil. It lives at least as long as the caller holds the twin.
std::shared_ptr<void> objectOf(TarsilTwin* twin);
/// Keeps `kept` as long as the C++ object lives, in place of what was kept before.
void keep(TarsilTwin* twin, std::shared_ptr<void> kept);

template <class Object>
std::shared_ptr<Object> sharedOf(TarsilTwin* twin) {
  return std::static_pointer_cast<Object>(objectOf(twin));
}

/// Runs the work in an autorelease pool of its own: the library's threads have none. When an Objective-C
/// exception passes, the pool is left to the one around it: it may hold the exception.
template <class Work>
void inPool(const Work& work) {
  NSAutoreleasePool* const pool = [[NSAutoreleasePool alloc] init];
  work();
  [pool drain];
}

}  // namespace tarsil::objc
