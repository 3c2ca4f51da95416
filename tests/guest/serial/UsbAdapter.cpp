#include "tests/guest/serial/UsbAdapter.hpp"

#include <gtest/gtest.h>

#include <utility>
#include <vector>

#include "tarsil/platform/SystemPlatform.hpp"
#include "tests/guest/serial/SerialGuest.hpp"

namespace tarsil {
namespace {

std::vector<std::string> command(unsigned socket, const std::string& serialNumber, const std::string& model) {
  std::vector<std::string> words{serialPrograms().usbAdapter, std::to_string(socket), serialNumber};
  if (!model.empty()) words.push_back(model);
  return words;
}

}  // namespace

UsbAdapter::UsbAdapter(unsigned socket, std::string serialNumber, const std::string& model)
    : serialNumber_(std::move(serialNumber)), program_(command(socket, serialNumber_, model)) {
  plugIn();
}

UsbAdapter::~UsbAdapter() {
  program_.closeInput();
  program_.wait();
}

void UsbAdapter::plugIn() {
  program_.writeLine("plug");
  EXPECT_TRUE(until([this] { return device() != nullptr; }));
}

void UsbAdapter::pullOut() {
  program_.writeLine("pull");
  EXPECT_TRUE(until([this] { return device() == nullptr; }));
}

std::shared_ptr<const SerialDevice> UsbAdapter::device() const {
  for (const auto& device : systemSerialDeviceRegistry()->devices()) {
    if (device->usb && device->usb->serialNumber == serialNumber_) return device;
  }
  return nullptr;
}

std::string UsbAdapter::settings() const {
  return last("line ");
}

std::string UsbAdapter::last(const std::string& word) const {
  const auto& lines = program_.lines();
  for (auto line = lines.rbegin(); line != lines.rend(); ++line) {
    if (line->starts_with(word)) return line->substr(word.size());
  }
  return "";
}

}  // namespace tarsil
