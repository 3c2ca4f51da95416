#import <Tarsil/TarsilClosure.h>
#import <Tarsil/TarsilTwin.h>

@class ORSSerialPacketDescriptor;

/// Bytes to send together with the response that they should bring. Immutable. Any thread.
@interface ORSSerialRequest : TarsilTwin
/// timeout in seconds, 0 or less: never. A nil descriptor: no response is expected.
+ (ORSSerialRequest*)requestWithDataToSend:(NSData*)dataToSend
                                  userInfo:(id)userInfo
                           timeoutInterval:(NSTimeInterval)timeout
                        responseDescriptor:(ORSSerialPacketDescriptor*)responseDescriptor;
- (instancetype)initWithDataToSend:(NSData*)dataToSend
                          userInfo:(id)userInfo
                   timeoutInterval:(NSTimeInterval)timeout
                responseDescriptor:(ORSSerialPacketDescriptor*)responseDescriptor;
/// The older form: the response is whatever the evaluator accepts, of any length.
+ (ORSSerialRequest*)requestWithDataToSend:(NSData*)dataToSend
                                  userInfo:(id)userInfo
                           timeoutInterval:(NSTimeInterval)timeout
                         responseEvaluator:(TarsilEvaluatorClosure)responseEvaluator;
- (instancetype)initWithDataToSend:(NSData*)dataToSend
                          userInfo:(id)userInfo
                   timeoutInterval:(NSTimeInterval)timeout
                 responseEvaluator:(TarsilEvaluatorClosure)responseEvaluator;

/// The response descriptor's verdict; YES when there is none.
- (BOOL)dataIsValidResponse:(NSData*)responseData;

@property(readonly, copy) NSData* dataToSend;
@property(readonly, retain) id userInfo;
@property(readonly) NSTimeInterval timeoutInterval;
@property(readonly, retain) ORSSerialPacketDescriptor* responseDescriptor;
@property(readonly, copy) NSString* UUIDString;
@end
