#include "tarsil/serial/ORSSerialPort.hpp"

#include <functional>
#include <utility>

#include "tarsil/platform/SerialDeviceRegistry.hpp"
#include "tarsil/serial/detail/LivePorts.hpp"
#include "tarsil/serial/detail/ORSSerialPortImplementation.hpp"
#include "tarsil/serial/detail/ORSSerialPortPackets.hpp"
#include "tarsil/support/process.hpp"

namespace tarsil {

using detail::LineSettings;
using detail::ModemLines;

std::shared_ptr<ORSSerialPort> ORSSerialPort::serialPortWithPath(const std::string& path) {
  return serialPortWithDevice(SerialDeviceRegistry::shared()->deviceFromBSDPath(path));
}

std::shared_ptr<ORSSerialPort> ORSSerialPort::serialPortWithDevice(const Device& device) {
  if (!device) return nullptr;
  // A new object even when a live port stands for the same device: the two are equal, not one.
  auto port = std::make_shared<ORSSerialPort>(Key{}, device);
  port->implementation_->beginPackets();
  detail::LivePorts::shared().add(port);
  return port;
}

std::vector<std::shared_ptr<ORSSerialPort>> ORSSerialPort::livePorts() {
  return detail::LivePorts::shared().all();
}

std::optional<std::string> ORSSerialPort::bsdCalloutPathFromDevice(const SerialDevice& device) {
  return device.calloutPath;
}
std::optional<std::string> ORSSerialPort::bsdDialinPathFromDevice(const SerialDevice& device) {
  return device.dialinPath;
}
std::optional<std::string> ORSSerialPort::baseNameFromDevice(const SerialDevice& device) {
  return device.baseName;
}
std::optional<std::string> ORSSerialPort::serviceTypeFromDevice(const SerialDevice& device) {
  return device.clientType;
}
std::optional<std::string> ORSSerialPort::modemNameFromDevice(const SerialDevice& device) {
  return device.terminalName;
}
std::optional<std::string> ORSSerialPort::suffixFromDevice(const SerialDevice& device) {
  return device.suffix;
}

ORSSerialPort::ORSSerialPort(Key /*key*/, Device device)
    : implementation_(std::make_unique<Implementation>(*this, std::move(device))) {}

ORSSerialPort::~ORSSerialPort() = default;

const std::string& ORSSerialPort::path() const {
  return implementation_->path();
}
const std::string& ORSSerialPort::name() const {
  return implementation_->name();
}
const std::string& ORSSerialPort::description() const {
  return name();
}
std::size_t ORSSerialPort::hash() const {
  return std::hash<std::string>{}(path());
}
bool ORSSerialPort::operator==(const ORSSerialPort& other) const {
  return path() == other.path();
}
const ORSSerialPort::Device& ORSSerialPort::device() const {
  return implementation_->device();
}

void ORSSerialPort::setDelegate(ORSSerialPortDelegateRef delegate) {
  implementation_->setDelegate(std::move(delegate));
}
ORSSerialPortDelegateRef ORSSerialPort::delegate() const {
  return implementation_->delegate();
}

void ORSSerialPort::open() {
  implementation_->open();
}

bool ORSSerialPort::close() {
  implementation_->close();
  return true;
}

bool ORSSerialPort::isOpen() const {
  return implementation_->isOpen();
}

bool ORSSerialPort::sendData(ByteView data) {
  return implementation_->sendData(data);
}

int ORSSerialPort::duplicateDescriptor() const {
  return implementation_->duplicateDescriptor();
}

void ORSSerialPort::cleanupAfterSystemRemoval() {
  implementation_->cleanupAfterSystemRemoval();
}

void ORSSerialPort::cleanup() {
  printLine(
      "WARNING: Cleanup is deprecated and was never intended to be called publicly. "
      "You should update your code to avoid calling this method.",
      PrintedText::fixed);
  cleanupAfterSystemRemoval();
}

void ORSSerialPort::cleanupBeforeExit() {
  implementation_->cleanupBeforeExit();
}

std::uint64_t ORSSerialPort::baudRate() const {
  return implementation_->setting(&LineSettings::baudRate);
}
void ORSSerialPort::setBaudRate(std::uint64_t baudRate) {
  implementation_->set("baudRate", &LineSettings::baudRate, baudRate);
}

bool ORSSerialPort::allowsNonStandardBaudRates() const {
  return implementation_->setting(&LineSettings::allowsNonStandardBaudRates);
}
void ORSSerialPort::setAllowsNonStandardBaudRates(bool allowed) {
  implementation_->setAllowsNonStandardBaudRates(allowed);
}

std::uint64_t ORSSerialPort::numberOfStopBits() const {
  return implementation_->setting(&LineSettings::numberOfStopBits);
}
void ORSSerialPort::setNumberOfStopBits(std::uint64_t bits) {
  implementation_->set("numberOfStopBits", &LineSettings::numberOfStopBits, bits);
}

std::uint64_t ORSSerialPort::numberOfDataBits() const {
  return implementation_->setting(&LineSettings::numberOfDataBits);
}
void ORSSerialPort::setNumberOfDataBits(std::uint64_t bits) {
  implementation_->set("numberOfDataBits", &LineSettings::numberOfDataBits, bits);
}

ORSSerialPortParity ORSSerialPort::parity() const {
  return implementation_->setting(&LineSettings::parity);
}
void ORSSerialPort::setParity(ORSSerialPortParity parity) {
  const bool isKnown = parity == ORSSerialPortParity::Odd || parity == ORSSerialPortParity::Even;
  implementation_->set("parity", &LineSettings::parity, isKnown ? parity : ORSSerialPortParity::None);
}

bool ORSSerialPort::shouldEchoReceivedData() const {
  return implementation_->setting(&LineSettings::shouldEchoReceivedData);
}
void ORSSerialPort::setShouldEchoReceivedData(bool echo) {
  implementation_->set("shouldEchoReceivedData", &LineSettings::shouldEchoReceivedData, echo);
}

bool ORSSerialPort::usesRTSCTSFlowControl() const {
  return implementation_->setting(&LineSettings::usesRTSCTSFlowControl);
}
void ORSSerialPort::setUsesRTSCTSFlowControl(bool uses) {
  implementation_->setFlowControl("usesRTSCTSFlowControl", &LineSettings::usesRTSCTSFlowControl, uses);
}

bool ORSSerialPort::usesDTRDSRFlowControl() const {
  return implementation_->setting(&LineSettings::usesDTRDSRFlowControl);
}
void ORSSerialPort::setUsesDTRDSRFlowControl(bool uses) {
  implementation_->setFlowControl("usesDTRDSRFlowControl", &LineSettings::usesDTRDSRFlowControl, uses);
}

bool ORSSerialPort::usesDCDOutputFlowControl() const {
  return implementation_->setting(&LineSettings::usesDCDOutputFlowControl);
}
void ORSSerialPort::setUsesDCDOutputFlowControl(bool uses) {
  implementation_->setFlowControl("usesDCDOutputFlowControl", &LineSettings::usesDCDOutputFlowControl, uses);
}

bool ORSSerialPort::RTS() const {
  return implementation_->modemLine(&ModemLines::RTS);
}
void ORSSerialPort::setRTS(bool set) {
  implementation_->setOutputLine("RTS", &ModemLines::RTS, set);
}
bool ORSSerialPort::DTR() const {
  return implementation_->modemLine(&ModemLines::DTR);
}
void ORSSerialPort::setDTR(bool set) {
  implementation_->setOutputLine("DTR", &ModemLines::DTR, set);
}

bool ORSSerialPort::CTS() const {
  return implementation_->modemLine(&ModemLines::CTS);
}
bool ORSSerialPort::DSR() const {
  return implementation_->modemLine(&ModemLines::DSR);
}
bool ORSSerialPort::DCD() const {
  return implementation_->modemLine(&ModemLines::DCD);
}

// Packets and requests. Observers and evaluators of the client run on the port's own queue while these calls
// wait for it. They may drop the port, so each call holds it.

bool ORSSerialPort::sendRequest(const Request& request) {
  const auto kept = shared_from_this();
  return request && implementation_->packets().requests().send(request);
}

void ORSSerialPort::cancelQueuedRequest(const Request& request) {
  if (request) implementation_->packets().requests().cancel(request);
}

void ORSSerialPort::cancelAllQueuedRequests() {
  implementation_->packets().requests().cancelAll();
}

std::vector<ORSSerialPort::Request> ORSSerialPort::queuedRequests() const {
  return implementation_->packets().requests().waiting();
}

ORSSerialPort::Request ORSSerialPort::pendingRequest() const {
  return implementation_->packets().requests().pending();
}

void ORSSerialPort::startListeningForPacketsMatchingDescriptor(const Descriptor& descriptor) {
  const auto kept = shared_from_this();
  if (descriptor) implementation_->packets().startListening(descriptor);
}

void ORSSerialPort::stopListeningForPacketsMatchingDescriptor(const Descriptor& descriptor) {
  const auto kept = shared_from_this();
  if (descriptor) implementation_->packets().stopListening(descriptor);
}

std::vector<ORSSerialPort::Descriptor> ORSSerialPort::packetDescriptors() const {
  return implementation_->packets().descriptors();
}

}  // namespace tarsil
