#include "simulators/radio/AttributeServer.hpp"

#include <algorithm>

#include "simulators/radio/littleEndian.hpp"

namespace tarsil::simulators {
namespace {

// Types of attributes.
constexpr std::uint16_t primaryService = 0x2800;
constexpr std::uint16_t characteristicDeclaration = 0x2803;
constexpr std::uint16_t clientConfiguration = 0x2902;

enum Opcode : std::uint8_t {
  errorResponse = 0x01,
  exchangeMTURequest = 0x02,
  findInformationRequest = 0x04,
  readByTypeRequest = 0x08,
  readRequest = 0x0A,
  readBlobRequest = 0x0C,
  readByGroupTypeRequest = 0x10,
  writeRequest = 0x12,
  handleValueNotification = 0x1B,
  handleValueConfirmation = 0x1E,
  writeCommand = 0x52,
};

enum Refusal : std::uint8_t {
  invalidHandle = 0x01,
  invalidRequest = 0x04,
  notSupported = 0x06,
  notFound = 0x0A
};

constexpr std::size_t smallestMTU = 23;
constexpr std::size_t ownMTU = 247;
// Commands have this bit in their code: they are never answered.
constexpr std::uint8_t commandFlag = 0x40;

std::uint16_t handleIn(ByteView request) {
  return request.size() >= 3 ? read16(request, 1) : std::uint16_t{0};
}

Bytes refuse(ByteView request, Refusal reason) {
  Bytes answer{errorResponse, request.front()};
  append16(answer, handleIn(request));
  answer.push_back(reason);
  return answer;
}

std::size_t shortestRequest(std::uint8_t opcode) {
  switch (opcode) {
    case readByTypeRequest:
    case readByGroupTypeRequest:
      return 7;
    case findInformationRequest:
    case readBlobRequest:
      return 5;
    default:
      return 3;
  }
}

}  // namespace

void AttributeServer::addService(std::uint16_t UUID) {
  add(primaryService, littleEndian16({UUID}));
}

std::uint16_t AttributeServer::addCharacteristic(std::uint16_t UUID, std::uint8_t properties, Bytes value) {
  Bytes declaration{properties};
  append16(declaration, lastHandle() + 2U);
  append16(declaration, UUID);
  add(characteristicDeclaration, declaration);
  const std::uint16_t handle = add(UUID, std::move(value));
  if ((properties & notifies) != 0) add(clientConfiguration, {0, 0});
  return handle;
}

Bytes AttributeServer::answer(ByteView request) {
  if (request.empty()) return {};
  const std::uint8_t opcode = request.front();
  if (opcode == handleValueConfirmation) return {};
  if (request.size() < shortestRequest(opcode)) return refuse(request, invalidRequest);
  switch (opcode) {
    case exchangeMTURequest:
      return exchangeMTU(request);
    case findInformationRequest:
      return findInformation(request);
    case readByTypeRequest:
      return list(request, [](std::uint16_t handle, const Attribute& attribute) {
        Bytes entry = littleEndian16({handle});
        append(entry, attribute.value);
        return entry;
      });
    case readByGroupTypeRequest:
      return list(request, [this](std::uint16_t handle, const Attribute& attribute) {
        Bytes entry = littleEndian16({handle, endOfService(handle)});
        append(entry, attribute.value);
        return entry;
      });
    case readRequest:
    case readBlobRequest:
      return read(request);
    case writeRequest:
    case writeCommand:
      return write(request);
    default:
      return (opcode & commandFlag) != 0 ? Bytes{} : refuse(request, notSupported);
  }
}

std::optional<Bytes> AttributeServer::notification(std::uint16_t valueHandle, ByteView value) const {
  if (!isSubscribed(valueHandle)) return std::nullopt;
  Bytes packet{handleValueNotification};
  append16(packet, valueHandle);
  append(packet, value.first(std::min(value.size(), mtu_ - 3)));
  return packet;
}

bool AttributeServer::isSubscribed(std::uint16_t valueHandle) const {
  const auto configuration = attributes_.find(static_cast<std::uint16_t>(valueHandle + 1));
  return configuration != attributes_.end() && configuration->second.type == clientConfiguration &&
         (configuration->second.value.front() & 1U) != 0;
}

void AttributeServer::reset() {
  mtu_ = smallestMTU;
  for (auto& [handle, attribute] : attributes_) {
    if (attribute.type == clientConfiguration) attribute.value = {0, 0};
  }
}

std::uint16_t AttributeServer::add(std::uint16_t type, Bytes value) {
  const auto handle = static_cast<std::uint16_t>(lastHandle() + 1);
  attributes_[handle] = {type, std::move(value)};
  return handle;
}

std::uint16_t AttributeServer::lastHandle() const {
  return attributes_.empty() ? std::uint16_t{0} : attributes_.rbegin()->first;
}

std::uint16_t AttributeServer::endOfService(std::uint16_t serviceHandle) const {
  for (auto next = attributes_.upper_bound(serviceHandle); next != attributes_.end(); ++next) {
    if (next->second.type == primaryService) return static_cast<std::uint16_t>(next->first - 1);
  }
  return lastHandle();
}

Bytes AttributeServer::exchangeMTU(ByteView request) {
  mtu_ = std::clamp<std::size_t>(read16(request, 1), smallestMTU, ownMTU);
  Bytes answer{exchangeMTURequest + 1};
  append16(answer, ownMTU);
  return answer;
}

// All entries of one answer have the same length; the central asks again from where the answer ends.
Bytes AttributeServer::list(ByteView request,
                            const std::function<Bytes(std::uint16_t handle, const Attribute&)>& entry) const {
  const auto type = request.size() == 7 ? std::optional(read16(request, 5)) : std::nullopt;
  Bytes entries;
  std::size_t length = 0;
  for (auto at = attributes_.lower_bound(read16(request, 1));
       at != attributes_.end() && at->first <= read16(request, 3); ++at) {
    if (at->second.type != type) continue;
    Bytes next = entry(at->first, at->second);
    next.resize(std::min(next.size(), mtu_ - 2));
    if (!entries.empty() && next.size() != length) break;
    if (entries.size() + next.size() + 2 > mtu_) break;
    length = next.size();
    append(entries, next);
  }
  if (entries.empty()) return refuse(request, notFound);
  Bytes answer{static_cast<std::uint8_t>(request.front() + 1), static_cast<std::uint8_t>(length)};
  append(answer, entries);
  return answer;
}

Bytes AttributeServer::findInformation(ByteView request) const {
  constexpr std::uint8_t only16BitTypes = 1;
  Bytes answer{findInformationRequest + 1, only16BitTypes};
  for (auto at = attributes_.lower_bound(read16(request, 1));
       at != attributes_.end() && at->first <= read16(request, 3) && answer.size() + 4 <= mtu_; ++at) {
    append16(answer, at->first);
    append16(answer, at->second.type);
  }
  return answer.size() > 2 ? answer : refuse(request, notFound);
}

Bytes AttributeServer::read(ByteView request) const {
  const auto found = attributes_.find(read16(request, 1));
  if (found == attributes_.end()) return refuse(request, invalidHandle);
  ByteView value = found->second.value;
  const std::size_t offset = request.front() == readBlobRequest ? read16(request, 3) : 0U;
  value = value.subspan(std::min(offset, value.size()));
  Bytes answer{static_cast<std::uint8_t>(request.front() + 1)};
  append(answer, value.first(std::min(value.size(), mtu_ - 1)));
  return answer;
}

Bytes AttributeServer::write(ByteView request) {
  const auto found = attributes_.find(read16(request, 1));
  const bool wantsAnswer = request.front() == writeRequest;
  if (found == attributes_.end()) return wantsAnswer ? refuse(request, invalidHandle) : Bytes{};
  const ByteView value = request.subspan(3);
  if (found->second.type != clientConfiguration || value.size() == 2) {
    found->second.value.assign(value.begin(), value.end());
  }
  return wantsAnswer ? Bytes{writeRequest + 1} : Bytes{};
}

}  // namespace tarsil::simulators
