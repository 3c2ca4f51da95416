#import "Tarsil/ORSSerialRequest.h"

#include "tarsil/serial/ORSSerialRequest.hpp"

#import <Tarsil/ORSSerialPacketDescriptor.h>
#import "Tarsil/detail/closure.h"
#import "Tarsil/detail/convert.h"

using namespace tarsil::objc;

namespace {

using Request = tarsil::ORSSerialRequest;

std::shared_ptr<Request> request(ORSSerialRequest* twin) {
  return sharedOf<Request>(twin);
}

}  // namespace

@implementation ORSSerialRequest

+ (ORSSerialRequest*)requestWithDataToSend:(NSData*)dataToSend
                                  userInfo:(id)info
                           timeoutInterval:(NSTimeInterval)timeout
                        responseDescriptor:(ORSSerialPacketDescriptor*)responseDescriptor {
  return [[[self alloc] initWithDataToSend:dataToSend
                                  userInfo:info
                           timeoutInterval:timeout
                        responseDescriptor:responseDescriptor] autorelease];
}
- (instancetype)initWithDataToSend:(NSData*)dataToSend
                          userInfo:(id)info
                   timeoutInterval:(NSTimeInterval)timeout
                responseDescriptor:(ORSSerialPacketDescriptor*)responseDescriptor {
  return adopt(self,
               std::make_shared<Request>(Request::WithDescriptor{
                   .dataToSend = bytesOf(dataToSend),
                   .userInfo = userInfoOf(info),
                   .timeoutInterval = timeout,
                   .responseDescriptor = sharedOf<tarsil::ORSSerialPacketDescriptor>(responseDescriptor)}));
}
+ (ORSSerialRequest*)requestWithDataToSend:(NSData*)dataToSend
                                  userInfo:(id)info
                           timeoutInterval:(NSTimeInterval)timeout
                         responseEvaluator:(TarsilEvaluatorClosure)responseEvaluator {
  return [[[self alloc] initWithDataToSend:dataToSend
                                  userInfo:info
                           timeoutInterval:timeout
                         responseEvaluator:responseEvaluator] autorelease];
}
- (instancetype)initWithDataToSend:(NSData*)dataToSend
                          userInfo:(id)info
                   timeoutInterval:(NSTimeInterval)timeout
                 responseEvaluator:(TarsilEvaluatorClosure)responseEvaluator {
  return adopt(self, std::make_shared<Request>(
                         Request::WithEvaluator{.dataToSend = bytesOf(dataToSend),
                                                .userInfo = userInfoOf(info),
                                                .timeoutInterval = timeout,
                                                .responseEvaluator = evaluatorFunction(responseEvaluator)}));
}

- (BOOL)dataIsValidResponse:(NSData*)responseData {
  return truth(request(self)->dataIsValidResponse(bytesOf(responseData)));
}

- (NSData*)dataToSend {
  return dataOf(tarsil::ByteView(request(self)->dataToSend()));
}
- (id)userInfo {
  return userInfoOf(request(self)->userInfo());
}
- (NSTimeInterval)timeoutInterval {
  return request(self)->timeoutInterval();
}
- (ORSSerialPacketDescriptor*)responseDescriptor {
  return twinOf(request(self)->responseDescriptor(), [ORSSerialPacketDescriptor class]);
}
- (NSString*)UUIDString {
  return stringOf(request(self)->UUIDString());
}

- (NSString*)description {
  return [NSString stringWithFormat:@"%@ data: %@ userInfo: %@ timeout interval: %f", [super description],
                                    [self dataToSend], [self userInfo], [self timeoutInterval]];
}

@end
