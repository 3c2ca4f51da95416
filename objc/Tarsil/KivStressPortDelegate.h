#import <Foundation/Foundation.h>

/// What a host hears from its devices. Every method is optional: implement the ones that you want; the
/// library asks with `respondsToSelector:` before each call. Every method is called on the main thread; none
/// may block it.
@protocol KivStressPortDelegate <NSObject>
@optional
/// A treadmill's load. speed in km/h and grade in percent, except where a driver says that it hands over
/// tenths.
- (void)onReceivedTreadmillLoadWithSpeed:(float)speed grade:(float)grade;
/// An ergometer's power in watts.
- (void)onReceivedErgometerPowerWithPower:(float)power;
/// An ergometer's pedal rate in revolutions per minute.
- (void)onReceivedErgometerRpmWithRpm:(float)rpm;
/// A blood-pressure result in mmHg, or a state of the monitor; status as its driver says.
- (void)onReceivedBPWithSysBP:(float)sysBP diaBP:(float)diaBP status:(NSInteger)status;
/// Oxygen saturation in percent, -1 when the oximeter has none; status as its driver says.
- (void)onReceivedSpO2WithSpO2:(float)SpO2 status:(NSInteger)status;
/// Part of the vocabulary; no part of the library calls it.
- (void)onStressDevicesListWithDeviceList:(NSArray*)deviceList;
/// A device's port has been opened.
- (void)portWasOpened;
/// A device's port disappeared (unplugged, powered off). Not called when the process ends.
- (void)portWasRemovedFromSystem;
/// Any error; code and details are texts that the driver lists.
- (void)onErrorWithCode:(NSString*)code details:(NSString*)details;
/// The device acknowledged a command.
- (void)successfully;
/// The answer to `deviceState`.
- (void)deviceIsReadyWithIsReady:(BOOL)isReady;
@end
