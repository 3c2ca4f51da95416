#import "Tarsil/detail/convert.h"

namespace tarsil::objc {

std::string textOf(NSString* string) {
  return optionalTextOf(string).value_or("");
}

std::optional<std::string> optionalTextOf(NSString* string) {
  if (string == nil) return std::nullopt;
  NSData* const utf8 = [string dataUsingEncoding:NSUTF8StringEncoding allowLossyConversion:YES];
  return std::string(static_cast<const char*>([utf8 bytes]), [utf8 length]);
}

NSString* stringOf(const std::string& text) {
  NSString* string = [[NSString alloc] initWithBytes:text.data()
                                              length:text.size()
                                            encoding:NSUTF8StringEncoding];
  if (string == nil) {
    string = [[NSString alloc] initWithBytes:text.data()
                                      length:text.size()
                                    encoding:NSISOLatin1StringEncoding];
  }
  return [string autorelease];
}

NSString* stringOf(const std::optional<std::string>& text) {
  return text ? stringOf(*text) : nil;
}

Bytes bytesOf(NSData* data) {
  return optionalBytesOf(data).value_or(Bytes{});
}

std::optional<Bytes> optionalBytesOf(NSData* data) {
  if (data == nil) return std::nullopt;
  const auto* const first = static_cast<const std::uint8_t*>([data bytes]);
  return Bytes(first, first + [data length]);
}

NSMutableData* dataOf(ByteView bytes) {
  return [NSMutableData dataWithBytes:bytes.data() length:bytes.size()];
}

NSData* dataOf(const std::optional<Bytes>& bytes) {
  return bytes ? dataOf(ByteView(*bytes)) : nil;
}

NSArray* stringsOf(const std::vector<std::string>& texts) {
  NSMutableArray* const strings = [NSMutableArray arrayWithCapacity:texts.size()];
  for (const auto& text : texts) [strings addObject:stringOf(text)];
  return strings;
}

std::vector<std::string> textsOf(NSArray* strings) {
  std::vector<std::string> texts;
  for (NSUInteger index = 0; index < [strings count]; ++index)
    texts.push_back(textOf([strings objectAtIndex:index]));
  return texts;
}

NSError* errorOf(const Error& encountered) {
  NSString* const domain =
      encountered.domain == Error::posixDomain ? NSPOSIXErrorDomain : stringOf(encountered.domain);
  NSDictionary* const details = [NSDictionary
      dictionaryWithObjectsAndKeys:stringOf(encountered.localizedDescription), NSLocalizedDescriptionKey,
                                   stringOf(encountered.filePath), NSFilePathErrorKey, nil];
  return [NSError errorWithDomain:domain code:encountered.code userInfo:details];
}

Error errorOf(NSError* encountered) {
  const bool isPosix = [[encountered domain] isEqualToString:NSPOSIXErrorDomain] != NO;
  return {.domain = isPosix ? Error::posixDomain : textOf([encountered domain]),
          .code = static_cast<int>([encountered code]),
          .localizedDescription = textOf([encountered localizedDescription]),
          .filePath = textOf([[encountered userInfo] objectForKey:NSFilePathErrorKey])};
}

std::any userInfoOf(id object) {
  if (object == nil) return {};
  return Held(object);
}

id userInfoOf(const std::any& held) {
  if (const auto* const own = std::any_cast<Held>(&held)) return own->object();
  if (const auto* const text = std::any_cast<std::string>(&held)) return stringOf(*text);
  return nil;
}

}  // namespace tarsil::objc
