#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string_view>

#include "tarsil/core/KivStressDevice.hpp"
#include "tests/helpers/PrintedLines.hpp"
#include "tests/helpers/RecordingHost.hpp"
#include "tests/helpers/ScriptedPort.hpp"
#include "tests/helpers/hex.hpp"

namespace tarsil {

inline ExerciseDeviceSettings treadmillSettings() {
  return {.Treadmill = 1,
          .name = "treadmill",
          .baud = 4800,
          .databits = 8,
          .stopbits = 1,
          .parity = 0,
          .getWithBP_SpO2 = 0,
          .setWithBP_SpO2 = 0,
          .canStopBP = true,
          .autoSend = true,
          .actualLoad = true};
}

/// A treadmill on an open port, with a host.
template <class Model>
class TreadmillTest : public testing::Test {
 protected:
  TreadmillTest() {
    // A port and its clock belong to the process that made them: death tests make theirs anew.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    treadmill->kiv_delegate = host;
    treadmill->setSerialPort(port);
  }

  /// One chunk, straight to the driver: also an empty one, which no port delivers.
  void receive(ByteView chunk) {
    treadmill->serialPortDidReceiveData(*port.port(), Bytes(chunk.begin(), chunk.end()));
  }

  PrintedLines printed;
  ScriptedPort port;
  RecordingHost host;
  std::shared_ptr<Model> treadmill = std::make_shared<Model>(treadmillSettings());
};

}  // namespace tarsil
