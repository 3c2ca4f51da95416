#import "Tarsil/detail/system.h"

#include <objc/runtime.h>

#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>

#include "tarsil/runtime/RunLoop.hpp"

/// Watches the library's descriptor. Level-triggered: what is left over calls it again at once.
@interface TarsilRunLoopWatcher : NSObject <RunLoopEvents>
@end

@implementation TarsilRunLoopWatcher
- (void)receivedEvent:(void*)data type:(RunLoopEventType)type extra:(void*)extra forMode:(NSString*)mode {
  (void)data, (void)type, (void)extra, (void)mode;
  tarsil::RunLoop::main().processDue();
}
@end

namespace tarsil::objc {

void attachToCurrentRunLoop() {
  static TarsilRunLoopWatcher* const watcher = [[TarsilRunLoopWatcher alloc] init];
  const auto descriptor = static_cast<std::intptr_t>(RunLoop::main().descriptor());
  NSString* const modes[] = {NSDefaultRunLoopMode, @"NSModalPanelRunLoopMode", @"NSEventTrackingRunLoopMode"};
  for (NSString* mode : modes) {
    [[NSRunLoop currentRunLoop] addEvent:reinterpret_cast<void*>(descriptor)
                                    type:ET_RDESC
                                 watcher:watcher
                                 forMode:mode];
  }
}

// This runtime has no weak references. Every object's end passes through -[NSObject dealloc], so that one
// looks there whether somebody refers to the object weakly.
namespace {

/// Never destroyed: objects end after static ones, too.
struct WeaklyHeld {
  std::mutex mutex;
  std::multimap<id, id*> references;
  /// How many references there are: nearly every object ends without the lock.
  std::atomic<std::size_t> count = 0;

  static WeaklyHeld& all() {
    static auto& held = *new WeaklyHeld;
    return held;
  }
};

IMP deallocOfNSObject = nullptr;

// With the type that the runtime has for every method.
id deallocClearingReferences(id self, SEL selector, ...) {
  WeaklyHeld& held = WeaklyHeld::all();
  if (held.count != 0) {
    const std::lock_guard lock(held.mutex);
    const auto [first, last] = held.references.equal_range(self);
    for (auto reference = first; reference != last; ++reference) *reference->second = nil;
    held.references.erase(first, last);
    held.count = held.references.size();
  }
  deallocOfNSObject(self, selector);
  return nil;
}

void lookAtDeallocOnce() {
  static const bool once = [] {
    Method method = class_getInstanceMethod([NSObject class], @selector(dealloc));
    deallocOfNSObject = method_getImplementation(method);
    method_setImplementation(method, deallocClearingReferences);
    return true;
  }();
  static_cast<void>(once);
}

}  // namespace

struct WeakReference::State {
  id object = nil;
};

WeakReference::WeakReference(id object) : state_(std::make_unique<State>()) {
  lookAtDeallocOnce();
  WeaklyHeld& held = WeaklyHeld::all();
  const std::lock_guard lock(held.mutex);
  state_->object = object;
  held.references.emplace(object, &state_->object);
  held.count = held.references.size();
}

WeakReference::~WeakReference() {
  WeaklyHeld& held = WeaklyHeld::all();
  const std::lock_guard lock(held.mutex);
  std::erase_if(held.references, [&](const auto& entry) { return entry.second == &state_->object; });
  held.count = held.references.size();
}

id WeakReference::object() const {
  WeaklyHeld& held = WeaklyHeld::all();
  id object = nil;
  {
    const std::lock_guard lock(held.mutex);
    object = [state_->object retain];
  }
  return [object autorelease];
}

}  // namespace tarsil::objc
