// Nothing else may be included here: only what the two headers declare counts as declared.
#import "protocolSelectors.h"

#import <Tarsil/KivStressPortDelegate.h>
#import <Tarsil/ORSSerialPortDelegate.h>

SEL const* kivStressPortDelegateSelectors(void) {
  static SEL selectors[12];
  SEL const declared[] = {
    @selector(onReceivedTreadmillLoadWithSpeed:grade:),
    @selector(onReceivedErgometerPowerWithPower:),
    @selector(onReceivedErgometerRpmWithRpm:),
    @selector(onReceivedBPWithSysBP:diaBP:status:),
    @selector(onReceivedSpO2WithSpO2:status:),
    @selector(onStressDevicesListWithDeviceList:),
    @selector(portWasOpened),
    @selector(portWasRemovedFromSystem),
    @selector(onErrorWithCode:details:),
    @selector(successfully),
    @selector(deviceIsReadyWithIsReady:),
    NULL
  };
  memcpy(selectors, declared, sizeof declared);
  return selectors;
}

SEL const* ORSSerialPortDelegateSelectors(void) {
  static SEL selectors[9];
  SEL const declared[] = {
    @selector(serialPortWasRemovedFromSystem:),
    @selector(serialPort:didReceiveData:),
    @selector(serialPort:didReceivePacket:matchingDescriptor:),
    @selector(serialPort:didReceiveResponse:toRequest:),
    @selector(serialPort:requestDidTimeout:),
    @selector(serialPort:didEncounterError:),
    @selector(serialPortWasOpened:),
    @selector(serialPortWasClosed:),
    NULL
  };
  memcpy(selectors, declared, sizeof declared);
  return selectors;
}
