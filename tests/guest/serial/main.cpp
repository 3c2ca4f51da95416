#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "tests/guest/serial/SerialGuest.hpp"

int main(int argc, char** argv) {
  testing::InitGoogleMock(&argc, argv);
  if (argc != 5) {
    std::fputs("usage: tests-guest-serial OTHER-PROGRAM USB-ADAPTER WATCHER PLUG-CYCLES\n", stderr);
    return 2;
  }
  tarsil::serialPrograms() = {
      .otherProgram = argv[1], .usbAdapter = argv[2], .watcher = argv[3], .plugCycles = std::stoi(argv[4])};
  return RUN_ALL_TESTS();
}
