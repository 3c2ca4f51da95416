#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>

#include "tests/guest/serial/SerialGuest.hpp"

int main(int argc, char** argv) {
  testing::InitGoogleMock(&argc, argv);
  if (argc != 2) {
    std::fputs("usage: tests-guest-serial OTHER-PROGRAM\n", stderr);
    return 2;
  }
  tarsil::serialPrograms() = {.otherProgram = argv[1]};
  return RUN_ALL_TESTS();
}
