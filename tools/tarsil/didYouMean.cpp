#include "tools/tarsil/didYouMean.hpp"

#include <algorithm>
#include <cstddef>

namespace tarsil::cli {
namespace {

std::string inSmallLetters(std::string text) {
  for (char& letter : text) {
    if (letter >= 'A' && letter <= 'Z') letter = static_cast<char>(letter - 'A' + 'a');
  }
  return text;
}

/// How many letters have to be added, left out, changed, or swapped with their neighbour to make one word of
/// the other.
std::size_t distance(const std::string& one, const std::string& other) {
  std::vector<std::vector<std::size_t>> far(one.size() + 1, std::vector<std::size_t>(other.size() + 1));
  for (std::size_t i = 0; i <= one.size(); ++i) {
    for (std::size_t j = 0; j <= other.size(); ++j) {
      if (i == 0 || j == 0) {
        far[i][j] = i + j;
        continue;
      }
      const std::size_t changed = far[i - 1][j - 1] + (one[i - 1] == other[j - 1] ? 0 : 1);
      far[i][j] = std::min({changed, far[i - 1][j] + 1, far[i][j - 1] + 1});
      const bool isSwapped = i > 1 && j > 1 && one[i - 1] == other[j - 2] && one[i - 2] == other[j - 1];
      if (isSwapped) far[i][j] = std::min(far[i][j], far[i - 2][j - 2] + 1);
    }
  }
  return far.back().back();
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
