#pragma once

#include <any>
#include <optional>
#include <string>
#include <vector>

#include "tarsil/support/Error.hpp"
#include "tarsil/support/bytes.hpp"

#import "Tarsil/detail/twin.h"

// Values of one language as values of the other. What is made for Objective-C is autoreleased.
namespace tarsil::objc {

inline BOOL truth(bool value) {
  return value ? YES : NO;
}

/// The empty text for nil.
std::string textOf(NSString* string);
std::optional<std::string> optionalTextOf(NSString* string);
/// Texts that are no UTF-8, as a file system may hold, are read as Latin-1.
NSString* stringOf(const std::string& text);
NSString* stringOf(const std::optional<std::string>& text);

Bytes bytesOf(NSData* data);
std::optional<Bytes> optionalBytesOf(NSData* data);
NSMutableData* dataOf(ByteView bytes);
NSData* dataOf(const std::optional<Bytes>& bytes);

NSArray* stringsOf(const std::vector<std::string>& texts);
std::vector<std::string> textsOf(NSArray* strings);

template <class Object>
NSArray* twinsOf(const std::vector<std::shared_ptr<Object>>& objects, Class kind) {
  NSMutableArray* const twins = [NSMutableArray arrayWithCapacity:objects.size()];
  for (const auto& object : objects) [twins addObject:twinOf(object, kind)];
  return twins;
}
template <class Object>
std::vector<std::shared_ptr<Object>> objectsOf(NSArray* twins) {
  std::vector<std::shared_ptr<Object>> objects;
  for (NSUInteger index = 0; index < [twins count]; ++index)
    objects.push_back(sharedOf<Object>([twins objectAtIndex:index]));
  return objects;
}

NSError* errorOf(const Error& encountered);
Error errorOf(NSError* encountered);

/// An Objective-C object that C++ holds.
class Held {
 public:
  explicit Held(id object) : object_([object retain]) {}
  Held(const Held& other) : Held(other.object_) {}
  Held& operator=(const Held&) = delete;
  ~Held() {
    // On whatever thread lets go of it last.
    inPool([this] { [object_ release]; });
  }

  id object() const { return [[object_ retain] autorelease]; }

 private:
  id object_;
};

/// What a client attached: an object of its own, or a text that C++ attached; nil for anything else.
std::any userInfoOf(id object);
id userInfoOf(const std::any& held);

}  // namespace tarsil::objc
