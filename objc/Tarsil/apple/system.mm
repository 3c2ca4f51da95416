// Not built here: no machine of the project has Apple's compiler. It is all that differs there, beside
// apple.cmake: the source of the run loop and the runtime's own weak references.
#ifdef __APPLE__

#import "Tarsil/detail/system.h"

#include "tarsil/runtime/RunLoop.hpp"

#include <CoreFoundation/CoreFoundation.h>
#include <objc/runtime.h>

// The runtime's, for code without automatic reference counting.
extern "C" id objc_initWeak(id* location, id object);
extern "C" id objc_loadWeak(id* location);
extern "C" void objc_destroyWeak(id* location);

namespace tarsil::objc {
namespace {

void descriptorIsReadable(CFFileDescriptorRef descriptor, CFOptionFlags /*types*/, void* /*info*/) {
  RunLoop::main().processDue();
  // One call for each time that it is asked for.
  CFFileDescriptorEnableCallBacks(descriptor, kCFFileDescriptorReadCallBack);
}

}  // namespace

void attachToCurrentRunLoop() {
  CFFileDescriptorRef descriptor = CFFileDescriptorCreate(kCFAllocatorDefault, RunLoop::main().descriptor(),
                                                          false, descriptorIsReadable, nullptr);
  CFRunLoopSourceRef source = CFFileDescriptorCreateRunLoopSource(kCFAllocatorDefault, descriptor, 0);
  CFRunLoopAddSource(CFRunLoopGetCurrent(), source, kCFRunLoopCommonModes);
  CFFileDescriptorEnableCallBacks(descriptor, kCFFileDescriptorReadCallBack);
  CFRelease(source);
}

struct WeakReference::State {
  id object = nil;
};

WeakReference::WeakReference(id object) : state_(std::make_unique<State>()) {
  objc_initWeak(&state_->object, object);
}
WeakReference::~WeakReference() {
  objc_destroyWeak(&state_->object);
}
id WeakReference::object() const {
  return objc_loadWeak(&state_->object);
}

}  // namespace tarsil::objc

#endif
