#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "simulators/lines/PseudoTerminal.hpp"

#import "Host.h"
#import "raisedBy.h"

/// What a host does: an autorelease pool around everything, and NSRunLoop on the main thread. The machine's
/// own ports are hidden: a test never drives a treadmill.
class ObjcTest : public testing::Test {
 protected:
  ObjcTest();
  ~ObjcTest() override;

  /// Runs the main thread's NSRunLoop until the condition holds; fails the test when that takes too long.
  static void runUntil(const std::function<bool()>& condition);
  /// The same for what tells the run loop nothing: it is looked at again and again.
  static void runUntilSeen(const std::function<bool()>& condition);
  static void runUntilClosed(ORSSerialPort* port);
  /// What a port has written to the terminal, once it is that many bytes.
  static std::string received(tarsil::simulators::PseudoTerminal& terminal, std::size_t count);

 private:
  NSAutoreleasePool* pool_;
};

/// "(nil)" for nil, so that texts can be compared.
std::string cxx(NSString* text);
/// "NAME: reason"; "nothing" for nil.
std::string cxx(NSException* exception);
NSData* dataFromHex(const char* hex);
