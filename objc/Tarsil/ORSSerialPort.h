#import <Tarsil/ORSSerialPortDelegate.h>
#import <Tarsil/TarsilTwin.h>

@class TarsilSerialDevice;

/// Parity of the line. A value above 2 is stored as None.
typedef NS_ENUM(NSUInteger, ORSSerialPortParity) {
  ORSSerialPortParityNone = 0,
  ORSSerialPortParityOdd,
  ORSSerialPortParityEven
};

/// One serial device of the machine. It is read on worker threads; every call of its delegate comes on the
/// main thread.
///
/// Properties are set, and the port opened and closed, on the main thread; `sendData:`, `sendRequest:` and
/// the listening calls may be made on any thread. Every property can be observed under its name; observers of
/// "isOpen" are called on the thread that opens and on the worker thread that closes, all others where the
/// property is set.
///
/// Two ports are equal when their paths are: several port objects may stand for one device.
@interface ORSSerialPort : TarsilTwin

/// The port of the device with this call-out or dial-in path; nil when there is no such device.
+ (ORSSerialPort*)serialPortWithPath:(NSString*)devicePath;
- (instancetype)initWithPath:(NSString*)devicePath;
/// A new port for the device.
+ (ORSSerialPort*)serialPortWithDevice:(TarsilSerialDevice*)device;
- (instancetype)initWithDevice:(TarsilSerialDevice*)device;
/// nil: a port needs a path.
- (instancetype)init;

/// The device with this call-out or dial-in path, or nil; and what a device says of itself.
+ (TarsilSerialDevice*)deviceFromBSDPath:(NSString*)bsdPath;
+ (NSString*)bsdCalloutPathFromDevice:(TarsilSerialDevice*)device;
+ (NSString*)bsdDialinPathFromDevice:(TarsilSerialDevice*)device;
+ (NSString*)baseNameFromDevice:(TarsilSerialDevice*)device;
+ (NSString*)serviceTypeFromDevice:(TarsilSerialDevice*)device;
+ (NSString*)modemNameFromDevice:(TarsilSerialDevice*)device;
+ (NSString*)suffixFromDevice:(TarsilSerialDevice*)device;

/// Opens the device with the stored settings; success and failure reach the delegate. Does nothing when the
/// port is open, or still closing.
- (void)open;
/// Begins to close; the port is closed some moments later, on a worker thread. Always YES.
- (BOOL)close;
/// Writes all bytes before it returns. NO when the port is closed, or the write failed.
- (BOOL)sendData:(NSData*)data;
/// Tells the delegate that the device vanished, waits for it, and closes.
- (void)cleanupAfterSystemRemoval;
/// Deprecated: prints a warning and does `cleanupAfterSystemRemoval`.
- (void)cleanup __attribute__((deprecated));

/// Sends the request, or queues it behind the pending one. NO when writing failed. Waits for the port's own
/// queue: not from an evaluator.
- (BOOL)sendRequest:(ORSSerialRequest*)request;
/// Take waiting requests off the queue, some moments later. The pending one is not affected.
- (void)cancelQueuedRequest:(ORSSerialRequest*)request;
- (void)cancelAllQueuedRequests;
/// Reports every packet that the descriptor matches, until listening is stopped. Wait as `sendRequest:` does.
- (void)startListeningForPacketsMatchingDescriptor:(ORSSerialPacketDescriptor*)descriptor;
- (void)stopListeningForPacketsMatchingDescriptor:(ORSSerialPacketDescriptor*)descriptor;

/// Held weakly: it becomes nil when the delegate goes, which should be on the main thread.
@property(assign) id<ORSSerialPortDelegate> delegate;
/// The device's call-out path, as "/dev/ttyUSB0", and its terminal name, as "ttyUSB0".
@property(readonly, copy) NSString* path;
@property(readonly, copy) NSString* name;
/// The device that this port was made for.
@property(readonly, retain) TarsilSerialDevice* IOKitDevice;
/// YES from `open` until the port is closed. Observed as "isOpen".
@property(readonly, getter=isOpen) BOOL open;
/// Line speed in bit/s; 19200 at first.
@property(copy) NSNumber* baudRate;
/// Whether a speed that the terminal layer rejects is tried through the driver's special request.
@property BOOL allowsNonStandardBaudRates;
/// 1 or 2 (any larger number gives two stop bits); 1 at first.
@property NSUInteger numberOfStopBits;
/// 7 or 8; every other number gives characters of 5 bits. 8 at first.
@property NSUInteger numberOfDataBits;
@property ORSSerialPortParity parity;
/// The terminal's local echo.
@property BOOL shouldEchoReceivedData;
@property BOOL usesRTSCTSFlowControl;
@property BOOL usesDTRDSRFlowControl;
@property BOOL usesDCDOutputFlowControl;
/// Output modem lines, driven while the port is open.
@property BOOL RTS;
@property BOOL DTR;
/// Input modem lines as last polled.
@property(readonly) BOOL CTS;
@property(readonly) BOOL DSR;
@property(readonly) BOOL DCD;
/// The requests that wait, the one that was sent and waits for its response, and the descriptors listened
/// for.
@property(readonly, copy) NSArray* queuedRequests;
@property(readonly, retain) ORSSerialRequest* pendingRequest;
@property(readonly, copy) NSArray* packetDescriptors;
@end
