// Everything that an Objective-C host of Tarsil needs.

#import <Tarsil/CRC16.h>
#import <Tarsil/KivDrivers.h>
#import <Tarsil/KivStressDevice.h>
#import <Tarsil/KivStressPortDelegate.h>
#import <Tarsil/ORSSerialBuffer.h>
#import <Tarsil/ORSSerialPacketDescriptor.h>
#import <Tarsil/ORSSerialPort.h>
#import <Tarsil/ORSSerialPortDelegate.h>
#import <Tarsil/ORSSerialPortManager.h>
#import <Tarsil/ORSSerialRequest.h>
#import <Tarsil/PortType.h>
#import <Tarsil/StressECGDeviceManager.h>
#import <Tarsil/TarsilClosure.h>
#import <Tarsil/TarsilRunLoop.h>
#import <Tarsil/TarsilSerialDevice.h>
