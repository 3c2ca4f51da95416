#import <Foundation/Foundation.h>

/// The check of the frame formats that carry one.
@interface CRC16 : NSObject
/// CRC-16/ARC over the low bytes of 16-bit numbers: two upper-case hexadecimal digits for its low byte, then
/// two for its high byte. "123456789" gives "3D" and "BB". Any thread.
- (NSArray*)calculateCRC:(NSArray*)values;
@end

/// Conversions between bytes and texts of hexadecimal and binary digits. Characters are Unicode code points;
/// nil counts as an empty text. Any thread.
@interface NSString (BinaryDecimalHex)
/// Four binary digits for each hexadecimal digit; every other character is skipped.
+ (NSString*)getBinaryByHex:(NSString*)hex;
/// The number that binary digits stand for; only "1" counts as one.
+ (NSInteger)getDecimalByBinary:(NSString*)binary;
/// One upper-case hexadecimal digit for every four binary digits; "(null)" for four characters that are no
/// such group. Raises NSRangeException when the length is no multiple of four.
+ (NSString*)BinaryToHex:(NSString*)binary;
/// The number that hexadecimal digits stand for (the name says the opposite).
+ (NSInteger)getDecimalToHex:(NSString*)hex;
/// The bytes as UTF-8 text; nil when they are not valid UTF-8.
+ (NSString*)getDataForString:(NSData*)data;
/// Two lower-case hexadecimal digits a byte.
+ (NSString*)hexStringFromData:(NSData*)data;
/// The bytes that pairs of hexadecimal digits stand for; nil for an empty text.
+ (NSMutableData*)convertHexStrToData:(NSString*)hexStr;
/// The code point of the first character; 0 for an empty text.
@property(readonly) NSInteger ascii;
@end
