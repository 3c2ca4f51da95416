#include "tests/guest/serial/FtdiAdapter.hpp"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <system_error>
#include <utility>

namespace tarsil {
namespace {

using namespace std::chrono_literals;

/// Bytes of a packet that are not status.
constexpr std::size_t largestPacket = 62;
/// What the chip can hold while nobody asks for it; later bytes are lost.
constexpr std::size_t bufferSize = 256;

// Requests by their type: of USB itself, of the chip to it, and from it.
enum RequestType : std::uint8_t { ofUsb = 0x80, toChip = 0x40, fromChip = 0xC0 };
enum UsbRequest : std::uint8_t { getStatus = 0, getDescriptor = 6 };
enum DescriptorType : std::uint8_t { ofDevice = 1, ofConfiguration = 2, ofText = 3 };
enum ToChip : std::uint8_t {
  resetChip = 0,
  setModemOutputs = 1,
  setBaudRate = 3,
  setCharacter = 4,
  setLatency = 9
};
enum FromChip : std::uint8_t { getModemStatus = 5, getLatency = 10, readMemory = 0x90 };
enum Reset : std::uint16_t { output = 2 };

// The second byte of what the adapter tells with every packet.
constexpr std::uint8_t outputIsEmpty = 0x60;

Bytes textDescriptor(const std::string& text) {
  Bytes bytes{static_cast<std::uint8_t>(2 + 2 * text.size()), ofText};
  for (const char character : text) {
    bytes.push_back(static_cast<std::uint8_t>(character));
    bytes.push_back(0);
  }
  return bytes;
}

}  // namespace

FtdiAdapter::FtdiAdapter(unsigned socket, std::string serialNumber, FarEnd farEnd)
    : socket_(socket), serialNumber_(std::move(serialNumber)), farEnd_(std::move(farEnd)) {}

FtdiAdapter::~FtdiAdapter() {
  pullOut();
}

void FtdiAdapter::plugIn() {
  line_ = {};
  try {
    plug_ = std::make_unique<UsbPlug>(
        socket_, UsbPlug::Device{.answer = [this](const auto& request) { return answer(request); },
                                 .wanted = [this] { handOver(); },
                                 .sent =
                                     [this](UsbPlug::Transfer transfer, const Bytes& bytes) {
                                       output_.push_back({transfer, bytes});
                                       sendNext();
                                     },
                                 .withdrawn =
                                     [this](UsbPlug::Transfer transfer) {
                                       std::erase_if(output_, [=](const Output& output) {
                                         return output.transfer == transfer;
                                       });
                                     }});
  } catch (const std::system_error& error) {
    if (error.code() != std::errc::device_or_resource_busy) throw;
    retry_ = Timer::scheduled(10ms, false, [this](Timer&) { plugIn(); });
  }
}

void FtdiAdapter::pullOut() {
  for (const auto& timer : {std::exchange(retry_, nullptr), std::exchange(handover_, nullptr),
                            std::exchange(leaving_, nullptr)}) {
    if (timer) timer->invalidate();
  }
  plug_ = nullptr;
  received_.clear();
  output_.clear();
}

// What the driver asks for and sets

std::optional<Bytes> FtdiAdapter::answer(const UsbPlug::Request& request) {
  if (request.type == ofUsb && request.number == getStatus) return Bytes{0, 0};
  if (request.type == ofUsb && request.number == getDescriptor) {
    const Bytes bytes = descriptor(request.value);
    return bytes.empty() ? std::nullopt : std::optional(bytes);
  }
  if (request.type == fromChip && request.number == getModemStatus) {
    if (std::exchange(stumbles_, false)) return std::nullopt;
    return status();
  }
  if (request.type == fromChip && request.number == getLatency)
    return Bytes{static_cast<std::uint8_t>(line_.latency)};
  if (request.type == fromChip && request.number == readMemory) return Bytes{0xFF, 0xFF};
  if (request.type == toChip) obey(request);
  return Bytes{};
}

Bytes FtdiAdapter::descriptor(std::uint16_t which) const {
  switch (which >> 8U) {
    case ofDevice:  // 0403:6001, release 6.00 as every FT232R
      return {18, 1, 0, 2, 0, 0, 0, 8, 0x03, 0x04, 0x01, 0x60, 0x00, 0x06, 1, 2, 3, 1};
    case ofConfiguration:  // one interface, an endpoint each way
      return {9,    2, 32, 0, 1,    1, 0,  0xA0, 45, 9, 4, 0, 0, 2,  0xFF, 0xFF,
              0xFF, 2, 7,  5, 0x81, 2, 64, 0,    0,  7, 5, 2, 2, 64, 0,    0};
    case ofText:
      break;
    default:
      return {};
  }
  constexpr std::uint8_t english = 0x09;
  const std::array texts{Bytes{4, ofText, english, 4}, textDescriptor("FTDI"),
                         textDescriptor("FT232R USB UART"), textDescriptor(serialNumber_)};
  const std::size_t index = which & 0xFFU;
  return index < texts.size() ? texts.at(index) : Bytes{};
}

void FtdiAdapter::obey(const UsbPlug::Request& request) {
  switch (request.number) {
    case resetChip:
      if (request.value != output) received_.clear();
      return;
    case setModemOutputs:
      return setOutputs(request.value);
    case setBaudRate:
      return setSpeed(request);
    case setCharacter:
      return setCharacters(request.value);
    case setLatency:
      line_.latency = request.value & 0xFFU;
      return farEnd_.told("latency " + std::to_string(line_.latency));
    default:
      return;
  }
}

// 3 MHz through a divider with eighths, which come in an order of their own; 0 and 1 stand for the two
// fastest.
void FtdiAdapter::setSpeed(const UsbPlug::Request& request) {
  constexpr double clock = 3e6;
  constexpr std::array eighths{0, 4, 2, 1, 3, 5, 6, 7};
  const unsigned whole = request.value & 0x3FFFU;
  const unsigned part = request.value >> 14U | (request.index & 1U) << 2U;
  line_.speed = clock / (whole + eighths.at(part) / 8.0);
  if (part == 0 && whole <= 1) line_.speed = whole == 0 ? 3e6 : 2e6;
  tellLine();
}

void FtdiAdapter::setCharacters(std::uint16_t value) {
  static const std::array<std::string, 4> stopBits{"1", "1.5", "2", "?"};
  line_.dataBits = value & 0xFFU;
  line_.parity = "NOEMS???"[value >> 8U & 7U];
  line_.stopBits = stopBits.at(value >> 11U & 3U);
  tellLine();
  const bool breaks = (value & 0x4000U) != 0;
  if (std::exchange(line_.breaks, breaks) != breaks) farEnd_.told(breaks ? "break on" : "break off");
}

// The high byte says which of the two are meant.
void FtdiAdapter::setOutputs(std::uint16_t value) {
  if ((value & 0x100U) != 0) line_.dtr = (value & 1U) != 0;
  if ((value & 0x200U) != 0) line_.rts = (value & 2U) != 0;
  farEnd_.told(std::string("outputs") + (line_.dtr ? " dtr" : "") + (line_.rts ? " rts" : ""));
}

void FtdiAdapter::tellLine() const {
  farEnd_.told("line " + std::to_string(std::lround(line_.speed)) + " " + std::to_string(line_.dataBits) +
               line_.parity + line_.stopBits);
}

// From the line to the host

Bytes FtdiAdapter::status() const {
  const unsigned inputs = 0x01U | (inputs_.cts ? 0x10U : 0U) | (inputs_.dsr ? 0x20U : 0U) |
                          (inputs_.ri ? 0x40U : 0U) | (inputs_.dcd ? 0x80U : 0U);
  return {static_cast<std::uint8_t>(inputs), output_.empty() ? outputIsEmpty : std::uint8_t{0}};
}

void FtdiAdapter::setInputs(const Inputs& inputs) {
  inputs_ = inputs;
  inputsAreNews_ = true;
  handOver();
}

void FtdiAdapter::receive(ByteView bytes, Fault fault) {
  if (received_.empty()) beat_ = nextBeat();
  for (const std::uint8_t byte : bytes) {
    std::size_t held = 0;
    for (const Chunk& chunk : received_) held += chunk.bytes.size();
    if (held >= bufferSize) break;
    const bool joins = !received_.empty() && received_.back().fault == fault && fault == Fault::none &&
                       received_.back().bytes.size() < largestPacket;
    if (!joins) received_.push_back({{}, fault});
    received_.back().bytes.push_back(byte);
  }
  handOver();
}

bool FtdiAdapter::isDue() const {
  if (inputsAreNews_) return true;
  if (received_.empty()) return false;
  const bool isFull = received_.size() > 1 || received_.front().bytes.size() >= largestPacket;
  return isFull || Clock::now() >= beat_;
}

void FtdiAdapter::handOver() {
  while (plug_ && plug_->isInputWanted() && isDue()) giveFirst();
  schedule();
}

void FtdiAdapter::giveFirst() {
  Bytes packet = status();
  if (!received_.empty()) {
    const Chunk chunk = std::move(received_.front());
    received_.pop_front();
    packet[1] |= static_cast<std::uint8_t>(chunk.fault);
    packet.insert(packet.end(), chunk.bytes.begin(), chunk.bytes.end());
  }
  inputsAreNews_ = false;
  lastHandover_ = Clock::now();
  plug_->give(packet);
}

// The chip's latency timer runs all the time: what comes waits for its next beat.
Clock::Instant FtdiAdapter::nextBeat() const {
  const Duration latency = std::chrono::milliseconds(std::max(line_.latency, 1U));
  const Duration sinceLast = Clock::now() - lastHandover_;
  return lastHandover_ + (sinceLast / latency + 1) * latency;
}

void FtdiAdapter::schedule() {
  if (handover_) handover_->invalidate();
  handover_ = nullptr;
  if (!plug_ || received_.empty() || !plug_->isInputWanted()) return;
  const Duration rest = std::max(beat_ - Clock::now(), Duration::zero());
  handover_ = Timer::scheduled(rest, false, [this](Timer&) { handOver(); });
}

// From the host to the line

void FtdiAdapter::sendNext() {
  if (isHeld_ || leaving_ || output_.empty()) return;
  const Output& next = output_.front();
  farEnd_.sent(next.bytes);
  constexpr double bitsOfAByte = 10.0;
  const std::chrono::duration<double> time(bitsOfAByte * static_cast<double>(next.bytes.size()) /
                                           line_.speed);
  leaving_ = Timer::scheduled(
      std::chrono::duration_cast<Duration>(time), false,
      [this, transfer = next.transfer, size = next.bytes.size()](Timer&) {
        leaving_ = nullptr;
        std::erase_if(output_, [=](const Output& output) { return output.transfer == transfer; });
        plug_->taken(transfer, size);
        sendNext();
      });
}

void FtdiAdapter::holdOutput(bool held) {
  isHeld_ = held;
  sendNext();
}

}  // namespace tarsil
