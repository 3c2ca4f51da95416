#import "Tarsil/detail/raise.h"

#import "Tarsil/detail/convert.h"
#include "Tarsil/detail/thrown.hpp"

namespace tarsil::objc {
namespace {

NSString* exceptionName(Thrown::Kind kind) {
  switch (kind) {
    case Thrown::Kind::nothing:
      return nil;
    case Thrown::Kind::outOfRange:
      return NSRangeException;
    case Thrown::Kind::invalidArgument:
      return NSInvalidArgumentException;
    case Thrown::Kind::logicError:
      return NSInternalInconsistencyException;
  }
  return nil;
}

NSException* exceptionFor(const std::function<void()>& work) {
  const Thrown thrown = thrownBy(work);
  NSString* const name = exceptionName(thrown.kind);
  return name == nil ? nil : [NSException exceptionWithName:name reason:stringOf(thrown.what) userInfo:nil];
}

}  // namespace

void raising(const std::function<void()>& work) {
  [exceptionFor(work) raise];
}

}  // namespace tarsil::objc
