#import <Foundation/Foundation.h>

#ifdef __cplusplus
#include <functional>
extern "C"
#endif
    /// What `work` raised, autoreleased; nil when it raised nothing. In a source of its own: where both
    /// languages are known, neither's exceptions can be caught on every runtime.
    NSException*
    raisedByFunction(void (*work)(void* context), void* context);

#ifdef __cplusplus
inline NSException* raisedBy(const std::function<void()>& work) {
  return raisedByFunction([](void* context) { (*static_cast<const std::function<void()>*>(context))(); },
                          const_cast<std::function<void()>*>(&work));
}
#endif
