#import <Tarsil/KivStressDevice.h>
#import <Tarsil/ORSSerialPortDelegate.h>

/// The ergometer entry for a bicycle that the software does not drive: every operation does nothing.
@interface KivBicycle : KivStressDevice
@end

/// What every driver of a serial device shares: it is its port's delegate, tells the host when the port opens
/// or vanishes, and prints port errors, which the host never hears of. Not made by itself.
@interface KivSerialDriver : KivStressDevice <ORSSerialPortDelegate>
@end

/// A Lode treadmill, 38400 bit/s. Reports speed and grade in tenths.
@interface LodeTreadmill : KivSerialDriver
@end

/// The OEM variant of the Lode treadmill, 19200 bit/s. Reports the speed in tenths.
@interface LodeOEMTreadmill : KivSerialDriver
@end

/// A TrackMaster treadmill, 4800 bit/s.
@interface TrackMaster : KivSerialDriver
@end

/// A TM-400 V2 treadmill, 4800 bit/s. Reports nothing.
@interface TM_400V2 : KivSerialDriver
@end

/// An Ergoline ergometer of the P10 protocol, 4800 bit/s. Reports to the shared manager's delegate.
@interface ErgolineP10 : KivSerialDriver
@end

/// An Ergosana ergometer of the P10 protocol, 4800 bit/s. Reports pressures to the shared manager's delegate.
@interface ErgosanaP10 : KivSerialDriver
@end

/// An Ergometrics ergometer of the P3 protocol, 4800 bit/s. Reports nothing.
@interface ErgometricsP3 : KivSerialDriver
@end

/// A Lode ergometer, 38400 bit/s. Reports nothing.
@interface LodeErgometer38K4 : KivSerialDriver
@end

/// A Tango blood-pressure monitor on a port of its own, 9600 bit/s.
@interface BPDevice : KivSerialDriver
@end

/// A MEDXING pulse oximeter on a serial port, 9600 bit/s. Made with `initWithSpO2:...` alone: the other
/// initialisers stop the process.
@interface MEDXINGPort : KivSerialDriver
@end

/// A pulse oximeter of which nothing is known. Made with `initWithSpO2:...` alone, too.
@interface SpO2Device : KivSerialDriver
@end

/// A MEDXING pulse oximeter over Bluetooth LE. A host makes it, and its central, in C++.
@interface MEDXINGSpO2 : KivStressDevice
@end
