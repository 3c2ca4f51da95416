#include "tarsil/support/utf8.hpp"

#include <cstdint>
#include <string_view>

#include "fuzz/expect.hpp"

using namespace tarsil;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const std::size_t count = utf8::characterCount(text);
  expect(count <= size);

  // The walks from both ends cut at the same places, and a text is valid when each of its characters is.
  std::size_t forth = 0;
  bool valid = true;
  for (std::string_view rest = text; !rest.empty(); ++forth) {
    const std::string_view character = utf8::firstCharacter(rest);
    const auto scalar = utf8::firstScalar(rest);
    expect(!character.empty() && character.size() <= 4 && (scalar || character.size() == 1));
    if (scalar) expect(*scalar <= 0x10FFFF && (*scalar < 0xD800 || *scalar > 0xDFFF));
    valid = valid && scalar.has_value();
    rest.remove_prefix(character.size());
  }
  expect(forth == count);
  expect(valid == utf8::isValid(text));

  std::size_t back = 0;
  for (std::string_view rest = text; !rest.empty(); ++back)
    rest.remove_suffix(utf8::lastCharacter(rest).size());
  expect(back == count);

  const std::size_t cut = count / 2;
  const std::string_view head = utf8::characters(text, 0, cut);
  const std::string_view tail = utf8::lastCharacters(text, count - cut);
  expect(head.size() + tail.size() == size);
  expect(utf8::characters(text, cut, count) == tail);
  return 0;
}
