#pragma once

#include <memory>

#import <Foundation/Foundation.h>

// What differs between GNUstep and Apple's system; each has its file.
namespace tarsil::objc {

/// The calling thread's NSRunLoop calls `RunLoop::main().processDue()` whenever the loop's descriptor is
/// readable, and does not wait for it otherwise.
void attachToCurrentRunLoop();

/// A reference that is nil once its object is gone.
class WeakReference {
 public:
  explicit WeakReference(id object);
  ~WeakReference();
  WeakReference(const WeakReference&) = delete;
  WeakReference& operator=(const WeakReference&) = delete;

  /// Autoreleased. Any thread.
  id object() const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace tarsil::objc
