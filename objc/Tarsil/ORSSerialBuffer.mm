#import "Tarsil/ORSSerialBuffer.h"

#include "tarsil/serial/ORSSerialBuffer.hpp"

#import "Tarsil/detail/convert.h"
#import "Tarsil/detail/raise.h"

using namespace tarsil::objc;

namespace {

std::shared_ptr<tarsil::ORSSerialBuffer> buffer(ORSSerialBuffer* twin) {
  return sharedOf<tarsil::ORSSerialBuffer>(twin);
}

}  // namespace

@implementation ORSSerialBuffer

- (instancetype)initWithMaximumLength:(NSUInteger)maxLength {
  return adopt(self, std::make_shared<tarsil::ORSSerialBuffer>(maxLength));
}
- (instancetype)init {
  raising([] { tarsil::ORSSerialBuffer(); });
  return self;
}
- (void)appendData:(NSData*)data {
  // Of its own: the data may be this buffer's.
  buffer(self)->appendData(bytesOf(data));
}
- (void)clearBuffer {
  buffer(self)->clearBuffer();
}
- (NSUInteger)maximumLength {
  return buffer(self)->maximumLength();
}
- (NSData*)data {
  return dataOf(buffer(self)->view());
}

- (tarsil::Observable*)tarsilObservable {
  return buffer(self).get();
}

@end
