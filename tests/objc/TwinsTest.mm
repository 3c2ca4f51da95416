// One twin for each object of the library, whoever holds it, and what it is equal to.

#include <memory>
#include <thread>
#include <vector>

#include "tarsil/core/KivBicycle.hpp"
#include "tarsil/core/StressECGDeviceManager.hpp"
#include "tarsil/station/standardCatalogue.hpp"

#import "Tarsil/detail/deviceTwin.h"
#import "Tarsil/detail/twin.h"
#import "Test.h"

/// A device class of a host's own, which notices its end.
@interface OwnBicycle : KivBicycle
@end

static int endedBicycles = 0;

@implementation OwnBicycle
- (void)dealloc {
  ++endedBicycles;
  [super dealloc];
}
@end

using namespace tarsil::objc;

namespace {

using TwinsTest = ObjcTest;

TEST_F(TwinsTest, TheLibraryHandsOutTheSameTwinEachTime) {
  StressECGDeviceManager* const manager = [StressECGDeviceManager share];
  EXPECT_EQ([StressECGDeviceManager share], manager);
  NSArray* const devices = [manager getDeviceByTypeWithType:@"Treadmill"];
  EXPECT_EQ([devices objectAtIndex:2], [[manager devices] objectAtIndex:2]);
  EXPECT_EQ([manager getSelectedWithDevice:@"LodeTreadmill" type:PortTypeDevice], [devices objectAtIndex:2]);
  EXPECT_EQ([manager currentDevice], [devices objectAtIndex:2]);
  NSArray* const others = [manager getDeviceByTypeWithType:@"Treadmill"];
  EXPECT_NE([others objectAtIndex:2], [devices objectAtIndex:2]);
}

TEST_F(TwinsTest, ATwinThatTheHostLetGoOfComesBackWhileTheLibraryHoldsTheObject) {
  StressECGDeviceManager* const manager = [StressECGDeviceManager share];
  endedBicycles = 0;
  const void* twin = nullptr;
  inPool([&] {
    OwnBicycle* const bicycle = [[[OwnBicycle alloc] init] autorelease];
    twin = bicycle;
    [manager setCurrentDevice:bicycle];
  });
  inPool([&] {
    EXPECT_EQ(static_cast<const void*>([manager currentDevice]), twin);
    EXPECT_TRUE([[manager currentDevice] isKindOfClass:[OwnBicycle class]]);
  });
  EXPECT_EQ(endedBicycles, 0);
  [manager setCurrentDevice:nil];
  // A twin that waited in vain ends when the next one is made.
  inPool([&] { [[[KivBicycle alloc] init] autorelease]; });
  EXPECT_EQ(endedBicycles, 1);
}

TEST_F(TwinsTest, ATwinEndsWithTheHostsLastReferenceWhenTheLibraryHoldsNothing) {
  endedBicycles = 0;
  std::weak_ptr<tarsil::KivStressDevice> object;
  inPool([&] {
    OwnBicycle* const bicycle = [[[OwnBicycle alloc] init] autorelease];
    object = sharedOf<tarsil::KivStressDevice>(bicycle);
    EXPECT_FALSE(object.expired());
  });
  EXPECT_EQ(endedBicycles, 1);
  EXPECT_TRUE(object.expired());
}

TEST_F(TwinsTest, ATwinHoldsItsObject) {
  std::weak_ptr<tarsil::KivStressDevice> object;
  KivStressDevice* twin = nil;
  {
    const auto bicycle = std::make_shared<tarsil::KivBicycle>();
    object = bicycle;
    twin = [deviceTwin(bicycle) retain];
  }
  EXPECT_FALSE(object.expired());
  [twin setBaud:4800];
  EXPECT_EQ([twin baud], 4800);
  inPool([&] { [twin release]; });
}

TEST_F(TwinsTest, ManyThreadsTakeAndLetGoOfOneTwin) {
  const auto bicycle = std::make_shared<tarsil::KivBicycle>();
  const auto takeAndLetGo = [&] {
    for (int round = 0; round < 2000; ++round) {
      inPool([&] { EXPECT_EQ(sharedOf<tarsil::KivStressDevice>(deviceTwin(bicycle)), bicycle); });
      // Others come and go meanwhile.
      inPool([&] { deviceTwin(std::make_shared<tarsil::KivBicycle>()); });
    }
  };
  std::vector<std::thread> threads;
  for (int count = 0; count < 4; ++count) threads.emplace_back(takeAndLetGo);
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(bicycle.use_count(), 1);
}

TEST_F(TwinsTest, EveryModelHasATwinOfItsDriversName) {
  const auto models = tarsil::standardCatalogue().models();
  EXPECT_EQ(models.size(), 12U);
  for (const auto& model : models)
    EXPECT_EQ(cxx(NSStringFromClass([deviceTwin(model.makeDevice()) class])), model.className);
}

TEST_F(TwinsTest, EachInitialiserStoresItsArguments) {
  LodeTreadmill* const treadmill = [[[LodeTreadmill alloc] initWithTreadmill:1
                                                                        name:@"mine"
                                                                        baud:38400
                                                                    databits:8
                                                                    stopbits:1
                                                                      parity:0
                                                              getWithBP_SpO2:3
                                                              setWithBP_SpO2:2
                                                                   canStopBP:YES
                                                                    autoSend:NO
                                                                  actualLoad:YES] autorelease];
  EXPECT_EQ([treadmill Treadmill_or_Ergometer], 1);
  EXPECT_EQ(cxx([treadmill name]), "mine");
  EXPECT_EQ([treadmill baud], 38400);
  EXPECT_EQ([treadmill getWithBP_SpO2], 3);
  EXPECT_EQ([treadmill setWithBP_SpO2], 2);
  EXPECT_EQ([treadmill autoSend], NO);
  const auto object = sharedOf<tarsil::KivStressDevice>(treadmill);
  EXPECT_EQ(object->databits, 8);
  EXPECT_EQ(object->stopbits, 1);
  EXPECT_EQ(object->parity, 0);
  EXPECT_EQ(object->canStopBP, true);
  EXPECT_EQ(object->actualLoad, true);

  BPDevice* const monitor = [[[BPDevice alloc] initWithBP:9600
                                                 databits:8
                                                 stopbits:1
                                                   parity:0
                                                 autoSend:NO
                                                canStopBP:YES] autorelease];
  EXPECT_EQ([monitor name], nil);
  EXPECT_EQ([monitor baud], 9600);
  EXPECT_EQ([monitor autoSend], NO);
  EXPECT_EQ(sharedOf<tarsil::KivStressDevice>(monitor)->canStopBP, true);

  MEDXINGPort* const oximeter = [[[MEDXINGPort alloc] initWithSpO2:@"MEDXINGPort"
                                                              baud:9600
                                                          databits:8
                                                          stopbits:1
                                                            parity:0] autorelease];
  EXPECT_EQ(cxx([oximeter name]), "MEDXINGPort");
  EXPECT_EQ(sharedOf<tarsil::KivStressDevice>(oximeter)->canStopBP, std::nullopt);

  const tarsil::KivStressDevice* const plain =
      sharedOf<tarsil::KivStressDevice>([[[KivStressDevice alloc] init] autorelease]).get();
  EXPECT_EQ(plain->requestSpeed, -1.0F);
}

TEST_F(TwinsTest, PropertiesOfADeviceAreThoseOfItsObject) {
  KivBicycle* const device = [[[KivBicycle alloc] init] autorelease];
  const auto object = sharedOf<tarsil::KivStressDevice>(device);
  [device setTreadmill_or_Ergometer:7];
  [device setName:@"名"];
  [device setGetWithBP_SpO2:3];
  [device setAutoSend:NO];
  [device setPort:@"ttyUSB0"];
  [device setBaud:-1];
  [device setSetWithBP_SpO2:2];
  [device setProtPath:@"/dev/x"];
  EXPECT_EQ(object->Treadmill_or_Ergometer, 7);
  EXPECT_EQ(object->name, "名");
  EXPECT_EQ(object->getWithBP_SpO2, 3);
  EXPECT_FALSE(object->autoSend);
  EXPECT_EQ(object->port, "ttyUSB0");
  EXPECT_EQ(object->baud, -1);
  EXPECT_EQ(object->setWithBP_SpO2, 2);
  EXPECT_EQ(object->protPath, "/dev/x");
  EXPECT_EQ([device Treadmill_or_Ergometer], 7);
  EXPECT_EQ(cxx([device name]), "名");
  EXPECT_EQ(cxx([device port]), "ttyUSB0");
  EXPECT_EQ(cxx([device protPath]), "/dev/x");
  [device setName:nil];
  EXPECT_EQ(object->name, std::nullopt);
}

TEST_F(TwinsTest, PortsAreEqualByTheirPathsAndDescriptorsByThemselves) {
  [TarsilSerialDevice addTerminalAtPath:@"/dev/same" name:@"same"];
  ORSSerialPort* const one = [ORSSerialPort serialPortWithPath:@"/dev/same"];
  ORSSerialPort* const other = [[[ORSSerialPort alloc] initWithDevice:[one IOKitDevice]] autorelease];
  EXPECT_NE(one, other);
  EXPECT_TRUE([one isEqual:other]);
  EXPECT_EQ([one hash], [other hash]);
  EXPECT_FALSE([one isEqual:@"/dev/same"]);
  EXPECT_FALSE([one isEqual:nil]);
  EXPECT_EQ(cxx([one description]), "same");
  [TarsilSerialDevice removeTerminalAtPath:@"/dev/same"];

  NSData* const data = dataFromHex("24");
  ORSSerialPacketDescriptor* const first =
      [[[ORSSerialPacketDescriptor alloc] initWithPacketData:data userInfo:nil] autorelease];
  ORSSerialPacketDescriptor* const second =
      [[[ORSSerialPacketDescriptor alloc] initWithPacketData:data userInfo:nil] autorelease];
  EXPECT_TRUE([first isEqual:first]);
  EXPECT_FALSE([first isEqual:second]);
  EXPECT_FALSE([first isEqual:one]);
  EXPECT_FALSE([[first uuid] isEqual:[second uuid]]);
}

TEST_F(TwinsTest, ThereIsOnePortManagerHoweverItIsMade) {
  ORSSerialPortManager* const manager = [ORSSerialPortManager sharedSerialPortManager];
  EXPECT_EQ([[[ORSSerialPortManager alloc] init] autorelease], manager);
  EXPECT_EQ([[manager copy] autorelease], manager);
}

}  // namespace
