#import "Tarsil/CRC16.h"

#include "tarsil/codec/BinaryDecimalHex.hpp"
#include "tarsil/codec/CRC16.hpp"

#import "Tarsil/detail/convert.h"
#import "Tarsil/detail/raise.h"

using namespace tarsil::objc;
using Codec = tarsil::BinaryDecimalHex;

@implementation CRC16

- (NSArray*)calculateCRC:(NSArray*)values {
  std::vector<std::uint16_t> numbers;
  for (NSUInteger index = 0; index < [values count]; ++index)
    numbers.push_back([[values objectAtIndex:index] unsignedShortValue]);
  const auto check = tarsil::CRC16::calculateCRC(numbers);
  return stringsOf({check.begin(), check.end()});
}

@end

// Beside a class, because a linker takes no archive's member for a category alone; CMakeLists.txt has it ask
// for the class.
@implementation NSString (BinaryDecimalHex)

+ (NSString*)getBinaryByHex:(NSString*)hex {
  return stringOf(Codec::getBinaryByHex(textOf(hex)));
}
+ (NSInteger)getDecimalByBinary:(NSString*)binary {
  return Codec::getDecimalByBinary(textOf(binary));
}
+ (NSString*)BinaryToHex:(NSString*)binary {
  std::string hex;
  raising([&] { hex = Codec::BinaryToHex(textOf(binary)); });
  return stringOf(hex);
}
+ (NSInteger)getDecimalToHex:(NSString*)hex {
  return Codec::getDecimalToHex(textOf(hex));
}
+ (NSString*)getDataForString:(NSData*)data {
  return stringOf(Codec::getDataForString(bytesOf(data)));
}
+ (NSString*)hexStringFromData:(NSData*)data {
  return stringOf(Codec::hexStringFromData(bytesOf(data)));
}
+ (NSMutableData*)convertHexStrToData:(NSString*)hexStr {
  const auto bytes = Codec::convertHexStrToData(textOf(hexStr));
  return bytes ? dataOf(tarsil::ByteView(*bytes)) : nil;
}
- (NSInteger)ascii {
  return tarsil::ascii(textOf(self));
}

@end
