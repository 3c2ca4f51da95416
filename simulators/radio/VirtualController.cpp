#include "simulators/radio/VirtualController.hpp"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <map>
#include <utility>

#include "simulators/radio/littleEndian.hpp"

namespace tarsil::simulators {
namespace {

using namespace std::chrono_literals;

// What a packet to or from the kernel begins with.
enum PacketType : std::uint8_t {
  commandPacket = 0x01,
  dataPacket = 0x02,
  eventPacket = 0x04,
  vendorPacket = 0xFF
};

enum Event : std::uint8_t {
  disconnectionComplete = 0x05,
  remoteVersionComplete = 0x0C,
  commandComplete = 0x0E,
  commandStatus = 0x0F,
  packetsCompleted = 0x13,
  leMeta = 0x3E,
};

enum LeEvent : std::uint8_t {
  leConnectionComplete = 0x01,
  leAdvertisingReport = 0x02,
  leConnectionUpdateComplete = 0x03,
  leRemoteFeaturesComplete = 0x04,
};

enum Command : std::uint16_t {
  disconnect = 0x0406,
  readRemoteVersion = 0x041D,
  reset = 0x0C03,
  readLocalName = 0x0C14,
  readTransmitPower = 0x0C2D,
  readLocalVersion = 0x1001,
  readLocalCommands = 0x1002,
  readLocalFeatures = 0x1003,
  readBufferSize = 0x1005,
  readAddress = 0x1009,
  readSignalStrength = 0x1405,
  leReadBufferSize = 0x2002,
  leReadFeatures = 0x2003,
  leReadAdvertisingPower = 0x2007,
  leSetScanEnable = 0x200C,
  leCreateConnection = 0x200D,
  leCancelConnection = 0x200E,
  leReadWhiteListSize = 0x200F,
  leConnectionUpdate = 0x2013,
  leReadChannelMap = 0x2015,
  leReadRemoteFeatures = 0x2016,
  leEncrypt = 0x2017,
  leRandom = 0x2018,
  leReadStates = 0x201C,
  leReadResolvingListSize = 0x202A,
};

enum Status : std::uint8_t {
  success = 0x00,
  unknownConnection = 0x02,
  connectionExists = 0x0B,
  commandDisallowed = 0x0C,
};

enum Channel : std::uint16_t { attributeChannel = 4, signallingChannel = 5, securityChannel = 6 };

constexpr std::uint16_t connectionHandle = 0x0040;
constexpr std::uint8_t randomAddress = 1;
constexpr std::uint8_t signalStrength = 0xC7;  // -57 dBm
constexpr std::array<std::uint8_t, 6> ownAddress{0x42, 0x00, 0x00, 0x01, 0xAA, 0x00};
constexpr auto advertisingInterval = 100ms;

Bytes zeros(std::size_t count) {
  return Bytes(count, 0);
}

}  // namespace

VirtualController::VirtualController(int descriptor, std::vector<std::shared_ptr<RadioPeripheral>> air,
                                     std::function<void(const std::string&)> said)
    : descriptor_(descriptor),
      air_(std::move(air)),
      said_(std::move(said)),
      source_(DispatchSource::read(descriptor, DispatchQueue::main())) {
  source_->setEventHandler([this] { readPackets(); });
  source_->setCancelHandler([descriptor] { close(descriptor); });
  source_->resume();
  advertising_ = Timer::scheduled(advertisingInterval, true, [this](Timer&) { advertise(); });
  constexpr std::uint8_t createController = 0x00;
  send(Bytes{vendorPacket, createController});
}

VirtualController::~VirtualController() {
  if (supervision_) supervision_->invalidate();
  advertising_->invalidate();
  // The handler names this object; the cancelled source closes the descriptor, which pulls the adapter out.
  source_->cancel();
}

bool VirtualController::notify(std::uint16_t valueHandle, ByteView value) {
  if (!connected_ || silent_) return false;
  const auto packet = connected_->attributes.notification(valueHandle, value);
  if (packet) l2cap(attributeChannel, *packet);
  return packet.has_value();
}

void VirtualController::endLink(Reason reason) {
  if (!connected_) return;
  if (supervision_) supervision_->invalidate();
  connected_ = nullptr;
  Bytes parameters{success};
  append16(parameters, connectionHandle);
  parameters.push_back(reason);
  event(disconnectionComplete, parameters);
  said_("disconnected " + std::to_string(reason));
}

void VirtualController::setSilent(bool silent) {
  silent_ = silent;
  if (supervision_) supervision_->invalidate();
  if (!silent || !connected_) return;
  supervision_ =
      Timer::scheduled(supervisionTimeout_ * 10ms, false, [this](Timer&) { endLink(supervisionTimeout); });
}

void VirtualController::readPackets() {
  std::array<std::uint8_t, 2048> buffer;
  for (;;) {
    const ssize_t count = read(descriptor_, buffer.data(), buffer.size());
    if (count <= 0) return;
    const ByteView packet = ByteView(buffer).first(static_cast<std::size_t>(count));
    if (packet.front() == commandPacket && packet.size() >= 4) command(read16(packet, 1), packet.subspan(4));
    if (packet.front() == dataPacket && packet.size() > 9) data(packet);
    if (packet.front() == vendorPacket && packet.size() >= 4) {
      said_("plugged in hci" + std::to_string(read16(packet, 2)));
    }
  }
}

void VirtualController::command(std::uint16_t opcode, ByteView parameters) {
  switch (opcode) {
    case leCreateConnection:
      return createConnection(parameters);
    case leCancelConnection:
      return cancelConnection();
    case disconnect:
      accept(opcode);
      return endLink(endedByHost);
    case leReadRemoteFeatures: {
      accept(opcode);
      Bytes features{success};
      append16(features, connectionHandle);
      append(features, zeros(8));
      return meta(leRemoteFeaturesComplete, features);
    }
    case readRemoteVersion: {
      accept(opcode);
      Bytes version{success};
      append16(version, connectionHandle);
      append(version, Bytes{0x09, 0x3F, 0, 0, 0});
      return event(remoteVersionComplete, version);
    }
    case leConnectionUpdate: {
      accept(opcode);
      Bytes update{success};
      append(update, parameters.subspan(0, 2));
      append(update, parameters.subspan(4, 6));
      return meta(leConnectionUpdateComplete, update);
    }
    case leSetScanEnable:
      scanning_ = parameters.front() != 0;
      return complete(opcode, Bytes{success});
    case reset:
      scanning_ = false;
      wanted_ = nullptr;
      connected_ = nullptr;
      return complete(opcode, Bytes{success});
    default:
      return complete(opcode, reply(opcode, parameters));
  }
}

// What the kernel asks a controller about itself. Commands that are not listed here succeed and say nothing.
Bytes VirtualController::reply(std::uint16_t opcode, ByteView parameters) const {
  static const std::map<std::uint16_t, Bytes> replies = {
      {readLocalName, zeros(248)},
      {readLocalVersion, {0x09, 0, 0, 0x09, 0x3F, 0, 0, 0}},
      {readLocalCommands, zeros(64)},
      {readLocalFeatures, {0, 0, 0, 0, 0x60, 0, 0, 0}},  // Low Energy only
      {readBufferSize, zeros(7)},
      {readAddress, {ownAddress.begin(), ownAddress.end()}},
      {leReadBufferSize, {251, 0, 8}},  // bytes a packet, packets
      {leReadFeatures, zeros(8)},
      {leReadAdvertisingPower, {0}},
      {leReadWhiteListSize, {8}},
      {leEncrypt, zeros(16)},
      {leRandom, {1, 2, 3, 4, 5, 6, 7, 8}},
      {leReadStates, {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x03, 0, 0}},
      {leReadResolvingListSize, {8}},
  };
  Bytes answer{success};
  if (const auto found = replies.find(opcode); found != replies.end()) append(answer, found->second);
  // These are about a connection and name it again.
  const bool aboutLink =
      opcode == readSignalStrength || opcode == readTransmitPower || opcode == leReadChannelMap;
  if (!aboutLink) return answer;
  append(answer, parameters.first(2));
  if (opcode == readSignalStrength) answer.push_back(signalStrength);
  if (opcode == readTransmitPower) answer.push_back(0);
  if (opcode == leReadChannelMap) append(answer, Bytes{0xFF, 0xFF, 0xFF, 0xFF, 0x1F});
  return answer;
}

void VirtualController::createConnection(ByteView parameters) {
  if (connected_ || wanted_)
    return accept(leCreateConnection, connected_ ? connectionExists : commandDisallowed);
  accept(leCreateConnection);
  const ByteView address = parameters.subspan(6, 6);
  const auto peer = std::find_if(air_.begin(), air_.end(), [&](const auto& peripheral) {
    return std::equal(address.begin(), address.end(), peripheral->address.begin());
  });
  // Nobody of that address is in the air: the kernel gives up by itself.
  wanted_ = peer == air_.end() ? std::make_shared<RadioPeripheral>() : *peer;
  std::copy(address.begin(), address.end(), wanted_->address.begin());
  supervisionTimeout_ = read16(parameters, 19);
}

void VirtualController::cancelConnection() {
  complete(leCancelConnection, Bytes{wanted_ ? success : commandDisallowed});
  if (wanted_) connectionComplete(unknownConnection);
  wanted_ = nullptr;
}

// A controller connects when it hears the peripheral advertise.
void VirtualController::establish() {
  wanted_->attributes.reset();
  connectionComplete(success);
  connected_ = std::exchange(wanted_, nullptr);
  said_("connected " + connected_->name);
}

void VirtualController::data(ByteView packet) {
  if ((read16(packet, 1) & 0x0FFFU) != connectionHandle || !connected_ || silent_) return;
  Bytes completed{1};
  append16(completed, connectionHandle);
  append16(completed, 1);
  event(packetsCompleted, completed);

  const std::uint16_t channel = read16(packet, 7);
  const ByteView payload = packet.subspan(9);
  if (channel == attributeChannel) {
    const Bytes answer = connected_->attributes.answer(payload);
    if (!answer.empty()) l2cap(channel, answer);
  }
  if (channel == signallingChannel && payload.size() >= 2 && payload[0] != 0x01 && payload[0] != 0x13) {
    l2cap(channel, Bytes{0x01, payload[1], 2, 0, 0, 0});  // not understood
  }
  if (channel == securityChannel) l2cap(channel, Bytes{0x05, 0x05});  // pairing is not supported
}

void VirtualController::advertise() {
  if (silent_) return;
  if (wanted_ && wanted_->advertises && !unreachable_) return establish();
  if (!scanning_) return;
  for (const auto& peripheral : air_) {
    if (peripheral->advertises && peripheral != connected_) advertise(*peripheral);
  }
}

void VirtualController::advertise(const RadioPeripheral& peripheral) {
  constexpr std::uint8_t connectable = 0x00;
  constexpr std::uint8_t scanResponse = 0x04;
  const auto report = [&](std::uint8_t type, const Bytes& content) {
    Bytes parameters{1, type, randomAddress};
    append(parameters, peripheral.address);
    parameters.push_back(static_cast<std::uint8_t>(content.size()));
    append(parameters, content);
    parameters.push_back(signalStrength);
    meta(leAdvertisingReport, parameters);
  };
  Bytes flagsAndService{2, 0x01, 0x06, 3, 0x03};
  append16(flagsAndService, peripheral.service);
  report(connectable, flagsAndService);
  Bytes name;
  if (peripheral.tellsName) {
    name = {static_cast<std::uint8_t>(peripheral.name.size() + 1), 0x09};
    name.insert(name.end(), peripheral.name.begin(), peripheral.name.end());
  }
  report(scanResponse, name);
}

void VirtualController::send(ByteView packet) const {
  // The kernel takes a packet whole or, when the adapter is being taken down, not at all.
  [[maybe_unused]] const ssize_t count = write(descriptor_, packet.data(), packet.size());
}

void VirtualController::event(std::uint8_t code, ByteView parameters) const {
  Bytes packet{eventPacket, code, static_cast<std::uint8_t>(parameters.size())};
  append(packet, parameters);
  send(packet);
}

void VirtualController::complete(std::uint16_t opcode, ByteView parameters) const {
  Bytes packet{1};
  append16(packet, opcode);
  append(packet, parameters);
  event(commandComplete, packet);
}

void VirtualController::accept(std::uint16_t opcode, std::uint8_t status) const {
  Bytes packet{status, 1};
  append16(packet, opcode);
  event(commandStatus, packet);
}

void VirtualController::meta(std::uint8_t code, ByteView parameters) const {
  Bytes packet{code};
  append(packet, parameters);
  event(leMeta, packet);
}

void VirtualController::connectionComplete(std::uint8_t status) const {
  Bytes parameters{status};
  append16(parameters, connectionHandle);
  parameters.push_back(0);  // we are the central
  parameters.push_back(randomAddress);
  append(parameters, wanted_->address);
  append(parameters, littleEndian16({24, 0, supervisionTimeout_}));  // interval in 1.25 ms, latency, time-out
  parameters.push_back(0);
  meta(leConnectionComplete, parameters);
}

void VirtualController::l2cap(std::uint16_t channel, ByteView payload) const {
  constexpr std::uint16_t firstFragment = 0x2000;
  const auto length = static_cast<unsigned>(payload.size());
  Bytes packet{dataPacket};
  append(packet, littleEndian16({connectionHandle | firstFragment, length + 4U, length, channel}));
  append(packet, payload);
  send(packet);
}

}  // namespace tarsil::simulators
