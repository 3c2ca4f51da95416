#include "tools/tarsil/replay/descriptorFor.hpp"

#include <limits>
#include <stdexcept>

#include "tools/tarsil/replay/ScriptError.hpp"

namespace tarsil::cli {
namespace {

using Shape = ORSSerialPacketDescriptor;

std::uint64_t length(const Value& value) {
  return static_cast<std::uint64_t>(value.integer(0, std::numeric_limits<std::int64_t>::max()));
}

std::optional<Bytes> optionalBytes(const Operation& operation, const std::string& member) {
  const auto value = operation.find(member);
  return value && !value->isNull() ? std::optional(value->bytes()) : std::nullopt;
}

std::optional<std::string> optionalText(const Operation& operation, const std::string& member) {
  const auto value = operation.find(member);
  return value ? value->optionalText() : std::nullopt;
}

RegularExpression expression(const std::string& pattern) {
  try {
    return RegularExpression(pattern);
  } catch (const std::invalid_argument& error) {
    throw ScriptError("\"pattern\": " + std::string(error.what()));
  }
}

}  // namespace

std::shared_ptr<ORSSerialPacketDescriptor> descriptorFor(const Operation& operation) {
  const std::string id = operation["id"].text();
  const std::string kind = operation["kind"].text();
  const auto max = [&operation] { return length(operation["max"]); };
  if (kind == "any") {
    return std::make_shared<Shape>(
        Shape::Evaluated{.maximumPacketLength = max(), .userInfo = id, .responseEvaluator = {}});
  }
  if (kind == "length") {
    const auto wanted = length(operation["length"]);
    return std::make_shared<Shape>(Shape::Evaluated{
        .maximumPacketLength = max(), .userInfo = id, .responseEvaluator = [wanted](ByteView bytes) {
          return bytes.size() == wanted;
        }});
  }
  if (kind == "data") {
    return std::make_shared<Shape>(
        Shape::FixedPacket{.packetData = operation["data"].bytes(), .userInfo = id});
  }
  if (kind == "prefixSuffix") {
    return std::make_shared<Shape>(Shape::PrefixAndSuffix{.prefix = optionalBytes(operation, "prefix"),
                                                          .suffix = optionalBytes(operation, "suffix"),
                                                          .maximumPacketLength = max(),
                                                          .userInfo = id});
  }
  if (kind == "strings") {
    return std::make_shared<Shape>(
        Shape::PrefixAndSuffixStrings{.prefixString = optionalText(operation, "prefix"),
                                      .suffixString = optionalText(operation, "suffix"),
                                      .maximumPacketLength = max(),
                                      .userInfo = id});
  }
  if (kind == "regex") {
    return std::make_shared<Shape>(
        Shape::Expression{.regularExpression = expression(operation["pattern"].text()),
                          .maximumPacketLength = max(),
                          .userInfo = id});
  }
  throw ScriptError("there is no kind of descriptor \"" + kind + '"');
}

}  // namespace tarsil::cli
