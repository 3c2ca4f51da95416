// Names of terminals, a line each: any three of them have one order, and a number counts by its value.

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/expect.hpp"
#include "tarsil/platform/linux/udevScan.hpp"

using namespace tarsil;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view text(reinterpret_cast<const char*>(data), size);
  std::vector<std::string_view> names;
  while (!text.empty() && names.size() < 8) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    names.push_back(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  for (const auto a : names) {
    expect(!comesBefore(a, a));
    const bool endsInDigit = !a.empty() && a.back() >= '0' && a.back() <= '9';
    expect(endsInDigit || comesBefore(std::string(a) + "9", std::string(a) + "10"));
    for (const auto b : names) {
      expect(a == b || comesBefore(a, b) != comesBefore(b, a));
      for (const auto c : names) expect(!comesBefore(a, b) || !comesBefore(b, c) || comesBefore(a, c));
    }
  }
  return 0;
}
