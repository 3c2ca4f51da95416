#import <Tarsil/KivStressDevice.h>
#import <Tarsil/ORSSerialPortDelegate.h>
#import <Tarsil/PortType.h>
#import <Tarsil/TarsilClosure.h>

/// What a host application talks to. It lists device models and serial ports, binds a model and a port to
/// each of the three roles of `PortType`, opens the ports, and passes the commands of a test on to the device
/// of their role.
///
/// Commands return nothing: measurements and errors reach the `kiv_delegate` of the device. A command for a
/// role that has no device is dropped without a report. Everything here belongs to the main thread.
@interface StressECGDeviceManager : TarsilTwin <ORSSerialPortDelegate>

/// The one manager.
+ (StressECGDeviceManager*)share;

/// The kinds of exercise device: "Treadmill", "Ergometer".
- (NSArray*)getDeivceType;
/// New devices of that kind, which become `devices`; nil, and `devices` as they were, for a text that is not
/// exactly a kind.
- (NSArray*)getDeviceByTypeWithType:(NSString*)type;
/// New pulse oximeters for a serial port, which become `SpO2Devices`.
- (NSArray*)getSpO2Devices;
/// The names of the ports. The first call also starts a refresh every 2.0 s, and `isSpO2` says whether
/// refreshes serve `getPortsNameWithSpO2` too.
- (NSArray*)getPortWithIsSpO2:(BOOL)isSpO2;
/// One refresh: reads the port list anew and tells the closures when it changed.
- (void)port;
/// Chooses the device with that name for the role; with none of that name the choice stays as it is. Returns
/// the chosen device, nil when there is none and always for `PortTypeBP`.
- (KivStressDevice*)getSelectedWithDevice:(NSString*)device type:(PortType)type;
/// Chooses the port with that name for the role; for `PortTypeBP` also makes a new blood-pressure monitor.
- (void)selectedPortWithPort:(NSString*)port type:(PortType)type;
/// Binds the role's port to the role's device and opens it. YES when the role had both (an oximeter needs no
/// port); that the port is open is reported later.
- (BOOL)openPortWithType:(PortType)type;
/// Closes the exercise device's port, some moments later.
- (void)closePort;

/// Commands to the exercise device, as its operations of the same meaning.
- (void)startStressDevice;
- (void)stopStressDevice;
/// Treadmill: km/h and percent. Ergometer: watts, grade ignored.
- (void)setLoadWithKmph_or_power:(float)kmph_or_power grade:(float)grade;
- (void)requestLoad;
- (void)deviceState;

/// Blood pressure: the separate monitor (YES) or the exercise device's own unit (NO).
- (void)startBPWithIsPeripheral:(BOOL)isPeripheral;
- (void)breakBPWithIsPeripheral:(BOOL)isPeripheral;
- (void)requestBPWithIsPeripheral:(BOOL)isPeripheral;
/// The other way round than its neighbours: NO clears the separate monitor, YES does nothing.
- (void)clearBPWithIsPeripheral:(BOOL)isPeripheral;

/// Asks the role's device for its saturation; a type that is none of the three stops the process.
- (void)startSpO2WithType:(PortType)type;
/// For `PortTypeBP` the same, for the other roles nothing.
- (void)stopSpO2WithType:(PortType)type;
/// The Bluetooth oximeter, whose central and peripheral are given to the manager in C++.
- (BOOL)isSpO2BluetoothWithName:(NSString*)name;
- (NSString*)getSpO2BlueToothName;
- (void)connectBluetoothSpO2;

/// Hears of the ports whose delegate the host made this manager, and of the measurements of drivers that say
/// so. Held strongly.
@property(retain) id<KivStressPortDelegate> delegate;
/// The port list last read; nil before the first `getPortWithIsSpO2:`.
@property(copy) NSArray* ports;
/// The lists last built.
@property(copy) NSArray* devices;
@property(copy) NSArray* SpO2Devices;
/// Chosen ports of the roles.
@property(retain) ORSSerialPort* devicePort;
@property(retain) ORSSerialPort* BPPort;
@property(retain) ORSSerialPort* SpO2Port;
/// Chosen devices of the roles.
@property(retain) KivStressDevice* currentDevice;
@property(retain) KivStressDevice* BPD;
@property(retain) KivStressDevice* SpO2D;
/// Names last reported through the closure below it, which hears of changes of the port list.
@property(copy) NSArray* portNames;
@property(copy) TarsilNamesClosure getPortsName;
/// The same for the chooser of the oximeter's port; served only after `getPortWithIsSpO2:YES`.
@property(copy) NSArray* portNamesWithSpO2;
@property(copy) TarsilNamesClosure getPortsNameWithSpO2;
/// A blood-pressure command was meant for the separate monitor; never becomes NO again.
@property BOOL isTango;
/// What the last `getPortWithIsSpO2:` asked for.
@property BOOL getPortIsSpO2;
/// The oximeter's Bluetooth service and characteristic.
@property(copy) NSString* serviceid;
@property(copy) NSString* characteristicid;
/// Part of the interface; the manager does not use them.
@property BOOL deviceType;
@property(copy) NSString* befoSpO2Value;
@property BOOL isreceived;
@end
