#import <Tarsil/KivStressPortDelegate.h>
#import <Tarsil/TarsilTwin.h>

@class ORSSerialPort;

/// One configured device model: the base class of every driver. Its operations do nothing; a driver's do what
/// its model supports, and the others are silently ignored. They return nothing; what the device answers
/// reaches `kiv_delegate`, and is dropped while that is nil. A device without a port drops its commands
/// without a report; a load that no honest answer exists for stops the process where the driver says so.
/// Everything here belongs to the main thread.
@interface KivStressDevice : TarsilTwin

/// A treadmill (1) or an ergometer (0).
- (instancetype)initWithTreadmill:(NSInteger)Treadmill
                             name:(NSString*)name
                             baud:(NSInteger)baud
                         databits:(NSInteger)databits
                         stopbits:(NSInteger)stopbits
                           parity:(NSInteger)parity
                   getWithBP_SpO2:(NSInteger)getWithBP_SpO2
                   setWithBP_SpO2:(NSInteger)setWithBP_SpO2
                        canStopBP:(BOOL)canStopBP
                         autoSend:(BOOL)autoSend
                       actualLoad:(BOOL)actualLoad;
/// A blood-pressure monitor; `BP` is its baud rate in bit/s. It gets no name.
- (instancetype)initWithBP:(NSInteger)BP
                  databits:(NSInteger)databits
                  stopbits:(NSInteger)stopbits
                    parity:(NSInteger)parity
                  autoSend:(BOOL)autoSend
                 canStopBP:(BOOL)canStopBP;
/// A pulse oximeter; `SpO2` is its name.
- (instancetype)initWithSpO2:(NSString*)SpO2
                        baud:(NSInteger)baud
                    databits:(NSInteger)databits
                    stopbits:(NSInteger)stopbits
                      parity:(NSInteger)parity;
/// Every field at its default.
- (instancetype)init;

/// Where the driver reports results; the host sets it on the device that it chose. Held strongly.
@property(retain) id<KivStressPortDelegate> kiv_delegate;
/// 1 for a treadmill, 0 for everything else.
@property NSInteger Treadmill_or_Ergometer;
/// Catalogue name of the model; nil for the blood-pressure monitor.
@property(copy) NSString* name;
/// What the model offers besides load: 0 nothing, 3 a built-in blood-pressure (and SpO2) unit.
@property NSInteger getWithBP_SpO2;
/// The device reports its load by itself.
@property BOOL autoSend;
/// Name of the serial port chosen for this device; the library leaves it to the host.
@property(copy) NSString* port;
/// Line speed in bit/s.
@property NSInteger baud;
/// Which built-in functions the host has switched on, coded as `getWithBP_SpO2`.
@property NSInteger setWithBP_SpO2;
/// Path of the bound port; follows `serialPort`.
@property(copy) NSString* protPath;
/// The bound port, nil when there is none. Drivers become its delegate; nothing is opened or closed.
@property(retain) ORSSerialPort* serialPort;

/// Switches the built-in functions on or off; no driver here does.
- (void)setDeviceFunctionWithIsBP:(BOOL)isBP isSpO2:(BOOL)isSpO2;
/// Treadmill: speed in km/h and grade in percent. Ergometer: power in watts, grade ignored.
- (void)setLoadWithKmph_or_power:(float)kmph_or_power grade:(float)grade;
/// Asks for the current speed and grade, or power.
- (void)requestLoad;
/// Starts the belt or the exercise test.
- (void)startDeivce;
/// Stops the belt or ends the exercise test.
- (void)stopStressDevice;
/// Starts a blood-pressure measurement.
- (void)startBP;
/// Aborts a running measurement.
- (void)breakBP;
/// Asks for the last measurement's result.
- (void)requestBP;
/// Clears the stored measurement.
- (void)clearBP;
/// Starts, and stops, SpO2 reporting; no driver here does.
- (void)startSpO2;
- (void)stopSpO2;
/// Asks for an SpO2 value.
- (void)requestSpO2;
/// Stops at once, and leaves that state; no driver here does: a belt is stopped by `stopStressDevice`, and at
/// once only by the machine's own switch.
- (void)emergencyStop;
- (void)emergencyStopRecover;
/// Asks for the device's status; no driver here does.
- (void)requestStatus;
/// Reports the device's state; a driver that answers uses `deviceIsReadyWithIsReady:`. Most never do.
- (void)deviceState;
@end
