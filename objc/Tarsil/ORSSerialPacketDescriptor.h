#import <Tarsil/TarsilClosure.h>
#import <Tarsil/TarsilTwin.h>

/// The shape of a packet: fixed bytes, a prefix and a suffix, a regular expression, or whatever a closure
/// accepts. Immutable. Two made from the same arguments are different ones. Any thread.
@interface ORSSerialPacketDescriptor : TarsilTwin
/// A port asks the evaluator on its own queue, for every tail of the bytes that it holds, shortest first,
/// each time that a byte arrives. nil accepts any bytes, but not none.
- (instancetype)initWithMaximumPacketLength:(NSUInteger)maxPacketLength
                                   userInfo:(id)userInfo
                          responseEvaluator:(TarsilEvaluatorClosure)responseEvaluator;
/// A packet is exactly these bytes.
- (instancetype)initWithPacketData:(NSData*)packetData userInfo:(id)userInfo;
/// A packet begins with the prefix and ends with the suffix; one may be nil. When both are, nothing is a
/// packet.
- (instancetype)initWithPrefix:(NSData*)prefix
                        suffix:(NSData*)suffix
           maximumPacketLength:(NSUInteger)maxPacketLength
                      userInfo:(id)userInfo;
- (instancetype)initWithPrefixString:(NSString*)prefix
                        suffixString:(NSString*)suffix
                 maximumPacketLength:(NSUInteger)maxPacketLength
                            userInfo:(id)userInfo;
/// A packet is UTF-8 text that the expression matches at its start. Raises NSInvalidArgumentException for
/// options, and for a pattern that the library's own engine does not know.
- (instancetype)initWithRegularExpression:(NSRegularExpression*)regex
                      maximumPacketLength:(NSUInteger)maxPacketLength
                                 userInfo:(id)userInfo;
/// Raises NSInternalInconsistencyException: a descriptor needs a shape.
- (instancetype)init;

/// The evaluator's verdict; and the shortest packet with which the buffer ends, or nil.
- (BOOL)dataIsValidPacket:(NSData*)packetData;
- (NSData*)packetMatchingAtEndOfBuffer:(NSData*)buffer;

/// What the descriptor was made from; nil in the other kinds.
@property(readonly, copy) NSData* packetData;
@property(readonly, copy) NSData* prefix;
@property(readonly, copy) NSData* suffix;
@property(readonly, copy) NSRegularExpression* regularExpression;
@property(readonly, copy) TarsilEvaluatorClosure responseEvaluator;
@property(readonly) NSUInteger maximumPacketLength;
/// Anything of the client's. Held strongly.
@property(readonly, retain) id userInfo;
@property(readonly, copy) NSUUID* uuid;
@end
