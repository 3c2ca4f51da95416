// A text is no UUID, or has one form that every way of writing it leads to.

#include "tarsil/bluetooth/uuid.hpp"

#include <cctype>
#include <cstdint>
#include <string>

#include "fuzz/expect.hpp"

using namespace tarsil;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto text = bluetoothUUIDText({reinterpret_cast<const char*>(data), size});
  if (!text) return 0;
  expect(text->size() == 4 || text->size() == 36);
  expect(bluetoothUUIDText(*text) == text);
  std::string lower = *text;
  for (char& character : lower) character = static_cast<char>(std::tolower(character));
  expect(bluetoothUUIDText(lower) == text);
  if (text->size() == 4) expect(bluetoothUUIDText("0000" + *text + "-0000-1000-8000-00805f9b34fb") == text);
  return 0;
}
