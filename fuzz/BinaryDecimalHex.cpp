#include "tarsil/codec/BinaryDecimalHex.hpp"

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/expect.hpp"
#include "tarsil/codec/CRC16.hpp"
#include "tarsil/codec/Crc16Register.hpp"
#include "tarsil/support/utf8.hpp"

using namespace tarsil;

namespace {

void checkTextToBytes(std::string_view text) {
  const auto bytes = BinaryDecimalHex::convertHexStrToData(text);
  expect(bytes.has_value() == !text.empty());
  if (bytes) expect(bytes->size() == (utf8::characterCount(text) + 1) / 2);
}

void checkBinary(std::string_view text) {
  expect(BinaryDecimalHex::getDecimalByBinary(text) >= 0);
  expect(BinaryDecimalHex::getDecimalToHex(text) >= 0);
  const std::string binary = BinaryDecimalHex::getBinaryByHex(text);
  expect(BinaryDecimalHex::getBinaryByHex(BinaryDecimalHex::BinaryToHex(binary)) == binary);
  try {
    BinaryDecimalHex::BinaryToHex(text);
    expect(utf8::characterCount(text) % 4 == 0);
  } catch (const std::out_of_range&) {
    expect(utf8::characterCount(text) % 4 != 0);
  }
}

void checkBytesToText(ByteView data) {
  const std::string hex = BinaryDecimalHex::hexStringFromData(data);
  expect(hex.size() == 2 * data.size());
  if (!data.empty()) expect(BinaryDecimalHex::convertHexStrToData(hex) == Bytes(data.begin(), data.end()));
  const auto text = BinaryDecimalHex::getDataForString(data);
  if (text) expect(text->size() == data.size());
}

void checkCrc(ByteView data) {
  Crc16Register running;
  for (const std::uint8_t byte : data) running.add(byte);
  expect(running.text() == CRC16::calculateCRC(std::vector<std::uint16_t>(data.begin(), data.end())));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const ByteView bytes(data, size);
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  checkTextToBytes(text);
  checkBinary(text);
  checkBytesToText(bytes);
  checkCrc(bytes);
  expect(ascii(text) >= 0);
  return 0;
}
