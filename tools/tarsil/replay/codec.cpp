#include "tools/tarsil/replay/codec.hpp"

#include <functional>
#include <map>

#include "tarsil/codec/BinaryDecimalHex.hpp"
#include "tarsil/codec/CRC16.hpp"
#include "tools/tarsil/replay/ScriptError.hpp"

namespace tarsil::cli {
namespace {

using Codec = std::function<Json(const Value&)>;

Json bytesOfText(const Value& argument) {
  const auto bytes = BinaryDecimalHex::convertHexStrToData(argument.optionalText().value_or(""));
  return bytes ? hexadecimal(*bytes) : Json();
}

Json check(const Value& argument) {
  std::vector<std::uint16_t> values;
  for (const auto& element : argument.elements()) {
    values.push_back(static_cast<std::uint16_t>(element.integer(0, 0xffff)));
  }
  return CRC16::calculateCRC(values);
}

const std::map<std::string, Codec>& codecs() {
  using Hex = BinaryDecimalHex;
  static const std::map<std::string, Codec> all{
      {"getBinaryByHex", [](const Value& value) { return Hex::getBinaryByHex(value.text()); }},
      {"getDecimalByBinary", [](const Value& value) { return Hex::getDecimalByBinary(value.text()); }},
      {"BinaryToHex", [](const Value& value) { return Hex::BinaryToHex(value.text()); }},
      {"getDecimalToHex", [](const Value& value) { return Hex::getDecimalToHex(value.text()); }},
      {"ascii", [](const Value& value) { return ascii(value.text()); }},
      {"getDataForString",
       [](const Value& value) { return textOrNull(Hex::getDataForString(value.bytes())); }},
      {"hexStringFromData", [](const Value& value) { return Hex::hexStringFromData(value.bytes()); }},
      {"convertHexStrToData", bytesOfText},
      {"calculateCRC", check},
  };
  return all;
}

}  // namespace

Json codecResult(const Operation& operation) {
  const std::string name = operation["fn"].text();
  const auto codec = codecs().find(name);
  if (codec == codecs().end()) throw ScriptError("there is no codec \"" + name + '"');
  return codec->second(operation["arg"]);
}

}  // namespace tarsil::cli
