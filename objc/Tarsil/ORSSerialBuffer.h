#import <Tarsil/TarsilTwin.h>

/// The newest bytes of a stream, up to a maximum length; older ones fall out. Observers of "data" hear of
/// every change, on the thread that makes it. One thread at a time.
@interface ORSSerialBuffer : TarsilTwin
/// In bytes.
- (instancetype)initWithMaximumLength:(NSUInteger)maxLength;
/// Raises NSInternalInconsistencyException: a buffer needs its maximum length.
- (instancetype)init;
- (void)appendData:(NSData*)data;
- (void)clearBuffer;
@property(readonly) NSUInteger maximumLength;
/// The bytes held, oldest first.
@property(readonly, copy) NSData* data;
@end
