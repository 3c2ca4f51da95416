#import "Test.h"

namespace {

using StringsTest = ObjcTest;

TEST_F(StringsTest, HexadecimalAndBinaryDigits) {
  EXPECT_EQ(cxx([NSString getBinaryByHex:@"1 f"]), "00011111");
  EXPECT_EQ(cxx([NSString getBinaryByHex:nil]), "");
  EXPECT_EQ([NSString getDecimalByBinary:@"102"], 4);
  EXPECT_EQ(cxx([NSString BinaryToHex:@"00011111"]), "1F");
  EXPECT_EQ(cxx([NSString BinaryToHex:@"0001x111"]), "1(null)");
  EXPECT_EQ([NSString getDecimalToHex:@"1G"], 1);
  EXPECT_EQ([NSString getDecimalToHex:@"ff"], 255);
}

TEST_F(StringsTest, BytesAndTheirTexts) {
  EXPECT_EQ(cxx([NSString hexStringFromData:dataFromHex("0AFF00")]), "0aff00");
  EXPECT_EQ(cxx([NSString hexStringFromData:[NSData data]]), "");
  EXPECT_EQ(cxx([NSString hexStringFromData:[NSString convertHexStrToData:@"abc"]]), "0abc");
  EXPECT_EQ(cxx([NSString hexStringFromData:[NSString convertHexStrToData:@"41.30D"]]), "41410d");
  EXPECT_EQ([NSString convertHexStrToData:@""], nil);
  EXPECT_EQ([NSString convertHexStrToData:nil], nil);
  EXPECT_TRUE([[NSString convertHexStrToData:@"00"] isKindOfClass:[NSMutableData class]]);
  EXPECT_EQ(cxx([NSString getDataForString:dataFromHex("e4b8b2")]), "串");
  EXPECT_EQ([NSString getDataForString:dataFromHex("ff")], nil);
}

TEST_F(StringsTest, AsciiIsTheFirstScalar) {
  EXPECT_EQ([@"A" ascii], 65);
  EXPECT_EQ([@"" ascii], 0);
  EXPECT_EQ([[NSString stringWithUTF8String:"😀"] ascii], 0x1F600);
}

TEST_F(StringsTest, TheCheckOfFrames) {
  NSMutableArray* const values = [NSMutableArray array];
  for (const char digit : {'1', '2', '3', '4', '5', '6', '7', '8', '9'})
    [values addObject:[NSNumber numberWithUnsignedShort:static_cast<unsigned short>(digit)]];
  CRC16* const crc = [[[CRC16 alloc] init] autorelease];
  EXPECT_EQ(cxx([[crc calculateCRC:values] componentsJoinedByString:@" "]), "3D BB");
  EXPECT_EQ(cxx([[crc calculateCRC:[NSArray array]] componentsJoinedByString:@" "]), "00 00");
}

TEST_F(StringsTest, TextsOfEveryKindComeThroughUnchanged) {
  KivBicycle* const device = [[[KivBicycle alloc] init] autorelease];
  const char bytes[] = "a\0b";
  NSString* const withZero = [[[NSString alloc] initWithBytes:bytes length:3
                                                     encoding:NSUTF8StringEncoding] autorelease];
  [device setName:withZero];
  EXPECT_TRUE([[device name] isEqualToString:withZero]);
}

}  // namespace
