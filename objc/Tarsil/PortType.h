#import <Foundation/Foundation.h>

/// The role of a serial port.
typedef NS_ENUM(NSInteger, PortType) {
  /// The exercise device: treadmill or ergometer.
  PortTypeDevice = 0,
  /// The separate blood-pressure monitor.
  PortTypeBP = 1,
  /// The separate pulse oximeter.
  PortTypeSpO2 = 2,
};
