#import "Test.h"

#include "tarsil/platform/SerialDeviceRegistry.hpp"
#include "tarsil/platform/VirtualDeviceRegistry.hpp"

// Asked by the leak detector where there is one: what the runtime and Foundation keep for themselves. It sees
// no twin that leaks, because the table of twins knows it: the tests of twins look for their end.
extern "C" const char* __lsan_default_suppressions() {
  return "leak:libobjc.so\nleak:libgnustep-base.so\n";
}

ObjcTest::ObjcTest() : pool_([[NSAutoreleasePool alloc] init]) {
  static const bool once = [] {
    tarsil::SerialDeviceRegistry::exchangeShared(tarsil::VirtualDeviceRegistry::shared());
    return true;
  }();
  static_cast<void>(once);
  [TarsilRunLoop attach];
}

ObjcTest::~ObjcTest() {
  [pool_ drain];
}

void ObjcTest::runUntil(const std::function<bool()>& condition) {
  NSDate* const patience = [NSDate dateWithTimeIntervalSinceNow:60];
  while (!condition()) {
    ASSERT_GT([patience timeIntervalSinceNow], 0) << "what was waited for did not come";
    [[NSRunLoop currentRunLoop] runMode:NSDefaultRunLoopMode beforeDate:patience];
  }
}

void ObjcTest::runUntilSeen(const std::function<bool()>& condition) {
  NSTimer* const look = [NSTimer scheduledTimerWithTimeInterval:0.01
                                                         target:[NSObject class]
                                                       selector:@selector(class)
                                                       userInfo:nil
                                                        repeats:YES];
  runUntil(condition);
  [look invalidate];
}

void ObjcTest::runUntilClosed(ORSSerialPort* port) {
  runUntilSeen([port] { return [port isOpen] == NO; });
}

std::string ObjcTest::received(tarsil::simulators::PseudoTerminal& terminal, std::size_t count) {
  tarsil::Bytes received;
  runUntilSeen([&] {
    const auto bytes = terminal.read();
    received.insert(received.end(), bytes.begin(), bytes.end());
    return received.size() >= count;
  });
  return cxx([NSString hexStringFromData:[NSData dataWithBytes:received.data() length:received.size()]]);
}

std::string cxx(NSString* text) {
  return text == nil ? "(nil)" : [text UTF8String];
}

std::string cxx(NSException* exception) {
  return exception == nil ? "nothing" : cxx([exception name]) + ": " + cxx([exception reason]);
}

NSData* dataFromHex(const char* hex) {
  return [NSString convertHexStrToData:[NSString stringWithUTF8String:hex]];
}
