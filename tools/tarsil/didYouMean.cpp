#include "tools/tarsil/didYouMean.hpp"

#include <algorithm>
#include <cstddef>
#include <numeric>

namespace tarsil::cli {
namespace {

std::string inSmallLetters(std::string text) {
  for (char& letter : text) {
    if (letter >= 'A' && letter <= 'Z') letter = static_cast<char>(letter - 'A' + 'a');
  }
  return text;
}

/// How many letters have to be added, left out or changed to make one word of the other.
std::size_t distance(const std::string& one, const std::string& other) {
  std::vector<std::size_t> row(other.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (std::size_t i = 0; i < one.size(); ++i) {
    std::size_t diagonal = row[0];
    row[0] = i + 1;
    for (std::size_t j = 0; j < other.size(); ++j) {
      const std::size_t changed = diagonal + (one[i] == other[j] ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({changed, row[j] + 1, row[j + 1] + 1});
    }
  }
  return row.back();
}

}  // namespace

std::string didYouMean(const std::string& word, const std::vector<std::string>& known) {
  const std::string small = inSmallLetters(word);
  // A third of the letters may be wrong; of a short word one.
  std::size_t nearest = std::max<std::size_t>(1, small.size() / 3) + 1;
  const std::string* meant = nullptr;
  for (const std::string& candidate : known) {
    const std::string other = inSmallLetters(candidate);
    // Who stops typing in the middle has no letter wrong.
    const bool isBeginning = small.size() > 2 && other.starts_with(small);
    const std::size_t far = isBeginning ? 1 : distance(small, other);
    if (far >= nearest) continue;
    nearest = far;
    meant = &candidate;
  }
  return meant != nullptr ? "; did you mean \"" + *meant + "\"?" : "";
}

}  // namespace tarsil::cli
