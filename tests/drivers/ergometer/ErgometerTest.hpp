#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "tarsil/core/KivStressDevice.hpp"
#include "tarsil/core/StressECGDeviceManager.hpp"
#include "tests/helpers/PrintedLines.hpp"
#include "tests/helpers/RecordingHost.hpp"
#include "tests/helpers/ScriptedPort.hpp"
#include "tests/helpers/hex.hpp"

namespace tarsil {

inline ExerciseDeviceSettings exerciseSettings(std::string name) {
  return {.Treadmill = 0,
          .name = std::move(name),
          .baud = 4800,
          .databits = 8,
          .stopbits = 1,
          .parity = 0,
          .getWithBP_SpO2 = 3,
          .setWithBP_SpO2 = 3,
          .canStopBP = false,
          .autoSend = false,
          .actualLoad = true};
}

/// What was written, as text, one entry a write.
inline std::vector<std::string> textsOf(const std::vector<Bytes>& writes) {
  std::vector<std::string> texts;
  for (const auto& bytes : writes) texts.emplace_back(bytes.begin(), bytes.end());
  return texts;
}

/// An ergometer on an open port, with a host of its own and another one at the shared manager.
template <class Model>
class ErgometerTest : public testing::Test {
 protected:
  ErgometerTest() {
    // Only a process of its own has a run loop of its own.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    ergometer->kiv_delegate = host;
    ergometer->setSerialPort(port);
    StressECGDeviceManager::share().delegate = managerHost;
  }

  ~ErgometerTest() override {
    StressECGDeviceManager::share().delegate = nullptr;
    // Second commands that are still due hold the driver.
    port.advance(std::chrono::seconds(1));
  }

  std::vector<std::string> sent() const { return textsOf(port.sent()); }
  void receive(std::string_view characters) { port.deliver(text(characters)); }
  void receiveByteByByte(std::string_view characters) { port.deliverByteByByte(text(characters)); }

  PrintedLines printed;
  ScriptedPort port;
  RecordingHost host;
  RecordingHost managerHost;
  std::shared_ptr<Model> ergometer = std::make_shared<Model>(exerciseSettings("ergometer"));
};

}  // namespace tarsil
