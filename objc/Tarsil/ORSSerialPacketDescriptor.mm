#import "Tarsil/ORSSerialPacketDescriptor.h"

#include "tarsil/serial/ORSSerialPacketDescriptor.hpp"

#import "Tarsil/detail/closure.h"
#import "Tarsil/detail/convert.h"
#import "Tarsil/detail/raise.h"

using namespace tarsil::objc;

namespace {

using Descriptor = tarsil::ORSSerialPacketDescriptor;

std::shared_ptr<Descriptor> descriptor(ORSSerialPacketDescriptor* twin) {
  return sharedOf<Descriptor>(twin);
}

}  // namespace

@implementation ORSSerialPacketDescriptor

- (instancetype)initWithMaximumPacketLength:(NSUInteger)maxPacketLength
                                   userInfo:(id)info
                          responseEvaluator:(TarsilEvaluatorClosure)responseEvaluator {
  return adopt(self, std::make_shared<Descriptor>(
                         Descriptor::Evaluated{.maximumPacketLength = maxPacketLength,
                                               .userInfo = userInfoOf(info),
                                               .responseEvaluator = evaluatorFunction(responseEvaluator)}));
}
- (instancetype)initWithPacketData:(NSData*)packetData userInfo:(id)info {
  return adopt(self, std::make_shared<Descriptor>(Descriptor::FixedPacket{.packetData = bytesOf(packetData),
                                                                          .userInfo = userInfoOf(info)}));
}
- (instancetype)initWithPrefix:(NSData*)prefix
                        suffix:(NSData*)suffix
           maximumPacketLength:(NSUInteger)maxPacketLength
                      userInfo:(id)info {
  return adopt(
      self, std::make_shared<Descriptor>(Descriptor::PrefixAndSuffix{.prefix = optionalBytesOf(prefix),
                                                                     .suffix = optionalBytesOf(suffix),
                                                                     .maximumPacketLength = maxPacketLength,
                                                                     .userInfo = userInfoOf(info)}));
}
- (instancetype)initWithPrefixString:(NSString*)prefix
                        suffixString:(NSString*)suffix
                 maximumPacketLength:(NSUInteger)maxPacketLength
                            userInfo:(id)info {
  return adopt(self, std::make_shared<Descriptor>(
                         Descriptor::PrefixAndSuffixStrings{.prefixString = optionalTextOf(prefix),
                                                            .suffixString = optionalTextOf(suffix),
                                                            .maximumPacketLength = maxPacketLength,
                                                            .userInfo = userInfoOf(info)}));
}
- (instancetype)initWithRegularExpression:(NSRegularExpression*)regex
                      maximumPacketLength:(NSUInteger)maxPacketLength
                                 userInfo:(id)info {
  if ([regex options] != 0) {
    [self release];
    [NSException raise:NSInvalidArgumentException format:@"packets are matched without options"];
  }
  std::shared_ptr<Descriptor> made;
  raising([&] {
    made = std::make_shared<Descriptor>(
        Descriptor::Expression{.regularExpression = tarsil::RegularExpression(textOf([regex pattern])),
                               .maximumPacketLength = maxPacketLength,
                               .userInfo = userInfoOf(info)});
  });
  return adopt(self, made);
}
- (instancetype)init {
  // With the name of the class that was meant, which may be the host's own.
  [NSException
       raise:NSInternalInconsistencyException
      format:
          @"You must initialize %@ with its designated initializers, or one of its convenience initializers.",
          NSStringFromClass([self class])];
  return self;
}

- (BOOL)dataIsValidPacket:(NSData*)packetData {
  return truth(descriptor(self)->dataIsValidPacket(bytesOf(packetData)));
}
- (NSData*)packetMatchingAtEndOfBuffer:(NSData*)buffer {
  return dataOf(descriptor(self)->packetMatchingAtEndOfBuffer(bytesOf(buffer)));
}

- (NSData*)packetData {
  return dataOf(descriptor(self)->packetData());
}
- (NSData*)prefix {
  return dataOf(descriptor(self)->prefix());
}
- (NSData*)suffix {
  return dataOf(descriptor(self)->suffix());
}
- (NSRegularExpression*)regularExpression {
  const auto& expression = descriptor(self)->regularExpression();
  if (!expression) return nil;
  return [NSRegularExpression regularExpressionWithPattern:stringOf(expression->pattern())
                                                   options:0
                                                     error:nullptr];
}
- (TarsilEvaluatorClosure)responseEvaluator {
  return closureOf(descriptor(self)->responseEvaluator());
}
- (NSUInteger)maximumPacketLength {
  return descriptor(self)->maximumPacketLength();
}
- (id)userInfo {
  return userInfoOf(descriptor(self)->userInfo());
}
- (NSUUID*)uuid {
  return [[[NSUUID alloc] initWithUUIDString:stringOf(descriptor(self)->uuid().string())] autorelease];
}

- (NSUInteger)hash {
  return descriptor(self)->hash();
}
- (BOOL)isEqual:(id)other {
  return truth([other isKindOfClass:[ORSSerialPacketDescriptor class]] != NO &&
               *descriptor(self) == *descriptor(other));
}

@end
