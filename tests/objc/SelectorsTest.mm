// Every selector of the interface, as a host would ask for it.

#include <objc/runtime.h>

#include <algorithm>
#include <cstring>
#include <vector>

#import "Test.h"
#import "protocolSelectors.h"

namespace {

/// A class and its selectors: "+" those of the class, "-" those of its objects.
struct ClassRow {
  const char* name;
  std::vector<const char*> selectors;
};

const std::vector<ClassRow>& classes() {
  static const std::vector<ClassRow> rows{
      {"StressECGDeviceManager",
       {"+share",
        "-getDeivceType",
        "-getDeviceByTypeWithType:",
        "-getSpO2Devices",
        "-getPortWithIsSpO2:",
        "-port",
        "-getSelectedWithDevice:type:",
        "-selectedPortWithPort:type:",
        "-openPortWithType:",
        "-closePort",
        "-startStressDevice",
        "-stopStressDevice",
        "-setLoadWithKmph_or_power:grade:",
        "-requestLoad",
        "-deviceState",
        "-startBPWithIsPeripheral:",
        "-breakBPWithIsPeripheral:",
        "-requestBPWithIsPeripheral:",
        "-clearBPWithIsPeripheral:",
        "-startSpO2WithType:",
        "-stopSpO2WithType:",
        "-isSpO2BluetoothWithName:",
        "-getSpO2BlueToothName",
        "-connectBluetoothSpO2",
        "-delegate",
        "-setDelegate:",
        "-ports",
        "-setPorts:",
        "-devices",
        "-setDevices:",
        "-SpO2Devices",
        "-setSpO2Devices:",
        "-devicePort",
        "-setDevicePort:",
        "-BPPort",
        "-setBPPort:",
        "-SpO2Port",
        "-setSpO2Port:",
        "-currentDevice",
        "-setCurrentDevice:",
        "-BPD",
        "-setBPD:",
        "-SpO2D",
        "-setSpO2D:",
        "-portNames",
        "-setPortNames:",
        "-getPortsName",
        "-setGetPortsName:",
        "-portNamesWithSpO2",
        "-setPortNamesWithSpO2:",
        "-getPortsNameWithSpO2",
        "-setGetPortsNameWithSpO2:",
        "-isTango",
        "-setIsTango:",
        "-getPortIsSpO2",
        "-setGetPortIsSpO2:",
        "-serviceid",
        "-setServiceid:",
        "-characteristicid",
        "-setCharacteristicid:",
        "-deviceType",
        "-setDeviceType:",
        "-befoSpO2Value",
        "-setBefoSpO2Value:",
        "-isreceived",
        "-setIsreceived:",
        "-serialPortWasOpened:",
        "-serialPortWasRemovedFromSystem:",
        "-serialPort:didEncounterError:",
        "-serialPort:didReceiveData:"}},
      {"KivStressDevice",
       {"-initWithTreadmill:name:baud:databits:stopbits:parity:getWithBP_SpO2:setWithBP_SpO2:canStopBP:"
        "autoSend:actualLoad:",
        "-initWithBP:databits:stopbits:parity:autoSend:canStopBP:",
        "-initWithSpO2:baud:databits:stopbits:parity:",
        "-init",
        "-kiv_delegate",
        "-setKiv_delegate:",
        "-Treadmill_or_Ergometer",
        "-setTreadmill_or_Ergometer:",
        "-name",
        "-setName:",
        "-getWithBP_SpO2",
        "-setGetWithBP_SpO2:",
        "-autoSend",
        "-setAutoSend:",
        "-port",
        "-setPort:",
        "-baud",
        "-setBaud:",
        "-setWithBP_SpO2",
        "-setSetWithBP_SpO2:",
        "-protPath",
        "-setProtPath:",
        "-serialPort",
        "-setSerialPort:",
        "-setDeviceFunctionWithIsBP:isSpO2:",
        "-setLoadWithKmph_or_power:grade:",
        "-requestLoad",
        "-startDeivce",
        "-stopStressDevice",
        "-startBP",
        "-breakBP",
        "-requestBP",
        "-clearBP",
        "-startSpO2",
        "-stopSpO2",
        "-requestSpO2",
        "-emergencyStop",
        "-emergencyStopRecover",
        "-requestStatus",
        "-deviceState"}},
      {"KivSerialDriver",
       {"-serialPortWasOpened:", "-serialPortWasRemovedFromSystem:", "-serialPort:didEncounterError:",
        "-serialPort:didReceiveData:"}},
      {"ORSSerialPort",
       {"+serialPortWithPath:",
        "-initWithPath:",
        "+serialPortWithDevice:",
        "-initWithDevice:",
        "-init",
        "+deviceFromBSDPath:",
        "+bsdCalloutPathFromDevice:",
        "+bsdDialinPathFromDevice:",
        "+baseNameFromDevice:",
        "+serviceTypeFromDevice:",
        "+modemNameFromDevice:",
        "+suffixFromDevice:",
        "-open",
        "-close",
        "-sendData:",
        "-cleanupAfterSystemRemoval",
        "-cleanup",
        "-sendRequest:",
        "-cancelQueuedRequest:",
        "-cancelAllQueuedRequests",
        "-startListeningForPacketsMatchingDescriptor:",
        "-stopListeningForPacketsMatchingDescriptor:",
        "-delegate",
        "-setDelegate:",
        "-path",
        "-name",
        "-IOKitDevice",
        "-isOpen",
        "-baudRate",
        "-setBaudRate:",
        "-allowsNonStandardBaudRates",
        "-setAllowsNonStandardBaudRates:",
        "-numberOfStopBits",
        "-setNumberOfStopBits:",
        "-numberOfDataBits",
        "-setNumberOfDataBits:",
        "-parity",
        "-setParity:",
        "-shouldEchoReceivedData",
        "-setShouldEchoReceivedData:",
        "-usesRTSCTSFlowControl",
        "-setUsesRTSCTSFlowControl:",
        "-usesDTRDSRFlowControl",
        "-setUsesDTRDSRFlowControl:",
        "-usesDCDOutputFlowControl",
        "-setUsesDCDOutputFlowControl:",
        "-RTS",
        "-setRTS:",
        "-DTR",
        "-setDTR:",
        "-CTS",
        "-DSR",
        "-DCD",
        "-queuedRequests",
        "-pendingRequest",
        "-packetDescriptors",
        "-hash",
        "-isEqual:",
        "-description"}},
      {"ORSSerialPortManager",
       {"+sharedSerialPortManager", "-availablePorts", "-countOfAvailablePorts",
        "-objectInAvailablePortsAtIndex:", "-insertObject:inAvailablePortsAtIndex:",
        "-insertAvailablePorts:atIndexes:", "-removeObjectFromAvailablePortsAtIndex:",
        "-removeAvailablePortsAtIndexes:", "-systemWillSleep:", "-systemDidWake:", "+alloc", "-init",
        "-copy"}},
      {"ORSSerialRequest",
       {"+requestWithDataToSend:userInfo:timeoutInterval:responseDescriptor:",
        "-initWithDataToSend:userInfo:timeoutInterval:responseDescriptor:",
        "+requestWithDataToSend:userInfo:timeoutInterval:responseEvaluator:",
        "-initWithDataToSend:userInfo:timeoutInterval:responseEvaluator:", "-dataIsValidResponse:",
        "-dataToSend", "-userInfo", "-timeoutInterval", "-responseDescriptor", "-UUIDString",
        "-description"}},
      {"ORSSerialPacketDescriptor",
       {"-initWithMaximumPacketLength:userInfo:responseEvaluator:", "-initWithPacketData:userInfo:",
        "-initWithPrefix:suffix:maximumPacketLength:userInfo:",
        "-initWithPrefixString:suffixString:maximumPacketLength:userInfo:",
        "-initWithRegularExpression:maximumPacketLength:userInfo:", "-init", "-dataIsValidPacket:",
        "-packetMatchingAtEndOfBuffer:", "-packetData", "-prefix", "-suffix", "-regularExpression",
        "-responseEvaluator", "-maximumPacketLength", "-userInfo", "-uuid", "-hash", "-isEqual:"}},
      {"ORSSerialBuffer",
       {"-initWithMaximumLength:", "-init", "-appendData:", "-clearBuffer", "-maximumLength", "-data"}},
      {"NSString",
       {"+getBinaryByHex:", "+getDecimalByBinary:", "+BinaryToHex:", "+getDecimalToHex:",
        "+getDataForString:", "+hexStringFromData:", "+convertHexStrToData:", "-ascii"}},
      {"CRC16", {"-calculateCRC:"}},
      {"TarsilClosure", {"+namesFunction:context:", "+evaluatorFunction:context:"}},
      {"TarsilRunLoop", {"+attach"}},
      {"TarsilSerialDevice",
       {"+devices", "+addTerminalAtPath:name:", "+removeTerminalAtPath:", "-calloutPath", "-terminalName",
        "-stablePath"}},
  };
  return rows;
}

Class classNamed(const char* name) {
  return NSClassFromString([NSString stringWithUTF8String:name]);
}

bool answers(Class asked, const char* selector) {
  SEL const name = sel_registerName(selector + 1);
  return (*selector == '+' ? [asked respondsToSelector:name] : [asked instancesRespondToSelector:name]) != NO;
}

struct SelectorsTest : ObjcTest {};

TEST_F(SelectorsTest, EveryClassAnswersEverySelectorOfItsRow) {
  std::size_t count = 0;
  for (const ClassRow& row : classes()) {
    ASSERT_NE(classNamed(row.name), nil) << row.name;
    for (const char* selector : row.selectors) {
      EXPECT_TRUE(answers(classNamed(row.name), selector)) << row.name << " " << selector;
      ++count;
    }
  }
  // With the nineteen of the protocols, the number that docs/objective-c.md names.
  EXPECT_EQ(count, 239u);
  EXPECT_FALSE(answers([StressECGDeviceManager class], "-getDeviceType"));
}

TEST_F(SelectorsTest, NoClassHasASelectorThatItsRowDoesNotName) {
  // What the objects of the layer tell each other, and what they have from NSObject and change.
  const std::vector<std::string> own{"release",
                                     "dealloc",
                                     "valueForKey:",
                                     "addObserver:forKeyPath:options:context:",
                                     "copyWithZone:",
                                     "allocWithZone:",
                                     "automaticallyNotifiesObserversForKey:"};
  for (const ClassRow& row : classes()) {
    if (std::strcmp(row.name, "NSString") == 0) continue;
    for (const char kind : {'-', '+'}) {
      Class const asked = classNamed(row.name);
      unsigned count = 0;
      Method* const methods = class_copyMethodList(kind == '+' ? object_getClass(asked) : asked, &count);
      for (unsigned index = 0; index < count; ++index) {
        const std::string name = sel_getName(method_getName(methods[index]));
        if (name.starts_with("tarsil") || name.starts_with(".cxx") ||
            std::find(own.begin(), own.end(), name) != own.end())
          continue;
        if (row.name == std::string("TarsilClosure") && name == "initWithFunction:context:") continue;
        EXPECT_THAT(row.selectors, testing::Contains(testing::StrEq(kind + name))) << row.name;
      }
      free(methods);
    }
  }
}

TEST_F(SelectorsTest, EveryDriverIsAClassWithTheSelectorsOfADevice) {
  const std::vector<const char*> serial{
      "LodeTreadmill", "LodeOEMTreadmill",  "TrackMaster", "TM_400V2",    "ErgolineP10", "ErgosanaP10",
      "ErgometricsP3", "LodeErgometer38K4", "BPDevice",    "MEDXINGPort", "SpO2Device"};
  for (const char* name : serial) {
    EXPECT_TRUE([classNamed(name) isSubclassOfClass:[KivSerialDriver class]]) << name;
    EXPECT_TRUE([classNamed(name) conformsToProtocol:@protocol(ORSSerialPortDelegate)]) << name;
  }
  for (const char* name : {"KivBicycle", "MEDXINGSpO2"}) {
    EXPECT_TRUE([classNamed(name) isSubclassOfClass:[KivStressDevice class]]) << name;
    EXPECT_FALSE([classNamed(name) conformsToProtocol:@protocol(ORSSerialPortDelegate)]) << name;
  }
}

TEST_F(SelectorsTest, TheProtocolsHaveElevenOptionalMethodsAndEightOfWhichOneIsRequired) {
  std::size_t count = 0;
  for (SEL const* selector = kivStressPortDelegateSelectors(); *selector != nullptr; ++selector, ++count) {
    EXPECT_TRUE([EveryMethod instancesRespondToSelector:*selector]) << sel_getName(*selector);
    EXPECT_EQ(protocol_getMethodDescription(@protocol(KivStressPortDelegate), *selector, YES, YES).name,
              nullptr);
  }
  EXPECT_EQ(count, 11u);
  count = 0;
  for (SEL const* selector = ORSSerialPortDelegateSelectors(); *selector != nullptr; ++selector, ++count) {
    EXPECT_TRUE([EveryMethod instancesRespondToSelector:*selector]) << sel_getName(*selector);
    EXPECT_EQ(
        protocol_getMethodDescription(@protocol(ORSSerialPortDelegate), *selector, YES, YES).name != nullptr,
        count == 0)
        << sel_getName(*selector);
  }
  EXPECT_EQ(count, 8u);
}

}  // namespace
