#import <Foundation/Foundation.h>

@class ORSSerialPort, ORSSerialPacketDescriptor, ORSSerialRequest;

/// What a port tells whoever uses it, on the main thread. The port asks with `respondsToSelector:` before
/// every call, the required one included, and closing treats its request queue differently without
/// `serialPortWasClosed:`.
@protocol ORSSerialPortDelegate <NSObject>
/// The device vanished. The port waits for this call, then closes.
- (void)serialPortWasRemovedFromSystem:(ORSSerialPort*)serialPort;
@optional
/// A chunk of 1 to 1024 bytes, as read: where one ends says nothing about the device's frames.
- (void)serialPort:(ORSSerialPort*)serialPort didReceiveData:(NSData*)data;
/// A packet that matches a descriptor which the port listens for.
- (void)serialPort:(ORSSerialPort*)serialPort
      didReceivePacket:(NSData*)packetData
    matchingDescriptor:(ORSSerialPacketDescriptor*)descriptor;
/// The response to the pending request.
- (void)serialPort:(ORSSerialPort*)serialPort
    didReceiveResponse:(NSData*)responseData
             toRequest:(ORSSerialRequest*)request;
/// The pending request got no response in time. The next request is sent after this call returns.
- (void)serialPort:(ORSSerialPort*)serialPort requestDidTimeout:(ORSSerialRequest*)request;
/// A system call failed: an error of NSPOSIXErrorDomain, with its text and the port's path
/// (NSFilePathErrorKey).
- (void)serialPort:(ORSSerialPort*)serialPort didEncounterError:(NSError*)error;
/// The port is open. Comes after `open` has returned.
- (void)serialPortWasOpened:(ORSSerialPort*)serialPort;
/// The port is closed. The port waits for this call.
- (void)serialPortWasClosed:(ORSSerialPort*)serialPort;
@end
