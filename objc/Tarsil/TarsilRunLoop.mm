#import "Tarsil/TarsilRunLoop.h"

#include "tarsil/runtime/RunLoop.hpp"

#import "Tarsil/detail/system.h"

@implementation TarsilRunLoop

+ (void)attach {
  static BOOL isAttached = NO;
  if (!tarsil::RunLoop::isMainThread()) {
    [NSException raise:NSInternalInconsistencyException
                format:@"+[TarsilRunLoop attach] belongs to the thread that started the process"];
  }
  if (isAttached) return;
  isAttached = YES;
  tarsil::objc::attachToCurrentRunLoop();
}

@end
